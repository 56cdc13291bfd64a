// The menu tests' fixture: a fresh engine on a fake clock, the fake matrix
// library with a device described by its port lists, keys fed to the current
// menu's handler as the controller does, the panel picture from the capture,
// the log mirror and the real device tools (recording below $TAV_ROOT/sim).
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "fake_matrix.h"
#include "panel_capture.h"
#include "tav_key_var.h"
#include "tav_menu_analize_press.h"
#include "tav_menu_audio.h"
#include "tav_menu_card_plug.h"
#include "tav_menu_control.h"
#include "tav_menu_edid.h"
#include "tav_menu_eth.h"
#include "tav_menu_reset.h"
#include "tav_menu_strcfg.h"
#include "tav_menu_update.h"
#include "tav_menu_var.h"
#include "tav_menu_video.h"

namespace mtest {

// Lines of a text file, or of the log mirror.
inline std::vector<std::string> file_lines(const std::string& path) {
    std::vector<std::string> out;
    std::ifstream in(path);
    for (std::string l; std::getline(in, l);) {
        out.push_back(l);
    }
    return out;
}
inline std::string root() {
    return tavtest::PanelCapture::get().root();
}
// Points TAV_SYSLOG_FILE at a fresh file below the capture's root.
inline std::string fresh_log() {
    const std::string p = root() + "/syslog.txt";
    std::remove(p.c_str());
    setenv("TAV_SYSLOG_FILE", p.c_str(), 1);
    return p;
}
inline std::vector<std::string> log_lines() {
    return file_lines(root() + "/syslog.txt");
}

// A child process that holds a whole-file write lock on `path` until it is
// killed (at the latest after a minute).
class LockHolder {
  public:
    explicit LockHolder(const std::string& path) {
        int ready[2];
        if (pipe(ready) != 0)
            return;
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const int fd = open(path.c_str(), O_RDWR | O_CREAT, 0644);
            struct flock fl {};
            fl.l_type = F_WRLCK;
            const char ok = fd >= 0 && fcntl(fd, F_SETLK, &fl) == 0;
            if (write(ready[1], &ok, 1) == 1)
                sleep(60);
            _exit(0);
        }
        close(ready[1]);
        char ok = 0;
        locked_ = read(ready[0], &ok, 1) == 1 && ok == 1;
        close(ready[0]);
    }
    ~LockHolder() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    pid_t pid() const { return pid_; }
    bool locked() const { return locked_; }
    bool still_holding() const { return waitpid(pid_, nullptr, WNOHANG) == 0; }

  private:
    pid_t pid_ = -1;
    bool locked_ = false;
};

