// End-to-end scenarios: the real program, its threads and its pty against the
// panel emulator and the simulated matrix core. Each start costs about 14 s,
// so each scenario carries what only a whole run can show; timing windows are
// the unit tests' business (fake clock).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <random>
#include <thread>

#include "e2e_scenarios.h"

using namespace tave2e;

namespace {

// The program ends with status 1 (after a SIGTERM when `stop`), its port
// opened `opens` times and closed once, nothing malformed sent, and neither
// it nor the core wrote a sanitizer report to its output file.
void expect_end(Sandbox& sb, bool stop, unsigned opens = 1) {
    ASSERT_TRUE(!stop || sb.signal_program(SIGTERM));
    const auto st = sb.wait_program_exit(30s);
    ASSERT_TRUE(st.has_value()) << "still running" << lcd_of(sb.panel().state());
    EXPECT_EQ(*st, 1);
    ASSERT_TRUE(sb.panel().wait_peer_closed(5s));
    EXPECT_EQ(sb.panel().peer_opens(), opens);
    EXPECT_EQ(sb.panel().peer_closes(), 1u);
    EXPECT_EQ(sb.panel().malformed_frames(), 0u) << sb.panel().last_problem();
    for (const char* file : {"program.out", "core.out"}) {
        const std::string out = sb.read_file(file);
        for (const char* mark : {"WARNING: ThreadSanitizer", "ERROR: AddressSanitizer",
                                 "ERROR: LeakSanitizer", "runtime error:"}) {
            EXPECT_EQ(out.find(mark), std::string::npos) << file << ":\n" << out.substr(0, 4000);
        }
    }
}

// After the core announced reboot `option` (1 restart, 2 factory reset): the
// program ends, and the panel keeps the notice with every LED and every
// blink off.
void expect_reboot_end(Sandbox& sb, int option) {
    expect_end(sb, false);
    const auto s = sb.panel().state();
    EXPECT_TRUE(shows(s,
                      option == 1 ? row(9, "The device is restarting")
                                  : row(3, "The device is factory resetting"),
                      row(13, "Please wait......")) &&
                s.led_steady == 0 && s.led_blink == 0)
        << "reboot option " << option << lcd_of(s);
}

// Keys as a quick hand types them: taps of `hold` (key frame to release
// frame on the line), one every `every`. The program keeps every key in
// order, so nothing is waited for here: the caller waits for the effect it
// expects, which no other redraw can be mistaken for.
void press_keys(Sandbox& sb, std::initializer_list<int> keys, ms hold = 60ms, ms every = 150ms) {
    auto next = std::chrono::steady_clock::now();
    for (int k : keys) {
        std::this_thread::sleep_until(next);
        sb.panel().tap(k, hold);
        next += every;
    }
}
void press_key(Sandbox& sb, int key) {
    press_keys(sb, {key});
}

// Runs a control command and reports its failure with its output.
::testing::AssertionResult ctl_ok(const Sandbox& sb, const std::vector<std::string>& args) {
    const CmdResult r = sb.ctl(args);
    std::string cmd = "tav_matrix_ctl";
    for (const auto& a : args)
        cmd += " " + a;
    return r.status == 0
               ? ::testing::AssertionSuccess()
               : ::testing::AssertionFailure() << cmd << " -> " << r.status << " " << r.out;
}

const std::string kHomeTop = port_line("VOSW: ", seq(17, 11));
const std::string kHomeBottom = port_line("VISW: ", seq(1, 11));
const std::string kLockFile = "nandflash/config/.tav_lock_fp";

// Start-up: the loading rows, the wait for the core's PID lock (held here),
// the home page; a lock left from before is reset.
TEST(E2e, StartupWaitsForTheCoreLockThenShowsHome) {
    Sandbox sb;
    sb.write_file(kLockFile, "1");
    ASSERT_TRUE(sb.start_core());
    // The core lets go of its PID lock at once; this process takes it.
    const int lock_fd = open(sb.path("var/run/matrix_app_quoral.pid").c_str(), O_RDWR | O_CLOEXEC);
    struct flock fl {};
    fl.l_type = F_WRLCK;
    ASSERT_EQ(fcntl(lock_fd, F_SETLKW, &fl), 0);
    ASSERT_TRUE(sb.start_program());
    ASSERT_TRUE(sb.wait_syslog("open pid file and wait", 120s));
    EXPECT_TRUE(wait_lines(sb, row(9, "Loading Main Setup"), row(11, "PLEASE WAIT......")));
    EXPECT_FALSE(sb.wait_syslog("close pid", 0ms)) << "went on while the core held its lock";
    close(lock_fd);
    ASSERT_TRUE(sb.wait_syslog("close pid", 10s));
    ASSERT_TRUE(sb.wait_home_page(30s)) << lcd_of(sb.panel().state());
    EXPECT_EQ(sb.read_file(kLockFile), "0");
    EXPECT_EQ(sb.panel().handshakes(), 1u);

    EXPECT_TRUE(sb.program_running());
}

// No core, so the library never opens: the error rows, the log line, the
// end with status 1, and no self-check on the way.
TEST(E2e, LibraryFailureShowsTheErrorRowsAndEnds) {
    Sandbox sb;
    ASSERT_TRUE(sb.start_program());
    EXPECT_EQ(sb.wait_program_exit(120s), std::optional<int>(1));
    const auto shots = replay(sb.panel().frames());
    ASSERT_FALSE(shots.empty());
    EXPECT_TRUE(
        shows(shots.back(), row(8, "The Matrix System Err"), row(8, "PLEASE CHECK YOUR MATRIX")))
        << lcd_of(shots.back());
    for (const auto& sh : shots) {
        EXPECT_NE(sh.led_steady & ~kLcdLed & leds({1}), leds({1}));
    }
    EXPECT_TRUE(sb.wait_syslog("15\tfunc=[tav_menu_control]OPEN DLL ERR", 0ms));
}

// The link: no device ends the program; a stop signal while the panel is
// silent closes the port once.
TEST(E2e, LinkFaults) {
    {
        Sandbox none({.start_panel = false});
        ASSERT_TRUE(none.start_program());
        EXPECT_EQ(none.wait_program_exit(30s), std::optional<int>(1));
        EXPECT_TRUE(
            none.wait_syslog("15\tfunc=[tav_base_port_open]Front panel Err .Start Uart Err.", 0ms));
    }
    Sandbox sb({.silent_panel = true});
    ASSERT_TRUE(sb.start_program());
    ASSERT_TRUE(sb.panel().wait_handshakes(2, 30s));
    expect_end(sb, true);
}

// A key that leaves the home page for the next status page: the program answers keys.
::testing::AssertionResult answers_right_key(Sandbox& sb) {
    press_key(sb, KEY_RIGHT);
    return wait_state(
        sb, [](const auto& s) { return s.lcd[0].rfind("VOSW: ", 0) == 0 && s.lcd[0] != kHomeTop; },
        "the next status page");
}

// The panel's port vanishes for longer than the longest reopen pause and comes
// back: without a key the program reopens it and draws its page and LEDs
// again; the link logs nothing; the port it holds at the end is closed once.
TEST(E2e, PortGoesAwayAndComesBack) {
    Sandbox sb;
    ASSERT_TRUE(bring_up(sb));
    const auto home = sb.panel().state();
    const auto log_before = sb.syslog_lines();
    ASSERT_TRUE(sb.panel().drop_port());
    std::this_thread::sleep_for(2s); // the outage itself
    ASSERT_TRUE(sb.panel().restore_port());
    ASSERT_TRUE(wait_state(
        sb,
        [&](const auto& s) {
            return shows(s, home.lcd[0], home.lcd[1]) && s.led_steady == home.led_steady;
        },
        "the home page drawn again", 5s));
    EXPECT_TRUE(answers_right_key(sb));
    EXPECT_EQ(sb.syslog_lines(), log_before);
    expect_end(sb, true, 2);
}

// The core crashes and a new instance starts: meanwhile keys are answered and
// the pages keep the last routes known; the new core's signals arrive, and
// the tables they reload show its routes (17 back to input 1).
TEST(E2e, CoreGoesAwayAndComesBack) {
    Sandbox sb;
    ASSERT_TRUE(bring_up(sb));
    const auto visw = [](int in17, int in18) {
        return port_line("VISW: ", {in17, in18, 3, 4, 5, 6, 7, 8, 9, 10, 11});
    };
    ASSERT_TRUE(ctl_ok(sb, {"route", "video", "17", "5"}));
    ASSERT_TRUE(wait_lines(sb, kHomeTop, visw(5, 2)));
    sb.stop_core(SIGKILL);
    EXPECT_TRUE(answers_right_key(sb));
    press_key(sb, KEY_LEFT);
    EXPECT_TRUE(wait_lines(sb, kHomeTop, visw(5, 2)));
    ASSERT_TRUE(sb.start_core());
    // Back with a new core, the page shows its routes; its signals arrive.
    EXPECT_TRUE(wait_lines(sb, kHomeTop, visw(1, 2)));
    ASSERT_TRUE(ctl_ok(sb, {"route", "video", "18", "7"}));
    EXPECT_TRUE(wait_lines(sb, kHomeTop, visw(1, 7)));
    ASSERT_TRUE(sb.program_running());
    expect_end(sb, true);
}

// Quick hands on the paced line: every 30-ms tap of 1 opens the output entry
// (LEFT leaves it); two switches typed as 40-ms taps 100 ms apart, the second
// during the first one's confirmation, switch exactly the ports typed.
TEST(E2e, QuickTapsAndTypeAhead) {
    Sandbox sb;
    ASSERT_TRUE(bring_up(sb));
    for (int i = 0; i < 20; ++i) {
        press_keys(sb, {1}, 30ms);
        ASSERT_TRUE(wait_state(
            sb, [](const auto& s) { return s.lcd[1].substr(27, 12) == "      OUT1_ "; }, "OUT1_"))
            << "tap " << i;
        press_keys(sb, {KEY_LEFT}, 30ms);
        ASSERT_TRUE(wait_lines(sb, kHomeTop, kHomeBottom)) << "tap " << i;
    }
    const auto videos = [&] {
        std::map<int, int> v;
        for (const auto& [out, r] : core_routes(sb)) {
            v[out] = r.video;
        }
        return v;
    };
    auto want = videos();
    want[25] = 4;
    want[31] = 12;
    press_keys(sb, {2, 5, 4, KEY_RIGHT, 3, 1, 1, 2}, 40ms, 100ms);
    for (int i = 0; i < 50 && videos() != want; ++i) {
        std::this_thread::sleep_for(100ms);
    }
    EXPECT_EQ(videos(), want);
}

// One person at the panel: switch-all, and a restart asked for.
TEST(E2e, OperatorSession) {
    Sandbox sb;
    ASSERT_TRUE(bring_up(sb));
    // Switch-all: video input 5 to every output.
    press_keys(sb, {KEY_MENU, KEY_MENU, KEY_MENU, KEY_MENU, 1, 1, 0, 5});
    // The TAKE blink follows the text on the line.
    ASSERT_TRUE(wait_state(
        sb,
        [](const auto& s) {
            return s.lcd[1].substr(20, 15) == "Video in05=>ALL" && s.led_blink == leds({KEY_TAKE});
        },
        "in05 with TAKE blinking"));
    press_key(sb, KEY_TAKE);
    ASSERT_TRUE(wait_lines(sb, kHomeTop, port_line("VISW: ", std::vector<int>(11, 5)), 10s));
    for (const auto& [out, r] : core_routes(sb)) {
        EXPECT_EQ(r.video, 5) << "output " << out;
    }

    // Restart: DEFAULT, 1, TAKE; the core is asked and announces the reboot.
    press_keys(sb, {KEY_DEFAULT, 1});
    ASSERT_TRUE(
        wait_lines(sb, row(7, "The Device will be reset"), row(9, "Press TAKE to confirm")));
    press_key(sb, KEY_TAKE);
    expect_reboot_end(sb, 1);
    EXPECT_EQ(sb.ctl({"log", "set_inner_signal_reboot_opt"}).out,
              "set_inner_signal_reboot_opt(1)\n");
    EXPECT_EQ(sb.read_file("tmp/tav_z8_reboot.flag"), "1\n");
}

// Notices driven by the core: a card pulled and put back, an update to
// 100 %, the factory-reset notice.
TEST(E2e, CoreDrivenNotices) {
    Sandbox sb;
    ASSERT_TRUE(bring_up(sb));
    ASSERT_TRUE(ctl_ok(sb, {"pull", "12"}));
    ASSERT_TRUE(wait_lines(sb, row(11, "Card 12 Pull out"), row(11, "PLEASE WAIT......")));
    ASSERT_TRUE(ctl_ok(sb, {"insert", "12"}));
    ASSERT_TRUE(wait_lines(sb, row(8, "Slot 12 Has a Card Insert"),
                           row(5, "Please wait it for Initialization")));
    ASSERT_TRUE(sb.wait_home_page(15s)) << "the notice ends when the card is normal";

    ASSERT_TRUE(ctl_ok(sb, {"update", "run", "9", "100"}));
    ASSERT_TRUE(sb.panel().wait_lcd(0, row(7, "Slot 09 Card is Updating"), 10s));
    ASSERT_TRUE(
        wait_lines(sb, row(7, "Device complete updating"), row(11, "Please Wait......"), 30s));
    ASSERT_TRUE(sb.wait_home_page(15s));

    ASSERT_TRUE(ctl_ok(sb, {"reboot", "2"}));
    expect_reboot_end(sb, 2);
}

// Outputs of the home page and the inputs under them agree with the core.
::testing::AssertionResult home_matches_core(Sandbox& sb) {
    const auto s = sb.panel().state();
    const auto routes = core_routes(sb);
    for (size_t col = 6; col + 1 < 40; col += 3) {
        const std::string out = s.lcd[0].substr(col, 2), in = s.lcd[1].substr(col, 2);
        if (out != "  ") {
            const auto it = routes.find(std::stoi(out));
            const int want = it == routes.end() ? 0 : it->second.video;
            if ((in == "  " ? 0 : std::stoi(in)) != want) {
                return ::testing::AssertionFailure() << "output " << out << lcd_of(s);
            }
        }
    }
    return ::testing::AssertionSuccess();
}

// Thousands of signals of mixed kinds while keys are pressed. The length is
// set by TAV_E2E_STRESS_SECONDS (default 15) and TAV_E2E_STRESS_SIGNALS
// (default 2000); a full run is 60 s and 10000 signals.
TEST(E2eStress, SignalsWhileKeysArePressed) {
    const auto env_number = [](const char* name, long dflt) {
        const long n = std::getenv(name) != nullptr ? std::atol(std::getenv(name)) : 0;
        return n > 0 ? n : dflt;
    };
    const long seconds = env_number("TAV_E2E_STRESS_SECONDS", 15);
    const long signals = env_number("TAV_E2E_STRESS_SIGNALS", 2000);
    Sandbox sb;
    ASSERT_TRUE(bring_up(sb));
    // Keys that cannot confirm a restart (no TAKE, no DEFAULT); LOCK never
    // twice in a row (that would read as the lock toggle).
    static const int kKeys[] = {0, 1, 2,        3,         4,        5,         6,       7,
                                8, 9, KEY_LEFT, KEY_RIGHT, KEY_MENU, KEY_BREAK, KEY_LOCK};
    std::atomic<bool> stop{false};
    std::thread presser([&] {
        std::mt19937 rng(7);
        int last = -1;
        while (!stop.load()) {
            int key = kKeys[rng() % std::size(kKeys)];
            key = key == KEY_LOCK && last == KEY_LOCK ? KEY_RIGHT : key;
            sb.panel().press(key);
            last = key;
        }
    });
    // Bursts four times a second, and now and then a real route change.
    const auto t0 = std::chrono::steady_clock::now();
    const long rounds = seconds * 4;
    long raised = 0;
    for (long r = 0; r < rounds; ++r) {
        const long n = signals * (r + 1) / rounds - raised;
        EXPECT_TRUE(ctl_ok(sb, {"burst", std::to_string(n), std::to_string(1000 + r)}));
        raised += n;
        if (r % 8 == 7) {
            EXPECT_TRUE(ctl_ok(
                sb, {"route", "video", std::to_string(17 + r % 11), std::to_string(1 + r % 14)}));
        }
        std::this_thread::sleep_until(t0 + ms(250 * (r + 1)));
    }
    stop = true;
    presser.join();
    ASSERT_TRUE(sb.program_running());
    // The keys still queued are handled first (the panel stays quiet for
    // three seconds, longer than any pause of a handler), and while the queue
    // was full the newest reports were dropped: BREAK (from a locked page a
    // lock toggle first) until the home page stays for two seconds.
    for (size_t n = 0, i = 0; i < 20 && (i == 0 || sb.panel().frames().size() != n); ++i) {
        n = sb.panel().frames().size();
        std::this_thread::sleep_for(3s);
    }
    bool home = false;
    for (int i = 0; i < 15 && !home; ++i) {
        if (const auto s = sb.panel().state(); (s.led_steady & ~kLcdLed) == leds({KEY_LOCK})) {
            sb.panel().lock_toggle();
        }
        press_key(sb, KEY_BREAK);
        home = sb.wait_home_page(10s);
        std::this_thread::sleep_for(2s);
        home = home && sb.wait_home_page(1ms);
    }
    ASSERT_TRUE(home) << lcd_of(sb.panel().state());
    // A record that found the listener's queue full may have been replaced
    // by a later one; the first change after the storm brings the tables
    // back in line with the core.
    ASSERT_TRUE(ctl_ok(sb, {"route", "video", "27", "2"}));
    ASSERT_TRUE(wait_state(
        sb,
        [](const auto& s) {
            const size_t col = s.lcd[0].find(" 27 "); // the page may start at 17 or 22
            return col != std::string::npos && s.lcd[1].substr(col + 1, 2) == "02";
        },
        "27 <- 2"));
    EXPECT_TRUE(home_matches_core(sb));
    expect_end(sb, true);
}

} // namespace
