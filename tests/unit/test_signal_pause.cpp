// Signals raised while a handler pauses, and what must not outlive a stop:
// dispatches after tear-down, start-up work after a stop signal, library
// calls without a library.
#include "menu_fixture.h"
#include "tav_baseportcontrol.h"
#include "tav_keyboard.h"
#include "tav_menu_listen_irq.h"
#include "tav_menu_switch_all.h"

using namespace mtest;

namespace {

// A card is pulled during the handler's pause of this length; the pause
// ends once the listener has fetched that signal.
uint32_t g_pull_at;
void pull_during_pause(uint32_t ms) {
    fake_sleep(ms);
    if (ms == g_pull_at) {
        const int before = fakematrix::signal_fetches();
        fakematrix::raise_signal(TAV_MATRIX_SIG_SLOT, 3);
        wait_until([before] { return fakematrix::signal_fetches() > before; });
    }
}

struct PauseCase {
    const char* name;
    TAV_ENUM_MENUSTATUS menu;
    const char* keys;
    uint32_t pause_ms;
};

class ThreadsSignalDuringPause : public MenuTest,
                                 public ::testing::WithParamInterface<PauseCase> {};

// The pull, then the switch's own connection signal: the pull is neither lost
// nor overwritten, and its card is asked for once.
TEST_P(ThreadsSignalDuringPause, IsHandledAfterThePass) {
    const PauseCase& c = GetParam();
    set_card(3, em_matrix_card_offline);
    g_pull_at = c.pause_ms;
    tav_menu_ctl_set_time_source(fake_clock, pull_during_pause);
    g_tav_menu = c.menu;
    tav_menu_set_switch_all_mode(1);
    tav_matrix_irq_open();
    {
        std::lock_guard<std::mutex> pass(tav_menu_engine_mutex());
        keys(c.keys);
    }
    EXPECT_EQ(fakematrix::calls_starting("set_video_switch_done").size(), 1u);
    ASSERT_TRUE(fakematrix::raise_signal(TAV_MATRIX_SIG_VIDEO_CONNECT, 0));
    EXPECT_TRUE(wait_until([] {
        std::lock_guard<std::mutex> lk(tav_menu_engine_mutex());
        return g_tav_menu == menu_hot_plug && tav_menu_card_plug_get_status() == 2;
    }));
    EXPECT_EQ(fakematrix::calls_starting("get_card_information"),
              std::vector<std::string>{"get_card_information(3)"});
    tav_matrix_irq_close();
}

INSTANTIATE_TEST_SUITE_P(
    Pauses, ThreadsSignalDuringPause,
    ::testing::Values(PauseCase{"SwitchConfirmation", menu_vid_display, "6R3R", 1000},
                      PauseCase{"SwitchAll", menu_switch_vid_all, "3RT", 3000}),
    [](const auto& info) { return std::string(info.param.name); });

// A record fetched while the engine is torn down is not dispatched.
TEST_F(MenuTest, ThreadsNothingDispatchedAfterTearDown) {
    tav_matrix_irq_open();
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

// The library never opened: neither the listener nor the tear-down calls it.
TEST_F(MenuTest, ThreadsWithoutLibraryNothingCallsIt) {
    fakematrix::reset();
    pmatrixDllHandle = nullptr;
    tav_matrix_irq_open();
    tav_matrix_irq_callback(0);
    tav_menu_ctl_distory();
    drop_stale_wake_ups();
    EXPECT_TRUE(fakematrix::state().calls.empty());
    EXPECT_EQ(fakematrix::signal_fetches(), 0);
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
