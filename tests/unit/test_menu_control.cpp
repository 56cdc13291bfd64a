// The menu controller on a fake clock near the wrap of the millisecond
// counter: the start-up sequence, the one-second tick and its time-outs, the
// key dispatch and the update menu's polling.
#include <gmock/gmock.h>

#include "menu_fixture.h"
#include "tav_baseportcontrol.h"
#include "tav_menu_dispay_version.h"

using mtest::log_lines;
using mtest::row;

namespace {

constexpr uint32_t kT0 = 4000000000u;
uint32_t& g_now = mtest::g_fake_now;
// The lengths of the engine's pauses so far.
std::vector<uint32_t> sleeps() {
    std::vector<uint32_t> v;
    for (const auto& p : mtest::g_pauses)
        v.push_back(p.ms);
    return v;
}

// Calls of the tick handlers: which one, at which fake time, at which second.
std::vector<std::tuple<char, uint32_t, int>> g_ticks;
void record(char which) {
    g_ticks.emplace_back(which, g_now - kT0, tav_menu_ctl_get_count_10s());
}
const TAV_MENU_TICK_HANDLERS kRecorders = {[] { record('v'); }, [] { record('a'); },
                                           [] { record('s'); }, [] { record('e'); }};

class MenuControl : public ::testing::Test {
  protected:
    void SetUp() override {
        tavtest::PanelCapture::get();
        tavtest::reopen_port();
        mtest::fresh_log();
        fakematrix::reset();
        tav_menu_ctl_set_time_source(mtest::fake_clock, mtest::fake_sleep);
        tav_menu_ctl_set_tick_handlers(&kRecorders);
        g_tav_event.store(0);
        g_tav_keyval.store(TAV_KEY_NULL);
        tav_key_var_init();
        tav_menu_ctl_init();
        g_now = kT0; // the set-up may pause (the versions are published)
        mtest::g_pauses.clear();
        g_ticks.clear();
        tav_menu_clear_timer_counter();
        tavtest::PanelCapture::get().clear();
    }
    void TearDown() override {
        tav_menu_ctl_set_tick_handlers(nullptr);
        tav_menu_ctl_set_time_source(nullptr, nullptr);
        unsetenv("TAV_SYSLOG_FILE");
    }
    // Passes until `done` or until the fake clock has advanced `limit_ms`.
    template <class F> static int run_until(F done, uint32_t limit_ms) {
        const uint32_t end = g_now + limit_ms;
        int passes = 0;
        while (!done() && static_cast<int32_t>(end - g_now) > 0 && passes < 200000) {
            tav_menu_control();
            ++passes;
        }
        return passes;
    }
    static void press(TAV_KEY_ENUM k) {
        g_tav_keyval.store(k);
        tav_sethardkey_event(TAV_EVENT_KEY);
    }
    // A key and its release, each handled by one pass.
    static void tap(TAV_KEY_ENUM k) {
        press(k);
        tav_menu_control();
        press(TAV_KEY_NULL);
        tav_menu_control();
    }
    static void enter_normal(TAV_ENUM_MENUSTATUS menu, bool lcd) {
        g_tav_menu = menu;
        g_tav_menu_event = EVENT_NOMAL;
        g_tav_lcd = lcd;
        tav_menu_clear_timer_counter();
    }
};

TEST_F(MenuControl, SilentPanelGetsAHandshakeEverySecondAndAMessageAfterTwenty) {
    const std::string msg =
        "15\tfunc=[tav_menu_control]Front panel Err .Unable to communicate with the front panel!!!";
    std::vector<uint32_t> at; // fake time of each message, before its 3-s pause
    size_t seen = 0;
    run_until(
        [&] {
            const auto l = log_lines();
            for (; seen < l.size(); ++seen) {
                if (l[seen] == msg) {
                    at.push_back(g_now - kT0 - 3000);
                }
            }
            return at.size() == 2;
        },
        50000);
    EXPECT_EQ(at, (std::vector<uint32_t>{19000, 41000}));
    size_t handshakes = 0;
    for (const auto& f : tavtest::PanelCapture::get().frames()) {
        handshakes += f.kind == TAV_COM_KIND_HANDSHAKE;
    }
    EXPECT_EQ(handshakes, 40u);
}

TEST_F(MenuControl, OnlyAnAnswerToTheLatestHandshakeShowsTheGreeting) {
    run_until([] { return g_now - kT0 >= 1000; }, 2000); // the next pass re-sends
    tav_sethardkey_event(TAV_EVENT_HARDVER);
    tav_menu_control();
    EXPECT_EQ(g_tav_menu_event, EVENT_MITT); // an answer to the old handshake
    tav_sethardkey_event(TAV_EVENT_HARDVER);
    tav_menu_control();
    EXPECT_EQ(g_tav_menu_event, EVENT_OPEN_DLL);
    const auto& st = tavtest::PanelCapture::get().state();
    EXPECT_EQ(st.led_steady, 1u << 31);
    EXPECT_EQ(st.lcd[0], row(1));
    EXPECT_EQ(st.lcd[1], row(2));
}

TEST_F(MenuControl, TenFailedOpensOneSecondApartThenTheErrorRowsAndStop) {
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
    EXPECT_EQ(opens,
              (std::vector<uint32_t>{1000, 2000, 3000, 4000, 5000, 6000, 7000, 8000, 9000, 10000}));
    EXPECT_EQ(fakematrix::calls_starting("open").front(), "open(16777226)");
    EXPECT_EQ(tavtest::PanelCapture::get().state().lcd[0], row(16));
    EXPECT_EQ(tavtest::PanelCapture::get().state().lcd[1], row(12));
    EXPECT_THAT(log_lines(), ::testing::Contains("15\tfunc=[tav_menu_control]OPEN DLL ERR "));
}

TEST_F(MenuControl, OpenThenSelfCheckThenLoadMainThenHome) {
    fakematrix::make_device(3, 5);
    tav_menu_control();
    tav_sethardkey_event(TAV_EVENT_HARDVER);
    tav_menu_control();
    const uint32_t opened = g_now;
    run_until([] { return g_tav_menu_event == EVENT_SELF_CHECK; }, 5000);
    EXPECT_EQ(g_now - opened, 1000u);
    EXPECT_EQ(TAV_DEF_MAX_PORT, 8);
    mtest::g_pauses.clear();
    std::vector<uint32_t> leds;
    while (g_tav_menu_event == EVENT_SELF_CHECK && leds.size() < 40) {
        tav_menu_control();
        leds.push_back(tavtest::PanelCapture::get().state().led_steady);
    }
    ASSERT_EQ(leds.size(), 19u); // 18 steps half a second apart, then on
    EXPECT_EQ(sleeps(), std::vector<uint32_t>(18, 500));
    const int keys[18] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 0, 11, 14, 15, 16, 12, 13, -1};
    for (int i = 0; i < 18; ++i) {
        EXPECT_EQ(leds[i], (1u << 31) | (keys[i] >= 0 ? 1u << keys[i] : 0)) << "step " << i;
    }
    ASSERT_EQ(g_tav_menu_event, EVENT_LOADMAIN);
    mtest::g_pauses.clear();
    tav_menu_control();
    EXPECT_EQ(g_tav_menu, menu_vid_display);
    EXPECT_EQ(g_tav_menu_event, EVENT_UPDATE);
    EXPECT_EQ(g_tav_in_max, 3);
    EXPECT_EQ(g_tav_aud_out_max, 5);
    EXPECT_EQ(sleeps().front(), 1000u);
    EXPECT_EQ(sleeps().back(), 1000u);
    const auto l = log_lines();
    const auto wait = std::find(l.begin(), l.end(),
                                "13\tfunc=[tav_menu_control]open pid file and wait,depend "
                                "matrix_app_quoral");
    EXPECT_NE(std::find(wait, l.end(), "13\tfunc=[tav_menu_control]close pid"), l.end());
    tav_menu_ctl_distory(); // stops the listener started at the end
}

