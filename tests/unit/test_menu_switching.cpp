// Video and audio switching menus and the panel lock.
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "menu_switch_fixture.h"

using namespace switchtest;

namespace {

TAV_AV_SWITCH_STATE st(bool video) {
    return video ? tav_video_get_state() : tav_audio_get_state();
}

constexpr TAV_ENUM_MENUSTATUS VD = menu_vid_display, VL = meun_vid_io_display, VS = menu_vid_switch,
                              AD = menu_aud_display, AL = meun_aud_io_display, AS = menu_aud_switch,
                              STAY = menu_spc, RESET = menu_reset;

// Paging: steps of 8, 11 shown, the last page ends on the last entry.

struct PagingCase {
    bool video;
    TAV_ENUM_MENUSTATUS menu;
    int outputs, inputs;
    std::vector<Key> keys;
    std::vector<int> starts; // page start after each key
};

class Paging : public MenuFixture, public ::testing::WithParamInterface<PagingCase> {};

TEST_P(Paging, PageStartsAtTheEndsOfTheList) {
    const PagingCase& c = GetParam();
    Ports p{range(1, c.inputs), range(c.inputs + 1, c.inputs + c.outputs)};
    device(c.video ? p : Ports{}, c.video ? Ports{} : p);
    g_tav_menu = c.menu;
    if (c.menu == meun_vid_io_display)
        tav_video_reinit();
    if (c.menu == meun_aud_io_display)
        tav_audio_reinit();
    for (size_t i = 0; i < c.keys.size(); i++) {
        key(c.keys[i]);
        ASSERT_EQ(g_tav_menu, c.menu) << "key " << i;
        const bool status = c.menu == menu_vid_display || c.menu == menu_aud_display;
        EXPECT_EQ(status ? st(c.video).switch_start : st(c.video).io_start, c.starts[i])
            << "key " << i;
    }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Switching, Paging,
    ::testing::Values(
        PagingCase{true, VD, 20, 4, {RIGHT, RIGHT, LEFT, LEFT, LEFT}, {8, 9, 1, 0, 0}},
        PagingCase{true, VD, 10, 4, {RIGHT, RIGHT}, {0, 0}},
        PagingCase{true, VD, 11, 4, {RIGHT}, {0}},
        PagingCase{true, VD, 12, 4, {RIGHT, RIGHT, LEFT}, {1, 1, 0}},
        PagingCase{true, VD, 40, 4, {RIGHT, RIGHT, RIGHT, RIGHT, LEFT}, {8, 16, 24, 29, 21}},
        // The list page pages over the larger of the two counts.
        PagingCase{true, VL, 4, 20, {RIGHT, RIGHT, LEFT}, {8, 9, 1}},
        PagingCase{false, AD, 20, 4, {RIGHT, RIGHT, LEFT, LEFT}, {8, 9, 1, 0}},
        PagingCase{false, AL, 3, 14, {RIGHT, LEFT}, {3, 0}}));
// clang-format on

// Number entry: the right part of the bottom line and the cursor column.

struct EntryCase {
    std::vector<Key> keys;
    std::string text; // columns 27-38 of the bottom line
    int cursor;
    int press_state, select;
};

class EntryText : public MenuFixture, public ::testing::WithParamInterface<EntryCase> {};

TEST_P(EntryText, BottomLineAndCursor) {
    const EntryCase& c = GetParam();
    for (bool video : {true, false}) {
        // Inputs 5-8; outputs 1-4 (one digit) and 9-20 (two digits).
        Ports p{range(5, 8), range(1, 4)};
        for (int o : range(9, 20))
            p.out.push_back(o);
        device(p, p);
        g_tav_menu = video ? menu_vid_display : menu_aud_display;
        for (Key k : c.keys)
            key(k);
        SCOPED_TRACE(video ? "video" : "audio");
        ASSERT_EQ(g_tav_menu, video ? menu_vid_switch : menu_aud_switch);
        EXPECT_EQ(st(video).press_state, c.press_state);
        EXPECT_EQ(st(video).select_port_state, c.select);
        EXPECT_EQ(st(video).cursor_pozition, c.cursor);
        const auto& pn = panel();
        EXPECT_EQ(pn.lcd[1].substr(27, 12), c.text);
        EXPECT_EQ(pn.lcd[0].substr(27, 13), std::string(13, ' '));
        // The left part still lists the outputs of the page.
        EXPECT_EQ(pn.lcd[0].substr(0, 12), video ? "VOSW: 01 02 " : "AOSW: 01 02 ");
        if (c.cursor < 40) {
            EXPECT_EQ(pn.cursor_line, 1);
            EXPECT_EQ(pn.cursor_col, c.cursor);
        }
    }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Switching, EntryText,
    ::testing::Values(EntryCase{{K1}, "      OUT1_ ", 37, 2, 0},
                      EntryCase{{K0}, "      OUT0_ ", 37, 2, 0},
                      EntryCase{{K0, K0}, "      OUT0_ ", 37, 2, 0},    // output 0 is ignored
                      EntryCase{{K0, RIGHT}, "      OUT0_ ", 37, 2, 0}, // likewise
                      EntryCase{{K1, K2}, "IN__=>OUT12 ", 40, 1, 1},
                      EntryCase{{K3, RIGHT}, "IN__=>OUT03 ", 40, 1, 1},
                      EntryCase{{K0, K0, K3}, "IN__=>OUT03 ", 40, 1, 1},
                      EntryCase{{K1, K2, K5}, "IN5_=>OUT12 ", 30, 2, 1},
                      EntryCase{{K2, RIGHT, K6}, "IN6_=>OUT02 ", 30, 2, 1},
                      EntryCase{{K1, K2, K5, LEFT}, "IN__=>OUT12 ", 40, 1, 1}));
// clang-format on

// A complete switch: confirmation, library calls, status page at the output.

TEST_F(MenuFixture, SwitchConfirmsThenSetsStashesAndOpensTheStatusPageAtTheOutput) {
    struct Case {
        bool video;
        std::vector<Key> keys;
        std::string confirm;
        int in, out, start; // the page starts at the output, or ends the list
    };
    const Case cases[] = {{true, {K1, K2, K3, RIGHT}, "IN03=>OUT12 ", 3, 12, 3},
                          {true, {K1, K2, K0, RIGHT}, "IN00=>OUT12 ", 0, 12, 3},
                          {true, {K1, K2, K0, K0}, "IN00=>OUT12 ", 0, 12, 3},
                          {true, {K2, K8, K1, RIGHT}, "IN01=>OUT28 ", 1, 28, 9},
                          {false, {K1, K2, K0, K3}, "IN03=>OUT12 ", 3, 12, 3}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.confirm + (c.video ? " video" : " audio"));
        Ports p{range(1, 8), range(9, 28)}; // 20 outputs
        device(p, p);
        fakematrix::state().calls.clear();
        pauses().clear();
        g_tav_menu = c.video ? menu_vid_display : menu_aud_display;
        for (size_t i = 0; i + 1 < c.keys.size(); i++)
            key(c.keys[i]);
        EXPECT_TRUE(calls().empty());
        key(c.keys.back());
        const std::string kind = c.video ? "video" : "audio";
        const std::string args = "(" + std::to_string(c.in) + "," + std::to_string(c.out) + ")";
        EXPECT_EQ(calls(), (std::vector<std::string>{"set_" + kind + "_switch" + args,
                                                     "stash_" + kind + "_switch_data" + args,
                                                     "set_" + kind + "_switch_done()"}));
        ASSERT_EQ(pauses().size(), 1u);
        EXPECT_EQ(pauses()[0].ms, 1000u);
        EXPECT_EQ(pauses()[0].bottom.substr(27, 12), c.confirm);
        EXPECT_EQ(g_tav_menu, c.video ? menu_vid_display : menu_aud_display);
        EXPECT_EQ(st(c.video).select_port_state, 0);
        EXPECT_EQ(st(c.video).switch_start, c.start);
    }
}

