// Stops and bounds: a stop at any moment of start-up ends the wait in
// progress at once, signal records wait no longer than the pass in progress,
// a listener opened again handles nothing meant for the old one, and the
// worker threads get the stacks they ask for.
#include <gmock/gmock.h>
#include <pthread.h>

#include <csignal>
#include <optional>

#include "menu_fixture.h"
#include "tav_basetool.h"
#include "tav_keyboard.h"
#include "tav_menu_listen_irq.h"
#include "tav_pid_file.h"

using namespace mtest;
using Clock = std::chrono::steady_clock;

namespace {

std::atomic<int> g_waits;
// SIGTERM as the wait is about to block (the first one of the pass only).
void stop_at_first_wait() {
    if (g_waits++ == 0)
        raise(SIGTERM);
}

class Stops : public MenuTest {
  protected:
    void SetUp() override {
        MenuTest::SetUp();
        tav_install_signal_handlers();
        g_waits = 0;
    }
    void TearDown() override {
        tav_menu_ctl_set_wait_hook(nullptr);
        tav_pidf_set_wait_hook(nullptr);
        signal(SIGTERM, SIG_DFL);
        signal(SIGINT, SIG_DFL);
        tav_key_var_init();
        MenuTest::TearDown();
    }
};

struct StopCase {
    const char* name;
    TAV_ENUM_EVENT state;
    int earlier_handshakes;
    uint32_t pause_ms; // 0: the wait for the matrix core's lock
};

TEST_F(Stops, AStopEndsEveryStartUpWaitAtOnce) {
    const StopCase cases[] = {
        {"handshake answer", EVENT_MITT, 0, 1000},
        {"pause after 20 handshakes", EVENT_MITT, 19, 3000},
        {"self-check step", EVENT_SELF_CHECK, 0, 500},
        {"loading pause", EVENT_LOADMAIN, 0, 1000},
        {"matrix core's lock", EVENT_LOADMAIN, 0, 0},
    };
    for (const StopCase& c : cases) {
        SetUp();
        tav_menu_ctl_init();
        tav_key_var_init();
        g_tav_menu_event = c.state;
        g_fake_now = tav_btool_get_runtime() - 30000;
        for (int i = 0; i < c.earlier_handshakes; ++i) {
            tav_menu_control();
            g_fake_now += 1000;
        }
        std::optional<LockHolder> core;
        if (c.pause_ms == 0) {
            core.emplace(root() + "/var/run/matrix_app_quoral.pid");
            EXPECT_TRUE(core->locked());
            tav_pidf_set_wait_hook(stop_at_first_wait);
        } else {
            tav_menu_ctl_set_time_source(nullptr, nullptr);
            tav_menu_ctl_set_wait_hook(stop_at_first_wait);
        }
        fresh_log();
        const auto start = Clock::now();
        tav_menu_control();
        const auto took = Clock::now() - start;
        EXPECT_EQ(g_waits, 1) << c.name;
        EXPECT_EQ(g_tav_key_runflag.load(), 0) << c.name;
        EXPECT_TRUE(trace().empty() && calls().empty()) << c.name << " went on after the stop";
        if (c.pause_ms == 0) {
            EXPECT_TRUE(core->still_holding());
            EXPECT_THAT(log_lines(), ::testing::Not(::testing::Contains(
                                         "13\tfunc=[tav_menu_control]close pid")));
        } else {
            EXPECT_LT(took, std::chrono::milliseconds(c.pause_ms / 2)) << c.name;
        }
        TearDown();
    }
}

// A record fetched while a pass holds the engine is handled by the next pass
// at the latest, even when that pass follows at once (a redraw pass).
TEST_F(Stops, AQueuedSignalIsHandledByTheNextPass) {
    tav_matrix_irq_open();
    g_tav_menu = menu_vid_display;
    {
        std::lock_guard<std::mutex> lk(tav_menu_engine_mutex());
        const int fetches = fakematrix::signal_fetches();
        ASSERT_TRUE(fakematrix::raise_signal(TAV_MATRIX_SIG_VIDEO_CONNECT, 0));
        ASSERT_TRUE(wait_until([&] { return fakematrix::signal_fetches() == fetches + 1; }));
        EXPECT_TRUE(trace().empty());
        g_tav_menu_event = EVENT_UPDATE;
    }
    tav_menu_control();
    EXPECT_EQ(trace(), std::vector<std::string>{"video_table"});
    tav_matrix_irq_close();
}

// A record fetched while the engine is torn down is not dispatched, and
// wake-up bytes left in the pipe by a closed listener are never handled by
// the next one, however often it is opened.
TEST_F(Stops, AListenerOpenedAgainHandlesNothingMeantForTheOldOne) {
    tav_matrix_irq_open();
    {
        std::lock_guard<std::mutex> lk(tav_menu_engine_mutex());
        ASSERT_TRUE(fakematrix::raise_signal(TAV_MATRIX_SIG_VIDEO_CONNECT, 0));
        ASSERT_TRUE(wait_until([] { return fakematrix::signal_fetches() == 1; }));
        tav_menu_ctl_distory(); // returns once the listener has ended
    }
    for (int i = 0; i < 3; ++i)
        tav_matrix_irq_callback(0);
    tav_matrix_irq_open();
    tav_matrix_irq_open();
    ASSERT_TRUE(fakematrix::raise_signal(TAV_MATRIX_SIG_AUDIO_CONNECT, 0));
    ASSERT_TRUE(wait_until([] { return !trace().empty(); }));
    EXPECT_EQ(fakematrix::signal_fetches(), 2);
    EXPECT_EQ(trace(), std::vector<std::string>{"audio_table"});
    tav_matrix_irq_close();
}

// LOCK with a lock file that cannot keep the state: the panel stays as it
// is, nothing is announced, and the reason is logged.
TEST_F(Stops, ALockFileThatCannotKeepTheStateIsLogged) {
    const std::string path = root() + "/nandflash/config/.tav_lock_fp";
    std::filesystem::create_directories(root() + "/nandflash/config");
    ASSERT_EQ(symlink("/dev/full", path.c_str()), 0);
    tav_update_to_lock(1);
    std::filesystem::remove(path);
    EXPECT_FALSE(g_tav_lock);
    EXPECT_TRUE(fakematrix::calls_starting("set_inner_signal_lock_fp_opt").empty());
    EXPECT_THAT(log_lines(),
                ::testing::ElementsAre(
                    "11\tfunc=[tav_update_to_lock]lock file write err:No space left on device"));
}

// The worker threads get the stack they ask for, never less than the
// platform allows (the default would be megabytes).
TEST(WorkerThread, GetsTheSmallStack) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "ThreadSanitizer sizes the stacks of the threads it starts";
#endif
    size_t got = 0;
    pthread_t t;
    ASSERT_EQ(tav_btool_start_thread(
                  &t,
                  [](void* arg) -> void* {
                      pthread_attr_t a;
                      pthread_getattr_np(pthread_self(), &a);
                      pthread_attr_getstacksize(&a, static_cast<size_t*>(arg));
                      pthread_attr_destroy(&a);
                      return nullptr;
                  },
                  false, &got),
              0);
    pthread_join(t, nullptr);
    EXPECT_EQ(got, tav_btool_thread_stack_bytes());
    EXPECT_GE(got, static_cast<size_t>(sysconf(_SC_THREAD_STACK_MIN)));
    EXPECT_LE(got, 256u * 1024u);
}

} // namespace