// The switching menus' handlers on seconds 3-9 of each ten, the EDID menu's
// on 6-8, none elsewhere; a tick every second.
TEST_F(MenuControl, TickHandlersOnTheirSecondsOnly) {
    struct Case {
        TAV_ENUM_MENUSTATUS menu;
        char which;
        int first, last;
    };
    for (const Case& c : {Case{menu_vid_switch, 'v', 3, 9}, Case{menu_aud_switch, 'a', 3, 9},
                          Case{menu_switch_aud_all, 's', 3, 9}, Case{menu_edid_switch, 'e', 6, 8},
                          Case{menu_vid_display, 0, 1, 0}, Case{menu_eth_ip, 0, 1, 0}}) {
        g_now = kT0;
        g_ticks.clear();
        enter_normal(c.menu, false); // no ten-second return to disturb the menu
        run_until([] { return false; }, 21500);
        std::vector<std::tuple<char, uint32_t, int>> want;
        for (int cycle = 0; cycle < 2; ++cycle) {
            for (int s = c.first; s <= c.last; ++s) {
                want.emplace_back(c.which, (cycle * 10 + s) * 1000, s);
            }
        }
        EXPECT_EQ(g_ticks, want) << c.menu;
    }
}

TEST_F(MenuControl, TenSecondsAfterTheLastKeyHomeOnceAndTheLcdIdle) {
    struct Case {
        TAV_ENUM_MENUSTATUS from;
        bool locked;
        TAV_ENUM_MENUSTATUS to;
    };
    for (const Case& c :
         {Case{menu_eth_ip, false, menu_vid_display}, Case{menu_spc, false, menu_vid_display},
          Case{menu_lock, true, menu_lock}}) {
        g_now = kT0;
        g_tav_lock = c.locked;
        enter_normal(c.from, true);
        run_until([] { return g_tav_menu_event == EVENT_UPDATE; }, 20000);
        EXPECT_EQ(g_now - kT0, 10000u); // tenth tick
        EXPECT_EQ(g_tav_menu, c.to);
        EXPECT_FALSE(g_tav_lcd);
        run_until([] { return false; }, 25000); // nothing further until a key
        EXPECT_EQ(g_tav_menu_event, EVENT_NOMAL);
        g_tav_lock = false;
    }
    // The return leaves the network, version and EDID menus on their first
    // page and field.
    for (auto [menu, k] : {std::pair{menu_eth_select, TAV_KEY_2},
                           {menu_display_version, TAV_KEY_RIGHT},
                           {menu_edid_switch, TAV_KEY_0}}) {
        enter_normal(menu, true);
        tap(k);
    }
    ASSERT_NE(tav_eth_get_sec() + tav_version_get_sec() + tav_menu_edid_get_state().sel_port_step,
              0);
    run_until([] { return !g_tav_lcd; }, 20000);
    EXPECT_EQ(tav_eth_get_sec(), 0);
    EXPECT_EQ(tav_version_get_sec(), 0);
    EXPECT_EQ(tav_menu_edid_get_state().sel_port_step, 0);
    // Any key report, even a release, wakes the screen, redraws and restarts
    // the count.
    for (TAV_KEY_ENUM k : {TAV_KEY_5, TAV_KEY_NULL}) {
        enter_normal(menu_spc, false);
        run_until([] { return false; }, 2500);
        EXPECT_EQ(tav_menu_ctl_get_count_10s(), 3);
        const uint32_t key_at = g_now;
        press(k);
        tav_menu_control();
        EXPECT_TRUE(g_tav_lcd);
        EXPECT_EQ(g_tav_menu_event, EVENT_UPDATE);
        run_until([] { return g_tav_menu != menu_spc; }, 20000);
        EXPECT_EQ(g_now - key_at, 10000u) << k;
    }
}