// Refusals: shown three seconds (or until a key), then the same step again.

TEST_F(MenuFixture, RefusalInEitherStepAndItsTimeout) {
    for (bool video : {true, false}) {
        SCOPED_TRACE(video ? "video" : "audio");
        Ports p{range(1, 8), range(9, 20)};
        device(p, p);
        g_tav_menu = video ? menu_vid_display : menu_aud_display;
        auto timeout = video ? tav_video_switch_3S_timeout : tav_audio_switch_3S_timeout;

        keys({K0, K5}); // 5 is an input, not an output
        EXPECT_EQ(st(video).press_state, 4);
        EXPECT_EQ(st(video).config_out, 0);
        EXPECT_EQ(panel().lcd[0], row(74));
        EXPECT_EQ(panel().lcd[1], row(76));
        g_tav_menu_event = EVENT_NOMAL;
        timeout();
        EXPECT_EQ(st(video).press_state, 1);
        EXPECT_EQ(st(video).select_port_state, 0);
        EXPECT_EQ(g_tav_menu, video ? menu_vid_switch : menu_aud_switch);
        EXPECT_EQ(g_tav_menu_event, EVENT_UPDATE);
        draw();
        EXPECT_EQ(panel().lcd[1].substr(27, 12), "      OUT__ ");

        keys({K1, K2, K1, K5}); // output 12, then 15 is not an input
        EXPECT_EQ(st(video).press_state, 4);
        EXPECT_EQ(st(video).select_port_state, 1);
        EXPECT_EQ(st(video).config_out, 12);
        EXPECT_EQ(panel().lcd[0], row(75));
        EXPECT_EQ(panel().lcd[1], row(76));
        // A key during the refusal first clears it and is then handled.
        key(K4);
        EXPECT_EQ(st(video).press_state, 2);
        EXPECT_EQ(st(video).config_in, 4);
        EXPECT_EQ(panel().lcd[1].substr(27, 12), "IN4_=>OUT12 ");
        // Nothing pending: the time-out changes nothing.
        g_tav_menu_event = EVENT_NOMAL;
        timeout();
        EXPECT_EQ(st(video).press_state, 2);
        EXPECT_EQ(g_tav_menu_event, EVENT_NOMAL);
        EXPECT_TRUE(calls().empty());
    }
}

