// Millisecond time stamps and the shell command runner.
#include "tav_basetool.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "tav_common.h"
#include "tav_platform.h"

uint32_t tav_btool_stamp_of(const struct timeval* tv) {
    return static_cast<uint32_t>(tv->tv_sec) * 1000u + static_cast<uint32_t>(tv->tv_usec / 1000);
}

uint32_t tav_btool_get_runtime(void) {
    struct timeval tv;
    if (gettimeofday(&tv, nullptr) != 0) {
        return 0;
    }
    return tav_btool_stamp_of(&tv);
}

int tav_btool_system(const char* shcmd) {
    // system() must be able to collect its child whatever the process set up.
    struct sigaction dfl;
    struct sigaction old;
    memset(&dfl, 0, sizeof dfl);
    dfl.sa_handler = SIG_DFL;
    sigemptyset(&dfl.sa_mask);
    sigaction(SIGCHLD, &dfl, &old);
    int status = system(shcmd);
    if (status != 0) {
        int err = errno;
        tav_log(TAV_LOG_ERR, "func=[%s]system %s error(%d):%s", __func__,
                shcmd != nullptr ? shcmd : "", err, strerror(err));
    }
    sigaction(SIGCHLD, &old, nullptr);
    return status;
}
