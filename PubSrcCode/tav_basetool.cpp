// Millisecond time stamps and the shell command runner.
#include "tav_basetool.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tav_common.h"
#include "tav_platform.h"

extern char** environ;

namespace {

int ms_left(uint64_t deadline) {
    const uint64_t now = tav_btool_mono_ms();
    return now >= deadline ? 0 : static_cast<int>(deadline - now);
}

// Starts "sh -c cmd" in a process group of its own, with standard output on
// `out_fd` when that is not -1. Nothing of the program but 0, 1 and 2 reaches
// it: every descriptor the program opens is close-on-exec, and where the C
// library can, everything above 2 is closed in the child as well.
pid_t spawn_shell(const char* cmd, int out_fd) {
    posix_spawn_file_actions_t fa;
    posix_spawnattr_t attr;
    posix_spawn_file_actions_init(&fa);
    posix_spawnattr_init(&attr);
    if (out_fd >= 0) {
        posix_spawn_file_actions_adddup2(&fa, out_fd, STDOUT_FILENO);
    }
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 34))
    posix_spawn_file_actions_addclosefrom_np(&fa, STDERR_FILENO + 1);
#endif
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attr, &none);
    posix_spawnattr_setpgroup(&attr, 0);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK);
    char arg0[] = "sh";
    char arg1[] = "-c";
    char* argv[] = {arg0, arg1, const_cast<char*>(cmd), nullptr};
    pid_t pid = -1;
    if (posix_spawn(&pid, "/bin/sh", &fa, &attr, argv, environ) != 0) {
        pid = -1;
    }
    posix_spawnattr_destroy(&attr);
    posix_spawn_file_actions_destroy(&fa);
    return pid;
}

// Killed tools that had not ended when their run gave up on them; reaped
// without waiting by later runs. A full table forgets the oldest (the kernel
// still holds it as a zombie, harmless).
constexpr size_t kUnreapedMax = 8;
pid_t m_unreaped[kUnreapedMax];
size_t m_unreaped_next;
// How long a killed tool is waited for before it is left behind: a tool stuck
// in uninterruptible I/O must not hold the caller.
constexpr int kReapAfterKillMs = 100;

void reap_left_behind(void) {
    for (pid_t& pid : m_unreaped) {
        if (pid > 0 && waitpid(pid, nullptr, WNOHANG) != 0) {
            pid = 0;
        }
    }
}

void leave_behind(pid_t pid) {
    m_unreaped[m_unreaped_next] = pid;
    m_unreaped_next = (m_unreaped_next + 1) % kUnreapedMax;
}

// Waits for the child until the deadline; on time-out kills its whole
// process group and collects it, if it ends within a short grace, else it is
// left behind. Returns the wait status, or -1 on time-out.
int wait_child(pid_t pid, uint64_t deadline) {
    int status = 0;
    for (;;) {
        const pid_t r = waitpid(pid, &status, WNOHANG);
        if (r == pid) {
            return status;
        }
        if (r < 0 && errno != EINTR) {
            return -1;
        }
        if (ms_left(deadline) == 0) {
            break;
        }
        // No descriptor tells when a child ends without a SIGCHLD handler:
        // look again every 10 ms while a tool runs.
        struct timespec ts = {0, 10 * 1000000L};
        nanosleep(&ts, nullptr);
    }
    kill(-pid, SIGKILL);
    const uint64_t grace = tav_btool_mono_ms() + kReapAfterKillMs;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (ms_left(grace) == 0) {
            leave_behind(pid);
            break;
        }
        struct timespec ts = {0, 5 * 1000000L};
        nanosleep(&ts, nullptr);
    }
    return -1;
}

// SIGCHLD at its default while a tool runs, so that its status can be
// collected whatever the process set up.
struct ChildSignalDefault {
    ChildSignalDefault() {
        struct sigaction dfl;
        memset(&dfl, 0, sizeof dfl);
        dfl.sa_handler = SIG_DFL;
        sigemptyset(&dfl.sa_mask);
        sigaction(SIGCHLD, &dfl, &old);
    }
    ~ChildSignalDefault() { sigaction(SIGCHLD, &old, nullptr); }
    struct sigaction old;
};

void log_timeout(const char* func, const char* cmd, uint32_t timeout_ms) {
    tav_log(TAV_LOG_WARNING, "func=[%s]%s timed out after %u ms", func, cmd,
            static_cast<unsigned>(timeout_ms));
}

} // namespace

