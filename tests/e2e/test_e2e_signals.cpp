// Following the matrix core end to end: card notices, routes and ports
// changed behind the panel's back, the update display, the panel lock changed
// by another application, the reboot notices, and a long run of signals while
// keys are pressed. Scenarios that do not disturb each other share one start
// of the program, which costs about 14 s.
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "e2e_notices.h"

using namespace tave2e;

namespace {

const std::string kHomeTop = port_line("VOSW: ", seq(17, 11));
const uint32_t kLockLeds = leds({KEY_LOCK});
const uint32_t kUpdateLeds = leds({KEY_LOCK, tavpanel::LED_LCD});

bool status_leds(const tavpanel::PanelState& s) {
    return (s.led_steady & ~kLcdLed) == kStatusLeds;
}

bool locked_page(const tavpanel::PanelState& s) {
    return s.lcd[0].rfind("VOSW: ", 0) == 0 && (s.led_steady & ~kLcdLed) == kLockLeds;
}

// The default chassis with room for ports 33 to 40, so that a new card can
// be inserted into an empty slot.
std::string roomy_chassis(Sandbox& sb) {
    std::ifstream in(std::string(TAV_SOURCE_DIR) + "/sim/matrix/chassis_default.txt");
    std::stringstream ss;
    ss << in.rdbuf();
    std::string text = ss.str();
    const auto at = text.find("\nports 32");
    EXPECT_NE(at, std::string::npos);
    text.replace(at, 9, "\nports 40");
    sb.write_file("chassis.txt", text);
    return sb.path("chassis.txt");
}

// Card notices, a route and a port change behind the panel's back, the lock
// changed by another application and by the panel itself, and at the end a
// restart notice.
TEST(E2eSignals, CardsRoutesPortsLockAndRestart) {
    Sandbox sb;
    ASSERT_TRUE(sb.start_core(roomy_chassis(sb)));
    ASSERT_TRUE(sb.start_program());
    ASSERT_TRUE(sb.wait_home_page(60s)) << lcd_of(sb.panel().state());

    // A new input card in empty slot 5: the notice, until the card is normal.
    const auto t_insert = std::chrono::steady_clock::now();
    ASSERT_TRUE(ctl_ok(sb, {"insert", "5", "in", "33-36", "--delay", "3000"}));
    ASSERT_TRUE(wait_lines(sb, row(8, "Slot 05 Has a Card Insert"),
                           row(5, "Please wait it for Initialization")));
    EXPECT_TRUE(sb.panel().wait_leds(kStatusLeds | kLcdLed, 2s)) << lcd_of(sb.panel().state());
    ASSERT_TRUE(sb.wait_home_page(15s)) << lcd_of(sb.panel().state());
    const double notice_time = seconds_since(t_insert);
    EXPECT_GT(notice_time, 2.5) << "the notice ended before the card was normal";
    EXPECT_LT(notice_time, 9.0) << "the notice ended by the idle return, not by the card";

    // The card in slot 12 pulled out: the notice stays until a key.
    ASSERT_TRUE(ctl_ok(sb, {"pull", "12"}));
    const std::string pulled = row(11, "Card 12 Pull out");
    const std::string wait = row(11, "PLEASE WAIT......");
    ASSERT_TRUE(wait_lines(sb, pulled, wait));
    std::this_thread::sleep_for(1500ms);
    EXPECT_TRUE(shows(sb.panel().state(), pulled, wait)) << lcd_of(sb.panel().state());
    press_key(sb, KEY_LEFT);
    ASSERT_TRUE(sb.wait_home_page(5s)) << lcd_of(sb.panel().state());

    // A route changed behind the panel's back shows on the home page.
    ASSERT_TRUE(ctl_ok(sb, {"route", "video", "17", "5"}));
    EXPECT_TRUE(wait_lines(sb, kHomeTop, port_line("VISW: ", {5, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11})));

    // The list page, one page on: outputs 17..28 remain, inputs 1..16 and 33..36.
    press_key(sb, KEY_MENU);
    ASSERT_TRUE(wait_lines(sb, port_line("VOUT: ", seq(17, 11)), port_line("VIN : ", seq(1, 11))));
    press_key(sb, KEY_RIGHT);
    ASSERT_TRUE(wait_lines(sb, port_line("VOUT: ", {25, 26, 27, 28}),
                           port_line("VIN : ", {9, 10, 11, 12, 13, 14, 15, 16, 33, 34, 35})));
    // Card 1 powers down: the list is rebuilt and starts again at its first page.
    // The library hands out only the latest record, so the port signal that
    // comes with the slot signal may be seen as a second slot signal; a lone
    // port signal follows, as the core may send it.
    ASSERT_TRUE(ctl_ok(sb, {"cardstate", "1", "power_down"}));
    ASSERT_TRUE(ctl_ok(sb, {"raise", "0x0200"}));
    EXPECT_TRUE(wait_lines(sb, port_line("VOUT: ", seq(17, 11)), port_line("VIN : ", seq(5, 11))));
    EXPECT_TRUE(status_leds(sb.panel().state())) << lcd_of(sb.panel().state());
    ASSERT_TRUE(ctl_ok(sb, {"cardstate", "1", "normal"}));
    ASSERT_TRUE(ctl_ok(sb, {"raise", "0x0200"}));
    EXPECT_TRUE(wait_lines(sb, port_line("VOUT: ", seq(17, 11)), port_line("VIN : ", seq(1, 11))));
    press_key(sb, KEY_BREAK);
    ASSERT_TRUE(sb.wait_home_page(5s)) << lcd_of(sb.panel().state());

    // Another application locks the panel: the locked page; keys are dropped.
    ASSERT_TRUE(ctl_ok(sb, {"lock", "1"}));
    ASSERT_TRUE(wait_state(sb, locked_page, "the locked page"));
    press_key(sb, 5);
    std::this_thread::sleep_for(700ms);
    EXPECT_TRUE(locked_page(sb.panel().state())) << lcd_of(sb.panel().state());
    // The same state once more: nothing is drawn.
    auto gen = sb.panel().generation();
    ASSERT_TRUE(ctl_ok(sb, {"lock", "1"}));
    EXPECT_FALSE(sb.panel().wait_change(gen, 1500ms)) << "redrawn for an unchanged lock";
    // And unlocks it.
    ASSERT_TRUE(ctl_ok(sb, {"lock", "0"}));
    ASSERT_TRUE(sb.wait_home_page(5s)) << lcd_of(sb.panel().state());

    // The panel's own LOCK toggle: file "1", the locked page; the core echoes
    // the change with this process's id, which changes nothing.
    const pid_t pid = sb.program_pid();
    const std::string own =
        "pid=" + std::to_string(pid & 0xFFFF) + ",gps_pid=" + std::to_string(pid);
    sb.panel().lock_toggle();
    ASSERT_TRUE(wait_state(sb, locked_page, "the locked page after LOCK LOCK"));
    EXPECT_EQ(sb.read_file("nandflash/config/.tav_lock_fp"), "1");
    EXPECT_TRUE(sb.wait_syslog(own, 5s)) << "no parameter signal from this process";
    EXPECT_EQ(core_calls(sb, {"set_inner_signal_lock_fp_opt"}).size(), 1u);
    // A signal carrying this process's id while the file says "0" is ignored too.
    ASSERT_TRUE(ctl_ok(sb, {"lock", "0", std::to_string(pid & 0xFFFF)}));
    std::this_thread::sleep_for(1500ms);
    EXPECT_TRUE(locked_page(sb.panel().state())) << lcd_of(sb.panel().state());
    // The toggle unlocks.
    sb.panel().lock_toggle();
    ASSERT_TRUE(sb.wait_home_page(5s)) << lcd_of(sb.panel().state());
    EXPECT_EQ(sb.read_file("nandflash/config/.tav_lock_fp"), "0");

    ASSERT_TRUE(ctl_ok(sb, {"reboot", "1"}));
    expect_reboot_end(sb, 1);
}

// Right-justified percentage in row 24.
std::string progress_row(int pct) {
    char num[16];
    std::snprintf(num, sizeof num, "%3d", pct);
    return row(5, std::string("Device Card is Updating  ") + num + "%");
}

const std::string kUpdateErr = row(4, "The Update Process Has Err Occur");

// An update that runs to 100 % and completes, one that stalls until the
// time-out (with signals that the update display drops), one that ends at
// 49 %, and at the end the reset-and-upgrade notice.
TEST(E2eUpdate, CompletesStallsEndsEarlyThenUpgradeNotice) {
    Sandbox sb;
    ASSERT_TRUE(bring_up(sb));

    // Slot 9 from 0 to 100 % in steps of 5 % every 100 ms.
    sb.panel().clear_frames();
    ASSERT_TRUE(ctl_ok(sb, {"update", "run", "9", "100"}));
    const std::string slot9 = row(7, "Slot 09 Card is Updating");
    ASSERT_TRUE(sb.panel().wait_lcd(0, slot9, 5s)) << lcd_of(sb.panel().state());
    const std::string done0 = row(7, "Device complete updating");
    const std::string done1 = row(11, "Please Wait......");
    ASSERT_TRUE(wait_lines(sb, done0, done1, 15s));
    ASSERT_TRUE(sb.wait_home_page(15s)) << lcd_of(sb.panel().state());
    {
        const auto shots = replay(sb.panel().frames());
        // The percentages shown only grow, in the core's steps; 100 itself is
        // never shown as progress.
        int last = 0;
        size_t seen = 0;
        for (const auto& sh : shots) {
            // (Shots between the two lines of a redraw are passed over.)
            if (sh.st.lcd[0] != slot9 ||
                sh.st.lcd[1].rfind(progress_row(0).substr(0, 28), 0) != 0) {
                continue;
            }
            int pct = -1;
            for (int p = 5; p < 100; p += 5) {
                if (sh.st.lcd[1] == progress_row(p)) {
                    pct = p;
                }
            }
            ASSERT_GE(pct, 0) << "progress line" << lcd_of(sh.st);
            EXPECT_GE(pct, last);
            last = pct;
            ++seen;
        }
        EXPECT_GT(seen, 3u);
        const long done =
            find_shot(shots, 0, [&](const auto& s) { return shows(s, done0, done1); });
        const long home = find_shot(shots, static_cast<size_t>(done),
                                    [](const auto& s) { return s.lcd[0] == kHomeTop; });
        ASSERT_GT(home, done);
        const double shown = shots[home].t - shots[done].t;
        EXPECT_GT(shown, 2.5) << "completion notice";
        EXPECT_LT(shown, 10.0) << "completion notice";
    }

    // Slot 3 stalls at 20 %: the error notice after 300 ticks without change.
    ASSERT_TRUE(ctl_ok(sb, {"update", "start", "3"}));
    ASSERT_TRUE(
        wait_lines(sb, row(7, "The Device will update"), row(4, "Please do not handle it anyway")));
    EXPECT_EQ(sb.panel().state().led_steady, kUpdateLeds) << lcd_of(sb.panel().state());
    ASSERT_TRUE(ctl_ok(sb, {"update", "set", "20"}));
    ASSERT_TRUE(wait_lines(sb, row(7, "Slot 03 Card is Updating"), progress_row(20)));
    const auto t_stall = std::chrono::steady_clock::now();
    // While the update display is on, a reboot and a slot signal are dropped
    // (slot 5 is empty: a slot signal would raise the pulled-out notice).
    ASSERT_TRUE(ctl_ok(sb, {"reboot", "1"}));
    ASSERT_TRUE(ctl_ok(sb, {"raise", "0x0080", "5"}));
    std::this_thread::sleep_for(2s);
    EXPECT_TRUE(sb.program_running());
    EXPECT_TRUE(shows(sb.panel().state(), row(7, "Slot 03 Card is Updating"), progress_row(20)))
        << lcd_of(sb.panel().state());
    ASSERT_TRUE(wait_lines(sb, kUpdateErr, row(8, "Please update card 03 again"), 90s));
    const double stalled = seconds_since(t_stall);
    EXPECT_GT(stalled, 27.0);
    EXPECT_LT(stalled, 80.0);
    const auto t_err = std::chrono::steady_clock::now();
    ASSERT_TRUE(sb.wait_home_page(15s)) << lcd_of(sb.panel().state());
    EXPECT_GT(seconds_since(t_err), 2.0) << "error notice";

    // Slot 7 ends at 49 %: the error notice.
    ASSERT_TRUE(ctl_ok(sb, {"update", "start", "7"}));
    ASSERT_TRUE(ctl_ok(sb, {"update", "set", "49"}));
    ASSERT_TRUE(wait_lines(sb, row(7, "Slot 07 Card is Updating"), progress_row(49)));
    ASSERT_TRUE(ctl_ok(sb, {"update", "end"}));
    ASSERT_TRUE(wait_lines(sb, kUpdateErr, row(8, "Please update card 07 again")));
    ASSERT_TRUE(sb.wait_home_page(15s)) << lcd_of(sb.panel().state());

    ASSERT_TRUE(ctl_ok(sb, {"reboot", "3"}));
    expect_reboot_end(sb, 3);
}

// The factory-reset notice announced by the core while the home page is on.
TEST(E2eSignals, FactoryResetNoticeEndsTheProgram) {
    Sandbox sb;
    ASSERT_TRUE(bring_up(sb));
    ASSERT_TRUE(ctl_ok(sb, {"reboot", "2"}));
    expect_reboot_end(sb, 2);
}

// Outputs 17..27 of the home page and the inputs under them agree with the
// core's routes.
::testing::AssertionResult home_matches_core(Sandbox& sb) {
    const auto s = sb.panel().state();
    const auto routes = core_routes(sb);
    if (s.lcd[0].rfind("VOSW: ", 0) != 0 || s.lcd[1].rfind("VISW: ", 0) != 0) {
        return ::testing::AssertionFailure() << "not the home page" << lcd_of(s);
    }
    for (size_t col = 6; col + 1 < 40; col += 3) {
        const std::string out = s.lcd[0].substr(col, 2);
        const std::string in = s.lcd[1].substr(col, 2);
        if (out == "  ") {
            continue;
        }
        const int o = std::stoi(out);
        const auto it = routes.find(o);
        const int want = it == routes.end() ? 0 : it->second.video;
        const int got = in == "  " ? 0 : std::stoi(in);
        if (got != want) {
            return ::testing::AssertionFailure() << "output " << o << " shows input " << got
                                                 << ", the core has " << want << lcd_of(s);
        }
    }
    return ::testing::AssertionSuccess();
}

// Thousands of signals of mixed kinds while keys are pressed. The length is
// set by TAV_E2E_STRESS_SECONDS (default 15) and TAV_E2E_STRESS_SIGNALS
// (default 2000); a full run is 60 s and 10000 signals.
TEST(E2eStress, SignalsWhileKeysArePressed) {
    const long seconds = env_number("TAV_E2E_STRESS_SECONDS", 15);
    const long signals = env_number("TAV_E2E_STRESS_SIGNALS", 2000);
    Sandbox sb;
    ASSERT_TRUE(bring_up(sb));

    // Keys that cannot confirm a restart (no TAKE, no DEFAULT).
    static const int kKeys[] = {0, 1, 2,        3,         4,        5,         6,       7,
                                8, 9, KEY_LEFT, KEY_RIGHT, KEY_MENU, KEY_BREAK, KEY_LOCK};
    std::atomic<bool> stop{false};
    std::atomic<long> keys{0};
    std::thread presser([&] {
        // LOCK never twice in a row: a release lost between two LOCK frames
        // would read as the lock toggle.
        std::mt19937 rng(7);
        int last = -1;
        while (!stop.load()) {
            int key = kKeys[rng() % std::size(kKeys)];
            if (key == KEY_LOCK && last == KEY_LOCK) {
                key = KEY_RIGHT;
            }
            sb.panel().press(key);
            last = key;
            keys.fetch_add(1);
            std::this_thread::sleep_for(ms(150 + rng() % 150));
        }
    });

    // Bursts four times a second, and now and then a real route change.
    const auto t0 = std::chrono::steady_clock::now();
    const long rounds = seconds * 4;
    long raised = 0;
    for (long r = 0; r < rounds; ++r) {
        const long n = signals * (r + 1) / rounds - raised;
        if (n > 0) {
            EXPECT_TRUE(ctl_ok(sb, {"burst", std::to_string(n), std::to_string(1000 + r)}));
            raised += n;
        }
        if (r % 8 == 7) {
            EXPECT_TRUE(ctl_ok(
                sb, {"route", "video", std::to_string(17 + r % 11), std::to_string(1 + r % 14)}));
            ++raised;
        }
        const auto next = t0 + ms(250 * (r + 1));
        std::this_thread::sleep_until(next);
    }
    stop = true;
    presser.join();
    const double run = seconds_since(t0);
    ASSERT_TRUE(sb.program_running());

    // Let the backlog drain: no frame for a second.
    for (int i = 0; i < 60; ++i) {
        const auto gen = sb.panel().generation();
        if (!sb.panel().wait_change(gen, 1s)) {
            break;
        }
    }
    // A key still redraws within a second.
    const auto gen = sb.panel().generation();
    const auto t_key = std::chrono::steady_clock::now();
    sb.panel().press_async(KEY_BREAK);
    EXPECT_TRUE(sb.panel().wait_change(gen, 1s)) << "no redraw within 1 s of a key";
    const double answer = seconds_since(t_key);
    ASSERT_TRUE(sb.wait_home_page(10s)) << lcd_of(sb.panel().state());
    EXPECT_TRUE(home_matches_core(sb));
    EXPECT_EQ(sb.panel().malformed_frames(), 0u) << sb.panel().last_problem();
    EXPECT_EQ(sb.panel().unknown_frames(), 0u) << sb.panel().last_problem();

    // Parameter signals of a foreign kind each leave one log line: how many
    // dispatches the listener made of them (the library may merge records).
    size_t param_lines = 0;
    for (const auto& l : sb.syslog_lines()) {
        param_lines += l.find("param=65537") != std::string::npos ? 1 : 0;
    }
    EXPECT_GT(param_lines, 0u) << "no signal reached the listener";
    std::printf("[ stress   ] %zu foreign parameter signals dispatched\n", param_lines);
    const auto s = sb.panel().state();
    std::printf(
        "[ stress   ] %.1f s, %ld signals raised, %ld keys pressed, key answered in %.3f s\n"
        "[ stress   ] final page |%s|%s|\n",
        run, raised, keys.load(), answer, s.lcd[0].c_str(), s.lcd[1].c_str());
    RecordProperty("signals", static_cast<int>(raised));
    RecordProperty("keys", static_cast<int>(keys.load()));

    ASSERT_TRUE(sb.signal_program(SIGTERM));
    const auto st = sb.wait_program_exit(15s);
    ASSERT_TRUE(st.has_value()) << "still running 15 s after SIGTERM";
    EXPECT_EQ(*st, 1);
    expect_no_sanitizer_report(sb);
}

} // namespace
