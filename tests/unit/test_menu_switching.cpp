// Video and audio switching, switch-all and the panel lock. Video and audio
// share one implementation: the tables run both kinds where they differ.
#include <sys/stat.h>
#include <unistd.h>

#include "menu_fixture.h"
#include "tav_menu_switch_all.h"

using namespace mtest;

namespace {

TAV_AV_SWITCH_STATE st(bool video) {
    return video ? tav_video_get_state() : tav_audio_get_state();
}
TAV_ENUM_MENUSTATUS home(bool video) {
    return video ? menu_vid_display : menu_aud_display;
}

// Paging: steps of 8, 11 shown, the last page ends on the last entry.
struct PagingCase {
    bool video;
    TAV_ENUM_MENUSTATUS menu;
    int outputs, inputs;
    const char* keys;
    std::vector<int> starts; // page start after each key
};

class Paging : public MenuTest, public ::testing::WithParamInterface<PagingCase> {};

TEST_P(Paging, PageStartsAtTheEndsOfTheList) {
    const PagingCase& c = GetParam();
    Ports p{range(1, c.inputs), range(c.inputs + 1, c.inputs + c.outputs)};
    device(c.video ? p : Ports{}, c.video ? Ports{} : p);
    g_tav_menu = c.menu;
    const bool status = c.menu == menu_vid_display || c.menu == menu_aud_display;
    const bool swall = c.menu == menu_switch_vid_all || c.menu == menu_switch_aud_all;
    if (swall)
        tav_menu_set_switch_all_mode(c.video ? 1 : 2);
    for (size_t i = 0; c.keys[i] != '\0'; i++) {
        const char k[2] = {c.keys[i], 0};
        keys(k);
        if (c.starts[i] < 0) { // LEFT on the first page leaves the menu
            EXPECT_EQ(g_tav_menu, menu_switch_all);
            EXPECT_TRUE(redraw_requested());
            break;
        }
        ASSERT_EQ(g_tav_menu, c.menu) << "key " << i;
        if (swall) { // the inputs are numbered from 1: the page's first one
            EXPECT_EQ(tav_menu_switch_all_get_state().press_start, c.starts[i]) << i;
            char first[12];
            snprintf(first, sizeof first, "%02d", c.starts[i] + 1);
            EXPECT_EQ(lcd(0).substr(6, 2), first) << i;
        } else {
            EXPECT_EQ(status ? st(c.video).switch_start : st(c.video).io_start, c.starts[i]) << i;
        }
    }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Switching, Paging, ::testing::Values(
    PagingCase{true, menu_vid_display, 20, 4, "RRLLL", {8, 9, 1, 0, 0}},
    PagingCase{true, menu_vid_display, 11, 4, "R", {0}},
    PagingCase{true, menu_vid_display, 12, 4, "RRL", {1, 1, 0}},
    PagingCase{true, menu_vid_display, 40, 4, "RRRRL", {8, 16, 24, 29, 21}},
    // The list page pages over the larger of the two counts.
    PagingCase{true, meun_vid_io_display, 4, 20, "RRL", {8, 9, 1}},
    PagingCase{false, menu_aud_display, 20, 4, "RRLL", {8, 9, 1, 0}},
    PagingCase{false, meun_aud_io_display, 3, 14, "RL", {3, 0}},
    // Switch-all pages over the inputs; LEFT on the first page: the selection.
    PagingCase{true, menu_switch_vid_all, 2, 30, "RRRLLLL", {8, 16, 19, 11, 3, 0, -1}},
    PagingCase{false, menu_switch_aud_all, 2, 12, "RLL", {1, 0, -1}}));
// clang-format on

// Number entry: the right part of the bottom line and the cursor column.
struct EntryCase {
    const char* keys;
    std::string text; // columns 27-38 of the bottom line
    int cursor;
    int press_state, select;
};

class EntryText : public MenuTest, public ::testing::WithParamInterface<EntryCase> {};

TEST_P(EntryText, BottomLineAndCursor) {
    const EntryCase& c = GetParam();
    for (bool video : {true, false}) {
        SCOPED_TRACE(video ? "video" : "audio");
        // Inputs 5-8; outputs 1-4 (one digit) and 9-20 (two digits).
        Ports p{range(5, 8), range(1, 4)};
        for (int o : range(9, 20))
            p.out.push_back(o);
        device(p, p);
        g_tav_menu = home(video);
        keys(c.keys);
        ASSERT_EQ(g_tav_menu, video ? menu_vid_switch : menu_aud_switch);
        EXPECT_EQ(st(video).press_state, c.press_state);
        EXPECT_EQ(st(video).select_port_state, c.select);
        EXPECT_EQ(lcd(1).substr(27, 12), c.text);
        EXPECT_EQ(lcd(0).substr(27, 13), std::string(13, ' '));
        EXPECT_EQ(lcd(0).substr(0, 12), video ? "VOSW: 01 02 " : "AOSW: 01 02 ");
        if (c.cursor < 40) {
            EXPECT_EQ(panel().cursor_line, 1);
            EXPECT_EQ(panel().cursor_col, c.cursor);
        }
    }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Switching, EntryText, ::testing::Values(
    EntryCase{"1", "      OUT1_ ", 37, 2, 0},
    EntryCase{"00", "      OUT0_ ", 37, 2, 0}, // output 0 is ignored
    EntryCase{"0R", "      OUT0_ ", 37, 2, 0},
    EntryCase{"12", "IN__=>OUT12 ", 40, 1, 1},
    EntryCase{"3R", "IN__=>OUT03 ", 40, 1, 1},
    EntryCase{"003", "IN__=>OUT03 ", 40, 1, 1},
    EntryCase{"125", "IN5_=>OUT12 ", 30, 2, 1},
    EntryCase{"2R6", "IN6_=>OUT02 ", 30, 2, 1},
    EntryCase{"125L", "IN__=>OUT12 ", 40, 1, 1}));
// clang-format on

// The library calls that switch `in` to each of `outs`.
std::vector<std::string> switch_calls(const std::string& kind, int in, std::vector<int> outs) {
    std::vector<std::string> v;
    for (int n : outs) {
        const std::string args = "(" + std::to_string(in) + "," + std::to_string(n) + ")";
        v.push_back("set_" + kind + "_switch" + args);
        v.push_back("stash_" + kind + "_switch_data" + args);
    }
    v.push_back("set_" + kind + "_switch_done()");
    return v;
}

TEST_F(MenuTest, SwitchConfirmsThenCallsTheLibraryAndOpensTheStatusPageAtTheOutput) {
    struct Case {
        bool video;
        const char* keys;
        std::string confirm;
        int in, out, start; // the page starts at the output, or ends the list
    };
    const Case cases[] = {{true, "123R", "IN03=>OUT12 ", 3, 12, 3},
                          {true, "1200", "IN00=>OUT12 ", 0, 12, 3},
                          {true, "281R", "IN01=>OUT28 ", 1, 28, 9},
                          {false, "1203", "IN03=>OUT12 ", 3, 12, 3}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.confirm + (c.video ? " video" : " audio"));
        Ports p{range(1, 8), range(9, 28)}; // 20 outputs
        device(p, p);
        fakematrix::state().calls.clear();
        g_pauses.clear();
        g_tav_menu = home(c.video);
        keys(std::string(c.keys, 3).c_str());
        EXPECT_TRUE(calls().empty());
        keys(c.keys + 3);
        EXPECT_EQ(calls(), switch_calls(c.video ? "video" : "audio", c.in, {c.out}));
        ASSERT_EQ(g_pauses.size(), 1u);
        EXPECT_EQ(g_pauses[0].ms, 1000u);
        EXPECT_EQ(g_pauses[0].bottom.substr(27, 12), c.confirm);
        EXPECT_EQ(g_tav_menu, home(c.video));
        EXPECT_EQ(st(c.video).switch_start, c.start);
    }
}