// The keys of the three menus of each kind. "stay" = the menu is not asked to
// change and no redraw is requested.

struct KeyCase {
    TAV_ENUM_MENUSTATUS from;
    int select; // -1 status/list page; 0/1 the entry step of number entry
    Key key;
    TAV_ENUM_MENUSTATUS to; // menu_spc: stays
};

class MenuKeys : public MenuFixture, public ::testing::WithParamInterface<KeyCase> {};
using KC = KeyCase;

TEST_P(MenuKeys, LeadsTo) {
    const KeyCase& c = GetParam();
    Ports p{range(1, 8), range(9, 20)};
    device(p, p);
    const bool video = c.from <= menu_vid_switch;
    g_tav_menu = c.from == menu_vid_switch   ? menu_vid_display
                 : c.from == menu_aud_switch ? menu_aud_display
                                             : c.from;
    if (c.select >= 0)
        keys({K1});
    if (c.select == 1)
        keys({K2});
    ASSERT_EQ(g_tav_menu, c.from);
    g_tav_menu_event = EVENT_NOMAL;
    set_button(c.key);
    tav_nomal_work();
    if (c.to == menu_spc) {
        EXPECT_EQ(g_tav_menu, c.from);
        EXPECT_EQ(g_tav_menu_event, EVENT_NOMAL);
    } else {
        EXPECT_EQ(g_tav_menu, c.to);
        EXPECT_EQ(g_tav_menu_event, EVENT_UPDATE);
    }
    if (c.select == 1) {
        EXPECT_EQ(st(video).config_out, 12); // the output stays chosen
    }
    EXPECT_TRUE(calls().empty());
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Switching, MenuKeys,
    ::testing::Values(
        KC{VD, -1, MENU, VL}, KC{VD, -1, LOCK, VD}, KC{VD, -1, BREAK, STAY}, KC{VD, -1, TAKE, STAY},
        KC{VD, -1, DEFAULT, RESET},
        KC{VL, -1, MENU, AD}, KC{VL, -1, LOCK, VD}, KC{VL, -1, BREAK, VD}, KC{VL, -1, TAKE, STAY},
        KC{VS, 0, LEFT, VD}, KC{VS, 1, LEFT, STAY}, KC{VS, 0, MENU, AD}, KC{VS, 1, MENU, AD},
        KC{VS, 1, BREAK, VD}, KC{VS, 0, LOCK, VD}, KC{VS, 1, TAKE, STAY}, KC{VS, 0, DEFAULT, RESET},
        KC{AD, -1, MENU, AL}, KC{AD, -1, BREAK, VD}, KC{AD, -1, TAKE, STAY},
        KC{AL, -1, MENU, menu_shortcut}, KC{AL, -1, BREAK, VD},
        KC{AS, 0, LEFT, AD}, KC{AS, 1, LEFT, STAY}, KC{AS, 1, MENU, menu_shortcut},
        KC{AS, 0, BREAK, VD}, KC{AS, 1, LOCK, VD}, KC{AS, 1, DEFAULT, RESET}));
