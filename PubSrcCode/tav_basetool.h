// Millisecond time stamps and the shell command runner.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <sys/time.h>

// How long a device tool may take before it is killed and counted as one
// that printed nothing.
#define TAV_BTOOL_TIMEOUT_MS 3000u

// Wall-clock milliseconds, unsigned 32-bit: compare stamps by unsigned difference.
uint32_t tav_btool_get_runtime(void);
// Milliseconds of the monotonic clock, for waits and bounds that must not
// move with the wall clock.
uint64_t tav_btool_mono_ms(void);
// The stamp of a wall-clock reading (seconds * 1000 + microseconds / 1000,
// modulo 2^32).
uint32_t tav_btool_stamp_of(const struct timeval* tv);
// Runs the command through the shell and waits for it, at most
// TAV_BTOOL_TIMEOUT_MS (then it is killed, the time-out logged and -1
// returned); logs a non-zero status. A killed tool that cannot be reaped
// at once is left behind and reaped by a later run. Returns the wait status, -1 if no shell
// could be started.
int tav_btool_system(const char* shcmd);
// Runs the command through the shell and stores the first line of its output
// (with its newline, at most len - 1 bytes, terminated) in buf. The tool must
// end within timeout_ms, else it is killed, the time-out logged and the
// result is as for a tool that printed nothing, unless its whole first line
// was read before (a background child holding its output): that line is
// kept. Returns 0 when a line was read, -1 otherwise (buf then untouched).
int tav_btool_run(const char* shcmd, char* buf, int len, uint32_t timeout_ms);

// Starts one of the program's own worker threads: a small stack
// (tav_btool_thread_stack_bytes()), SIGINT and SIGTERM blocked so that they
// reach the main thread and end what it waits on, detached or joinable.
// Returns the result of pthread_create.
int tav_btool_start_thread(pthread_t* id, void* (*body)(void*), bool detached,
                           void* arg = nullptr);
// The stack size the worker threads are given: TAV_THREAD_STACK_BYTES, but
// never below the platform's least (128 KiB on PowerPC), in whole pages.
size_t tav_btool_thread_stack_bytes(void);

// Wake-up counters between the program's threads (eventfd, close-on-exec,
// non-blocking; -1 if none could be made, and then every call below does
// nothing and a wait just times out). A post is never lost: a counter that
// cannot take it already has one pending.
int tav_btool_event_new(void);
void tav_btool_event_post(int fd);
// Takes what was posted; true if anything was.
bool tav_btool_event_take(int fd);
// Waits up to timeout_ms (-1: no limit) for a post and takes it; true if one
// came.
bool tav_btool_event_wait(int fd, int timeout_ms);