// Refusals stay until the 3-s time-out or a key, then the same step again.
TEST_F(MenuTest, RefusalInEitherStepAndItsTimeout) {
    for (bool video : {true, false}) {
        SCOPED_TRACE(video ? "video" : "audio");
        device({range(1, 8), range(9, 20)}, {range(1, 8), range(9, 20)});
        g_tav_menu = home(video);
        auto timeout = video ? tav_video_switch_3S_timeout : tav_audio_switch_3S_timeout;
        keys("05"); // 5 is an input, not an output
        EXPECT_EQ(st(video).press_state, 4);
        EXPECT_EQ(lcd(0), row(74));
        EXPECT_EQ(lcd(1), row(76));
        g_tav_menu_event = EVENT_NOMAL;
        timeout();
        EXPECT_EQ(st(video).press_state, 1);
        EXPECT_EQ(st(video).select_port_state, 0);
        EXPECT_TRUE(redraw_requested());
        draw();
        EXPECT_EQ(lcd(1).substr(27, 12), "      OUT__ ");

        keys("1215"); // output 12, then 15 is not an input
        EXPECT_EQ(st(video).press_state, 4);
        EXPECT_EQ(st(video).config_out, 12);
        EXPECT_EQ(lcd(0), row(75));
        keys("4"); // a key during the refusal clears it and is then handled
        EXPECT_EQ(lcd(1).substr(27, 12), "IN4_=>OUT12 ");
        g_tav_menu_event = EVENT_NOMAL;
        timeout(); // nothing pending: no change
        EXPECT_EQ(st(video).press_state, 2);
        EXPECT_FALSE(redraw_requested());
        EXPECT_TRUE(calls().empty());
    }
}

