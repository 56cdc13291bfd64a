// Helpers for the scenario tests: the texts the panel should show, the
// panel's picture frame by frame, and the core's routes.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include "e2e_harness.h"
#include "tav_panel_model.h"

namespace tave2e {

using tavpanel::KEY_BREAK;
using tavpanel::KEY_DEFAULT;
using tavpanel::KEY_LEFT;
using tavpanel::KEY_LOCK;
using tavpanel::KEY_MENU;
using tavpanel::KEY_RIGHT;
using tavpanel::KEY_TAKE;

// A built-in LCD row: `lead` blanks, the text, blanks up to 40 columns.
inline std::string row(size_t lead, const std::string& text) {
    std::string r = std::string(lead, ' ') + text;
    r.resize(40, ' ');
    return r;
}

// A steady LED mask from LED numbers.
inline uint32_t leds(std::initializer_list<int> ids) {
    uint32_t m = 0;
    for (int id : ids) {
        m |= uint32_t{1} << id;
    }
    return m;
}
constexpr uint32_t kLcdLed = uint32_t{1} << tavpanel::LED_LCD;

// A port line: the 6-character head, then one two-digit slot per number
// (0: a blank slot), blanks up to 40 columns.
inline std::string port_line(const std::string& head, const std::vector<int>& ports) {
    std::string l = head;
    for (int p : ports) {
        l += p <= 0 ? "   " : (p < 10 ? "0" : "") + std::to_string(p) + " ";
    }
    l.resize(40, ' ');
    return l;
}

// n consecutive numbers from `first`.
inline std::vector<int> seq(int first, int n) {
    std::vector<int> v(static_cast<size_t>(n));
    std::iota(v.begin(), v.end(), first);
    return v;
}

// The panel's picture after each frame the program sent.
inline std::vector<tavpanel::PanelState> replay(const std::vector<tavpanel::Frame>& frames) {
    std::vector<tavpanel::PanelState> out;
    tavpanel::PanelState st;
    for (const auto& f : frames) {
        tavpanel::PanelModel::decode(f.bytes, st);
        out.push_back(st);
    }
    return out;
}

inline bool shows(const tavpanel::PanelState& s, const std::string& top,
                  const std::string& bottom) {
    return s.lcd[0] == top && s.lcd[1] == bottom;
}

// Both LCD lines for a failure message.
inline std::string lcd_of(const tavpanel::PanelState& s) {
    std::string b1 = s.lcd[1];
    std::replace(b1.begin(), b1.end(), '\0', '@');
    std::ostringstream o;
    o << "\n  |" << s.lcd[0] << "|\n  |" << b1 << "|  cursor " << s.cursor_line << ","
      << s.cursor_col << " leds 0x" << std::hex << s.led_steady << " blink 0x" << s.led_blink;
    return o.str();
}

// Output -> (video input, audio input) as the core reports them.
struct Route {
    int video = -1;
    int audio = -1;
    bool operator==(const Route&) const = default;
};

inline std::map<int, Route> core_routes(const Sandbox& sb) {
    std::map<int, Route> r;
    std::istringstream in(sb.ctl({"state"}).out);
    for (std::string line; std::getline(in, line);) {
        int out = 0, v = 0, a = 0;
        if (std::sscanf(line.c_str(), "route %d video=%d audio=%d", &out, &v, &a) == 3) {
            r[out] = {v, a};
        }
    }
    return r;
}

// Waits until the panel's picture satisfies `pred`.
template <class Pred>
::testing::AssertionResult wait_state(Sandbox& sb, Pred pred, const std::string& what,
                                      ms timeout = 5s) {
    if (sb.panel().wait_for(pred, timeout)) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure()
           << "waiting for " << what << "; the panel shows" << lcd_of(sb.panel().state());
}

// Waits until both LCD lines read `top` / `bottom`.
inline ::testing::AssertionResult wait_lines(Sandbox& sb, const std::string& top,
                                             const std::string& bottom, ms timeout = 5s) {
    return wait_state(
        sb, [&](const auto& s) { return shows(s, top, bottom); },
        "\n  |" + top + "|\n  |" + bottom + "|\n", timeout);
}

// Core, panel and program up, home page shown.
inline ::testing::AssertionResult bring_up(Sandbox& sb) {
    if (!sb.start_core()) {
        return ::testing::AssertionFailure() << "the simulated core did not start";
    }
    if (!sb.start_program()) {
        return ::testing::AssertionFailure() << "the program did not start";
    }
    // The home page counts once this program has started: its handshake first.
    if (!sb.panel().wait_handshakes(1, 60s) || !sb.wait_home_page(60s)) {
        return ::testing::AssertionFailure()
               << "no home page within 60 s" << lcd_of(sb.panel().state());
    }
    return ::testing::AssertionSuccess();
}

} // namespace tave2e
