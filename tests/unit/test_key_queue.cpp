// Key reports queued in arrival order and taken by the controller's passes:
// quick taps, type-ahead, the lock toggle, the keys that only count last
// (start-up, update menu) and a full queue.
#include "menu_fixture.h"
#include "tav_baseportcontrol.h"
#include "tav_uart_com.h"

using namespace mtest;

namespace {

constexpr TAV_KEY_ENUM N = TAV_KEY_NULL, LK = TAV_KEY_LOCK, R = TAV_KEY_RIGHT;

struct QueueCase {
    const char* name;
    enum { home, after_start_up, after_update } before;
    std::vector<TAV_KEY_ENUM> reports; // all decoded before the first pass
    bool locked;
    TAV_ENUM_MENUSTATUS menu;
    std::vector<std::string> switches;
};

class KeyQueue : public MenuTest {
  protected:
    void SetUp() override {
        MenuTest::SetUp();
        tav_key_queue_reset();
    }
    // Passes until nothing is left to do: no report waits, no redraw asked.
    static void settle() {
        for (int i = 0; i < 100 && (redraw_requested() || (tav_gethardkey_event() & 1) != 0); ++i)
            tav_menu_control();
    }
};

TEST_F(KeyQueue, EveryReportIsTakenInOrder) {
    // clang-format off
    const QueueCase cases[] = {
        {"tap within one pass", QueueCase::home, {TAV_KEY_5, N}, false, menu_vid_switch, {}},
        {"type-ahead", QueueCase::home, {TAV_KEY_6, N, R, N, TAV_KEY_2, N, R, N}, false,
         menu_vid_display, {"set_video_switch(2,6)"}},
        {"lock toggle", QueueCase::home, {LK, LK, N}, true, menu_lock, {}},
        {"start-up: the last counts", QueueCase::after_start_up, {LK, LK, TAV_KEY_5}, false,
         menu_vid_switch, {}},
        {"update menu: the last counts", QueueCase::after_update, {TAV_KEY_5, LK, LK, N}, false,
         menu_vid_display, {}},
    };
    // clang-format on
    for (const QueueCase& c : cases) {
        SetUp();
        if (c.before == QueueCase::after_start_up) {
            tav_menu_ctl_init();
            device({range(1, 4), range(5, 8)}, {range(1, 4), range(5, 8)});
        } else {
            tav_menu_control(); // a normal pass: keys were taken before
            if (c.before == QueueCase::after_update) {
                g_tav_menu = menu_update;
                tav_menu_control();
                g_tav_menu = menu_vid_display;
            }
        }
        fakematrix::state().calls.clear();
        for (TAV_KEY_ENUM k : c.reports)
            tav_setkey(k);
        settle();
        EXPECT_EQ(g_tav_lock, c.locked) << c.name;
        EXPECT_EQ(g_tav_menu, c.menu) << c.name;
        EXPECT_EQ(fakematrix::calls_starting("set_video_switch("), c.switches) << c.name;
        TearDown();
    }
}

// 64 reports wait at most; those that arrive at a full queue are dropped, so
// what is kept is the start of what was typed.
TEST_F(KeyQueue, AFullQueueKeepsTheFirstReports) {
    const uint32_t dropped = tav_key_dropped();
    for (uint32_t i = 0; i < TAV_KEY_QUEUE_LEN + 6; ++i)
        tav_setkey(static_cast<TAV_KEY_ENUM>(i % 17));
    EXPECT_EQ(tav_key_dropped() - dropped, 6u);
    for (uint32_t i = 0; i < TAV_KEY_QUEUE_LEN; ++i) {
        ASSERT_NE(tav_gethardkey_event() & TAV_EVENT_KEY, 0) << i;
        tav_clear_keyevent(TAV_EVENT_KEY);
        EXPECT_EQ(tav_getkey_val(), static_cast<TAV_KEY_ENUM>(i % 17));
    }
    EXPECT_EQ(tav_gethardkey_event() & TAV_EVENT_KEY, 0);
}

} // namespace
