// The program's start-up as the panel sees it: the greeting, the LED
// self-check, the main-setup loading, the home page and its idle return; the
// stop when the matrix library cannot be opened; the wait for a core that is
// still starting.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "e2e_scenarios.h"

using namespace tave2e;

namespace {

const std::string kVendor = row(6, "QUORAL ELECTRONICS Co.,LTD");
const std::string kMatrixName = row(11, "TR-90QX MATRIX");
const std::string kLoading = row(9, "Loading Main Setup");
const std::string kPleaseWait = row(11, "PLEASE WAIT......");
const std::string kSystemErr = row(8, "The Matrix System Err");
const std::string kCheckMatrix = row(8, "PLEASE CHECK YOUR MATRIX");

// The home page of the default chassis: outputs 17..27 fed by inputs 1..11.
const std::string kHomeTop = port_line("VOSW: ", seq(17, 11));
const std::string kHomeBottom = port_line("VISW: ", seq(1, 11));

// The key LED of each self-check step; -1: LED 31 alone.
const int kSelfCheckKey[18] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 0, 11, 14, 15, 16, 12, 13, -1};

bool greeting(const tavpanel::PanelState& s) {
    return shows(s, kVendor, kMatrixName) && s.led_steady == kLcdLed;
}

TEST(E2eStartup, GreetingSelfCheckLoadingHomePageAndIdleReturn) {
    Sandbox sb;
    // A panel left locked before the restart comes up unlocked.
    sb.write_file("nandflash/config/.tav_lock_fp", "1");
    ASSERT_TRUE(sb.start_core());
    ASSERT_TRUE(sb.start_program());
    ASSERT_TRUE(sb.wait_home_page(60s)) << lcd_of(sb.panel().state());
    EXPECT_EQ(sb.read_file("nandflash/config/.tav_lock_fp"), "0");

    const auto shots = replay(sb.panel().frames());
    ASSERT_FALSE(shots.empty());
    EXPECT_EQ(shots[0].kind, tavpanel::FrameKind::handshake);

    // Rows 1 and 2 with LED 31 alone once the panel answered.
    const long greet = find_shot(shots, 0, greeting);
    ASSERT_GE(greet, 0) << "rows 1/2 with LED 31 alone never shown";
    const double t_greet = shots[greet].t;

    // Then the 18 self-check steps, one LED frame each, until rows 3/4.
    const long loading =
        find_shot(shots, greet, [](const auto& s) { return shows(s, kLoading, kPleaseWait); });
    ASSERT_GT(loading, greet) << "rows 3/4 never shown";
    const long loading_top =
        find_shot(shots, greet, [](const auto& s) { return s.lcd[0] == kLoading; });
    std::vector<const Shot*> steps;
    for (long i = greet + 1; i < loading_top; ++i) {
        EXPECT_EQ(shots[i].kind, tavpanel::FrameKind::led_steady)
            << "frame " << i << ": " << tavpanel::describe(shots[i].bytes);
        if (shots[i].kind == tavpanel::FrameKind::led_steady) {
            steps.push_back(&shots[i]);
        }
    }
    ASSERT_EQ(steps.size(), 18u);
    for (size_t k = 0; k < steps.size(); ++k) {
        const uint32_t want = kSelfCheckKey[k] < 0 ? kLcdLed : leds({kSelfCheckKey[k], 31});
        EXPECT_EQ(steps[k]->st.led_steady, want) << "self-check step " << k;
        EXPECT_EQ(steps[k]->st.lcd[0], kVendor) << "step " << k;
        if (k > 0) {
            const double gap = steps[k]->t - steps[k - 1]->t;
            EXPECT_GT(gap, 0.45) << "step " << k;
            EXPECT_LT(gap, 0.95) << "step " << k;
        }
    }
    // The library is opened about a second after the greeting; rows 3/4
    // follow the last step after its 500 ms.
    EXPECT_GT(steps.front()->t - t_greet, 0.8);
    EXPECT_LT(steps.front()->t - t_greet, 1.8);
    EXPECT_GT(shots[loading].t - steps.back()->t, 0.45);
    EXPECT_LT(shots[loading].t - steps.back()->t, 1.2);

    // The home page with its LED scene, at least the two 1-s pauses later.
    const long home = find_shot(shots, loading, [](const auto& s) {
        return shows(s, kHomeTop, kHomeBottom) && s.led_steady == (kStatusLeds | kLcdLed);
    });
    ASSERT_GT(home, loading) << lcd_of(shots.back().st);
    EXPECT_EQ(shots[home].st.led_blink, 0u);
    EXPECT_GT(shots[home].t - shots[loading].t, 1.9);
    EXPECT_LT(shots[home].t - shots[loading].t, 6.0);
    EXPECT_EQ(sb.panel().handshakes(), 1u);
    for (const char* msg :
         {"13\tfunc=[tav_menu_control]open pid file and wait,depend matrix_app_quoral",
          "13\tfunc=[tav_menu_control]close pid"}) {
        EXPECT_TRUE(sb.wait_syslog(msg, 1s)) << msg;
    }

    // Ten seconds without a key: LED 31 goes off, the home page stays.
    ASSERT_TRUE(sb.panel().wait_leds(kStatusLeds, 15s)) << lcd_of(sb.panel().state());
    const auto after = replay(sb.panel().frames());
    const long dark =
        find_shot(after, home, [](const auto& s) { return s.led_steady == kStatusLeds; });
    ASSERT_GT(dark, home);
    EXPECT_GT(after[dark].t - shots[home].t, 8.0);
    EXPECT_LT(after[dark].t - shots[home].t, 12.0);
    EXPECT_TRUE(shows(after[dark].st, kHomeTop, kHomeBottom)) << lcd_of(after[dark].st);

    // The next key lights it again.
    sb.panel().press(KEY_LEFT);
    EXPECT_TRUE(sb.panel().wait_leds(kStatusLeds | kLcdLed, 5s)) << lcd_of(sb.panel().state());
    EXPECT_TRUE(shows(sb.panel().state(), kHomeTop, kHomeBottom)) << lcd_of(sb.panel().state());
    EXPECT_TRUE(sb.program_running());
}

