// Menu controller on a fake clock: the start-up sequence, the one-second tick
// and its time-outs, the key dispatch and the update menu's polling.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "menu_fixture.h"
#include "tav_baseportcontrol.h"
#include "tav_menu_analize_press.h"

using mtest::log_lines;
using mtest::row;

namespace {

constexpr uint32_t kT0 = 4000000000u; // close to the wrap of the millisecond counter

uint32_t g_now;
std::vector<uint32_t> g_sleeps;

uint32_t fake_now() {
    return g_now;
}
void fake_sleep(uint32_t ms) {
    g_sleeps.push_back(ms);
    g_now += ms;
}

// Calls of the tick handlers: which one, at which fake time, at which second.
struct TickCall {
    std::string which;
    uint32_t at;
    uint8_t second;
    bool operator==(const TickCall&) const = default;
};
std::vector<TickCall> g_tick_calls;
void record(const char* which) {
    g_tick_calls.push_back({which, g_now - kT0, tav_menu_ctl_get_count_10s()});
}
const TAV_MENU_TICK_HANDLERS kRecorders = {[] { record("video"); }, [] { record("audio"); },
                                           [] { record("swall"); }, [] { record("edid"); }};

class MenuControl : public ::testing::Test {
  protected:
    void SetUp() override {
        tavtest::PanelCapture::get(); // TAV_ROOT, and the port the frames go to
        tavtest::reopen_port();
        mtest::fresh_log();
        fakematrix::reset();
        g_now = kT0;
        g_sleeps.clear();
        g_tick_calls.clear();
        tav_menu_ctl_set_time_source(fake_now, fake_sleep);
        tav_menu_ctl_set_tick_handlers(nullptr);
        g_tav_event.store(0);
        g_tav_keyval.store(TAV_KEY_NULL);
        tav_key_var_init();
        tav_menu_ctl_init();
        // The set-up may pause (the version module publishes its versions).
        g_now = kT0;
        g_sleeps.clear();
        tav_menu_clear_timer_counter();
        tavtest::PanelCapture::get().clear();
    }
    void TearDown() override {
        tav_menu_ctl_set_tick_handlers(nullptr);
        tav_menu_ctl_set_time_source(nullptr, nullptr);
        unsetenv("TAV_SYSLOG_FILE");
        g_tav_event.store(0);
    }

    // Position of `line` in the log, -1 when absent.
    long log_pos(const std::string& line) {
        const auto l = log_lines();
        const auto it = std::find(l.begin(), l.end(), line);
        return it == l.end() ? -1 : it - l.begin();
    }
    static int handshakes() {
        int n = 0;
        for (const auto& f : tavtest::PanelCapture::get().frames()) {
            n += f.kind == tavpanel::FrameKind::handshake;
        }
        return n;
    }

    // Passes until `done` or until the fake clock has advanced `limit_ms`.
    template <class F> int run_until(F done, uint32_t limit_ms) {
        const uint32_t end = g_now + limit_ms;
        int passes = 0;
        while (!done() && static_cast<int32_t>(end - g_now) > 0 && passes < 200000) {
            tav_menu_control();
            ++passes;
        }
        return passes;
    }
    int run_for(uint32_t ms) {
        return run_until([] { return false; }, ms);
    }

    void press(TAV_KEY_ENUM k) {
        g_tav_keyval.store(k);
        tav_sethardkey_event(TAV_EVENT_KEY);
    }
    // A key, and the passes until the controller has taken it.
    void key(TAV_KEY_ENUM k) {
        press(k);
        run_until([] { return (tav_gethardkey_event() & TAV_EVENT_KEY) == 0; }, 1000);
    }

