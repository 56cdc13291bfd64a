// Menu controller: the body of the main loop, the dispatch from menu state to
// handler, the start-up sequence and the menu time-outs.
//
// How the threads share the engine
// --------------------------------
// Three threads touch the panel:
//   * the main thread runs tav_menu_control() pass after pass;
//   * the panel receive thread only parses frames. Key reports go into a
//     fixed queue of TAV_KEY_QUEUE_LEN (64) in arrival order, without a lock
//     (one writer, one reader, tav_baseportcontrol.h); the firmware version
//     is stored before its event bit is raised (release). Each report and
//     each event bit also posts the port's event descriptor, which wakes a
//     waiting pass. A full queue drops the report that arrives and counts
//     it: the reports kept are then exactly the first ones typed, in order,
//     so a number entry can lose its end (and time out) but never gets a
//     digit from later in the sequence in the middle. 64 reports are more
//     than a person types during the longest pause of a pass (a switch-all
//     with its 3-s pause, plus a device tool's 3-s bound);
//   * the inner-signal listener (tav_menu_listen_irq) reacts to the matrix
//     core's signals.
// All menu-engine state (current menu and start-up event, timers, port
// tables, line buffers, module states of the menus, lock flag, and the LCD
// and LED output of a page) is guarded by one engine lock, a plain mutex
// defined beside that state (tav_menu_engine_mutex(), tav_menu_var.h). It is
// taken in four places only: the pass, the listener's dispatch, and the
// program's set-up and tear-down. Everything else runs under one of them and
// never takes it:
//   * tav_menu_control() holds it for the whole work of a pass and releases
//     it only while the pass itself waits. A normal pass takes at most one
//     key report; when it has nothing more to do at once (no redraw asked
//     for, no further report waiting) it waits for the first of: a key
//     report, a wake-up (tav_menu_wake(): a redraw request from any thread,
//     a signal record queued by the listener, a stop), or the next
//     one-second tick, which carries every menu time-out (the 3-s refusals,
//     the EDID notice period, the 10-s return). So a key is taken as soon as
//     its frame is parsed, its redraw runs on the pass right after, and an
//     idle panel costs one wake-up a second. Keys that arrive while keys are
//     not taken (start-up, the update menu) wait in the queue; when keys are
//     taken again only the last of them counts. The other waits of the pass:
//     50 ms in the update menu, the self-check's 500 ms, the wait that ends
//     every handshake and library-open pass until the next one-second
//     attempt is due (a handshake pass also wakes at once when the panel
//     answers), and the start-up pauses (3 s after 20 unanswered handshakes,
//     the two 1-s pauses and the wait for the matrix core while loading the
//     main setup; no other thread uses the engine before the listener is
//     started at the end of that step). A stop ends each of these waits at
//     once: the signal handler posts the wake-up, which stays posted until
//     a wait sees it, so a stop that comes just before a wait is not lost
//     (the matrix core's lock is waited for on a thread of its own, next to
//     the wake-up, tav_pid_file.h). The first normal pass after the receive
//     thread has reopened a panel port that went away asks for the current
//     page to be drawn again, LEDs included. Pauses inside a handler (the
//     1-s switch confirmation, the 3-s switch-all pause, the 1-s pause while
//     publishing versions) use tav_menu_sleep_ms() and keep the lock, so the
//     handler in progress never sees the engine change under it; keys typed
//     meanwhile are handled after it, in order.
//   * the listener never waits for the lock. For every wake-up byte it
//     fetches the signal record at once, so the library's single record is
//     never overwritten by a later signal while a pass runs. If the lock is
//     free it takes it (try_lock) and handles the record, after any older
//     ones; if a pass holds it, the record joins a fixed queue of 64 in the
//     order of the deliveries and wakes the controller. Queued records are
//     handled, in order and each with the order of effects of its bits, at
//     the top of the next pass under the lock that pass holds (or earlier,
//     by the listener, if it finds the lock free first): a signal waits at
//     most for the rest of the pass in progress (the longest is a
//     switch-all with its 3-s pause; a device tool may add its own bounded
//     run time, at most 3 s each), never behind a pass that began after it
//     was fetched. A full queue leaves further bytes in the pipe until the
//     engine is free, and those then fetch the latest record. The handlers'
//     effects fall between two passes and the redraw they request happens
//     on the next pass. They may reset the timers while the controller
//     waits; the pass then finds less than a second elapsed and waits again.
//   * tav_matrix_irq_close() (from tav_menu_ctl_distory()) marks the
//     listener closed under the lock and wakes its thread: nothing is
//     fetched or dispatched afterwards, and the thread ends within one
//     wake-up (the close waits up to 500 ms for it, except on the listener
//     thread itself, which shuts the program down on a reboot notice).
//     tav_matrix_irq_open() on a closed listener first waits for the old
//     thread's end (and refuses if it has not ended), then empties the pipe
//     and the queue, so nothing meant for the old listener is handled.
//   * the program's set-up holds it around tav_menu_ctl_init() and its
//     tear-down around tav_dev_destory(); a reboot notice runs the same
//     shutdown from inside the listener's dispatch, which already holds it.
// Frames are serialised separately, below this lock, by the port's transmit
// mutex, so a frame is never split or interleaved on the line.
// The signal handler takes no lock: it only clears the atomic run flags and
// posts the wake-ups of the receive thread and of the controller. Once the
// run flag is clear the start-up does no further work, and the receive
// thread, which waits on the port and a wake-up descriptor together, ends at
// once.
// The panel lock: LOCK writes the lock file first and announces the change
// to the matrix core only once the file holds it, so a peer that reads the
// file on the signal never sees a state the panel does not show. A file that
// cannot take it leaves the panel as it is, and the failure is logged.
//
// Time: every time stamp of the controller comes from tav_menu_now() and
// every pause goes through the installed sleep function, so tests can run the
// start-up, the one-second tick and the 3-s and 10-s time-outs on a fake
// clock (tav_menu_ctl_set_time_source).
#pragma once

