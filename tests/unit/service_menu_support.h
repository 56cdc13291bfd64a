// Support for the tests of the service menus (EDID, network, reset, version):
// fake device tools on PATH that record their calls, a fake clock and sleep,
// and key presses written straight into the key record.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "fake_matrix.h"
#include "panel_capture.h"
#include "tav_menu_analize_press.h"
#include "tav_menu_control.h"
#include "tav_menu_var.h"

namespace svc {

// A temporary directory put first on PATH, holding shell scripts named like
// the device tools. Each records "name args" in calls.log; tav_ifcfg and
// tav_version print the content of a file the test writes.
class FakeTools {
  public:
    static FakeTools& get() {
        static FakeTools tools;
        return tools;
    }
    const std::string& dir() const { return dir_; }

    // Forgets the recorded calls and the prepared outputs.
    void reset() {
        std::remove(path("calls.log").c_str());
        std::remove(path("version.main").c_str());
        for (const char* iface : {"eth0", "eth1"})
            for (const char* what : {"IP", "MAC", "MASK", "GATEWAY"})
                std::remove(path(std::string("ifcfg.") + iface + "." + what).c_str());
    }
    // What `tav_ifcfg IFACE WHAT` prints (exactly these bytes).
    void set_ifcfg(const std::string& iface, const std::string& what, const std::string& out) {
        write_file(path("ifcfg." + iface + "." + what), out);
    }
    // What `tav_version quoral_version` prints.
    void set_main_version(const std::string& out) { write_file(path("version.main"), out); }
    // The recorded calls, one per line, in order.
    std::vector<std::string> calls() const {
        std::vector<std::string> out;
        std::ifstream in(path("calls.log"));
        for (std::string line; std::getline(in, line);) {
            out.push_back(line);
        }
        return out;
    }

  private:
    FakeTools() {
        char tmpl[] = "/tmp/tav_svc_tools_XXXXXX";
        const char* d = mkdtemp(tmpl);
        dir_ = d != nullptr ? d : "/tmp";
        // Each tool records its name and arguments, without a trailing blank.
        const std::string rec = "printf '%s\\n' \"$(basename \"$0\") $*\" | sed 's/ *$//' >> '" +
                                path("calls.log") + "'\n";
        script("tav_echo_cpedid", rec);
        script("tav_echo_clean_edid", rec);
        script("tav_ifcfg", rec + "f='" + dir_ + "/ifcfg.'\"$1.$2\"\n" +
                                "[ -f \"$f\" ] && cat \"$f\"\nexit 0\n");
        script("tav_version", rec + "if [ \"$1\" = quoral_version ] && [ -f '" + dir_ +
                                  "/version.main' ]; then cat '" + dir_ +
                                  "/version.main'; fi\nexit 0\n");
        const char* old = getenv("PATH");
        setenv("PATH", (dir_ + ":" + (old != nullptr ? old : "/usr/bin:/bin")).c_str(), 1);
    }
    std::string path(const std::string& name) const { return dir_ + "/" + name; }
    static void write_file(const std::string& p, const std::string& content) {
        std::ofstream out(p, std::ios::binary | std::ios::trunc);
        out << content;
    }
    void script(const std::string& name, const std::string& body) {
        const std::string p = path(name);
        write_file(p, "#!/bin/sh\n" + body);
        chmod(p.c_str(), 0755);
    }
    std::string dir_;
};

// Fake time: the clock stands still, sleeps are recorded and return at once.
inline std::vector<uint32_t>& sleeps() {
    static std::vector<uint32_t> s;
    return s;
}
inline uint32_t fake_now() {
    return 1000;
}
inline void fake_sleep(uint32_t ms) {
    sleeps().push_back(ms);
}

inline void press(uint16_t code) {
    g_tav_button = TAV_STRUCT_KB_BUTTON{};
    g_tav_button.number = 0xFF;
    g_tav_button.press = code;
}
inline void press_digit(uint8_t d) {
    press(TAV_PRESS_DIGIT);
    g_tav_button.number = d;
}
// Feeds keys to `handler`: digits, R(ight), L(eft), M(enu), T(ake), B(reak),
// K (lock), D(efault).
inline void keys(const char* seq, void (*handler)()) {
    static const std::string letters = "RLMTBKD";
    static const uint16_t codes[] = {TAV_PRESS_RIGHT,  TAV_PRESS_LEFT,  TAV_PRESS_MENU,
                                     TAV_PRESS_TAKE,   TAV_PRESS_BREAK, TAV_PRESS_LOCK,
                                     TAV_PRESS_DEFAULT};
    for (const char* k = seq; *k != '\0'; ++k) {
        const size_t i = letters.find(*k);
        i == std::string::npos ? press_digit(static_cast<uint8_t>(*k - '0')) : press(codes[i]);
        handler();
    }
}

// Common set-up: fresh fake library and tools, fake time, a known menu.
class ServiceMenuTest : public ::testing::Test {
  protected:
    void SetUp() override {
        // The capture sets TAV_ROOT to its own sandbox before anything runs.
        tavtest::PanelCapture::get();
        FakeTools::get().reset();
        fakematrix::reset();
        sleeps().clear();
        tav_menu_ctl_set_time_source(fake_now, fake_sleep);
        tav_menu_init();
        g_tav_menu = menu_vid_display;
        g_tav_menu_event = EVENT_NOMAL;
    }
    void TearDown() override { tav_menu_ctl_set_time_source(nullptr, nullptr); }

    // The LCD picture after the program's writes so far.
    static std::string lcd(int line) { return tavtest::PanelCapture::get().state().lcd[line]; }
    static uint32_t leds_blinking() { return tavtest::PanelCapture::get().state().led_blink; }
    static std::vector<std::string> tool_calls() { return FakeTools::get().calls(); }
};

} // namespace svc
