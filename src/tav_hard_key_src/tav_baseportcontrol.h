// Panel port open/close, event words, getters and the receive thread.
//
// Frames to the panel come from the main thread, the inner-signal thread and
// (the error reply) the receive thread. Every frame is written whole with one
// write while holding tav_port_tx_mutex(), so frames never interleave on the
// line; fixed-size frames are built in the shared `buffer` under that mutex,
// text and cursor frames in buffers of their own. The event bits are atomic
// read-modify-writes; the receive thread stores the version before it raises
// its bit (release), readers test the bit with acquire.
//
// Key reports are queued in arrival order (TAV_KEY_QUEUE_LEN, no lock): the
// receive thread appends, the main thread takes them one at a time. The
// event-bit and key-value accessors are the face of the queue: TAV_EVENT_KEY
// reads as set while a report waits, tav_getkey_val() is the oldest waiting
// report, and clearing TAV_EVENT_KEY takes that report, which
// tav_getkey_val() then keeps returning until the event word is read again.
// A full queue drops the report that arrives (see tav_menu_control.h).
#pragma once

#include <cstdint>
#include <mutex>

#include "tav_hardboard_var.h"

int32_t tav_inituart(int8_t* uartbuf, uint8_t port_id);
// Closes the port once: pending output is first given time to reach the
// panel, then input and output are discarded and the descriptor closed.
void tav_uartclose(void);
void set_uart_runflag(void);
// Clears the receive thread's run flag and wakes it: it ends at once.
void clear_uart_runflag(void);
// Wakes the receive thread to look at its run flag and the port again
// (async-signal-safe).
void tav_uart_wake(void);

void tav_sethardkey_event(int event);
int32_t tav_gethardkey_event(void);
void tav_clear_keyevent(int event);
void tav_sethardsend_event(int event);
int32_t tav_gethardsend_event(void);
void tav_clear_sendevent(int event);

TAV_KEY_ENUM tav_getkey_val(void);
// Appends a decoded key report (the receive thread).
void tav_key_push(TAV_KEY_ENUM keyval);
// Key reports the queue holds.
constexpr uint32_t TAV_KEY_QUEUE_LEN = 64;
// Drops every waiting report but the newest (the main thread, when keys are
// taken again after a time in which they were not).
void tav_key_keep_last(void);
// Drops every waiting report (the link reset).
void tav_key_queue_reset(void);
// Reports dropped because the queue was full.
uint32_t tav_key_dropped(void);
// Becomes readable when a key report or an event bit arrives (for poll);
// emptied with tav_btool_event_take.
int tav_hardkey_event_fd(void);
// The whole version of one answer; the three getters below read one field.
TAV_HARD_KEY_VER tav_get_hardkey_ver(void);
uint8_t tav_get_hardkey_main_ver(void);
uint8_t tav_get_hardkey_minor_ver(void);
uint8_t tav_get_hardkey_build_ver(void);

void* tav_uart_pthread(void* param);
// The receive thread's start: it has switched the port to blocking reads and
// discarded the input pending before it. The program waits for this before
// its first handshake, so that the panel's answer is never discarded with it.
void tav_uart_started_clear(void);
bool tav_uart_wait_started(uint32_t timeout_ms);

// Serialises frames on the line.
std::mutex& tav_port_tx_mutex(void);
// True between a successful tav_inituart and tav_uartclose (also while the
// receive thread is reopening a port that went away).
bool tav_port_is_open(void);
// True once after the receive thread has reopened the port: the panel may
// have lost its picture, so the current page is to be drawn again.
bool tav_port_take_reopened(void);
// The pause before the next attempt to reopen a port that went away, after a
// pause of `previous_ms` (0 for the first): 10 ms, then doubling up to 640 ms.
int tav_port_reopen_pause_ms(int previous_ms);
// Writes one whole frame with a single write; the caller holds
// tav_port_tx_mutex(). Returns the write's result, -1 when the port is closed.
int tav_port_write_locked(const void* frame, int len);