// Status pages: warnings for missing cards and the heads of each kind.
TEST_F(MenuTest, StatusPagesWarnAboutMissingCardsAndUseTheirHeads) {
    struct Warn {
        bool video;
        int in, out, top;
    };
    for (const Warn& c : {Warn{true, 0, 0, 77}, Warn{true, 2, 0, 11}, Warn{true, 0, 2, 10},
                          Warn{false, 0, 0, 28}, Warn{false, 2, 0, 28}, Warn{false, 0, 2, 27}}) {
        Ports p{range(1, c.in), range(c.in + 1, c.in + c.out)};
        device(c.video ? p : Ports{}, c.video ? Ports{} : p);
        g_tav_menu = home(c.video);
        draw();
        EXPECT_EQ(lcd(0), row(c.top)) << c.video << c.in << c.out;
        EXPECT_EQ(lcd(1), row(12));
    }
    device({range(1, 3), range(4, 5)}, {range(10, 11), range(12, 14)});
    g_tav_portbuf[3].in_for_out = 2;
    g_tav_aud_portbuf[12].in_for_out = 11;
    struct Head {
        TAV_ENUM_MENUSTATUS menu;
        std::string top, bottom;
    };
    for (const Head& c : {Head{menu_vid_display, "VOSW: 04 05 ", "VISW: 02    "},
                          Head{meun_vid_io_display, "VOUT: 04 05    ", "VIN : 01 02 03 "},
                          Head{menu_aud_display, "AOSW: 12 13 14 ", "AISW:    11    "},
                          Head{meun_aud_io_display, "AOUT: 12 13 14 ", "AIN : 10 11    "}}) {
        g_tav_menu = c.menu;
        draw();
        EXPECT_EQ(lcd(0).substr(0, c.top.size()), c.top) << c.menu;
        EXPECT_EQ(lcd(1).substr(0, c.bottom.size()), c.bottom) << c.menu;
    }
}

// Switch-all: one input to every output of a kind, or every output closed.
class SwitchAll : public MenuTest {
  protected:
    void enter(uint8_t mode) {
        g_tav_menu = mode == 1 ? menu_switch_vid_all : menu_switch_aud_all;
        tav_menu_set_switch_all_mode(mode);
        draw();
    }
    static TAV_SWALL_STATE s() { return tav_menu_switch_all_get_state(); }
};