// clang-format on

// Pages: warnings for missing cards, heads of the status and list pages.
TEST_F(MenuFixture, StatusPagesWarnAboutMissingCards) {
    struct Case {
        bool video;
        int in, out;
        int top;
    };
    const Case cases[] = {{true, 0, 0, 77},  {true, 2, 0, 11},  {true, 0, 2, 10},
                          {false, 0, 0, 28}, {false, 2, 0, 28}, {false, 0, 2, 27}};
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.video << " in " << c.in << " out " << c.out);
        Ports p{range(1, c.in), range(c.in + 1, c.in + c.out)};
        device(c.video ? p : Ports{}, c.video ? Ports{} : p);
        g_tav_menu = c.video ? menu_vid_display : menu_aud_display;
        draw();
        EXPECT_EQ(panel().lcd[0], row(c.top));
        EXPECT_EQ(panel().lcd[1], row(12));
    }
}

TEST_F(MenuFixture, PagesUseTheHeadsOfTheirKind) {
    Ports v{range(1, 3), range(4, 5)}, a{range(10, 11), range(12, 14)};
    device(v, a);
    g_tav_portbuf[3].in_for_out = 2;
    g_tav_aud_portbuf[12].in_for_out = 11;
    struct Case {
        TAV_ENUM_MENUSTATUS menu;
        std::string top, bottom;
    };
    const Case cases[] = {
        {menu_vid_display, "VOSW: 04 05 ", "VISW: 02    "},
        {meun_vid_io_display, "VOUT: 04 05    ", "VIN : 01 02 03 "},
        {menu_aud_display, "AOSW: 12 13 14 ", "AISW:    11    "},
        {meun_aud_io_display, "AOUT: 12 13 14 ", "AIN : 10 11    "},
    };
    for (const Case& c : cases) {
        g_tav_menu = c.menu;
        draw();
        EXPECT_EQ(panel().lcd[0].substr(0, c.top.size()), c.top) << c.menu;
        EXPECT_EQ(panel().lcd[1].substr(0, c.bottom.size()), c.bottom) << c.menu;
    }
}

// The panel lock.

class Lock : public MenuFixture {
  protected:
    void SetUp() override {
        MenuFixture::SetUp();
        path_ = tavtest::PanelCapture::get().root() + "/nandflash/config/.tav_lock_fp";
        unlink(path_.c_str());
        rmdir(path_.c_str());
        device({range(1, 4), range(5, 8)}, {});
    }
    void write_file(const std::string& s) {
        std::ofstream(path_, std::ios::binary | std::ios::trunc) << s;
    }
    std::string read_file() {
        std::ifstream f(path_, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(f), {});
    }
    std::string path_;
};

TEST_F(Lock, PowerOnResetWritesZeroInPlace) {
    write_file("1");
    tav_poweron_resetlock();
    EXPECT_EQ(read_file(), "0");
    write_file("1extra");
    tav_poweron_resetlock();
    EXPECT_EQ(read_file(), "0extra");
    unlink(path_.c_str());
    const mode_t old_mask = umask(022);
    tav_poweron_resetlock();
    umask(old_mask);
    EXPECT_EQ(read_file(), "0");
    struct stat sb {};
    ASSERT_EQ(stat(path_.c_str(), &sb), 0);
    EXPECT_EQ(sb.st_mode & 0777, 0644u);
}

