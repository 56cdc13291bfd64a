// The inner-signal listener: which handlers a signal reaches, in what order,
// what each does in the various menus, and the wake-up thread.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <unistd.h>

#include "listener_support.h"
#include "tav_baseportcontrol.h"
#include "tav_led.h"
#include "tav_menu_listen_irq.h"

using namespace irqtest;

namespace {

constexpr uint32_t VCON = TAV_MATRIX_SIG_VIDEO_CONNECT;
constexpr uint32_t ACON = TAV_MATRIX_SIG_AUDIO_CONNECT;
constexpr uint32_t SLOT = TAV_MATRIX_SIG_SLOT;
constexpr uint32_t VPORT = TAV_MATRIX_SIG_VIDEO_PORT;
constexpr uint32_t APORT = TAV_MATRIX_SIG_AUDIO_PORT;
constexpr uint32_t UPD = TAV_MATRIX_SIG_UPDATE;
constexpr uint32_t REBOOT = TAV_MATRIX_SIG_REBOOT;
constexpr uint32_t PARAM = TAV_MATRIX_SIG_PARAM;

const std::string V = "video_table";
const std::string A = "audio_table";
const std::string C3 = "card(3)";

constexpr int32_t NO_CARD = -100; // no record in the fake for slot 3

struct DispatchCase {
    const char* name;
    TAV_ENUM_MENUSTATUS menu;
    uint32_t bits;
    uint32_t param;
    int32_t card_state;
    std::vector<std::string> trace;
    TAV_ENUM_MENUSTATUS menu_after;
    bool redraw;
    uint8_t notice; // card notice kind afterwards
};

class IrqDispatch : public ListenerTest, public ::testing::WithParamInterface<DispatchCase> {};

TEST_P(IrqDispatch, HandlersFollowTheMenu) {
    const DispatchCase& c = GetParam();
    if (c.card_state != NO_CARD) {
        set_card(3, c.card_state);
    }
    g_tav_menu = c.menu;
    dispatch(c.bits, c.param);
    EXPECT_EQ(trace(), c.trace);
    EXPECT_EQ(g_tav_menu, c.menu_after);
    EXPECT_EQ(redraw_requested(), c.redraw);
    EXPECT_EQ(tav_menu_card_plug_get_status(), c.notice);
    if (c.notice != 0) {
        EXPECT_EQ(tav_menu_card_plug_get_slot(), 3);
        EXPECT_TRUE(g_tav_lcd);
    }
}

// clang-format off
const DispatchCase kDispatchCases[] = {
    // Connections: the table is rebuilt unless the switch-all menu of that
    // kind is open; only the page showing it is redrawn.
    {"VconHome", menu_vid_display, VCON, 0, NO_CARD, {V}, menu_vid_display, true, 0},
    {"VconLock", menu_lock, VCON, 0, NO_CARD, {V}, menu_lock, true, 0},
    {"VconAudioPage", menu_aud_display, VCON, 0, NO_CARD, {V}, menu_aud_display, false, 0},
    {"VconSwitchAll", menu_switch_vid_all, VCON, 0, NO_CARD, {}, menu_switch_vid_all, false, 0},
    {"VconAudioSwitchAll", menu_switch_aud_all, VCON, 0, NO_CARD, {V},
     menu_switch_aud_all, false, 0},
    {"AconAudioPage", menu_aud_display, ACON, 0, NO_CARD, {A}, menu_aud_display, true, 0},
    {"AconLockNotRedrawn", menu_lock, ACON, 0, NO_CARD, {A}, menu_lock, false, 0},
    {"AconSwitchAll", menu_switch_aud_all, ACON, 0, NO_CARD, {}, menu_switch_aud_all, false, 0},
    // Ports: also the list pages.
    {"VportListPage", meun_vid_io_display, VPORT, 0, NO_CARD, {V}, meun_vid_io_display, true, 0},
    {"VportLock", menu_lock, VPORT, 0, NO_CARD, {V}, menu_lock, true, 0},
    {"VportSwitchAll", menu_switch_vid_all, VPORT, 0, NO_CARD, {}, menu_switch_vid_all, false, 0},
    {"VportEdid", menu_edid_switch, VPORT, 0, NO_CARD, {V}, menu_edid_switch, false, 0},
    {"AportListPage", meun_aud_io_display, APORT, 0, NO_CARD, {A}, meun_aud_io_display, true, 0},
    {"AportLockNotRedrawn", menu_lock, APORT, 0, NO_CARD, {A}, menu_lock, false, 0},
    // Slots.
    {"OnlineHome", menu_vid_display, SLOT, 3, em_matrix_card_online, {C3, V},
     menu_hot_plug, true, 1},
    {"OnlineEth", menu_eth_ip, SLOT, 3, em_matrix_card_online, {C3, V}, menu_hot_plug, true, 1},
    {"OnlineReset", menu_reset, SLOT, 3, em_matrix_card_online, {C3, V}, menu_reset, false, 0},
    {"OfflineHome", menu_vid_display, SLOT, 3, em_matrix_card_offline, {C3, V, V, A},
     menu_hot_plug, true, 2},
    {"OfflineReset", menu_reset, SLOT, 3, em_matrix_card_offline, {C3, V}, menu_reset, false, 0},
    {"NormalHome", menu_vid_display, SLOT, 3, em_matrix_card_normal, {C3, V},
     menu_vid_display, false, 0},
    {"OtherState", menu_vid_display, SLOT, 3, em_matrix_card_iap, {C3, V},
     menu_vid_display, false, 0},
    {"UnknownSlot", menu_vid_display, SLOT, 3, NO_CARD, {C3, V}, menu_vid_display, false, 0},
    // Several bits: handled in table order, each reading the menu anew.
    {"VconAndSlot", menu_vid_display, VCON | SLOT, 3, em_matrix_card_normal, {V, C3, V},
     menu_vid_display, true, 0},
    {"SlotThenVport", menu_vid_display, VPORT | SLOT, 3, em_matrix_card_online, {C3, V, V},
     menu_hot_plug, true, 1},
    {"AllConnections", menu_aud_display, APORT | ACON | VPORT | VCON, 0, NO_CARD, {V, A, V, A},
     menu_aud_display, true, 0},
    // The update display drops everything but the update's own signal.
    {"UpdateDropsSlot", menu_update, SLOT | VCON, 3, em_matrix_card_online, {},
     menu_update, false, 0},
    {"UpdateDropsReboot", menu_update, REBOOT | PARAM, 1, NO_CARD, {}, menu_update, false, 0},
    // Reboot values without a notice, and bits without a handler.
    {"RebootNone", menu_vid_display, REBOOT, 0, NO_CARD, {}, menu_vid_display, false, 0},
    {"RebootFour", menu_vid_display, REBOOT, 4, NO_CARD, {}, menu_vid_display, false, 0},
    {"UnhandledBits", menu_vid_display, 0x0001 | 0x0002 | 0x0004 | 0x0010 | 0x0100, 0, NO_CARD, {},
     menu_vid_display, false, 0},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Cases, IrqDispatch, ::testing::ValuesIn(kDispatchCases),
                         [](const auto& info) { return std::string(info.param.name); });

// No record: nothing is dispatched. The card's record cannot be read: no notice.
TEST_F(ListenerTest, LibraryFailures) {
    fakematrix::state().signal_result = -1;
    dispatch(VCON | SLOT, 3);
    EXPECT_TRUE(trace().empty());
    EXPECT_FALSE(redraw_requested());

    fakematrix::state().signal_result = 0;
    fakematrix::state().card_result = -1;
    set_card(3, em_matrix_card_online);
    dispatch(SLOT, 3);
    EXPECT_EQ(trace(), (std::vector<std::string>{C3, V}));
    EXPECT_EQ(g_tav_menu, menu_vid_display);
    EXPECT_EQ(tav_menu_card_plug_get_status(), 0);
}

// A card turning normal ends any notice on show, also one about another slot.
TEST_F(ListenerTest, NormalCardEndsNotice) {
    for (bool locked : {false, true}) {
        SCOPED_TRACE(locked);
        g_tav_lock = locked;
        tav_menu_card_plug_set_status(12, 2);
        set_card(3, em_matrix_card_normal);
        dispatch(SLOT, 3);
        EXPECT_EQ(g_tav_menu, locked ? menu_lock : menu_vid_display);
        EXPECT_EQ(tav_menu_card_plug_get_status(), 0);
    }
}

// A card notice drawn by the next pass: the row with the slot number.
TEST_F(ListenerTest, InsertedNoticeDrawnWithSlot) {
    set_card(3, em_matrix_card_online);
    dispatch(SLOT, 3);
    ASSERT_EQ(g_tav_menu, menu_hot_plug);
    tav_nomal_display();
    EXPECT_EQ(lcd(0), row_with(13, 13, "03"));
    EXPECT_EQ(lcd(1), row(14));
}

struct UpdateSignalCase {
    const char* name;
    TAV_ENUM_MENUSTATUS menu;
    uint32_t bits;
    uint32_t param;
    int32_t pct;
    TAV_ENUM_MENUSTATUS menu_after;
    uint8_t state_after;
};

class IrqUpdate : public ListenerTest, public ::testing::WithParamInterface<UpdateSignalCase> {};

TEST_P(IrqUpdate, BeginAndEnd) {
    const UpdateSignalCase& c = GetParam();
    {
        std::lock_guard<std::mutex> g(fakematrix::mutex());
        fakematrix::state().iap_slot = 5;
        fakematrix::state().iap_pct = c.pct;
    }
    g_tav_menu = c.menu;
    dispatch(c.bits, c.param);
    EXPECT_EQ(g_tav_menu, c.menu_after);
    EXPECT_EQ(tav_menu_updating_get_state(), c.state_after);
    EXPECT_TRUE(trace().empty()) << "no table is rebuilt";
}

const UpdateSignalCase kUpdateCases[] = {
    {"BeginFromHome", menu_vid_display, UPD, 0x8000, 0, menu_update, 0},
    {"BeginFromLock", menu_lock, UPD, 0x8005, 0, menu_update, 0},
    {"EndOutsideUpdateIgnored", menu_vid_display, UPD, 0, 80, menu_vid_display, 0},
    {"EndAt49", menu_update, UPD, 0, 49, menu_update, 3},
    {"EndAt50", menu_update, UPD, 0, 50, menu_update, 2},
    {"EndWithOtherBitsDropped", menu_update, UPD | VCON | SLOT | REBOOT, 1, 80, menu_update, 2},
};

INSTANTIATE_TEST_SUITE_P(Cases, IrqUpdate, ::testing::ValuesIn(kUpdateCases),
                         [](const auto& info) { return std::string(info.param.name); });

// Parameter signals: another process changed the lock file.
TEST_F(ListenerTest, ParamSignalLockFollowsOtherProcessOnly) {
    const uint32_t own = static_cast<uint32_t>(getpid()) & 0xFFFFu;
    const uint32_t other = (own + 1) & 0xFFFFu;
    struct Case {
        uint32_t param;
        bool locks;
    } cases[] = {
        {other, true}, {own, false}, {other | 0x10000u, false}, {other | 0x80000000u, false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.param);
        g_tav_lock = false;
        g_tav_menu = menu_vid_display;
        g_tav_menu_event = EVENT_NOMAL;
        std::ofstream(tavtest::PanelCapture::get().root() + "/nandflash/config/.tav_lock_fp",
                      std::ios::trunc)
            << "1";
        std::remove(syslog_file_.c_str());
        dispatch(PARAM, c.param);
        EXPECT_EQ(g_tav_lock, c.locks);
        EXPECT_EQ(g_tav_menu, c.locks ? menu_lock : menu_vid_display);
        const std::string expected =
            "15\tfunc=[tav_matrix_irq_param_change]pid=" + std::to_string(c.param & 0xFFFF) +
            ",gps_pid=" + std::to_string(getpid()) +
            ",param=" + std::to_string(static_cast<int>(c.param));
        EXPECT_EQ(log_lines(), std::vector<std::string>{expected});
    }
}

// The reboot notice: rows, LEDs off, then the program's shutdown.
struct RebootCase {
    uint32_t option;
    int top;
    int bottom;
};

class IrqReboot : public ListenerTest, public ::testing::WithParamInterface<RebootCase> {
  protected:
    void TearDown() override {
        // Reopen the capture's port for the tests that follow in this process.
        int8_t param[128] = {};
        memcpy(param, "19200;N;8;1;", 12);
        tav_inituart(param, 4);
        ListenerTest::TearDown();
    }
};

TEST_P(IrqReboot, NoticeThenShutdown) {
    const RebootCase& c = GetParam();
    set_uart_runflag();
    tav_display_led_blink_sigle_on(14);
    uint8_t leds[] = {10, 11, 15, 31};
    tav_display_led_mutil_on(leds, 4);
    tavtest::PanelCapture::get().clear();
    // The slot bit (its slot is the same parameter) comes first in table
    // order; the parameter bit after the reboot is not handled any more.
    set_card(static_cast<int>(c.option), em_matrix_card_normal);
    dispatch(REBOOT | PARAM | SLOT, c.option);
    EXPECT_EQ(trace(), (std::vector<std::string>{"card(" + std::to_string(c.option) + ")", V}));
    const auto& st = tavtest::PanelCapture::get().state();
    EXPECT_EQ(st.lcd[0], row(c.top));
    EXPECT_EQ(st.lcd[1], row(c.bottom));
    EXPECT_EQ(st.led_steady, 0u);
    EXPECT_EQ(st.led_blink, 0u);
    EXPECT_EQ(g_tav_key_runflag.load(), 0);
    EXPECT_EQ(g_tav_uart_runflag.load(), 0);
    EXPECT_FALSE(tav_port_is_open());
    EXPECT_EQ(fakematrix::calls_starting("unregister_inner_signal"),
              std::vector<std::string>{"unregister_inner_signal(16119)"});
    EXPECT_TRUE(log_lines().empty()) << "the parameter bit was not handled";
}

INSTANTIATE_TEST_SUITE_P(Kinds, IrqReboot,
                         ::testing::Values(RebootCase{1, 59, 60}, RebootCase{2, 61, 62},
                                           RebootCase{3, 63, 64}));

// The wake-up path: callback, pipe and the listener thread.
class IrqThread : public ListenerTest {
  protected:
    // Waits until `n` records have been fetched in all, then until the last
    // dispatch has let go of the engine lock.
    static bool wait_fetches(int n) {
        for (int i = 0; i < 400 && fakematrix::signal_fetches() < n; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        std::lock_guard<std::recursive_mutex> lk(tav_menu_engine_mutex());
        return fakematrix::signal_fetches() == n;
    }
    // Waits until no record has been fetched for 200 ms; the fetches so far.
    static int wait_quiet() {
        int before = -1;
        for (int i = 0; i < 100 && fakematrix::signal_fetches() != before; ++i) {
            before = fakematrix::signal_fetches();
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        }
        return fakematrix::signal_fetches();
    }
};

TEST_F(IrqThread, OneDispatchPerWakeUpByte) {
    tav_matrix_irq_open();
    EXPECT_EQ(fakematrix::calls_starting("register_inner_signal"),
              std::vector<std::string>{"register_inner_signal(16119)"});

    ASSERT_TRUE(fakematrix::raise_signal(VCON, 0));
    ASSERT_TRUE(wait_fetches(1));
    EXPECT_EQ(trace(), std::vector<std::string>{V});

    // Three signals while a pass holds the engine: each record is fetched at
    // its wake-up, and all are handled in order once the engine is free.
    {
        std::lock_guard<std::recursive_mutex> lk(tav_menu_engine_mutex());
        g_tav_menu = menu_aud_display;
        for (int n : {2, 3, 4}) {
            ASSERT_TRUE(fakematrix::raise_signal(n == 4 ? ACON : VCON, 0));
            ASSERT_TRUE(wait_fetches(n));
        }
    }
    for (int i = 0; i < 400 && trace().size() < 4; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(trace(), (std::vector<std::string>{V, V, V, A}));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(fakematrix::signal_fetches(), 4);

    // Opening again starts no second listener.
    tav_matrix_irq_open();
    ASSERT_TRUE(fakematrix::raise_signal(ACON, 0));
    ASSERT_TRUE(wait_fetches(5));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(fakematrix::signal_fetches(), 5);

    tav_matrix_irq_close();
    EXPECT_EQ(fakematrix::calls_starting("unregister_inner_signal"),
              std::vector<std::string>{"unregister_inner_signal(16119)"});
    EXPECT_FALSE(fakematrix::raise_signal(ACON, 0));
}

// The callback only writes its byte: a burst far larger than the pipe holds
// does not block the library, and the listener goes on afterwards.
TEST_F(IrqThread, BurstNeverBlocksTheCallback) {
    tav_matrix_irq_open();
    {
        std::lock_guard<std::mutex> g(fakematrix::mutex());
        fakematrix::state().signal.sig_bit_map = 0x0001; // wakes, no handler
    }
    {
        std::lock_guard<std::recursive_mutex> lk(tav_menu_engine_mutex());
        for (int i = 0; i < 100000; ++i) {
            tav_matrix_irq_callback(0);
        }
    }
    const int drained = wait_quiet();
    EXPECT_GT(drained, 1000);
    EXPECT_LE(drained, 100000);
    ASSERT_TRUE(fakematrix::raise_signal(ACON, 0));
    wait_quiet();
    std::lock_guard<std::recursive_mutex> lk(tav_menu_engine_mutex());
    ASSERT_FALSE(trace().empty());
    EXPECT_EQ(trace().back(), A);
}

} // namespace
