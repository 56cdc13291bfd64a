// Signals from the matrix core: which handlers a signal reaches and what
// each does in the various menus, the wake-up thread, the update display and
// the card notices.
#include <unistd.h>

#include "menu_fixture.h"
#include "tav_baseportcontrol.h"
#include "tav_led.h"
#include "tav_menu_listen_irq.h"

using namespace mtest;

namespace {

constexpr uint32_t VCON = TAV_MATRIX_SIG_VIDEO_CONNECT, ACON = TAV_MATRIX_SIG_AUDIO_CONNECT,
                   SLOT = TAV_MATRIX_SIG_SLOT, VPORT = TAV_MATRIX_SIG_VIDEO_PORT,
                   APORT = TAV_MATRIX_SIG_AUDIO_PORT, UPD = TAV_MATRIX_SIG_UPDATE,
                   REBOOT = TAV_MATRIX_SIG_REBOOT, PARAM = TAV_MATRIX_SIG_PARAM;
const std::string V = "video_table", A = "audio_table", C3 = "card(3)";
constexpr int32_t NO_CARD = -100; // no record in the fake for slot 3

class Signals : public MenuTest {
  protected:
    // The listener open (an earlier test may have closed it), its thread idle.
    void SetUp() override {
        MenuTest::SetUp();
        tav_matrix_irq_open();
        EXPECT_TRUE(log_lines().empty()); // the thread started without a complaint
        fakematrix::state().calls.clear();
    }
    void TearDown() override {
        tav_matrix_irq_close();
        MenuTest::TearDown();
    }
    // A signal record dispatched as the listener thread does for one wake-up.
    static void dispatch(uint32_t bits, uint32_t param) {
        {
            std::lock_guard<std::mutex> g(fakematrix::mutex());
            fakematrix::state().signal = TAV_MATRIX_OBJ_SIGNAL_FLAG{};
            fakematrix::state().signal.sig_bit_map = bits;
            fakematrix::state().signal.src_parameter = param;
        }
        tav_matrix_irq_process(0);
    }
};

struct DispatchCase {
    const char* name;
    TAV_ENUM_MENUSTATUS menu;
    uint32_t bits, param;
    int32_t card;
    std::vector<std::string> trace;
    TAV_ENUM_MENUSTATUS menu_after;
    bool redraw;
    uint8_t notice; // card notice kind afterwards
};

class Dispatch : public Signals, public ::testing::WithParamInterface<DispatchCase> {};

TEST_P(Dispatch, HandlersFollowTheMenu) {
    const DispatchCase& c = GetParam();
    if (c.card != NO_CARD)
        set_card(3, c.card);
    g_tav_menu = c.menu;
    const std::string top = lcd(0);
    dispatch(c.bits, c.param);
    EXPECT_EQ(lcd(0), top) << "pages are drawn by the next pass";
    EXPECT_EQ(g_tav_key_runflag.load(), 1);
    EXPECT_EQ(trace(), c.trace);
    EXPECT_EQ(g_tav_menu, c.menu_after);
    EXPECT_EQ(redraw_requested(), c.redraw);
    EXPECT_EQ(tav_menu_card_plug_get_status(), c.notice);
    if (c.notice != 0) {
        EXPECT_EQ(tav_menu_card_plug_get_slot(), 3);
    }
}

// clang-format off
const DispatchCase kDispatch[] = {
    // Connections: the table is rebuilt unless the switch-all menu of that
    // kind is open; only a page showing it is redrawn.
    {"VconHome", menu_vid_display, VCON, 0, NO_CARD, {V}, menu_vid_display, true, 0},
    {"VconAudioPage", menu_aud_display, VCON, 0, NO_CARD, {V}, menu_aud_display, false, 0},
    {"VconSwitchAll", menu_switch_vid_all, VCON, 0, NO_CARD, {}, menu_switch_vid_all, false, 0},
    {"VconAudioSwitchAll", menu_switch_aud_all, VCON, 0, NO_CARD, {V}, menu_switch_aud_all, false, 0},
    {"AconAudioPage", menu_aud_display, ACON, 0, NO_CARD, {A}, menu_aud_display, true, 0},
    {"AconSwitchAll", menu_switch_aud_all, ACON, 0, NO_CARD, {}, menu_switch_aud_all, false, 0},
    {"VportListPage", meun_vid_io_display, VPORT, 0, NO_CARD, {V}, meun_vid_io_display, true, 0},
    {"VportEdid", menu_edid_switch, VPORT, 0, NO_CARD, {V}, menu_edid_switch, false, 0},
    {"AportListPage", meun_aud_io_display, APORT, 0, NO_CARD, {A}, meun_aud_io_display, true, 0},
    {"VconLock", menu_lock, VCON, 0, NO_CARD, {V}, menu_lock, true, 0},
    {"VportLock", menu_lock, VPORT, 0, NO_CARD, {V}, menu_lock, true, 0},
    {"AconLock", menu_lock, ACON, 0, NO_CARD, {A}, menu_lock, false, 0},
    {"AportLock", menu_lock, APORT, 0, NO_CARD, {A}, menu_lock, false, 0},
    // Slots: a notice for online and offline cards, except in the reset menu.
    {"OnlineHome", menu_vid_display, SLOT, 3, em_matrix_card_online, {C3, V}, menu_hot_plug, true, 1},
    {"OnlineReset", menu_reset, SLOT, 3, em_matrix_card_online, {C3, V}, menu_reset, false, 0},
    {"OfflineHome", menu_vid_display, SLOT, 3, em_matrix_card_offline, {C3, V, V, A}, menu_hot_plug, true, 2},
    {"NormalHome", menu_vid_display, SLOT, 3, em_matrix_card_normal, {C3, V}, menu_vid_display, false, 0},
    // Several bits: handled in table order, each reading the menu anew.
    {"VconAndSlot", menu_vid_display, VCON | SLOT, 3, em_matrix_card_normal, {V, C3, V}, menu_vid_display, true, 0},
    {"SlotThenVport", menu_vid_display, VPORT | SLOT, 3, em_matrix_card_online, {C3, V, V}, menu_hot_plug, true, 1},
    // The update display drops everything but the update's own signal.
    {"UpdateDropsReboot", menu_update, REBOOT | PARAM, 1, NO_CARD, {}, menu_update, false, 0},
    // Reboot options other than 1-3 are no notice.
    {"RebootZero", menu_vid_display, REBOOT, 0, NO_CARD, {}, menu_vid_display, false, 0},
    {"RebootFour", menu_vid_display, REBOOT, 4, NO_CARD, {}, menu_vid_display, false, 0},
    {"UnhandledBits", menu_vid_display, 0x0117, 0, NO_CARD, {}, menu_vid_display, false, 0},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Cases, Dispatch, ::testing::ValuesIn(kDispatch),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(Signals, LibraryFailuresAndNormalCards) {
    fakematrix::state().signal_result = -1; // no record: nothing is dispatched
    dispatch(VCON | SLOT, 3);
    EXPECT_TRUE(trace().empty());
    fakematrix::state().signal_result = 0;
    fakematrix::state().card_result = -1; // the card's record cannot be read: no notice
    set_card(3, em_matrix_card_online);
    dispatch(SLOT, 3);
    EXPECT_EQ(g_tav_menu, menu_vid_display);
    EXPECT_EQ(tav_menu_card_plug_get_status(), 0);
    fakematrix::state().card_result = 0;
    // A card turning normal ends any notice, also one about another slot.
    for (bool locked : {false, true}) {
        g_tav_lock = locked;
        tav_menu_card_plug_set_status(12, 2);
        set_card(3, em_matrix_card_normal);
        dispatch(SLOT, 3);
        EXPECT_EQ(g_tav_menu, locked ? menu_lock : menu_vid_display);
        EXPECT_EQ(tav_menu_card_plug_get_status(), 0);
    }
}

struct UpdateSignalCase {
    TAV_ENUM_MENUSTATUS menu;
    uint32_t bits, param;
    int32_t pct;
    TAV_ENUM_MENUSTATUS menu_after;
    uint8_t state_after;
};

TEST_F(Signals, UpdateBeginsAndEnds) {
    fakematrix::state().update_slot = 5;
    for (const UpdateSignalCase& c :
         {UpdateSignalCase{menu_vid_display, UPD, 0x8000, 0, menu_update, 0},
          UpdateSignalCase{menu_lock, UPD, 0x8005, 0, menu_update, 0},
          UpdateSignalCase{menu_vid_display, UPD, 0, 80, menu_vid_display, 0},
          UpdateSignalCase{menu_update, UPD, 0, 49, menu_update, 3},
          UpdateSignalCase{menu_update, UPD | VCON | SLOT | REBOOT, 1, 50, menu_update, 2}}) {
        SCOPED_TRACE(c.pct);
        tav_menu_updating_init();
        fakematrix::state().update_pct = c.pct;
        g_tav_menu = c.menu;
        dispatch(c.bits, c.param);
        EXPECT_EQ(g_tav_menu, c.menu_after);
        EXPECT_EQ(tav_menu_updating_get_state(), c.state_after);
        EXPECT_TRUE(trace().empty()) << "no table is rebuilt";
    }
}

// Parameter signals: another process changed the lock file.
TEST_F(Signals, ParamSignalLockFollowsOtherProcessOnly) {
    const uint32_t own = static_cast<uint32_t>(getpid()) & 0xFFFFu;
    const uint32_t other = (own + 1) & 0xFFFFu;
    for (auto [param, locks] :
         {std::pair{other, true}, std::pair{own, false}, std::pair{other | 0x10000u, false}}) {
        g_tav_lock = false;
        g_tav_menu = menu_vid_display;
        std::ofstream(root() + "/nandflash/config/.tav_lock_fp", std::ios::trunc) << "1";
        fresh_log();
        dispatch(PARAM, param);
        EXPECT_EQ(g_tav_lock, locks) << param;
        EXPECT_EQ(g_tav_menu, locks ? menu_lock : menu_vid_display);
        EXPECT_EQ(
            log_lines(),
            std::vector<std::string>{
                "15\tfunc=[tav_matrix_irq_param_change]pid=" + std::to_string(param & 0xFFFF) +
                ",gps_pid=" + std::to_string(getpid()) + ",param=" + std::to_string(param)});
    }
}

// The reboot notice: rows, LEDs off, then the program's shutdown.
TEST_F(Signals, RebootNoticeThenShutdown) {
    for (auto [option, top] : {std::pair{1, 59}, std::pair{2, 61}, std::pair{3, 63}}) {
        SCOPED_TRACE(option);
        tavtest::reopen_port();
        tav_matrix_irq_open(); // the last notice closed it
        fakematrix::state().calls.clear();
        fakematrix::state().table_trace.clear();
        set_uart_runflag();
        tav_display_led_blink_sigle_on(14);
        tav_display_led_all_on();
        // The slot bit comes first in table order; the parameter bit after
        // the reboot is not handled any more.
        set_card(option, em_matrix_card_normal);
        fresh_log();
        dispatch(REBOOT | PARAM | SLOT, static_cast<uint32_t>(option));
        EXPECT_EQ(trace(), (std::vector<std::string>{"card(" + std::to_string(option) + ")", V}));
        EXPECT_EQ(lcd(0), row(top));
        EXPECT_EQ(lcd(1), row(top + 1));
        EXPECT_EQ(panel().led_steady, 0u);
        EXPECT_EQ(panel().led_blink, 0u);
        EXPECT_EQ(g_tav_key_runflag.load(), 0);
        EXPECT_EQ(g_tav_uart_runflag.load(), 0);
        EXPECT_FALSE(tav_port_is_open());
        EXPECT_EQ(fakematrix::calls_starting("unregister_inner_signal"),
                  std::vector<std::string>{"unregister_inner_signal(16119)"});
        EXPECT_TRUE(log_lines().empty()) << "the parameter bit was not handled";
    }
}

// The wake-up path: callback, pipe and the listener thread (opened by the
// fixture).
class SignalThreads : public Signals {
  protected:
    static void set_bits(uint32_t bits) {
        std::lock_guard<std::mutex> g(fakematrix::mutex());
        fakematrix::state().signal.sig_bit_map = bits;
    }
    // Waits until `n` records have been fetched, then until the last
    // dispatch has let go of the engine.
    static bool wait_fetches(int n) {
        wait_until([n] { return fakematrix::signal_fetches() >= n; });
        std::lock_guard<std::mutex> lk(tav_menu_engine_mutex());
        return fakematrix::signal_fetches() == n;
    }
};

TEST_F(SignalThreads, OneDispatchPerWakeUpByte) {
    tav_matrix_irq_open(); // a second open starts no second listener
    EXPECT_EQ(fakematrix::calls_starting("register_inner_signal"),
              std::vector<std::string>{"register_inner_signal(16119)"});
    ASSERT_TRUE(fakematrix::raise_signal(VCON, 0));
    ASSERT_TRUE(wait_fetches(1));
    EXPECT_EQ(trace(), std::vector<std::string>{V});
    // Three signals while a pass holds the engine: each record is fetched at
    // its wake-up, and all are handled in order once the engine is free.
    {
        std::lock_guard<std::mutex> lk(tav_menu_engine_mutex());
        g_tav_menu = menu_aud_display;
        for (int n : {2, 3, 4}) {
            ASSERT_TRUE(fakematrix::raise_signal(n == 4 ? ACON : VCON, 0));
            ASSERT_TRUE(wait_until([n] { return fakematrix::signal_fetches() == n; }));
        }
    }
    wait_until([] { return trace().size() == 4; });
    EXPECT_EQ(trace(), (std::vector<std::string>{V, V, V, A}));
    // The callback only writes its byte: a burst far larger than the pipe
    // holds does not block the library, and the listener goes on.
    {
        std::lock_guard<std::mutex> lk(tav_menu_engine_mutex());
        set_bits(0x0001); // wakes, no handler
        for (int i = 0; i < 100000; ++i) {
            tav_matrix_irq_callback(0);
        }
        set_bits(ACON);
        tav_matrix_irq_callback(0);
    }
    EXPECT_TRUE(wait_until([] { return trace().size() >= 5 && trace().back() == A; }, 10000));
    EXPECT_LT(fakematrix::signal_fetches(), 100000); // the pipe dropped the excess
    tav_matrix_irq_close();
    EXPECT_EQ(fakematrix::calls_starting("unregister_inner_signal"),
              std::vector<std::string>{"unregister_inner_signal(16119)"});
    EXPECT_FALSE(fakematrix::raise_signal(ACON, 0));
}

class Update : public MenuTest {
  protected:
    void SetUp() override {
        MenuTest::SetUp();
        fakematrix::state().update_slot = 5;
        start(0);
    }
    static void start(int32_t pct) {
        fakematrix::state().update_pct = pct;
        tav_menu_updating_set();
    }
    // One tick; whether it asked for a redisplay.
    static bool tick() {
        g_tav_menu_event = EVENT_NOMAL;
        tav_menu_updating();
        return redraw_requested();
    }
    // Ticks in a row without a redisplay; ticks until the menu is left.
    static int quiet_ticks() {
        return ticks_until([] { return redraw_requested(); }) - 1;
    }
    static int ticks_until_left() {
        return ticks_until([] { return g_tav_menu != menu_update; });
    }
    template <class F> static int ticks_until(F done) {
        for (int n = 1; n <= 1000; ++n) {
            tick();
            if (done())
                return n;
        }
        return -1;
    }
};

// No progress for 300 ticks: the error notice, redrawn every tick for 30
// ticks, then the video page even when locked.
TEST_F(Update, StalledStartOrProgressGivesError) {
    g_tav_lock = true;
    tav_menu_updating_display();
    EXPECT_EQ(lcd(0), row(17));
    EXPECT_EQ(lcd(1), row(18));
    EXPECT_EQ(panel().led_steady, (1u << 31) | (1u << 16));
    EXPECT_EQ(quiet_ticks(), 299);
    EXPECT_EQ(tav_menu_updating_get_state(), 3);
    tav_menu_updating_display();
    EXPECT_EQ(lcd(0), row(25));
    EXPECT_EQ(lcd(1), row(26, 27, "05"));
    EXPECT_EQ(ticks_until_left(), 31);
    EXPECT_EQ(g_tav_menu, menu_vid_display);

    start(40);
    EXPECT_TRUE(tick());
    EXPECT_EQ(tav_menu_updating_get_state(), 1);
    for (int i = 0; i < 299; ++i)
        ASSERT_FALSE(tick());
    fakematrix::state().update_pct = 41; // a change restarts the count
    EXPECT_TRUE(tick());
    EXPECT_EQ(quiet_ticks(), 299);
    EXPECT_EQ(tav_menu_updating_get_state(), 3);
}

// 60 then 100: the completion notice stays 32 ticks, then the video page or
// the lock page; a drop below 50 after it is an error.
TEST_F(Update, CompleteReturnsAfter32TicksAndLowPercentIsAnError) {
    for (bool locked : {false, true}) {
        g_tav_lock = locked;
        start(60); // the progress page: SlotRowsDifferBetweenPages
        EXPECT_TRUE(tick());
        fakematrix::state().update_pct = 100;
        EXPECT_TRUE(tick());
        EXPECT_EQ(tav_menu_updating_get_state(), 2);
        tav_menu_updating_display();
        EXPECT_EQ(lcd(0), row(19));
        EXPECT_EQ(lcd(1), row(21));
        EXPECT_EQ(ticks_until_left(), 32);
        EXPECT_EQ(g_tav_menu, locked ? menu_lock : menu_vid_display);
    }
    start(100);
    tick();
    tick();
    tav_menu_updating_down();
    ASSERT_EQ(tav_menu_updating_get_state(), 2);
    tick();
    fakematrix::state().update_pct = 30;
    EXPECT_FALSE(tick()); // error on this tick, drawn from the next
    EXPECT_EQ(tav_menu_updating_get_state(), 3);
    EXPECT_TRUE(tick());
    EXPECT_EQ(ticks_until_left(), 30);
    start(100); // a first reading of 100 is drawn as progress
    EXPECT_TRUE(tick());
    tav_menu_updating_display();
    EXPECT_EQ(lcd(1), row(24, 30, "100"));
    for (int32_t pct : {101, 0x164 /* low 8 bits 100 */}) {
        start(pct);
        EXPECT_EQ(tick(), pct != 101) << pct; // above 100 counts as no progress
    }
}

// Line 0 of the progress page and line 1 of the error page by slot.
TEST_F(Update, SlotRowsDifferBetweenPages) {
    struct Case {
        int slot;
        std::string progress_top, error_bottom;
    };
    for (const Case& c :
         {Case{1, row(23, 12, "01"), row(26, 27, "01")},
          Case{17, row(23, 12, "17"), row(26, 27, "17")}, Case{18, row(73), row(41)},
          Case{19, row(20), row(42)}, Case{20, row(22), row(25)}, Case{0, row(17), row(25)},
          Case{21, row(17), row(25)}}) {
        SCOPED_TRACE(c.slot);
        fakematrix::state().update_slot = c.slot;
        start(42);
        tick();
        tav_menu_updating_display();
        EXPECT_EQ(lcd(0), c.progress_top);
        EXPECT_EQ(lcd(1), row(24, 30, " 42"));
        tav_menu_updating_down();
        tav_menu_updating_display();
        EXPECT_EQ(lcd(0), row(25));
        EXPECT_EQ(lcd(1), c.error_bottom);
    }
}

TEST_F(MenuTest, CardNoticePages) {
    struct Case {
        uint8_t status, slot;
        std::string top, bottom;
    };
    for (const Case& c :
         {Case{1, 3, row(13, 13, "03"), row(14)}, Case{2, 12, row(15, 16, "12"), row(4)},
          Case{1, 99, row(13, 13, "99"), row(14)}, Case{2, 100, row(15, 16, "--"), row(4)}}) {
        for (bool locked : {false, true}) {
            g_tav_lock = locked;
            tav_menu_card_plug_set_status(c.slot, c.status);
            EXPECT_EQ(g_tav_menu, menu_hot_plug);
            tav_menu_card_plug_display();
            EXPECT_EQ(lcd(0), c.top);
            EXPECT_EQ(lcd(1), c.bottom);
            EXPECT_EQ(panel().led_steady, locked
                                              ? (1u << 31) | (1u << 16)
                                              : (1u << 31) | (1u << 10) | (1u << 11) | (1u << 15));
        }
    }
    // No notice to show: home.
    g_tav_lock = false;
    tav_menu_card_plug_set_status(4, 3);
    tav_menu_card_plug_display();
    EXPECT_EQ(g_tav_menu, menu_vid_display);
}

} // namespace