TEST_F(SwitchAll, EntryStepsAndRefusal) {
    struct Case {
        const char* keys;
        int step, port;
    };
    // Video inputs 1-12, outputs 13-16; audio inputs 20-21, outputs 22-23.
    const Case cases[] = {{"5", 2, 5},  {"5R", 3, 5}, {"05", 3, 5}, {"12", 3, 12}, {"0R", 3, 0},
                          {"00", 3, 0}, {"13", 4, 0}, {"20", 4, 0}, {"5R7", 3, 5}, {"5RL", 1, 0},
                          {"5L", 1, 0}, {"T", 1, 0},  {"5T", 2, 5}, {"13T", 1, 0}, {"134", 2, 4}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.keys);
        device({range(1, 12), range(13, 16)}, {range(20, 21), range(22, 23)});
        enter(1);
        keys(c.keys);
        EXPECT_EQ(s().step, c.step);
        EXPECT_EQ(s().port, c.port);
        EXPECT_EQ(g_tav_menu, menu_switch_vid_all);
        EXPECT_TRUE(calls().empty());
    }
    enter(1);
    keys("13");
    EXPECT_EQ(lcd(0), row(75));
    g_tav_menu_event = EVENT_NOMAL;
    tav_menu_swall_handle_3s();
    EXPECT_EQ(s().step, 1);
    EXPECT_TRUE(redraw_requested());
    keys("5R");
    g_tav_menu_event = EVENT_NOMAL;
    tav_menu_swall_handle_3s(); // nothing pending
    EXPECT_EQ(s().step, 3);
    EXPECT_FALSE(redraw_requested());
}

TEST_F(SwitchAll, EntryLineCursorAndTakeBlink) {
    for (uint8_t mode : {1, 2}) {
        SCOPED_TRACE(mode);
        device({range(1, 12), range(13, 14)}, {range(1, 12), range(13, 14)});
        enter(mode);
        std::string bottom = row(mode == 1 ? 47 : 48);
        EXPECT_EQ(lcd(0).substr(0, 12), "ILIST:01 02 ");
        EXPECT_EQ(lcd(1), bottom);
        EXPECT_EQ(panel().cursor_col, 28);
        keys("0");
        bottom[28] = '0';
        EXPECT_EQ(lcd(1), bottom);
        EXPECT_EQ(panel().cursor_col, 29);
        EXPECT_EQ(panel().led_blink, 0u);
        keys("7");
        bottom[29] = '7';
        EXPECT_EQ(lcd(1), bottom);
        EXPECT_EQ(panel().led_blink, 1u << TAV_KEY_TAKE);
        keys("L"); // back to step 1 stops the blink
        EXPECT_EQ(panel().led_blink, 0u);
    }
}

TEST_F(SwitchAll, TakeSwitchesEveryOutputTheLibraryReports) {
    device({range(1, 4), range(5, 8)}, {});
    // Port 9 is of neither direction; port 10 is an output the panel's list
    // does not know yet: the library's answer counts.
    fakematrix::state().port[9].vdir = em_matrix_mix;
    fakematrix::state().port[10].vdir = em_matrix_out;
    TAV_DEF_MAX_PORT = 12;
    enter(1);
    keys("3RT");
    EXPECT_EQ(calls(), switch_calls("video", 3, {5, 6, 7, 8, 10}));
    EXPECT_EQ(g_pauses, (std::vector<Pause>{{3000, row(51, 26, "03"), row(52)}}));
    EXPECT_EQ(g_tav_menu, menu_vid_display);
    EXPECT_EQ(panel().led_blink, 0u);

    // Input 0 closes every audio output, under the audio rows.
    device({range(1, 2), range(3, 4)}, {range(1, 2), range(3, 5)});
    fakematrix::state().calls.clear();
    g_pauses.clear();
    enter(2);
    keys("00T");
    EXPECT_EQ(calls(), switch_calls("audio", 0, {3, 4, 5}));
    EXPECT_EQ(g_pauses, (std::vector<Pause>{{3000, row(57), row(58)}}));
    EXPECT_EQ(g_tav_menu, menu_aud_display);

    // Input 0 for video: the video closing rows.
    device({range(1, 2), range(3, 4)}, {});
    g_pauses.clear();
    enter(1);
    keys("00T");
    EXPECT_EQ(g_pauses, (std::vector<Pause>{{3000, row(55), row(56)}}));
    // An input the device does not have closes instead.
    device({{2, 12}, {3, 4}}, {});
    TAV_DEF_MAX_PORT = 10;
    fakematrix::state().calls.clear();
    enter(1);
    keys("12T");
    EXPECT_EQ(fakematrix::calls_starting("set_video_switch("),
              (std::vector<std::string>{"set_video_switch(0,3)", "set_video_switch(0,4)"}));
}

