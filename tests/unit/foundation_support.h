// Helpers for the tests of the process frame and the panel link: the log
// mirror file, and raw access to the panel side of the capture's pty.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <csignal>
#include <sys/wait.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "panel_capture.h"
#include "tav_baseportcontrol.h"

namespace fndtest {

// Points TAV_SYSLOG_FILE at a fresh file for the life of the object.
class LogFile {
  public:
    LogFile() {
        char tmpl[] = "/tmp/tav_fnd_log_XXXXXX";
        int fd = mkstemp(tmpl);
        if (fd >= 0) {
            close(fd);
        }
        path_ = tmpl;
        setenv("TAV_SYSLOG_FILE", path_.c_str(), 1);
    }
    ~LogFile() {
        unsetenv("TAV_SYSLOG_FILE");
        unlink(path_.c_str());
    }
    std::vector<std::string> lines() const {
        std::vector<std::string> out;
        std::ifstream in(path_);
        for (std::string l; std::getline(in, l);) {
            out.push_back(l);
        }
        return out;
    }

  private:
    std::string path_;
};

// Opens the program's panel port on the capture's pty if it is not open.
inline void ensure_port_open() {
    tavtest::PanelCapture::get();
    if (!tav_port_is_open()) {
        int8_t param[128] = {};
        memcpy(param, "19200;N;8;1;", 12);
        tav_inituart(param, 4);
    }
}

// Everything the program has written to the panel so far, as hex
// ("EB 5F ..."), read raw from the pty master.
inline std::string take_hex(int quiet_ms = 30) {
    int master = tavtest::PanelCapture::get().master_fd();
    std::string out;
    unsigned char buf[512];
    for (;;) {
        pollfd p{master, POLLIN, 0};
        if (poll(&p, 1, quiet_ms) <= 0 || (p.revents & POLLIN) == 0) {
            break;
        }
        ssize_t n = read(master, buf, sizeof buf);
        if (n <= 0) {
            break;
        }
        for (ssize_t i = 0; i < n; ++i) {
            char h[4];
            snprintf(h, sizeof h, out.empty() ? "%02X" : " %02X", buf[i]);
            out += h;
        }
    }
    return out;
}

// Writes bytes as the panel would.
inline void panel_send(const std::vector<uint8_t>& bytes) {
    int master = tavtest::PanelCapture::get().master_fd();
    ssize_t n = write(master, bytes.data(), bytes.size());
    (void)n;
}

// A child process that holds a whole-file write lock on `path` for `hold_ms`
// (or until killed) and then ends.
class LockHolder {
  public:
    LockHolder(const std::string& path, int hold_ms) {
        int ready[2];
        if (pipe(ready) != 0) {
            return;
        }
        pid_ = fork();
        if (pid_ == 0) {
            int fd = open(path.c_str(), O_RDWR | O_CREAT, 0644);
            struct flock fl {};
            fl.l_type = F_WRLCK;
            fl.l_whence = SEEK_SET;
            char ok = (fd >= 0 && fcntl(fd, F_SETLK, &fl) == 0) ? 1 : 0;
            ssize_t n = write(ready[1], &ok, 1);
            (void)n;
            usleep(static_cast<useconds_t>(hold_ms) * 1000);
            _exit(0);
        }
        close(ready[1]);
        char ok = 0;
        ssize_t n = read(ready[0], &ok, 1);
        locked_ = (n == 1 && ok == 1);
        close(ready[0]);
    }
    ~LockHolder() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    LockHolder(const LockHolder&) = delete;
    LockHolder& operator=(const LockHolder&) = delete;
    pid_t pid() const { return pid_; }
    bool locked() const { return locked_; }

  private:
    pid_t pid_ = -1;
    bool locked_ = false;
};

} // namespace fndtest