// A key on a card notice is handled by the home page: MENU opens the video
// port list.
TEST_F(MenuControl, KeyOnACardNoticeGoesHomeFirst) {
    enter_normal(menu_hot_plug, true);
    press(TAV_KEY_MENU);
    tav_menu_control();
    EXPECT_EQ(g_tav_menu, meun_vid_io_display);
}

// An idle pass waits exactly until the next tick; a key or a redraw request
// ends the wait at once. The clock set back an hour: the timers fire at once
// and restart from the new time instead of standing still until the clock
// has caught up.
TEST_F(MenuControl, IdlePassWaitsForTheNextTick) {
    enter_normal(menu_spc, false);
    g_now += 300;
    EXPECT_EQ(tav_menu_ctl_wait_ms(), 700u);
    tav_menu_control();
    EXPECT_EQ(sleeps(), std::vector<uint32_t>{700});
    EXPECT_EQ(tav_menu_ctl_get_count_10s(), 1);
    EXPECT_EQ(tav_menu_ctl_wait_ms(), 1000u);
    press(TAV_KEY_NULL);
    tav_menu_control(); // takes the key: nothing to wait for
    tav_menu_control(); // draws
    EXPECT_EQ(sleeps().size(), 1u);
    g_now -= 3600u * 1000u;
    EXPECT_EQ(tav_menu_ctl_wait_ms(), 0u);
    tav_menu_control();
    EXPECT_EQ(tav_menu_ctl_get_count_10s(), 1);
    EXPECT_EQ(tav_menu_ctl_wait_ms(), 1000u);
}

TEST_F(MenuControl, UpdateMenuPollsEveryHundredMsAndKeepsTheKey) {
    enter_normal(menu_update, true);
    tav_button_clear();
    press(TAV_KEY_3);
    // Progress stuck at 0 %: the menu gives up on its 300th poll.
    run_until([] { return g_tav_menu_event == EVENT_UPDATE; }, 60000);
    EXPECT_EQ(g_now - kT0, 30000u);
    EXPECT_NE(tav_gethardkey_event() & TAV_EVENT_KEY, 0);
    EXPECT_EQ(g_tav_button.press, 0);
    EXPECT_EQ(sleeps(), std::vector<uint32_t>(600, 50));
}

} // namespace