    // Normal work in `menu`, timers restarted now.
    void enter_normal(TAV_ENUM_MENUSTATUS menu, bool lcd) {
        g_tav_menu = menu;
        g_tav_menu_event = EVENT_NOMAL;
        g_tav_lcd = lcd;
        tav_menu_clear_timer_counter();
    }
};

TEST_F(MenuControl, SilentPanelHandshakeEverySecondMessageAfterTwenty) {
    std::vector<uint32_t> messages; // fake time of each "Front panel Err" line
    size_t seen = 0;
    const int passes = run_until(
        [&] {
            std::vector<std::string> l = log_lines();
            for (; seen < l.size(); ++seen) {
                if (l[seen] == "15\tfunc=[tav_menu_control]Front panel Err .Unable to communicate "
                               "with the front panel!!!") {
                    messages.push_back(g_now - kT0 - 3000); // logged before the 3-s pause
                }
            }
            return messages.size() == 2;
        },
        50000);
    EXPECT_EQ(messages, (std::vector<uint32_t>{19000, 19000 + 3000 + 19000}));
    EXPECT_EQ(g_tav_menu_event, EVENT_MITT);
    // Every pass pauses (no spinning); the waits are short against the second.
    EXPECT_LE(passes, 41 * 100 + 10);
    EXPECT_EQ(g_sleeps.size(), static_cast<size_t>(passes));
    EXPECT_EQ(handshakes(), 40);
}

TEST_F(MenuControl, AnswerToTheLatestHandshakeShowsVendorRowsAndLedThirtyOne) {
    run_until([] { return g_now - kT0 >= 1000; }, 2000); // the next pass re-sends
    tav_sethardkey_event(TAV_EVENT_HARDVER);
    tav_menu_control();
    EXPECT_EQ(g_tav_menu_event, EVENT_MITT); // an answer to the old handshake
    tav_sethardkey_event(TAV_EVENT_HARDVER);
    tav_menu_control();
    EXPECT_EQ(g_tav_menu_event, EVENT_OPEN_DLL);
    EXPECT_EQ(tav_gethardkey_event() & TAV_EVENT_HARDVER, 0);
    const auto& st = tavtest::PanelCapture::get().state();
    EXPECT_EQ(st.led_steady, 1u << 31);
    EXPECT_EQ(st.lcd[0], row(1));
    EXPECT_EQ(st.lcd[1], row(2));
}

TEST_F(MenuControl, TenFailedOpensOneSecondApartThenStop) {
    fakematrix::state().open_fails = true;
    g_tav_menu_event = EVENT_OPEN_DLL;
    tav_menu_ctl_cleartime();
    std::vector<uint32_t> opens;
    run_until(
        [&] {
            while (static_cast<int>(opens.size()) < fakematrix::state().open_calls) {
                opens.push_back(g_now - kT0 - 10); // the pass's short pause follows
            }
            return g_tav_key_runflag.load() == 0;
        },
        30000);
    ASSERT_EQ(g_tav_key_runflag.load(), 0);
    EXPECT_EQ(fakematrix::state().open_calls, 10);
    EXPECT_EQ(fakematrix::calls_starting("open").front(), "open(16777226)");
    EXPECT_EQ(opens,
              (std::vector<uint32_t>{1000, 2000, 3000, 4000, 5000, 6000, 7000, 8000, 9000, 10000}));
    const auto& st = tavtest::PanelCapture::get().state();
    EXPECT_EQ(st.lcd[0], row(16));
    EXPECT_EQ(st.lcd[1], row(12));
    EXPECT_GE(log_pos("15\tfunc=[tav_menu_control]OPEN DLL ERR "), 0);
}

TEST_F(MenuControl, OpenSuccessThenSelfCheckEighteenStepsHalfASecondApart) {
    fakematrix::make_device(4, 6);
    tav_menu_control();
    tav_sethardkey_event(TAV_EVENT_HARDVER);
    tav_menu_control();
    const uint32_t opened = g_now;
    run_until([] { return g_tav_menu_event == EVENT_SELF_CHECK; }, 5000);
    EXPECT_EQ(g_now - opened, 1000u);
    EXPECT_EQ(fakematrix::state().open_calls, 1);
    EXPECT_NE(pmatrixDllHandle, nullptr);
    EXPECT_EQ(TAV_DEF_MAX_PORT, 10);
    EXPECT_EQ(g_tav_key_runflag.load(), 1);
    g_sleeps.clear();
    std::vector<uint32_t> leds;
    int passes = 0;
    while (g_tav_menu_event == EVENT_SELF_CHECK && passes < 40) {
        tav_menu_control();
        ++passes;
        leds.push_back(tavtest::PanelCapture::get().state().led_steady);
    }
    EXPECT_EQ(g_tav_menu_event, EVENT_LOADMAIN);
    EXPECT_EQ(passes, 19); // 18 steps, then the pass that moves on
    EXPECT_EQ(g_sleeps, std::vector<uint32_t>(18, 500));
    const int keys[18] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 0, 11, 14, 15, 16, 12, 13, -1};
    for (int i = 0; i < 18; ++i) {
        EXPECT_EQ(leds[static_cast<size_t>(i)], (1u << 31) | (keys[i] >= 0 ? 1u << keys[i] : 0))
            << "step " << i;
    }
}