// Polls `done` every 5 ms until it holds, for at most `ms`; whether it held.
template <class F> bool wait_until(F done, int ms = 3000) {
    for (int i = 0; i < ms / 5 && !done(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return done();
}

// A row of the text table; the same with `patch` written at `col`.
inline std::string row(int r, int col = 0, const std::string& patch = "") {
    std::string s(reinterpret_cast<const char*>(MENU_ITEM_STR[r]), 40);
    return s.replace(static_cast<size_t>(col), patch.size(), patch);
}
inline void set_row(int r, std::string text) {
    text.resize(40, ' ');
    memcpy(MENU_ITEM_STR[r], text.data(), 40);
}
inline std::vector<int> range(int first, int last) {
    std::vector<int> v(static_cast<size_t>(std::max(0, last - first + 1)));
    std::iota(v.begin(), v.end(), first);
    return v;
}

// The key record for a key: digits '0'-'9'; L(eft), R(ight), B(reak),
// D(efault), T(ake), M(enu), K (lock).
inline void set_button(char k) {
    static const struct {
        char c;
        uint16_t press;
        uint8_t KB_BUTTON::*field;
    } other[] = {{'L', TAV_PRESS_LEFT, &KB_BUTTON::left}, {'R', TAV_PRESS_RIGHT, &KB_BUTTON::right},
                 {'B', TAV_PRESS_BREAK, &KB_BUTTON::brk}, {'D', TAV_PRESS_DEFAULT, &KB_BUTTON::dft},
                 {'T', TAV_PRESS_TAKE, &KB_BUTTON::take}, {'M', TAV_PRESS_MENU, &KB_BUTTON::menu},
                 {'K', TAV_PRESS_LOCK, &KB_BUTTON::lock}};
    memset(&g_tav_button, 0, sizeof(g_tav_button));
    g_tav_button.number = 0xFF;
    if (k >= '0' && k <= '9') {
        g_tav_button.number = static_cast<uint8_t>(k - '0');
        g_tav_button.press = TAV_PRESS_DIGIT;
        return;
    }
    for (const auto& o : other) {
        if (o.c == k) {
            g_tav_button.press = o.press;
            g_tav_button.*o.field = 1;
        }
    }
}

// A pause of the engine and what the panel showed during it.
struct Pause {
    uint32_t ms;
    std::string top, bottom;
    bool operator==(const Pause&) const = default;
    friend void PrintTo(const Pause& p, std::ostream* os) {
        *os << p.ms << " ms |" << p.top << "|" << p.bottom << "|";
    }
};
inline std::vector<Pause> g_pauses;
inline uint32_t g_fake_now = 0;
inline uint32_t fake_clock() {
    return g_fake_now;
}
inline void fake_sleep(uint32_t ms) {
    g_fake_now += ms;
    const auto& st = tavtest::PanelCapture::get().state();
    g_pauses.push_back({ms, st.lcd[0], st.lcd[1]});
}

struct Ports {
    std::vector<int> in, out;
};

class MenuTest : public ::testing::Test {
  protected:
    void SetUp() override {
        tavtest::PanelCapture::get();
        tavtest::reopen_port();
        fresh_log();
        for (const char* f : {"tav_ifcfg.log", "tav_version.log", "tav_echo_cpedid.log",
                              "tav_echo_clean_edid.log", "quoral_version", "ifcfg.conf"}) {
            std::remove((root() + "/sim/" + f).c_str());
        }
        std::filesystem::create_directories(root() + "/sim");
        std::filesystem::remove_all(root() + "/nandflash/config/.tav_lock_fp");
        std::lock_guard<std::mutex> lk(tav_menu_engine_mutex());
        tav_menu_ctl_set_time_source(fake_clock, fake_sleep);
        tav_menu_ctl_set_tick_handlers(nullptr);
        fakematrix::reset();
        tav_key_var_init();
        tav_menu_init();
        tav_menu_card_plug_init();
        tav_menu_updating_init();
        tav_menu_edid_init();
        tav_menu_reset_init();
        tav_eth_init();
        pmatrixDllHandle = tav_matrix_open(TAV_MATRIX_OPEN_VERSION);
        device({range(1, 4), range(5, 8)}, {range(1, 4), range(5, 8)});
        g_tav_lock = false;
        g_tav_lcd = true;
        fakematrix::state().calls.clear();
        g_pauses.clear();
        tavtest::PanelCapture::get().clear();
    }
    void TearDown() override {
        std::lock_guard<std::mutex> lk(tav_menu_engine_mutex());
        tav_menu_strcfg_defaults();
        tav_menu_ctl_set_time_source(nullptr, nullptr);
        unsetenv("TAV_SYSLOG_FILE");
    }

    // The ports of each kind in the fake library and the engine's tables,
    // then the switching modules' start state on the home page.
    void device(const Ports& video, const Ports& audio) {
        auto& ports = fakematrix::state().port;
        ports = {};
        int top = 1;
        for (bool v : {true, false}) {
            const Ports& p = v ? video : audio;
            for (bool in : {true, false}) {
                for (int n : in ? p.in : p.out) {
                    (v ? ports[n].vdir : ports[n].adir) = in ? em_matrix_in : em_matrix_out;
                    top = std::max(top, n);
                }
            }
        }
        TAV_DEF_MAX_PORT = top;
        fakematrix::state().device_type = top;
        load_main_set_up();
        load_main_aud_set_up();
        tav_video_init();
        tav_audio_init();
        fakematrix::state().table_trace.clear();
        g_tav_menu = menu_vid_display;
        g_tav_menu_event = EVENT_NOMAL;
    }

    // Keys through the current menu's handler; the switching menus are
    // redrawn after each, as the controller does.
    void keys(const char* seq) {
        for (const char* k = seq; *k != '\0'; ++k) {
            set_button(*k);
            tav_nomal_work();
            const TAV_ENUM_MENUSTATUS m = g_tav_menu;
            if ((m >= menu_vid_display && m <= menu_aud_switch) || m == menu_switch_vid_all ||
                m == menu_switch_aud_all)
                draw();
        }
    }
    static void draw() { tav_nomal_display(); }
    static const tavpanel::PanelState& panel() { return tavtest::PanelCapture::get().state(); }
    static std::string lcd(int line) { return panel().lcd[line]; }
    static std::vector<std::string> calls() { return fakematrix::state().calls; }
    static bool redraw_requested() { return g_tav_menu_event == EVENT_UPDATE; }
    static void set_card(int slot, int32_t status) { fakematrix::set_card(slot, status); }
    static std::vector<std::string> trace() {
        std::lock_guard<std::mutex> g(fakematrix::mutex());
        return fakematrix::state().table_trace;
    }
    // The calls a device tool recorded, one line each.
    static std::vector<std::string> tool_calls(const char* tool) {
        return file_lines(root() + "/sim/" + tool + ".log");
    }
};

} // namespace mtest
