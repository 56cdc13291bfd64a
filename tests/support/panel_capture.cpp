#include "panel_capture.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "tav_baseportcontrol.h"

namespace tavtest {

namespace {
// Bytes no frame of the program ends with.
const char kMarker[] = "\x01<tav-capture-end>\x02";
constexpr size_t kMarkerLen = sizeof kMarker - 1;
} // namespace

PanelCapture& PanelCapture::get() {
    static PanelCapture capture;
    return capture;
}

PanelCapture::PanelCapture() {
    char tmpl[] = "/tmp/tav_unit_XXXXXX";
    if (mkdtemp(tmpl) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    root_ = tmpl;
    for (const char* sub : {"/dev", "/nandflash/config", "/var/run", "/tmp"}) {
        std::filesystem::create_directories(root_ + sub);
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
    // The device tools of the stand-ins, recording below $TAV_ROOT/sim.
    const char* path = getenv("PATH");
    setenv("PATH", (std::string(TAV_TOOLS_DIR) + ":" + (path ? path : "/usr/bin:/bin")).c_str(), 1);
    reopen_port();
    // Opened after the port: the program's settings (raw, no echo) apply to it.
    marker_fd_ = open(slave, O_WRONLY | O_NOCTTY | O_CLOEXEC);
    if (!tav_port_is_open() || marker_fd_ < 0) {
        throw std::runtime_error("the capture's port did not open");
    }
}

PanelCapture::~PanelCapture() {
    close(marker_fd_);
    close(master_);
    std::error_code ec;
    std::filesystem::remove_all(root_, ec);
}

void PanelCapture::drain() {
    if (write(marker_fd_, kMarker, kMarkerLen) != static_cast<ssize_t>(kMarkerLen)) {
        throw std::runtime_error("marker write failed");
    }
    // Bytes behind the marker (another thread of the program wrote on) wait
    // for the next drain.
    std::string buf;
    buf.swap(pending_);
    size_t at;
    while ((at = buf.find(kMarker, 0, kMarkerLen)) == std::string::npos) {
        pollfd p{master_, POLLIN, 0};
        char chunk[4096];
        if (poll(&p, 1, 5000) != 1) {
            throw std::runtime_error("the capture's marker never arrived");
        }
        const ssize_t n = read(master_, chunk, sizeof chunk);
        if (n <= 0) {
            throw std::runtime_error("capture read failed");
        }
        buf.append(chunk, static_cast<size_t>(n));
    }
    pending_ = buf.substr(at + kMarkerLen);
    model_.feed(reinterpret_cast<const uint8_t*>(buf.data()), at);
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

std::vector<std::string> PanelCapture::take_hex() {
    std::vector<std::string> out;
    for (const auto& f : frames()) {
        out.push_back(tavpanel::hex(f.bytes));
    }
    model_.clear_frames();
    return out;
}

void reopen_port() {
    if (!tav_port_is_open()) {
        int8_t param[128] = {};
        memcpy(param, "19200;N;8;1;", 12);
        tav_inituart(param, 4);
    }
}

} // namespace tavtest