TEST_F(MenuControl, LoadMainWaitsLoadsTablesAndGoesHome) {
    fakematrix::make_device(3, 5);
    pmatrixDllHandle = tav_matrix_open(0x0100000A);
    TAV_DEF_MAX_PORT = 8;
    g_tav_menu_event = EVENT_LOADMAIN;
    tav_menu_control();
    EXPECT_EQ(g_tav_menu, menu_vid_display);
    EXPECT_EQ(g_tav_menu_event, EVENT_UPDATE);
    EXPECT_EQ(g_tav_in_max, 3);
    EXPECT_EQ(g_tav_out_max, 5);
    EXPECT_EQ(g_tav_aud_out_max, 5);
    ASSERT_GE(g_sleeps.size(), 2u);
    EXPECT_EQ(g_sleeps.front(), 1000u);
    EXPECT_EQ(g_sleeps.back(), 1000u);
    const long open = log_pos("13\tfunc=[tav_menu_control]open pid file and wait,depend "
                              "matrix_app_quoral");
    EXPECT_GE(open, 0);
    EXPECT_GT(log_pos("13\tfunc=[tav_menu_control]close pid"), open);
    tav_menu_ctl_distory(); // stops the listener started at the end
}

struct TickCase {
    const char* name;
    TAV_ENUM_MENUSTATUS menu;
    const char* which; // handler expected, or nullptr
    int first, last;   // seconds on which it is called
};

class MenuControlTick : public MenuControl, public ::testing::WithParamInterface<TickCase> {};

TEST_P(MenuControlTick, HandlersOnTheirSecondsOnly) {
    const TickCase& c = GetParam();
    tav_menu_ctl_set_tick_handlers(&kRecorders);
    enter_normal(c.menu, false); // no ten-second return to disturb the menu
    run_for(22500);              // 20 ticks, 1.1 s apart
    std::vector<TickCall> want;
    if (c.which != nullptr) {
        for (int cycle = 0; cycle < 2; ++cycle) {
            for (int s = c.first; s <= c.last; ++s) {
                // A tick every 1.1 s: the timer restarts after the pass's 100 ms.
                const int tick = cycle * 10 + s;
                want.push_back(
                    {c.which, static_cast<uint32_t>(tick * 1100), static_cast<uint8_t>(s)});
            }
        }
    }
    EXPECT_EQ(g_tick_calls, want);
    EXPECT_EQ(g_tav_menu, c.menu);
}

INSTANTIATE_TEST_SUITE_P(Menus, MenuControlTick,
                         ::testing::Values(TickCase{"VideoSwitch", menu_vid_switch, "video", 3, 9},
                                           TickCase{"AudioSwitch", menu_aud_switch, "audio", 3, 9},
                                           TickCase{"SwitchAllAudio", menu_switch_aud_all, "swall",
                                                    3, 9},
                                           TickCase{"Edid", menu_edid_switch, "edid", 6, 8},
                                           TickCase{"Home", menu_vid_display, nullptr, 0, 0},
                                           TickCase{"EthIp", menu_eth_ip, nullptr, 0, 0}),
                         [](const auto& info) { return std::string(info.param.name); });