#include <cstdint>

#include "tav_menu_var.h"

void tav_menu_control(void);
void tav_menu_ctl_init(void);
void tav_menu_ctl_distory(void);
void tav_menu_update(TAV_ENUM_MENUSTATUS menuwhich);
void tav_menu_ctl_cleartime(void);
void tav_menu_clear_timer_counter(void);
void tav_menu_timeout_clear(void);
void tav_listen_hardkey(void);
void tav_nomal_work(void);
void tav_nomal_display(void);
uint8_t tav_menu_ctl_get_startport(uint8_t* port_list, uint8_t maxport, uint8_t selectPort);

// Time source of the controller and of the menus' pauses. The program uses
// the wall clock (tav_btool_get_runtime) and real sleeps; tests install
// their own to run the time-outs without waiting. Null restores the real one.
typedef uint32_t (*tav_menu_clock_fn)(void);
typedef void (*tav_menu_sleep_fn)(uint32_t ms);
void tav_menu_ctl_set_time_source(tav_menu_clock_fn now, tav_menu_sleep_fn sleep);
uint32_t tav_menu_now(void);
// A pause inside a handler: keeps the engine lock.
void tav_menu_sleep_ms(uint32_t ms);

// Wakes the main loop's wait (async-signal-safe): a redraw request, a queued
// signal record or a stop.
void tav_menu_wake(void);
// How long a normal pass with nothing to do waits: the time to the next
// one-second tick, which also carries every menu time-out.
uint32_t tav_menu_ctl_wait_ms(void);

// Called right before each wait of a pass blocks (tests deliver a stop
// there); null for none.
void tav_menu_ctl_set_wait_hook(void (*hook)(void));

// Whole seconds since the last key as the one-second tick counts them (0..10).
uint8_t tav_menu_ctl_get_count_10s(void);

// The handlers that the one-second tick calls in the switching, switch-all
// and EDID menus. The program uses the menus' own; tests may install others
// to see when they are called. Null restores the menus' own.
typedef void (*tav_menu_handler_fn)(void);
typedef struct MENU_TICK_HANDLERS {
    tav_menu_handler_fn video_switch_3s; // menu_vid_switch, seconds 3..9
    tav_menu_handler_fn audio_switch_3s; // menu_aud_switch, seconds 3..9
    tav_menu_handler_fn switch_all_3s;   // menu_switch_vid_all / menu_switch_aud_all, 3..9
    tav_menu_handler_fn edid_err;        // menu_edid_switch, seconds 6..8
} TAV_MENU_TICK_HANDLERS;
void tav_menu_ctl_set_tick_handlers(const TAV_MENU_TICK_HANDLERS* handlers);

// Where a leave key (press code MENU, LEFT, BREAK, LOCK or DEFAULT) leads
// from a menu; TAV_MENU_STAY when the key is the menu's own.
#define TAV_MENU_STAY ((TAV_ENUM_MENUSTATUS)-1)
TAV_ENUM_MENUSTATUS tav_menu_ctl_leave_target(TAV_ENUM_MENUSTATUS menu, uint16_t press);