// The library never opens: ten attempts a second apart, then the error rows
// reach the panel, the log line, and the end with status 1.
struct OpenFailure {
    const char* name;
    bool core; // a core that refuses the open (counted in its log), or none at all
};

void PrintTo(const OpenFailure& f, std::ostream* os) {
    *os << f.name;
}

class E2eStartupOpenFails : public ::testing::TestWithParam<OpenFailure> {};

TEST_P(E2eStartupOpenFails, TenOpensThenErrorRowsAndExit) {
    Sandbox sb;
    if (GetParam().core) {
        ASSERT_TRUE(sb.start_core());
        ASSERT_EQ(sb.ctl({"fail", "open"}).status, 0);
    }
    ASSERT_TRUE(sb.start_program());
    ASSERT_TRUE(sb.panel().wait_for(greeting, 15s)) << lcd_of(sb.panel().state());

    // With a core, note when each open arrives.
    std::vector<double> open_times;
    const auto t0 = std::chrono::steady_clock::now();
    auto since = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    };
    std::optional<int> st;
    while (!(st = sb.wait_program_exit(GetParam().core ? 100ms : 1000ms)) && since() < 40) {
        if (GetParam().core) {
            const size_t n = core_calls(sb, {"open"}).size();
            while (open_times.size() < n) {
                open_times.push_back(since());
            }
        }
    }
    ASSERT_TRUE(st.has_value()) << "still running 40 s after the greeting";
    EXPECT_EQ(*st, 1);

    const auto shots = replay(sb.panel().frames());
    ASSERT_FALSE(shots.empty());
    EXPECT_TRUE(shows(shots.back().st, kSystemErr, kCheckMatrix)) << lcd_of(shots.back().st);
    const long greet = find_shot(shots, 0, greeting);
    const long err = find_shot(shots, 0, [](const auto& s) { return s.lcd[0] == kSystemErr; });
    ASSERT_GE(greet, 0);
    ASSERT_GT(err, greet);
    // Ten opens one second apart, the first a second after the greeting.
    EXPECT_GT(shots[err].t - shots[greet].t, 9.0);
    EXPECT_LT(shots[err].t - shots[greet].t, 12.5);
    // No self-check and no loading rows on the way.
    for (long i = greet + 1; i < err; ++i) {
        EXPECT_NE(shots[i].kind, tavpanel::FrameKind::led_steady) << "frame " << i;
    }

    const auto log = sb.syslog_lines();
    EXPECT_NE(std::find(log.begin(), log.end(), "15\tfunc=[tav_menu_control]OPEN DLL ERR "),
              log.end());

    if (GetParam().core) {
        const auto opens = core_calls(sb, {"open"});
        EXPECT_EQ(opens.size(), 10u);
        for (size_t i = 1; i < open_times.size(); ++i) {
            const double gap = open_times[i] - open_times[i - 1];
            EXPECT_GT(gap, 0.5) << "open " << i;
            EXPECT_LT(gap, 1.7) << "open " << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Library, E2eStartupOpenFails,
                         ::testing::Values(OpenFailure{"NoCore", false},
                                           OpenFailure{"CoreRefusesOpen", true}),
                         [](const auto& info) { return std::string(info.param.name); });

// A core that still holds its PID-file lock: the program waits on rows 3/4
// and goes on to the home page once the lock is released.
TEST(E2eStartup, WaitsOnLoadingRowsWhileTheCoreIsStarting) {
    Sandbox sb;
    constexpr int kCoreStartMs = 18000;
    const auto core_start = std::chrono::steady_clock::now();
    ASSERT_TRUE(sb.start_core("", kCoreStartMs));
    ASSERT_TRUE(sb.start_program());
    auto since_core = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - core_start).count();
    };
    ASSERT_TRUE(sb.wait_syslog("open pid file and wait", 30s));
    const double waiting_from = since_core();
    ASSERT_LT(waiting_from, kCoreStartMs / 1000.0 - 1.0)
        << "the program reached the wait too late for this test";
    EXPECT_TRUE(shows(sb.panel().state(), kLoading, kPleaseWait)) << lcd_of(sb.panel().state());

    // Still waiting, rows unchanged, until the lock goes.
    std::this_thread::sleep_for(
        std::chrono::duration<double>(kCoreStartMs / 1000.0 - 0.7 - since_core()));
    EXPECT_TRUE(shows(sb.panel().state(), kLoading, kPleaseWait)) << lcd_of(sb.panel().state());
    EXPECT_FALSE(sb.wait_syslog("close pid", 0ms)) << "went on while the core held its lock";

    ASSERT_TRUE(sb.wait_syslog("close pid", 10s));
    EXPECT_GT(since_core(), kCoreStartMs / 1000.0 - 0.3);
    EXPECT_TRUE(sb.wait_home_page(15s)) << lcd_of(sb.panel().state());
    EXPECT_TRUE(sb.program_running());
}

} // namespace
