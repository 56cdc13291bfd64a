// What must not outlive a stop: dispatches after tear-down and start-up work
// after a stop signal.
#include "menu_fixture.h"
#include "tav_baseportcontrol.h"
#include "tav_keyboard.h"
#include "tav_menu_listen_irq.h"
#include "tav_menu_switch_all.h"

using namespace mtest;

namespace {

// A record fetched while the engine is torn down is not dispatched.
TEST_F(MenuTest, ThreadsNothingDispatchedAfterTearDown) {
    tav_matrix_irq_open();
    EXPECT_EQ(fakematrix::calls_starting("register_inner_signal"),
              std::vector<std::string>{"register_inner_signal(16119)"});
    {
        std::lock_guard<std::mutex> lk(tav_menu_engine_mutex());
        ASSERT_TRUE(fakematrix::raise_signal(TAV_MATRIX_SIG_VIDEO_CONNECT, 0));
        ASSERT_TRUE(wait_until([] { return fakematrix::signal_fetches() == 1; }));
        tav_menu_ctl_distory(); // returns once the listener has ended
    }
    EXPECT_TRUE(trace().empty());
    // Nor by a listener opened later: the next signal is the first it handles.
    tav_matrix_irq_open();
    ASSERT_TRUE(fakematrix::raise_signal(TAV_MATRIX_SIG_AUDIO_CONNECT, 0));
    ASSERT_TRUE(wait_until([] { return !trace().empty(); }));
    tav_matrix_irq_close();
    EXPECT_EQ(trace(), std::vector<std::string>{"audio_table"});
}

// A stop during the wait for the matrix core: the start-up step does nothing
// more (no version read, no tables, no listener).
TEST_F(MenuTest, StopDuringStartupWaitEndsTheStep) {
    fakematrix::reset();
    g_tav_menu_event = EVENT_LOADMAIN;
    tav_menu_ctl_set_time_source(fake_clock, [](uint32_t) { signal_handle(SIGTERM); });
    tav_menu_control();
    EXPECT_TRUE(trace().empty());
    EXPECT_TRUE(fakematrix::state().calls.empty());
    EXPECT_EQ(g_tav_key_runflag.load(), 0);
    set_uart_runflag();
}

} // namespace
