// Millisecond time stamps and the shell command runner.
#pragma once

#include <cstdint>

// Wall-clock milliseconds, unsigned 32-bit: compare stamps by unsigned difference.
uint32_t tav_btool_get_runtime(void);
// system(3) with SIGCHLD at its default for the duration; logs a non-zero status.
int tav_btool_system(const char* shcmd);