TEST_F(Lock, ToggleWritesTheFileTellsTheLibraryAndShowsTheLockedPage) {
    write_file("0tail");
    g_tav_menu = menu_vid_display;
    g_tav_menu_event = EVENT_NOMAL;
    tav_update_to_lock(1);
    EXPECT_TRUE(g_tav_lock);
    EXPECT_EQ(read_file(), "1tail");
    EXPECT_EQ(g_tav_menu, menu_lock);
    EXPECT_EQ(g_tav_menu_event, EVENT_NOMAL); // no second redraw
    EXPECT_EQ(panel().lcd[0].substr(0, 12), "VOSW: 05 06 ");
    EXPECT_NE(panel().led_steady & (1u << TAV_KEY_LOCK), 0u);
    EXPECT_EQ(panel().led_steady & (1u << TAV_KEY_MENU), 0u);

    tav_update_to_lock(1);
    EXPECT_FALSE(g_tav_lock);
    EXPECT_EQ(read_file(), "0tail");
    EXPECT_EQ(g_tav_menu, menu_vid_display);
    EXPECT_EQ(g_tav_menu_event, EVENT_UPDATE);
    EXPECT_EQ(calls(), (std::vector<std::string>{"set_inner_signal_lock_fp_opt()",
                                                 "set_inner_signal_lock_fp_opt()"}));
}

TEST_F(Lock, ChangeSignalFollowsTheFile) {
    struct Case {
        std::string file;
        bool before, after, drawn;
    };
    // clang-format off
    const Case cases[] = {{"1", false, true, true},   {"0", true, false, true},
                          {"", true, false, true},    {"x", true, false, true},
                          {"1", true, true, false},   {"0", false, false, false},
                          {"", false, false, false}};
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE("file '" + c.file + "' locked " + std::to_string(c.before));
        write_file(c.file);
        g_tav_lock = c.before;
        g_tav_menu = menu_eth_ip;
        g_tav_menu_event = EVENT_NOMAL;
        tavtest::PanelCapture::get().clear();
        tav_update_to_lock(2);
        EXPECT_EQ(g_tav_lock, c.after);
        EXPECT_EQ(read_file(), c.file);
        EXPECT_TRUE(calls().empty());
        EXPECT_EQ(g_tav_menu, !c.drawn ? menu_eth_ip : c.after ? menu_lock : menu_vid_display);
        EXPECT_EQ(tavtest::PanelCapture::get().frames().empty(), !c.drawn);
    }
}

TEST_F(Lock, LockedPageWithoutOutputsShowsTheWarning) {
    device({range(1, 4), {}}, {});
    write_file("0");
    tav_update_to_lock(1);
    EXPECT_EQ(panel().lcd[0], row(11));
    EXPECT_EQ(panel().lcd[1], row(12));
    EXPECT_EQ(g_tav_menu, menu_lock);
    // A redraw keeps the page and the lock.
    tav_update_to_lock(0);
    EXPECT_TRUE(g_tav_lock);
    EXPECT_EQ(g_tav_menu, menu_lock);
    EXPECT_EQ(read_file(), "1");
}

TEST_F(Lock, UnopenableFileChangesNothing) {
    unlink(path_.c_str());
    ASSERT_EQ(mkdir(path_.c_str(), 0755), 0); // a directory cannot be opened for writing
    tav_poweron_resetlock();
    g_tav_menu = menu_eth_ip;
    g_tav_menu_event = EVENT_NOMAL;
    tavtest::PanelCapture::get().clear();
    for (uint8_t how : {0, 1, 2}) {
        tav_update_to_lock(how);
        EXPECT_FALSE(g_tav_lock);
        EXPECT_EQ(g_tav_menu, menu_eth_ip);
    }
    EXPECT_EQ(g_tav_menu_event, EVENT_NOMAL);
    EXPECT_TRUE(tavtest::PanelCapture::get().frames().empty());
    EXPECT_TRUE(calls().empty());
    rmdir(path_.c_str());
}

// The listener's redraw and the main thread's share the video line buffer.
TEST_F(Lock, ChangeSignalFromTheListenerThreadIsSerialisedWithTheMenus) {
    std::atomic<bool> done{false};
    std::thread listener([this, &done] {
        for (int i = 0; i < 20; i++) {
            write_file(i % 2 ? "0" : "1");
            tav_update_to_lock(2);
        }
        done = true;
    });
    // Keep reading the panel so that the listener's frames never block.
    while (!done) {
        {
            std::lock_guard<std::recursive_mutex> pass(tav_menu_engine_mutex());
            tav_video_display();
        }
        tavtest::PanelCapture::get().drain();
    }
    listener.join();
    EXPECT_FALSE(g_tav_lock);
    EXPECT_EQ(g_tav_menu, menu_vid_display);
}

} // namespace
