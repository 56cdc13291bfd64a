// The only place where the host build differs from the target build.
//
// Target build: fixed paths are used as they are and messages go to syslog(3).
// Host build (TAV_HOST_BUILD): every fixed absolute path is taken below the
// directory named by TAV_ROOT (when set), and with TAV_SYSLOG_FILE set each
// message is also appended to that file as "<priority>\t<message>" with the
// message's trailing CR and LF characters removed.
#pragma once

#include <cstddef>

// Writes the path to use for the fixed absolute path `abs_path` into `out`
// (at most `outlen` bytes, always terminated) and returns `out`.
char* tav_platform_path(const char* abs_path, char* out, size_t outlen);

// syslog(3) with the default identity, plus the host mirror file.
void tav_log(int priority, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