// The panel lock and its file.
class Lock : public MenuTest {
  protected:
    void write_file(const std::string& s) {
        std::ofstream(path_, std::ios::binary | std::ios::trunc) << s;
    }
    std::string read_file() {
        std::ifstream f(path_, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(f), {});
    }
    const std::string path_ = root() + "/nandflash/config/.tav_lock_fp";
};

TEST_F(Lock, PowerOnResetWritesZeroInPlace) {
    write_file("1extra");
    tav_poweron_resetlock();
    EXPECT_EQ(read_file(), "0extra");
    unlink(path_.c_str());
    tav_poweron_resetlock();
    EXPECT_EQ(read_file(), "0");
}

TEST_F(Lock, ToggleWritesTheFileTellsTheLibraryAndShowsTheLockedPage) {
    write_file("0tail");
    tav_update_to_lock(1);
    EXPECT_TRUE(g_tav_lock);
    EXPECT_EQ(read_file(), "1tail");
    EXPECT_EQ(g_tav_menu, menu_lock);
    EXPECT_FALSE(redraw_requested()); // drawn already
    EXPECT_EQ(lcd(0).substr(0, 12), "VOSW: 05 06 ");
    EXPECT_EQ(panel().led_steady, (1u << TAV_KEY_LOCK) | (1u << 31));
    tav_update_to_lock(1);
    EXPECT_FALSE(g_tav_lock);
    EXPECT_EQ(read_file(), "0tail");
    EXPECT_EQ(g_tav_menu, menu_vid_display);
    EXPECT_TRUE(redraw_requested());
    EXPECT_EQ(calls(), std::vector<std::string>(2, "set_inner_signal_lock_fp_opt()"));
    // Without outputs the locked page shows the warning; a redraw keeps it.
    device({range(1, 4), {}}, {});
    tav_update_to_lock(1);
    EXPECT_EQ(lcd(0), row(11));
    tav_update_to_lock(0);
    EXPECT_TRUE(g_tav_lock);
    EXPECT_EQ(g_tav_menu, menu_lock);
    device({}, {}); // no cards at all: still the missing-output row
    tav_update_to_lock(0);
    EXPECT_EQ(lcd(0), row(11));
}

TEST_F(Lock, ChangeSignalFollowsTheFile) {
    struct Case {
        std::string file;
        bool before, after, drawn;
    };
    for (const Case& c : {Case{"1", false, true, true}, Case{"0", true, false, true},
                          Case{"", true, false, true}, Case{"x", true, false, true},
                          Case{"1", true, true, false}, Case{"0", false, false, false}}) {
        SCOPED_TRACE("file '" + c.file + "' locked " + std::to_string(c.before));
        write_file(c.file);
        g_tav_lock = c.before;
        g_tav_menu = menu_eth_ip;
        tavtest::PanelCapture::get().clear();
        tav_update_to_lock(2);
        EXPECT_EQ(g_tav_lock, c.after);
        EXPECT_EQ(read_file(), c.file);
        EXPECT_TRUE(calls().empty());
        EXPECT_EQ(g_tav_menu, !c.drawn ? menu_eth_ip : c.after ? menu_lock : menu_vid_display);
        EXPECT_EQ(tavtest::PanelCapture::get().frames().empty(), !c.drawn);
    }
    // A file that cannot be opened: nothing changes and nothing is announced.
    g_tav_lock = false;
    ASSERT_EQ(unlink(path_.c_str()), 0);
    ASSERT_EQ(mkdir(path_.c_str(), 0755), 0);
    for (uint8_t how : {0, 1, 2}) {
        tav_update_to_lock(how);
        EXPECT_FALSE(g_tav_lock);
        EXPECT_EQ(g_tav_menu, menu_eth_ip);
    }
    EXPECT_TRUE(calls().empty());
}

} // namespace
