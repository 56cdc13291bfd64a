// PID files under /var/run and the start-up order between cooperating
// processes: each holds a whole-file write lock on its own PID file while it
// starts, and a dependant waits until it can take that lock.
#include "tav_pid_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <atomic>
#include <cstdint>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "tav_basetool.h"

#include "tav_common.h"
#include "tav_platform.h"

namespace {

// "/var/run/<name>.pid" (cut to 63 characters), then mapped for the platform.
void pidf_path(const char* procname, char* out, size_t outlen) {
    char name[64];
    snprintf(name, sizeof name, "%s%s.pid", "/var/run/", procname);
    tav_platform_path(name, out, outlen);
}

int pidf_setlock(int fd, short type, int nbflag) {
    struct flock fl;
    memset(&fl, 0, sizeof fl);
    fl.l_type = type;
    fl.l_whence = SEEK_SET;
    fl.l_start = 0;
    fl.l_len = 0;
    return fcntl(fd, nbflag ? F_SETLK : F_SETLKW, &fl);
}

std::atomic<int> m_stop_fd{-1};
std::atomic<bool (*)(void)> m_stopping{nullptr};
std::atomic<void (*)(void)> m_wait_hook{nullptr};

// The blocking lock of a dependency wait, on a thread of its own so that the
// caller can wait for it and for a stop together. It takes and releases the
// lock, closes the file and then its end of the pipe, which the caller sees
// as a hang-up. The two descriptors travel in the thread's argument.
void* lock_waiter(void* arg) {
    const uintptr_t fds = reinterpret_cast<uintptr_t>(arg);
    const int fd = static_cast<int>(fds >> 16);
    const int done = static_cast<int>(fds & 0xFFFFu);
    tav_pidf_lock(fd, 0);
    tav_pidf_unlock(fd, 0);
    close(fd);
    close(done);
    return nullptr;
}

// Waits until the lock on `fd` can be taken or a stop is asked for; closes
// `fd`. Returns 0, or -1 when stopped.
int wait_lock_or_stop(int fd) {
    const int stop_fd = m_stop_fd.load();
    bool (*const stopping)(void) = m_stopping.load();
    int done[2] = {-1, -1};
    pthread_t thread;
    if (stop_fd < 0 || stopping == nullptr || pipe2(done, O_CLOEXEC) != 0 || fd > 0x7FFF ||
        done[1] > 0xFFFF ||
        tav_btool_start_thread(&thread, lock_waiter, true,
                               reinterpret_cast<void*>(static_cast<uintptr_t>(fd) << 16 |
                                                       static_cast<uintptr_t>(done[1]))) != 0) {
        if (done[0] >= 0) {
            close(done[0]);
            close(done[1]);
        }
        if (void (*hook)(void) = m_wait_hook.load()) {
            hook();
        }
        tav_pidf_lock(fd, 0);
        tav_pidf_unlock(fd, 0);
        close(fd);
        return 0;
    }
    int result = -1;
    while (!stopping()) {
        if (void (*hook)(void) = m_wait_hook.load()) {
            hook();
        }
        pollfd p[2] = {{done[0], POLLIN, 0}, {stop_fd, POLLIN, 0}};
        if (poll(p, 2, -1) > 0 && p[0].revents != 0) {
            result = 0;
            break;
        }
        tav_btool_event_take(stop_fd);
    }
    // When stopped, the waiter goes on until the dependency lets go (or the
    // process ends) and then cleans up after itself.
    close(done[0]);
    return result;
}

} // namespace

void tav_pidf_set_stop(int stop_fd, bool (*stopping)(void)) {
    m_stop_fd.store(stop_fd);
    m_stopping.store(stopping);
}

void tav_pidf_set_wait_hook(void (*hook)(void)) {
    m_wait_hook.store(hook);
}

int tav_pidf_lock(int fd, int nbflag) {
    if (pidf_setlock(fd, F_WRLCK, nbflag) != 0) {
        tav_log(TAV_LOG_ERR, "func=[%s]lock err:%s", __func__, strerror(errno));
        return -1;
    }
    return 0;
}

int tav_pidf_unlock(int fd, int nbflag) {
    if (pidf_setlock(fd, F_UNLCK, nbflag) != 0) {
        tav_log(TAV_LOG_ERR, "func=[%s]lock err:%s", __func__, strerror(errno));
        return -1;
    }
    return 0;
}

int tav_pidf_get_lock(int fd, pid_t* pid) {
    struct flock fl;
    memset(&fl, 0, sizeof fl);
    fl.l_type = F_WRLCK;
    fl.l_whence = SEEK_SET;
    fl.l_start = 0;
    fl.l_len = 0;
    if (fcntl(fd, F_GETLK, &fl) != 0) {
        tav_log(TAV_LOG_ERR, "func=[%s]fcntl F_GETLK:%s", __func__, strerror(errno));
        return -1;
    }
    if (fl.l_type == F_UNLCK) {
        return 0;
    }
    if (pid != nullptr) {
        *pid = fl.l_pid;
    }
    return 1;
}

int tav_pidf_wait_depend(const char* dependproc) {
    if (dependproc == nullptr) {
        return -1;
    }
    char path[256];
    pidf_path(dependproc, path, sizeof path);
    int fd = open(path, O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        tav_log(TAV_LOG_ERR, "func=[%s]open depend %s,err:%s", __func__, path, strerror(errno));
        return -1;
    }
    pid_t holder = 0;
    int stat = tav_pidf_get_lock(fd, &holder);
    tav_log(TAV_LOG_NOTICE, "func=[%s]get lock stat %d,pid=%d", __func__, stat,
            static_cast<int>(holder));
    // Returns once the dependency has released its lock or ended, or when
    // a stop is asked for.
    return wait_lock_or_stop(fd);
}

int tav_pidf_open(const char* dependproc) {
    char path[256];
    pidf_path(program_invocation_short_name, path, sizeof path);
    int fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        tav_log(TAV_LOG_ERR, "func=[%s]open %s,err:%s", __func__, path, strerror(errno));
        return -1;
    }
    if (tav_pidf_lock(fd, 1) != 0) {
        pid_t holder = 0;
        tav_pidf_get_lock(fd, &holder);
        tav_log(TAV_LOG_NOTICE, "func=[%s]have lock by %d", __func__, static_cast<int>(holder));
        close(fd);
        return -1;
    }
    if (dependproc != nullptr && tav_pidf_wait_depend(dependproc) != 0 &&
        m_stopping.load() != nullptr && m_stopping.load()()) {
        // Stopped while waiting: the program ends and announces nothing.
        close(fd);
        return -1;
    }
    if (ftruncate(fd, 0) != 0) {
        tav_log(TAV_LOG_ERR, "func=[%s]ftruncate err:%s", __func__, strerror(errno));
        close(fd);
        return -1;
    }
    // The process id in binary, machine byte order.
    pid_t self = getpid();
    if (pwrite(fd, &self, sizeof self, 0) != static_cast<ssize_t>(sizeof self)) {
        close(fd);
        return -1;
    }
    return fd;
}

void tav_pidf_close(int fd) {
    tav_pidf_unlock(fd, 0);
    close(fd);
}