struct ReturnCase {
    const char* name;
    TAV_ENUM_MENUSTATUS from;
    bool locked;
    TAV_ENUM_MENUSTATUS to;
};

class MenuControlReturn : public MenuControl, public ::testing::WithParamInterface<ReturnCase> {};

TEST_P(MenuControlReturn, TenSecondsAfterTheLastKeyOnce) {
    const ReturnCase& c = GetParam();
    tav_menu_ctl_set_tick_handlers(&kRecorders);
    g_tav_lock = c.locked;
    enter_normal(c.from, true);
    run_until([] { return g_tav_menu_event == EVENT_UPDATE; }, 20000);
    EXPECT_EQ(g_now - kT0, 11000u); // tenth tick
    EXPECT_EQ(g_tav_menu, c.to);
    EXPECT_FALSE(g_tav_lcd);
    EXPECT_EQ(tav_menu_ctl_get_count_10s(), 0);
    // Nothing further until the next key.
    run_for(25000);
    EXPECT_EQ(g_tav_menu, c.to);
    EXPECT_EQ(g_tav_menu_event, EVENT_NOMAL);
    EXPECT_FALSE(g_tav_lcd);
    g_tav_lock = false;
}

INSTANTIATE_TEST_SUITE_P(
    Menus, MenuControlReturn,
    ::testing::Values(ReturnCase{"EthToHome", menu_eth_ip, false, menu_vid_display},
                      ReturnCase{"NoHandlerToHome", menu_spc, false, menu_vid_display},
                      ReturnCase{"LockedToLock", menu_lock, true, menu_lock}),
    [](const auto& info) { return std::string(info.param.name); });

// Any key report, even one the analysis ignores (a release), wakes the screen,
// redraws and restarts the ten-second return.
TEST_F(MenuControl, KeyRestartsTheCountsAndRedraws) {
    for (TAV_KEY_ENUM k : {TAV_KEY_5, TAV_KEY_NULL}) {
        enter_normal(menu_spc, false);
        run_for(3300);
        EXPECT_EQ(tav_menu_ctl_get_count_10s(), 3);
        const uint32_t key_at = g_now - kT0;
        press(k);
        tav_menu_control();
        EXPECT_TRUE(g_tav_lcd) << k;
        EXPECT_EQ(g_tav_menu_event, EVENT_UPDATE);
        EXPECT_EQ(tav_menu_ctl_get_count_10s(), 0);
        EXPECT_EQ(tav_gethardkey_event() & TAV_EVENT_KEY, 0);
        run_until([] { return g_tav_menu != menu_spc; }, 20000);
        EXPECT_EQ(g_tav_menu, menu_vid_display);
        EXPECT_EQ(g_now - kT0 - key_at, 11000u) << k;
    }
}

TEST_F(MenuControl, HotPlugNoticeLeftByAnyKey) {
    enter_normal(menu_hot_plug, true);
    press(TAV_KEY_BREAK);
    tav_menu_control();
    // The home page's handler got the key (BREAK does not leave it).
    EXPECT_EQ(g_tav_menu, menu_vid_display);
    EXPECT_EQ(g_tav_button.press, TAV_PRESS_BREAK);
}

TEST_F(MenuControl, LockReportedTwiceTogglesTheLock) {
    enter_normal(menu_vid_display, true);
    key(TAV_KEY_LOCK);
    key(TAV_KEY_LOCK);
    EXPECT_TRUE(g_tav_lock);
    EXPECT_EQ(g_tav_menu, menu_lock);
    key(TAV_KEY_LOCK); // first report while locked: acted on, no handler
    key(TAV_KEY_LOCK);
    EXPECT_FALSE(g_tav_lock);
    EXPECT_EQ(g_tav_menu, menu_vid_display);
}

