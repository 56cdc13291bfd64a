// Switching at the rack: a person at the panel against the simulated core
// with the default chassis (video inputs 1-16, audio inputs 1-15, outputs
// 17-32; output 31 starts on video input 1 and no audio, 32 on nothing).
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "e2e_scenarios.h"

using namespace tave2e;

namespace {

const uint32_t kEntryLeds = leds({KEY_LEFT, KEY_RIGHT, KEY_MENU, 31});
const uint32_t kLockLeds = leds({KEY_LOCK, 31});
const std::string kHomeTop = port_line("VOSW: ", seq(17, 11));
const std::string kHomeBottom = port_line("VISW: ", seq(1, 11));
const std::string kNotOutput = row(3, "The Port You Select is Not OUTPUT");
const std::string kNotInput = row(3, "The Port You Select is Not INPUT");
const std::string kReselect = row(6, "Please Re-Selected The Port");
const std::string kShortcutTop = row(1, "1:inXX=>ALL");
const std::string kShortcutBottom = row(1, "7:EDID");

// A press and its release, then time for the program to take the release
// before the next key comes (a later key would hide it).
void key(Sandbox& sb, int k) {
    sb.panel().press(k);
    std::this_thread::sleep_for(300ms);
}

void keys(Sandbox& sb, std::initializer_list<int> ks) {
    for (int k : ks) {
        key(sb, k);
    }
}

// The entry text in columns 27-38 of the bottom line.
std::string entry(const tavpanel::PanelState& s) {
    return s.lcd[1].substr(27, 12);
}

// The number entry with the status lines of the page on the left: the first
// 7 outputs of the page on top, their inputs below, `text` on the right.
auto entry_page(std::string top7, std::string bottom7, std::string text, int cursor = -1) {
    return [=](const tavpanel::PanelState& s) {
        return s.lcd[0] == top7 + std::string(13, ' ') && s.lcd[1].substr(0, 27) == bottom7 &&
               entry(s) == text && (cursor < 0 || (s.cursor_line == 1 && s.cursor_col == cursor)) &&
               s.led_steady == kEntryLeds && s.led_blink == 0;
    };
}

// The first 27 columns of a status line.
std::string left27(const std::string& head, const std::vector<int>& ports) {
    return port_line(head, ports).substr(0, 27);
}

// Time between the first shot (from `from`) matching `a` and the next
// matching `b`; negative when either is missing.
template <class A, class B> double span(const std::vector<Shot>& shots, size_t from, A a, B b) {
    const long i = find_shot(shots, from, a);
    if (i < 0) {
        return -1;
    }
    const long j = find_shot(shots, static_cast<size_t>(i), b);
    return j < 0 ? -1 : shots[j].t - shots[i].t;
}

TEST(E2eSwitching, VideoSwitchCloseRefusalsAndPaging) {
    Sandbox sb;
    ASSERT_TRUE(bring_up(sb));
    ASSERT_EQ(sb.ctl({"clear-log"}).status, 0);
    const std::string top7 = left27("VOSW: ", seq(17, 7));
    const std::string bottom7 = left27("VISW: ", seq(1, 7));

    // Input 3 to output 20.
    key(sb, 2);
    ASSERT_TRUE(wait_state(sb, entry_page(top7, bottom7, "      OUT2_ ", 37), "OUT2_"));
    key(sb, 0);
    ASSERT_TRUE(wait_state(sb, entry_page(top7, bottom7, "IN__=>OUT20 "), "IN__=>OUT20"));
    key(sb, 3);
    ASSERT_TRUE(wait_state(sb, entry_page(top7, bottom7, "IN3_=>OUT20 ", 30), "IN3_=>OUT20"));
    sb.panel().clear_frames();
    key(sb, KEY_RIGHT);
    // The status page opens at output 20 and shows input 3 once the core
    // has signalled the new connection.
    std::vector<int> in20{3};
    for (int i = 5; i <= 14; ++i) {
        in20.push_back(i);
    }
    ASSERT_TRUE(wait_lines(sb, port_line("VOSW: ", seq(20, 11)), port_line("VISW: ", in20)));
    EXPECT_EQ(sb.panel().state().led_steady, kStatusLeds | kLcdLed);
    EXPECT_EQ((core_routes(sb)[20]), (Route{3, 4}));
    EXPECT_EQ(core_calls(sb, {"set_video", "stash_video"}),
              (std::vector<std::string>{"set_video_switch(3,20)", "stash_video_switch_data(3,20)",
                                        "set_video_switch_done()"}));
    // The confirmation stands for a second before the switch.
    auto shots = replay(sb.panel().frames());
    const double confirm = span(
        shots, 0,
        [&](const auto& s) {
            return entry(s) == "IN03=>OUT20 " && s.lcd[0] == top7 + std::string(13, ' ');
        },
        [](const auto& s) { return s.lcd[0].rfind("VOSW: 20 ", 0) == 0; });
    EXPECT_GT(confirm, 0.9);
    EXPECT_LT(confirm, 1.6);

    // Output 21 closed with input 0; the page now starts at 21.
    const std::string top21 = left27("VOSW: ", seq(21, 7));
    keys(sb, {2, 1, 0});
    ASSERT_TRUE(wait_state(sb,
                           entry_page(left27("VOSW: ", seq(20, 7)),
                                      left27("VISW: ", {3, 5, 6, 7, 8, 9, 10}), "IN0_=>OUT21 ", 30),
                           "IN0_=>OUT21"));
    key(sb, KEY_RIGHT);
    ASSERT_TRUE(wait_lines(sb, port_line("VOSW: ", seq(21, 11)),
                           port_line("VISW: ", {0, 6, 7, 8, 9, 10, 11, 12, 13, 14, 1})));
    EXPECT_EQ((core_routes(sb)[21]), (Route{0, 5}));

    // A refused output: rows 74/76, then the entry again after 3 s.
    sb.panel().clear_frames();
    keys(sb, {0, 5});
    ASSERT_TRUE(wait_lines(sb, kNotOutput, kReselect));
    const std::string bottom21c = left27("VISW: ", {0, 6, 7, 8, 9, 10, 11});
    ASSERT_TRUE(wait_state(sb, entry_page(top21, bottom21c, "      OUT__ "), "OUT__", 8s));
    shots = replay(sb.panel().frames());
    const double refused_out = span(
        shots, 0, [](const auto& s) { return s.lcd[0] == kNotOutput; },
        [](const auto& s) { return entry(s) == "      OUT__ "; });
    EXPECT_GT(refused_out, 2.7);
    EXPECT_LT(refused_out, 4.5);

    // A refused input (17 is an output), then the input entry again.
    keys(sb, {2, 0});
    ASSERT_TRUE(wait_state(sb, entry_page(top21, bottom21c, "IN__=>OUT20 "), "IN__=>OUT20"));
    sb.panel().clear_frames();
    keys(sb, {1, 7});
    ASSERT_TRUE(wait_lines(sb, kNotInput, kReselect));
    ASSERT_TRUE(wait_state(sb, entry_page(top21, bottom21c, "IN__=>OUT20 "), "IN__=>OUT20", 8s));
    shots = replay(sb.panel().frames());
    const double refused_in = span(
        shots, 0, [](const auto& s) { return s.lcd[0] == kNotInput; },
        [](const auto& s) { return entry(s) == "IN__=>OUT20 "; });
    EXPECT_GT(refused_in, 2.7);
    EXPECT_LT(refused_in, 4.5);

    // Leaving the entry switches nothing.
    key(sb, KEY_BREAK);
    ASSERT_TRUE(wait_lines(sb, port_line("VOSW: ", seq(21, 11)),
                           port_line("VISW: ", {0, 6, 7, 8, 9, 10, 11, 12, 13, 14, 1})));
    EXPECT_EQ(core_calls(sb, {"set_video_switch("}).size(), 2u);

    // Paging over the 16 outputs: the last page ends on output 32.
    struct Page {
        int key;
        int first;
    };
    for (const Page p : {Page{KEY_RIGHT, 22}, Page{KEY_RIGHT, 22}, Page{KEY_LEFT, 17},
                         Page{KEY_LEFT, 17}, Page{KEY_RIGHT, 22}}) {
        key(sb, p.key);
        ASSERT_TRUE(wait_state(
            sb,
            [&](const auto& s) {
                return s.lcd[0] == port_line("VOSW: ", seq(p.first, 11)) &&
                       s.led_steady == (kStatusLeds | kLcdLed);
            },
            "page", 3s))
            << tavpanel::key_name(p.key) << " to " << p.first;
    }
    EXPECT_EQ(sb.panel().state().lcd[1],
              port_line("VISW: ", {6, 7, 8, 9, 10, 11, 12, 13, 14, 1, 0}));
    EXPECT_TRUE(sb.program_running());
}

TEST(E2eSwitching, MenuCycleAudioSwitchAndLock) {
    Sandbox sb;
    ASSERT_TRUE(bring_up(sb));

    // MENU walks the pages.
    struct Step {
        const char* name;
        std::string top, bottom;
        uint32_t leds;
    };
    const std::vector<Step> cycle{
        {"video lists", port_line("VOUT: ", seq(17, 11)), port_line("VIN : ", seq(1, 11)),
         kStatusLeds | kLcdLed},
        {"audio status", port_line("AOSW: ", seq(17, 11)), port_line("AISW: ", seq(1, 11)),
         kStatusLeds | kLcdLed},
        {"audio lists", port_line("AOUT: ", seq(17, 11)), port_line("AIN : ", seq(1, 11)),
         kStatusLeds | kLcdLed},
        {"shortcuts", kShortcutTop, kShortcutBottom, leds({1, 7, 31, KEY_MENU})},
        {"ethernet", row(12, "ETH  NET DISPLAY"), row(12, "1 ETH0  2 ETH1"),
         leds({1, 2, 31, KEY_MENU})},
    };
    for (const auto& st : cycle) {
        key(sb, KEY_MENU);
        ASSERT_TRUE(wait_lines(sb, st.top, st.bottom)) << st.name;
        EXPECT_TRUE(sb.panel().wait_leds(st.leds, 2s)) << st.name << lcd_of(sb.panel().state());
    }
    key(sb, KEY_BREAK);
    ASSERT_TRUE(sb.wait_home_page(5s));

    // Audio input 7 to output 31; audio input 16 does not exist (video only).
    keys(sb, {KEY_MENU, KEY_MENU});
    ASSERT_TRUE(wait_lines(sb, port_line("AOSW: ", seq(17, 11)), port_line("AISW: ", seq(1, 11))));
    ASSERT_EQ(sb.ctl({"clear-log"}).status, 0);
    const std::string atop7 = left27("AOSW: ", seq(17, 7));
    const std::string abottom7 = left27("AISW: ", seq(1, 7));
    key(sb, 3);
    ASSERT_TRUE(wait_state(sb, entry_page(atop7, abottom7, "      OUT3_ ", 37), "OUT3_"));
    keys(sb, {1, 1, 6});
    ASSERT_TRUE(wait_lines(sb, kNotInput, kReselect));
    // A key during the refusal clears it and counts as the first digit.
    key(sb, 0);
    ASSERT_TRUE(wait_state(sb, entry_page(atop7, abottom7, "IN0_=>OUT31 ", 30), "IN0_=>OUT31"));
    key(sb, 7);
    ASSERT_TRUE(wait_lines(sb, port_line("AOSW: ", seq(22, 11)),
                           port_line("AISW: ", {6, 7, 8, 9, 10, 11, 12, 13, 14, 7, 0}), 8s));
    EXPECT_EQ((core_routes(sb)[31]), (Route{1, 7}));
    EXPECT_EQ(core_calls(sb, {"set_audio", "stash_audio", "set_video", "stash_video"}),
              (std::vector<std::string>{"set_audio_switch(7,31)", "stash_audio_switch_data(7,31)",
                                        "set_audio_switch_done()"}));

    // Lock: LOCK reported twice without a release. The page becomes the
    // video status page with the lock's LEDs; the file says "1".
    sb.panel().lock_toggle();
    ASSERT_TRUE(wait_state(
        sb,
        [](const auto& s) { return shows(s, kHomeTop, kHomeBottom) && s.led_steady == kLockLeds; },
        "the locked page"));
    EXPECT_EQ(sb.read_file("nandflash/config/.tav_lock_fp"), "1");
    EXPECT_EQ(core_calls(sb, {"set_inner_signal_lock_fp_opt"}).size(), 1u);

    // Locked: every other key redraws the locked page and does nothing else.
    ASSERT_EQ(sb.ctl({"clear-log"}).status, 0);
    for (int k : std::initializer_list<int>{2, KEY_MENU, KEY_RIGHT, KEY_BREAK, KEY_DEFAULT, 0}) {
        const size_t before = sb.panel().frames().size();
        key(sb, k);
        std::this_thread::sleep_for(200ms);
        const auto s = sb.panel().state();
        EXPECT_TRUE(shows(s, kHomeTop, kHomeBottom)) << tavpanel::key_name(k) << lcd_of(s);
        EXPECT_EQ(s.led_steady, kLockLeds) << tavpanel::key_name(k);
        EXPECT_GT(sb.panel().frames().size(), before) << tavpanel::key_name(k) << ": no redraw";
    }
    EXPECT_TRUE(core_calls(sb, {"set_", "stash_"}).empty());
    EXPECT_EQ(sb.read_file("nandflash/config/.tav_lock_fp"), "1");

    // Unlock.
    sb.panel().lock_toggle();
    ASSERT_TRUE(wait_state(
        sb,
        [](const auto& s) {
            return shows(s, kHomeTop, kHomeBottom) && s.led_steady == (kStatusLeds | kLcdLed);
        },
        "the unlocked home page"));
    EXPECT_EQ(sb.read_file("nandflash/config/.tav_lock_fp"), "0");
    EXPECT_EQ(core_calls(sb, {"set_inner_signal_lock_fp_opt"}).size(), 1u);
    key(sb, KEY_MENU);
    ASSERT_TRUE(wait_lines(sb, cycle[0].top, cycle[0].bottom));

    // Another application locks and unlocks the panel through the file and
    // the core's signal; the program neither writes the file nor tells the core.
    ASSERT_EQ(sb.ctl({"clear-log"}).status, 0);
    ASSERT_EQ(sb.ctl({"lock", "1"}).status, 0);
    ASSERT_TRUE(wait_state(
        sb,
        [](const auto& s) { return shows(s, kHomeTop, kHomeBottom) && s.led_steady == kLockLeds; },
        "locked by another application"));
    key(sb, KEY_MENU);
    std::this_thread::sleep_for(200ms);
    EXPECT_TRUE(shows(sb.panel().state(), kHomeTop, kHomeBottom)) << lcd_of(sb.panel().state());
    ASSERT_EQ(sb.ctl({"lock", "0"}).status, 0);
    ASSERT_TRUE(wait_state(
        sb,
        [](const auto& s) {
            return shows(s, kHomeTop, kHomeBottom) && s.led_steady == (kStatusLeds | kLcdLed);
        },
        "unlocked by another application"));
    EXPECT_EQ(sb.read_file("nandflash/config/.tav_lock_fp"), "0");
    EXPECT_TRUE(core_calls(sb, {"set_inner_signal_lock_fp_opt"}).empty());
    EXPECT_TRUE(sb.program_running());
}

TEST(E2eSwitching, SwitchAllVideoAndCloseAllAudio) {
    Sandbox sb;
    ASSERT_TRUE(bring_up(sb));
    ASSERT_EQ(sb.ctl({"clear-log"}).status, 0);
    const std::string vid_all = row(20, "Video in__=>ALL");
    const std::string aud_all = row(20, "Audio in__=>ALL");

    // Video input 5 to every output: shortcut 1, video, 0 5, TAKE.
    keys(sb, {KEY_MENU, KEY_MENU, KEY_MENU, KEY_MENU});
    ASSERT_TRUE(wait_lines(sb, kShortcutTop, kShortcutBottom));
    key(sb, 1);
    ASSERT_TRUE(
        wait_lines(sb, row(15, "inXX=>ALL"), row(2, "1:Video inXX=>ALL 2:Audio inXX=>ALL")));
    EXPECT_TRUE(sb.panel().wait_leds(leds({1, 2, KEY_LEFT, 31, KEY_MENU}), 2s));
    key(sb, 1);
    ASSERT_TRUE(wait_state(
        sb,
        [&](const auto& s) {
            return shows(s, port_line("ILIST:", seq(1, 11)), vid_all) && s.cursor_line == 1 &&
                   s.cursor_col == 28 && s.led_steady == kEntryLeds && s.led_blink == 0;
        },
        "video switch-all entry"));
    key(sb, 0);
    ASSERT_TRUE(wait_state(
        sb,
        [](const auto& s) {
            return s.lcd[1].substr(20, 15) == "Video in0_=>ALL" && s.cursor_col == 29;
        },
        "in0_"));
    key(sb, 5);
    ASSERT_TRUE(wait_state(
        sb,
        [](const auto& s) {
            return s.lcd[1].substr(20, 15) == "Video in05=>ALL" &&
                   s.led_blink == leds({KEY_TAKE}) && s.led_steady == kEntryLeds;
        },
        "in05 with TAKE blinking"));
    sb.panel().clear_frames();
    key(sb, KEY_TAKE);
    ASSERT_TRUE(wait_lines(sb, row(8, "Switching Video in05=>ALL"), row(13, "Please wait......")));
    ASSERT_TRUE(wait_lines(sb, kHomeTop, port_line("VISW: ", std::vector<int>(11, 5)), 8s));
    EXPECT_EQ(sb.panel().state().led_blink, 0u);
    auto shots = replay(sb.panel().frames());
    const double pause = span(
        shots, 0, [](const auto& s) { return s.lcd[1] == row(13, "Please wait......"); },
        [](const auto& s) { return s.lcd[0] == kHomeTop; });
    EXPECT_GT(pause, 2.9);
    EXPECT_LT(pause, 4.5);
    auto routes = core_routes(sb);
    for (int out = 17; out <= 32; ++out) {
        EXPECT_EQ(routes[out].video, 5) << "output " << out;
        EXPECT_EQ(routes[out].audio, out <= 30 ? out - 16 : 0) << "output " << out;
    }
    const auto calls = core_calls(sb, {"set_video_switch", "stash_video"});
    ASSERT_EQ(calls.size(), 33u);
    EXPECT_EQ(calls.front(), "set_video_switch(5,17)");
    EXPECT_EQ(calls[1], "stash_video_switch_data(5,17)");
    EXPECT_EQ(calls[31], "stash_video_switch_data(5,32)");
    EXPECT_EQ(calls.back(), "set_video_switch_done()");

    // Every audio output closed: shortcut 1, audio, 0 RIGHT, TAKE. The audio
    // input list pages over its 15 inputs on the way.
    keys(sb, {KEY_MENU, KEY_MENU, KEY_MENU, KEY_MENU, 1, 2});
    ASSERT_TRUE(wait_lines(sb, port_line("ILIST:", seq(1, 11)), aud_all));
    key(sb, KEY_RIGHT);
    ASSERT_TRUE(wait_lines(sb, port_line("ILIST:", seq(5, 11)), aud_all));
    key(sb, KEY_LEFT);
    ASSERT_TRUE(wait_lines(sb, port_line("ILIST:", seq(1, 11)), aud_all));
    keys(sb, {0, KEY_RIGHT});
    ASSERT_TRUE(wait_state(
        sb,
        [](const auto& s) {
            return s.lcd[1].substr(20, 15) == "Audio in00=>ALL" && s.led_blink == leds({KEY_TAKE});
        },
        "in00 with TAKE blinking"));
    ASSERT_EQ(sb.ctl({"clear-log"}).status, 0);
    key(sb, KEY_TAKE);
    ASSERT_TRUE(wait_lines(sb, row(8, "Closing all Audio outputs"), row(13, "Please wait......")));
    ASSERT_TRUE(wait_lines(sb, port_line("AOSW: ", seq(17, 11)),
                           port_line("AISW: ", std::vector<int>(11, 0)), 8s));
    routes = core_routes(sb);
    for (int out = 17; out <= 32; ++out) {
        EXPECT_EQ(routes[out], (Route{5, 0})) << "output " << out;
    }
    EXPECT_EQ(core_calls(sb, {"set_audio_switch("}).size(), 16u);
    EXPECT_EQ(core_calls(sb, {"set_audio_switch_done"}).size(), 1u);
    EXPECT_TRUE(core_calls(sb, {"set_video", "stash_video"}).empty());
    EXPECT_TRUE(sb.program_running());
}

} // namespace
