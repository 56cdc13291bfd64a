// Menu controller: the body of the main loop, the dispatch from menu state to
// handler, the start-up sequence and the menu time-outs.
//
// How the threads share the engine
// --------------------------------
// Three threads touch the panel:
//   * the main thread runs tav_menu_control() pass after pass;
//   * the panel receive thread only parses frames: it stores the key value or
//     the firmware version (atomics) and then raises the event bit with
//     release order; the controller tests the bit with acquire order
//     (tav_baseportcontrol.h);
//   * the inner-signal listener (tav_menu_listen_irq) reacts to the matrix
//     core's signals.
// All menu-engine state (current menu and start-up event, timers, port
// tables, line buffers, module states of the menus, lock flag, and the LCD
// and LED output of a page) is guarded by one engine lock, a recursive mutex:
//   * tav_menu_control() holds it for the whole work of a pass and releases
//     it only while the pass sleeps its 100 ms (50 ms in the update menu) and
//     the self-check's 500 ms. Pauses inside a handler (the 1-s switch
//     confirmation, the 3-s switch-all pause) keep it: a signal arriving then
//     is handled after that pass, as if between two passes.
//   * the listener takes it for each dispatch, so a handler's effects fall
//     between two passes and the redraw it requests happens on the next pass.
//   * tav_dev_destory() takes it for the engine's tear-down; it is recursive
//     because the reboot notice runs the shutdown from inside a dispatch.
// Frames are serialised separately, below this lock, by the port's transmit
// mutex, so a frame is never split or interleaved on the line.
// The signal handler takes no lock: it only clears the atomic run flags.
#pragma once

#include <cstdint>
#include <mutex>

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

// The engine lock described above.
std::recursive_mutex& tav_menu_engine_mutex(void);

// Time source of the controller and of the menus' pauses. The program uses
// the wall clock (tav_btool_get_runtime) and real sleeps; tests install
// their own to run the time-outs without waiting. Null restores the real one.
typedef uint32_t (*tav_menu_clock_fn)(void);
typedef void (*tav_menu_sleep_fn)(uint32_t ms);
void tav_menu_ctl_set_time_source(tav_menu_clock_fn now, tav_menu_sleep_fn sleep);
uint32_t tav_menu_now(void);
// A pause inside a handler: keeps the engine lock.
void tav_menu_sleep_ms(uint32_t ms);