TEST_F(MenuControl, UnknownEventOrMenuIsHarmless) {
    enter_normal(menu_spc, false);
    g_tav_menu_event = static_cast<TAV_ENUM_EVENT>(9); // acts as normal work
    press(TAV_KEY_1);
    tav_menu_control();
    EXPECT_EQ(g_tav_menu_event, EVENT_UPDATE);
    EXPECT_EQ(g_sleeps, std::vector<uint32_t>{100});
    for (int v : {-1, 23, 200}) {
        g_tav_menu = static_cast<TAV_ENUM_MENUSTATUS>(v);
        g_tav_menu_event = EVENT_NOMAL;
        tav_nomal_work();
        tav_nomal_display();
        EXPECT_EQ(static_cast<int>(g_tav_menu), v);
        EXPECT_EQ(g_tav_menu_event, EVENT_NOMAL);
    }
}

// The wall clock set back an hour: the timers fire at once and restart from the
// new time instead of standing still until the clock has caught up.
TEST_F(MenuControl, ClockSetBackFiresTheTimersAtOnce) {
    tav_menu_control(); // first handshake
    g_now -= 3600u * 1000u;
    tav_menu_control();
    EXPECT_EQ(handshakes(), 2);
    enter_normal(menu_spc, false);
    g_now -= 3600u * 1000u;
    tav_menu_control();
    EXPECT_EQ(tav_menu_ctl_get_count_10s(), 1);
    run_for(950);
    EXPECT_EQ(tav_menu_ctl_get_count_10s(), 1); // the next tick a second later
    tav_menu_control();
    EXPECT_EQ(tav_menu_ctl_get_count_10s(), 2);
}

TEST_F(MenuControl, UpdateMenuPollsEveryHundredMsAndKeepsTheKey) {
    enter_normal(menu_update, true);
    tav_button_clear();
    press(TAV_KEY_3);
    // Progress stuck at 0 %: the menu gives up on its 300th poll, 100 ms apart.
    run_until([] { return g_tav_menu_event == EVENT_UPDATE; }, 60000);
    EXPECT_EQ(g_tav_menu_event, EVENT_UPDATE);
    EXPECT_EQ(g_now - kT0, 30000u);
    EXPECT_NE(tav_gethardkey_event() & TAV_EVENT_KEY, 0);
    EXPECT_EQ(g_tav_button.press, 0);
    for (uint32_t s : g_sleeps) {
        EXPECT_EQ(s, 50u);
    }
}

// Another thread using the engine while passes run (ThreadSanitizer).
TEST_F(MenuControl, ThreadsListenerSharesTheEngine) {
    static std::atomic<uint32_t> t{0};
    tav_menu_ctl_set_time_source([] { return t.fetch_add(7); },
                                 [](uint32_t) { std::this_thread::yield(); });
    enter_normal(menu_spc, true);
    std::atomic<bool> stop{false};
    std::thread listener([&] {
        for (int i = 0; i < 2000 && !stop.load(); ++i) {
            std::lock_guard<std::recursive_mutex> g(tav_menu_engine_mutex());
            tav_menu_clear_timer_counter();
            tav_menu_update(i % 2 ? menu_spc : menu_hot_plug);
        }
    });
    std::thread keys([&] {
        for (int i = 0; i < 2000 && !stop.load(); ++i) {
            g_tav_keyval.store(i % 3 ? TAV_KEY_NULL : TAV_KEY_0);
            tav_sethardkey_event(TAV_EVENT_KEY);
        }
    });
    for (int i = 0; i < 3000; ++i) {
        tav_menu_control();
        std::lock_guard<std::recursive_mutex> g(tav_menu_engine_mutex());
        if (g_tav_menu != menu_spc && g_tav_menu != menu_hot_plug) {
            g_tav_menu = menu_spc; // the video handler may have run: stay out of it
        }
    }
    stop.store(true);
    listener.join();
    keys.join();
    // The engine still answers a key with a redraw.
    enter_normal(menu_spc, true);
    press(TAV_KEY_1);
    tav_menu_control();
    EXPECT_EQ(g_tav_menu_event, EVENT_UPDATE);
    EXPECT_EQ(tav_gethardkey_event() & TAV_EVENT_KEY, 0);
}

} // namespace
