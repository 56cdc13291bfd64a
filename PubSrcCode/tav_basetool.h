// Millisecond time stamps and the shell command runner.
#pragma once

#include <cstdint>
#include <sys/time.h>

// Wall-clock milliseconds, unsigned 32-bit: compare stamps by unsigned difference.
uint32_t tav_btool_get_runtime(void);
// The stamp of a wall-clock reading (seconds * 1000 + microseconds / 1000,
// modulo 2^32).
uint32_t tav_btool_stamp_of(const struct timeval* tv);
// system(3) with SIGCHLD at its default for the duration; logs a non-zero status.
int tav_btool_system(const char* shcmd);