uint64_t tav_btool_mono_ms(void) {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
}

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
    if (shcmd == nullptr) {
        return -1;
    }
    ChildSignalDefault chld;
    reap_left_behind();
    const pid_t pid = spawn_shell(shcmd, -1);
    int status = -1;
    if (pid > 0) {
        status = wait_child(pid, tav_btool_mono_ms() + TAV_BTOOL_TIMEOUT_MS);
        if (status == -1) {
            log_timeout(__func__, shcmd, TAV_BTOOL_TIMEOUT_MS);
            return -1;
        }
    }
    if (status != 0) {
        int err = errno;
        tav_log(TAV_LOG_ERR, "func=[%s]system %s error(%d):%s", __func__, shcmd, err,
                strerror(err));
    }
    return status;
}

int tav_btool_run(const char* shcmd, char* buf, int len, uint32_t timeout_ms) {
    if (shcmd == nullptr || buf == nullptr || len < 2) {
        return -1;
    }
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        return -1;
    }
    ChildSignalDefault chld;
    reap_left_behind();
    const uint64_t deadline = tav_btool_mono_ms() + timeout_ms;
    const pid_t pid = spawn_shell(shcmd, fds[1]);
    close(fds[1]);
    if (pid < 0) {
        close(fds[0]);
        return -1;
    }
    // The first line, up to len - 1 bytes (at most 255); the rest of the
    // output is read and dropped so that the tool never blocks on a full pipe.
    char line[256];
    const int room = len - 1 < static_cast<int>(sizeof line) - 1 ? len - 1 : sizeof line - 1;
    int used = 0;
    bool line_done = false;
    bool timed_out = false;
    int status = -1;
    bool ended = false;
    for (;;) {
        // Once the line is complete, look every 10 ms whether the tool has
        // ended: a background child may keep its output open long after.
        const int left = ms_left(deadline);
        const int slice = line_done && left > 10 ? 10 : left;
        pollfd p = {fds[0], POLLIN, 0};
        const int r = poll(&p, 1, slice);
        if (r < 0 && errno == EINTR) {
            continue;
        }
        if (r == 0 && line_done && waitpid(pid, &status, WNOHANG) == pid) {
            ended = true;
            break;
        }
        if (r == 0 && slice < left) {
            continue;
        }
        if (r <= 0) {
            timed_out = true;
            break;
        }
        char chunk[128];
        const ssize_t n = read(fds[0], chunk, sizeof chunk);
        if (n <= 0) {
            break;
        }
        for (ssize_t i = 0; i < n && !line_done && used < room; ++i) {
            line[used++] = chunk[i];
            line_done = chunk[i] == '\n';
        }
    }
    close(fds[0]);
    if (timed_out) {
        kill(-pid, SIGKILL);
    }
    if ((!ended && wait_child(pid, deadline) == -1) || timed_out) {
        log_timeout(__func__, shcmd, timeout_ms);
        if (!line_done) {
            return -1;
        }
    }
    if (used == 0) {
        return -1;
    }
    memcpy(buf, line, static_cast<size_t>(used));
    buf[used] = '\0';
    return 0;
}

size_t tav_btool_thread_stack_bytes(void) {
    size_t bytes = TAV_THREAD_STACK_BYTES;
    const long least = sysconf(_SC_THREAD_STACK_MIN);
    if (least > 0 && static_cast<size_t>(least) > bytes) {
        bytes = static_cast<size_t>(least);
    }
    const long page = sysconf(_SC_PAGESIZE);
    if (page > 0) {
        const size_t p = static_cast<size_t>(page);
        bytes = (bytes + p - 1) / p * p;
    }
    return bytes;
}

int tav_btool_start_thread(pthread_t* id, void* (*body)(void*), bool detached, void* arg) {
    sigset_t stop;
    sigset_t old;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, &old);
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    const int stack_err = pthread_attr_setstacksize(&attr, tav_btool_thread_stack_bytes());
    if (stack_err != 0) {
        tav_log(TAV_LOG_WARNING, "func=[%s]stack size %lu: %s", __func__,
                static_cast<unsigned long>(tav_btool_thread_stack_bytes()), strerror(stack_err));
    }
    if (detached) {
        pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    }
    const int err = pthread_create(id, &attr, body, arg);
    pthread_attr_destroy(&attr);
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    return err;
}

int tav_btool_event_new(void) {
    return eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

void tav_btool_event_post(int fd) {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t n = write(fd, &one, sizeof one);
}

bool tav_btool_event_take(int fd) {
    uint64_t count = 0;
    return read(fd, &count, sizeof count) == static_cast<ssize_t>(sizeof count);
}

bool tav_btool_event_wait(int fd, int timeout_ms) {
    pollfd p = {fd, POLLIN, 0};
    return poll(&p, 1, timeout_ms) > 0 && tav_btool_event_take(fd);
}
