#include "tav_platform.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

// Defined only by the unit tests: it gives a target-build test binary the
// host behaviour (TAV_ROOT, TAV_SYSLOG_FILE), so the tests run unchanged
// under emulation. The program never defines it.
extern "C" int tav_platform_test_hooks(void) __attribute__((weak));

namespace {

bool host_behaviour() {
#ifdef TAV_HOST_BUILD
    return true;
#else
    return tav_platform_test_hooks != nullptr;
#endif
}

} // namespace

char* tav_platform_path(const char* abs_path, char* out, size_t outlen) {
    if (out == nullptr || outlen == 0) {
        return out;
    }
    const char* root = host_behaviour() ? getenv("TAV_ROOT") : nullptr;
    if (root != nullptr && root[0] != '\0') {
        snprintf(out, outlen, "%s%s", root, abs_path);
    } else {
        snprintf(out, outlen, "%s", abs_path);
    }
    return out;
}

void tav_log(int priority, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    va_list copy;
    va_copy(copy, ap);
    vsyslog(priority, fmt, ap);
    va_end(ap);
    const char* file = host_behaviour() ? getenv("TAV_SYSLOG_FILE") : nullptr;
    if (file != nullptr && file[0] != '\0') {
        char line[1024];
        int head = snprintf(line, sizeof line, "%d\t", priority);
        int body = vsnprintf(line + head, sizeof line - static_cast<size_t>(head) - 1, fmt, copy);
        size_t len = static_cast<size_t>(head) + static_cast<size_t>(body < 0 ? 0 : body);
        if (len > sizeof line - 2) {
            len = sizeof line - 2;
        }
        while (len > static_cast<size_t>(head) &&
               (line[len - 1] == '\r' || line[len - 1] == '\n')) {
            --len;
        }
        line[len++] = '\n';
        // One append per message, so lines from different threads never mix.
        int fd = open(file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        if (fd >= 0) {
            ssize_t ignored = write(fd, line, len);
            (void)ignored;
            close(fd);
        }
    }
    va_end(copy);
}
