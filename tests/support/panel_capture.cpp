#include "panel_capture.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

#include "tav_baseportcontrol.h"

namespace tavtest {

PanelCapture& PanelCapture::get() {
    static PanelCapture capture;
    return capture;
}

PanelCapture::PanelCapture() {
    char tmpl[] = "/tmp/tav_unit_XXXXXX";
    char* dir = mkdtemp(tmpl);
    if (dir == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    root_ = dir;
    for (const char* sub :
         {"/dev", "/nandflash", "/nandflash/config", "/var", "/var/run", "/tmp"}) {
        mkdir((root_ + sub).c_str(), 0755);
    }
    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0) {
        throw std::runtime_error("posix_openpt failed");
    }
    const char* slave = ptsname(master_);
    if (slave == nullptr || symlink(slave, (root_ + "/dev/ttyPSC3").c_str()) != 0) {
        throw std::runtime_error("pty link failed");
    }
    setenv("TAV_ROOT", root_.c_str(), 1);
    int8_t param[128] = {};
    memcpy(param, "19200;N;8;1;", 12);
    if (tav_inituart(param, 4) != 0) {
        throw std::runtime_error("tav_inituart failed on the capture pty");
    }
}

void PanelCapture::drain() {
    uint8_t buf[4096];
    for (;;) {
        pollfd p{master_, POLLIN, 0};
        if (poll(&p, 1, 20) <= 0 || (p.revents & POLLIN) == 0) {
            return;
        }
        ssize_t n = read(master_, buf, sizeof buf);
        if (n <= 0) {
            return;
        }
        model_.feed(buf, static_cast<size_t>(n));
    }
}

const tavpanel::PanelState& PanelCapture::state() {
    drain();
    return model_.state();
}

std::vector<tavpanel::Frame> PanelCapture::frames() {
    drain();
    return model_.frames();
}

void PanelCapture::clear() {
    drain();
    model_.clear_frames();
}

std::vector<std::string> hex_frames(const std::vector<tavpanel::Frame>& frames) {
    std::vector<std::string> out;
    for (const auto& f : frames) {
        out.push_back(tavpanel::hex(f.bytes));
    }
    return out;
}

} // namespace tavtest
