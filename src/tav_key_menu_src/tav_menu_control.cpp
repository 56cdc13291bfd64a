// Menu controller: one pass of the main loop, the menu dispatch, the start-up
// sequence and the time-outs. See tav_menu_control.h for how the threads
// share the engine.
#include "tav_menu_control.h"

#include <atomic>
#include <cerrno>
#include <ctime>
#include <malloc.h>
#include <poll.h>

#include "tav_basetool.h"
#include "tav_baseportcontrol.h"
#include "tav_key_var.h"
#include "tav_led.h"
#include "tav_matrix.h"
#include "tav_menu_analize_press.h"
#include "tav_menu_audio.h"
#include "tav_menu_card_plug.h"
#include "tav_menu_dispay_version.h"
#include "tav_menu_display_str.h"
#include "tav_menu_edid.h"
#include "tav_menu_eth.h"
#include "tav_menu_led.h"
#include "tav_menu_listen_irq.h"
#include "tav_menu_reset.h"
#include "tav_menu_sel.h"
#include "tav_menu_switch_all.h"
#include "tav_menu_update.h"
#include "tav_menu_var.h"
#include "tav_menu_video.h"
#include "tav_pid_file.h"
#include "tav_platform.h"
#include "tav_uart_com.h"

namespace {

// Handshakes per series before the panel is reported silent.
constexpr uint8_t kHandshakesPerSeries = 20;
// Library opens before the program gives up.
constexpr uint8_t kOpenAttempts = 10;
// Self-check steps (0..17).
constexpr uint8_t kSelfCheckSteps = 18;
// LED that belongs to no key; on together with the LCD.
constexpr uint8_t kLcdLed = 31;

// Time sampled at the start of the pass, and time of the last timer reset.
uint32_t currenttime;
uint32_t timecount;
// Whole seconds since the last key, 0..10.
uint8_t count_10s;
// Kept across passes: attempts in the current start-up state, whether the
// first handshake of a series went out, the self-check step.
uint8_t CheckCount;
uint8_t first_in;
uint8_t uctemp;
// Key reports that waited while keys were not taken (start-up, the update
// menu): only the last counts when they are taken again.
bool m_keys_stale = true;

uint32_t real_clock(void) {
    return tav_btool_get_runtime();
}

void real_sleep(uint32_t ms) {
    timespec ts{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

std::atomic<tav_menu_clock_fn> g_clock{real_clock};
std::atomic<tav_menu_sleep_fn> g_sleep{real_sleep};
std::atomic<tav_menu_handler_fn> g_wait_hook{nullptr};

void run_wait_hook(void) {
    if (const tav_menu_handler_fn hook = g_wait_hook.load()) {
        hook();
    }
}

void tav_menu_lock_redraw(void) {
    tav_update_to_lock(0);
}

// Where the leave keys of a menu lead; kStay: the key is the menu's own
// (paging, a step back, or nothing) and goes to its work handler.
constexpr TAV_ENUM_MENUSTATUS kStay = TAV_MENU_STAY;
struct LeaveKeys {
    TAV_ENUM_MENUSTATUS menu, left, brk, lock, dflt;
};
constexpr LeaveKeys kNoLeave = {kStay, kStay, kStay, kStay, kStay};
// The cycle's next menu with MENU; LOCK and BREAK home; DEFAULT to reset.
constexpr LeaveKeys cycle(TAV_ENUM_MENUSTATUS next) {
    return {next, kStay, menu_vid_display, menu_vid_display, menu_reset};
}

// Seconds since the last key (count_10s) on which the one-second tick calls
// a menu's handler; the handler also ends its timed message when a leave key
// is pressed before then.
struct TickWindow {
    uint8_t first;
    uint8_t last;
    tav_menu_handler_fn TAV_MENU_TICK_HANDLERS::*handler;
};
constexpr TickWindow kNoTick = {0, 0, nullptr};
constexpr TickWindow kRefusal3s(tav_menu_handler_fn TAV_MENU_TICK_HANDLERS::*handler) {
    return {3, 9, handler};
}

// One menu state: its key and display handlers, where its leave keys lead,
// what leaving it with MENU, LOCK or BREAK resets (LEFT goes back a level and
// DEFAULT opens the reset menu, both keeping the menu's state), what entering
// it through a leave key prepares, and its tick window. Null: nothing.
struct MenuRow {
    tav_menu_handler_fn work;
    tav_menu_handler_fn display;
    LeaveKeys leave;
    tav_menu_handler_fn on_leave;
    tav_menu_handler_fn on_enter;
    TickWindow tick;
};

void clear_edid(void) {
    tav_menu_edid_clear(true);
}

using TH = TAV_MENU_TICK_HANDLERS;
constexpr auto VD = menu_vid_display;

// Indexed by TAV_ENUM_MENUSTATUS. Leave keys: MENU, LEFT, BREAK, LOCK, DEFAULT.
// clang-format off
const MenuRow kMenuTable[] = {
    /* menu_spc             */ {nullptr, nullptr, kNoLeave, nullptr, nullptr, kNoTick},
    /* menu_hot_plug        */ {nullptr, tav_menu_card_plug_display, kNoLeave, nullptr, nullptr, kNoTick},
    /* menu_vid_display     */ {tav_video, tav_video_display,
                                {meun_vid_io_display, kStay, kStay, VD, menu_reset}, nullptr, nullptr, kNoTick},
    /* meun_vid_io_display  */ {tav_video_io, tav_video_io_display,
                                cycle(menu_aud_display), nullptr, tav_video_reinit, kNoTick},
    /* menu_vid_switch      */ {tav_video_switch, tav_video_switch_display,
                                cycle(menu_aud_display), nullptr, nullptr, kRefusal3s(&TH::video_switch_3s)},
    /* menu_aud_display     */ {tav_audio, tav_audio_display,
                                cycle(meun_aud_io_display), nullptr, nullptr, kNoTick},
    /* meun_aud_io_display  */ {tav_audio_io, tav_audio_io_display,
                                cycle(menu_shortcut), nullptr, tav_audio_reinit, kNoTick},
    /* menu_aud_switch      */ {tav_audio_switch, tav_audio_switch_display,
                                cycle(menu_shortcut), nullptr, nullptr, kRefusal3s(&TH::audio_switch_3s)},
    /* menu_shortcut        */ {tav_menu_sel, tav_menu_sel_display,
                                cycle(menu_eth_select), clear_edid, nullptr, kNoTick},
    /* menu_switch_all      */ {tav_menu_sel_av_swall, tav_menu_sel_av_swall_display,
                                {menu_eth_select, menu_shortcut, VD, VD, menu_reset}, clear_edid, nullptr, kNoTick},
    /* menu_switch_vid_all  */ {tav_menu_switch_all, tav_menu_switch_all_display,
                                cycle(menu_eth_select), clear_edid, nullptr, kRefusal3s(&TH::switch_all_3s)},
    /* menu_switch_aud_all  */ {tav_menu_switch_all, tav_menu_switch_all_display,
                                cycle(menu_eth_select), clear_edid, nullptr, kRefusal3s(&TH::switch_all_3s)},
    /* menu_edid_switch     */ {tav_edid, tav_edid_display,
                                cycle(menu_eth_select), clear_edid, nullptr, {6, 8, &TH::edid_err}},
    /* menu_eth_select      */ {tav_eth_sec, tav_eth_sec_display,
                                cycle(menu_reset), nullptr, nullptr, kNoTick},
    /* menu_eth_display     */ {tav_eth_dis, tav_eth_dis_display,
                                {menu_reset, menu_eth_select, VD, VD, menu_reset}, nullptr, nullptr, kNoTick},
    /* menu_eth_ip          */ {tav_eth_ip, tav_eth_ip_display,
                                {menu_reset, menu_eth_display, VD, VD, menu_reset}, nullptr, nullptr, kNoTick},
    /* menu_eth_mac         */ {tav_eth_mac, tav_eth_mac_display,
                                {menu_reset, menu_eth_display, VD, VD, menu_reset}, nullptr, nullptr, kNoTick},
    /* menu_eth_gate        */ {tav_eth_gate, tav_eth_gate_display,
                                {menu_reset, menu_eth_display, VD, VD, menu_reset}, nullptr, nullptr, kNoTick},
    /* menu_eth_mask        */ {tav_eth_mask, tav_eth_mask_display,
                                {menu_reset, menu_eth_display, VD, VD, menu_reset}, nullptr, nullptr, kNoTick},
    /* menu_reset           */ {tav_menu_reset, tav_menu_reset_display,
                                {menu_display_version, kStay, VD, VD, kStay}, tav_menu_reset_clear,
                                tav_menu_reset_clear, kNoTick},
    /* menu_display_version */ {tav_version_sec, tav_version_display,
                                cycle(VD), nullptr, tav_version_refreash, kNoTick},
    /* menu_update          */ {tav_menu_updating, tav_menu_updating_display, kNoLeave, nullptr, nullptr, kNoTick},
    /* menu_lock            */ {nullptr, tav_menu_lock_redraw, kNoLeave, nullptr, nullptr, kNoTick},
};
// clang-format on
static_assert(sizeof kMenuTable / sizeof kMenuTable[0] == menu_lock + 1,
              "one entry per menu state");

const MenuRow* menu_row(TAV_ENUM_MENUSTATUS menu) {
    int32_t m = static_cast<int32_t>(menu);
    if (m < 0 || m > menu_lock) {
        return nullptr;
    }
    return &kMenuTable[m];
}

// What the one-second tick calls, in which menus and on which seconds.
const TAV_MENU_TICK_HANDLERS kDefaultTickHandlers = {tav_video_switch_3S_timeout,
                                                     tav_audio_switch_3S_timeout,
                                                     tav_menu_swall_handle_3s, tav_edid_handle_err};
TAV_MENU_TICK_HANDLERS g_tick = kDefaultTickHandlers;

TAV_ENUM_MENUSTATUS leave_target(const MenuRow& row, uint16_t press) {
    switch (press) {
    case TAV_PRESS_MENU:
        return row.leave.menu;
    case TAV_PRESS_LEFT:
        return row.leave.left;
    case TAV_PRESS_BREAK:
        return row.leave.brk;
    case TAV_PRESS_LOCK:
        return row.leave.lock;
    case TAV_PRESS_DEFAULT:
        return row.leave.dflt;
    default:
        return kStay;
    }
}

// A leave key: a timed message of the menu (a refusal, an EDID outcome) ends
// first, as before any other key; then the move and the two hooks.
void leave(const MenuRow& row, TAV_ENUM_MENUSTATUS to, uint16_t press) {
    if (row.tick.handler != nullptr) {
        (kDefaultTickHandlers.*row.tick.handler)();
    }
    tav_menu_update(to);
    if (row.on_leave != nullptr && press != TAV_PRESS_LEFT && press != TAV_PRESS_DEFAULT) {
        row.on_leave();
    }
    const MenuRow* next = menu_row(to);
    if (next != nullptr && next->on_enter != nullptr) {
        next->on_enter();
    }
}

// Milliseconds from the last timer reset to the pass's start, as an unsigned
// difference: a wrap of the counter is harmless, and a wall clock set back
// gives a huge difference, so the timers fire once and restart from the new
// time. (A reset always sets currenttime too, so it never runs ahead.)
uint32_t ms_since_reset(void) {
    return currenttime - timecount;
}

// A stop (signal, or the program told to end) during a start-up pause or
// the wait for the matrix core: the step does nothing more.
bool stopping(void) {
    return g_tav_key_runflag.load() == 0;
}

// Wakes the main thread's waits: a redraw request, a queued signal record, a
// stop. Made once for the life of the process.
const int m_tav_ctl_wake_fd = tav_btool_event_new();

// Waits up to `ms` for the wake-up descriptor (and, with `keys`, for a key
// report or panel answer); returns early on the first of them. Caller has
// released the engine lock.
void wait_events(uint32_t ms, bool keys) {
    pollfd p[2] = {{m_tav_ctl_wake_fd, POLLIN, 0}, {keys ? tav_hardkey_event_fd() : -1, POLLIN, 0}};
    if (poll(p, 2, static_cast<int>(ms)) < 0 && errno != EINTR) {
        // No descriptor to wait on: keep the pause's length all the same.
        real_sleep(ms);
    }
}

// A pause of the pass itself, the engine lock released meanwhile. It lasts
// its whole length unless the program is told to stop, which ends it at once.
void pass_sleep(std::unique_lock<std::mutex>& lock, uint32_t ms) {
    const tav_menu_sleep_fn sleep = g_sleep.load();
    lock.unlock();
    run_wait_hook();
    if (sleep != real_sleep) {
        sleep(ms);
    } else {
        const uint64_t end = tav_btool_mono_ms() + ms;
        for (uint64_t now = tav_btool_mono_ms(); now < end && !stopping();
             now = tav_btool_mono_ms()) {
            wait_events(static_cast<uint32_t>(end - now), false);
        }
    }
    lock.lock();
}

// A wait of the pass for its next event: at most `ms`, ended early by a
// wake-up (and, with `keys`, a key report or the panel's answer). With an
// installed time source it simply sleeps `ms`, as no other thread runs.
void pass_wait(std::unique_lock<std::mutex>& lock, uint32_t ms, bool keys) {
    const tav_menu_sleep_fn sleep = g_sleep.load();
    lock.unlock();
    run_wait_hook();
    if (sleep != real_sleep) {
        sleep(ms);
    } else if (!stopping()) {
        wait_events(ms, keys);
    }
    lock.lock();
}

// Milliseconds from now to the next one-second attempt or tick (due once
// more than 999 ms have passed since the last timer reset).
uint32_t ms_to_next_second(void) {
    const uint32_t elapsed = tav_menu_now() - timecount;
    return elapsed >= 1000 ? 0 : 1000 - elapsed;
}

// The handshake and library-open states: the pass waits until the next
// one-second attempt is due, or (handshake) until the panel answers, so a
// silent panel or a missing library costs nothing while waiting. An
// installed time source cannot report the answer during its sleep: with one,
// the pass keeps a short pause (10 ms) and the next pass looks again.
void pass_wait_attempt(std::unique_lock<std::mutex>& lock, bool answer) {
    constexpr uint32_t kInstalledClockPauseMs = 10;
    uint32_t ms = ms_to_next_second();
    if (ms == 0) {
        ms = 1;
    } else if (g_sleep.load() != real_sleep && ms > kInstalledClockPauseMs) {
        ms = kInstalledClockPauseMs;
    }
    pass_wait(lock, ms, answer);
}

void show_rows(uint8_t row0, uint8_t row1) {
    tav_menu_spc_display(displaybuf, row0, row1);
}

// One handshake-state pass. Returns true when the pass already paused.
bool pass_handshake(void) {
    if (first_in == 0 || ms_since_reset() > 999) {
        tav_clear_keyevent(TAV_EVENT_HARDVER);
        tav_menu_ctl_cleartime();
        tav_sys_hardmint();
        CheckCount++;
        first_in = 1;
    }
    if ((tav_gethardkey_event() & TAV_EVENT_HARDVER) != 0) {
        CheckCount = 0;
        tav_clear_keyevent(TAV_EVENT_HARDVER);
        tav_menu_ctl_cleartime();
        g_tav_menu_event = EVENT_OPEN_DLL;
        uint8_t led = kLcdLed;
        tav_display_led_mutil_on(&led, 1);
        show_rows(1, 2);
        first_in = 0;
        uctemp = 0;
    }
    return CheckCount == kHandshakesPerSeries;
}

void pass_open_library(void) {
    if (ms_since_reset() > 999) {
        CheckCount++;
        tav_menu_ctl_cleartime();
        pmatrixDllHandle = tav_matrix_open(TAV_MATRIX_OPEN_VERSION);
    }
    if (pmatrixDllHandle != nullptr) {
        CheckCount = 0;
        tav_poweron_resetlock();
        tav_menu_ctl_cleartime();
        TAV_DEF_MAX_PORT = tav_matrix_get_device_type(pmatrixDllHandle);
        g_tav_menu_event = EVENT_SELF_CHECK;
    }
    if (CheckCount == kOpenAttempts) {
        tav_key_var_destory();
        show_rows(16, 12);
        tav_log(TAV_LOG_DEBUG, "func=[%s]OPEN DLL ERR \n", "tav_menu_control");
    }
}

void pass_load_main(std::unique_lock<std::mutex>& lock) {
    show_rows(3, 4);
    pass_sleep(lock, 1000);
    if (stopping()) {
        return;
    }
    tav_log(TAV_LOG_NOTICE, "func=[%s]open pid file and wait,depend matrix_app_quoral",
            "tav_menu_control");
    // The wait may be long; nothing else uses the engine before the listener
    // starts below, so it runs without the lock. A stop ends it at once.
    lock.unlock();
    const int pid_fd = tav_pidf_open("matrix_app_quoral");
    if (pid_fd >= 0 || !stopping()) {
        tav_pidf_close(pid_fd);
    }
    lock.lock();
    if (stopping()) {
        return;
    }
    tav_log(TAV_LOG_NOTICE, "func=[%s]close pid", "tav_menu_control");
    tav_version_handle();
    pass_sleep(lock, 1000);
    if (stopping()) {
        return;
    }
    load_main_set_up();
    load_main_aud_set_up();
    tav_menu_update(menu_vid_display);
    tav_matrix_irq_open();
    // Start-up is over: give back the heap pages its work used.
    malloc_trim(0);
}

void run_tick(void) {
    tav_menu_ctl_cleartime();
    count_10s++;
    const MenuRow* row = menu_row(g_tav_menu);
    if (row != nullptr && row->tick.handler != nullptr && count_10s >= row->tick.first &&
        count_10s <= row->tick.last) {
        if (const tav_menu_handler_fn fn = g_tick.*row->tick.handler) {
            fn();
        }
    }
    if (count_10s >= 10) {
        count_10s = 0;
        if (g_tav_lcd) {
            tav_menu_timeout_clear();
            g_tav_lcd = false;
            tav_menu_update(g_tav_lock ? menu_lock : menu_vid_display);
        }
    }
}

void pass_normal(std::unique_lock<std::mutex>& lock) {
    if (tav_port_take_reopened()) {
        // The panel came back (and may have lost its picture): draw the
        // current page and its LEDs again on the next pass.
        tav_menu_update(g_tav_menu);
        return;
    }
    if (g_tav_menu == menu_update) {
        // Update progress: polled about every 100 ms; keys wait until the
        // menu is left, and only the last one counts then.
        m_keys_stale = true;
        pass_sleep(lock, 50);
        // Measured after the pause, so the polls come 100 ms apart.
        currenttime = tav_menu_now();
        if (ms_since_reset() > 99) {
            tav_menu_ctl_cleartime();
            tav_nomal_work();
        }
        return;
    }
    if (m_keys_stale) {
        m_keys_stale = false;
        tav_key_keep_last();
    }
    tav_listen_hardkey();
    // Nothing to do at once (no redraw asked for, no further key waiting):
    // wait for the next key, redraw request or tick.
    if (g_tav_menu_event == EVENT_NOMAL && (tav_gethardkey_event() & TAV_EVENT_KEY) == 0) {
        pass_wait(lock, tav_menu_ctl_wait_ms(), true);
    }
    currenttime = tav_menu_now();
    if (ms_since_reset() > 999) {
        run_tick();
    }
}

} // namespace

void tav_menu_ctl_set_time_source(tav_menu_clock_fn now, tav_menu_sleep_fn sleep) {
    g_clock.store(now != nullptr ? now : real_clock);
    g_sleep.store(sleep != nullptr ? sleep : real_sleep);
}

void tav_menu_ctl_set_wait_hook(tav_menu_handler_fn hook) {
    g_wait_hook.store(hook);
}

uint32_t tav_menu_now(void) {
    return g_clock.load()();
}

void tav_menu_sleep_ms(uint32_t ms) {
    g_sleep.load()(ms);
}

void tav_menu_ctl_set_tick_handlers(const TAV_MENU_TICK_HANDLERS* handlers) {
    g_tick = handlers != nullptr ? *handlers : kDefaultTickHandlers;
}

void tav_menu_wake(void) {
    tav_btool_event_post(m_tav_ctl_wake_fd);
}

uint32_t tav_menu_ctl_wait_ms(void) {
    return ms_to_next_second();
}

uint8_t tav_menu_ctl_get_count_10s(void) {
    return count_10s;
}

void tav_menu_control(void) {
    std::unique_lock<std::mutex> lock(tav_menu_engine_mutex());
    // Wake-ups that arrive from here on end this pass's wait; what the
    // earlier ones announced is looked at below.
    tav_btool_event_take(m_tav_ctl_wake_fd);
    tav_btool_event_take(tav_hardkey_event_fd());
    // Signal records fetched while the engine was busy go first.
    tav_matrix_irq_dispatch_queued();
    currenttime = tav_menu_now();
    switch (g_tav_menu_event) {
    case EVENT_MITT:
        if (pass_handshake()) {
            tav_log(TAV_LOG_DEBUG,
                    "func=[%s]Front panel Err .Unable to communicate with the front panel!!!",
                    "tav_menu_control");
            pass_sleep(lock, 3000);
            CheckCount = 0;
            tav_clear_keyevent(TAV_EVENT_HARDVER);
            tav_menu_ctl_cleartime();
            first_in = 0;
        } else if (g_tav_menu_event == EVENT_MITT) {
            pass_wait_attempt(lock, true);
        }
        break;
    case EVENT_OPEN_DLL:
        pass_open_library();
        if (g_tav_menu_event == EVENT_OPEN_DLL) {
            pass_wait_attempt(lock, false);
        }
        break;
    case EVENT_SELF_CHECK:
        if (uctemp >= kSelfCheckSteps) {
            uctemp = 0;
            g_tav_menu_event = EVENT_LOADMAIN;
        } else {
            tav_menuselfcheck_leds(uctemp);
            pass_sleep(lock, 500);
            uctemp++;
        }
        break;
    case EVENT_LOADMAIN:
        pass_load_main(lock);
        break;
    case EVENT_UPDATE:
        g_tav_menu_event = EVENT_NOMAL;
        tav_nomal_display();
        break;
    case EVENT_NOMAL:
    default:
        // Any unknown value is normal work, so no pass can run empty.
        pass_normal(lock);
        break;
    }
}

void tav_menu_ctl_init(void) {
    tav_menu_ctl_cleartime();
    tav_menu_init();
    tav_eth_init();
    tav_version_init();
    tav_video_init();
    tav_menu_card_plug_init();
    tav_menu_updating_init();
    tav_menu_edid_init();
    tav_menu_sel_init();
    tav_menu_reset_init();
    count_10s = 0;
    m_keys_stale = true;
    // A stop ends the wait for the matrix core at once.
    tav_pidf_set_stop(m_tav_ctl_wake_fd, stopping);
    // The start-up counters begin at zero (only relevant when the engine is
    // set up again in the same process, as the tests do).
    CheckCount = 0;
    first_in = 0;
    uctemp = 0;
}

void tav_menu_ctl_distory(void) {
    tav_menu_ctl_cleartime();
    tav_eth_clear();
    tav_version_clear();
    tav_video_clear();
    tav_menu_card_plug_clear();
    tav_matrix_irq_close();
    tav_menu_updating_clear();
    tav_menu_edid_clear(true);
    tav_menu_sel_clear();
    tav_menu_reset_clear();
    count_10s = 0;
    // A main loop waiting for its next event looks at the run flag again.
    tav_menu_wake();
}

void tav_menu_update(TAV_ENUM_MENUSTATUS menuwhich) {
    g_tav_menu_event = EVENT_UPDATE;
    g_tav_menu = menuwhich;
    tav_menu_wake();
}

void tav_menu_ctl_cleartime(void) {
    currenttime = timecount = tav_menu_now();
}

void tav_menu_clear_timer_counter(void) {
    tav_menu_ctl_cleartime();
    count_10s = 0;
}

void tav_menu_timeout_clear(void) {
    tav_eth_clear();
    tav_version_clear();
    tav_menu_edid_clear(true);
}

void tav_listen_hardkey(void) {
    // Acquire: the key value stored before the bit was raised is visible.
    if ((tav_gethardkey_event() & TAV_EVENT_KEY) == 0) {
        return;
    }
    if (g_tav_menu == menu_hot_plug) {
        // Any key leaves a card notice.
        g_tav_menu = menu_vid_display;
    }
    g_tav_lcd = true;
    g_tav_menu_event = EVENT_UPDATE;
    tav_menu_clear_timer_counter();
    tav_clear_keyevent(TAV_EVENT_KEY);
    switch (tav_ana_key()) {
    case 0:
        tav_nomal_work();
        break;
    case 2:
        tav_update_to_lock(1);
        break;
    default:
        break;
    }
}

void tav_nomal_work(void) {
    const MenuRow* h = menu_row(g_tav_menu);
    if (h == nullptr) {
        return;
    }
    const TAV_ENUM_MENUSTATUS to = leave_target(*h, g_tav_button.press);
    if (to != kStay) {
        leave(*h, to, g_tav_button.press);
    } else if (h->work != nullptr) {
        h->work();
    }
}

TAV_ENUM_MENUSTATUS tav_menu_ctl_leave_target(TAV_ENUM_MENUSTATUS menu, uint16_t press) {
    const MenuRow* h = menu_row(menu);
    return h != nullptr ? leave_target(*h, press) : kStay;
}

void tav_nomal_display(void) {
    const MenuRow* h = menu_row(g_tav_menu);
    if (h != nullptr && h->display != nullptr) {
        h->display();
    }
}

uint8_t tav_menu_ctl_get_startport(uint8_t* port_list, uint8_t maxport, uint8_t selectPort) {
    if (maxport <= 10) {
        return 0;
    }
    unsigned n = maxport;
    if (port_list != nullptr) {
        for (unsigned i = 0; i < maxport; ++i) {
            if (port_list[i] == selectPort) {
                n = i;
                break;
            }
        }
    }
    return static_cast<uint8_t>(n + 11 < maxport ? n : maxport - 11u);
}
