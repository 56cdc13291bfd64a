// Checks shared by the signal and service scenarios: the reboot notice that
// ends the program, and small waiting helpers.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "e2e_scenarios.h"

namespace tave2e {

// The program and the core write sanitizer reports to their output files.
inline void expect_no_sanitizer_report(const Sandbox& sb) {
    for (const char* file : {"program.out", "core.out"}) {
        const std::string out = sb.read_file(file);
        for (const char* mark : {"WARNING: ThreadSanitizer", "ERROR: AddressSanitizer",
                                 "ERROR: LeakSanitizer", "runtime error:"}) {
            EXPECT_EQ(out.find(mark), std::string::npos) << file << ":\n" << out.substr(0, 4000);
        }
    }
}

// The two rows of the reboot notice for option 1 (restart), 2 (factory reset)
// and 3 (reset and upgrade).
inline std::pair<std::string, std::string> reboot_rows(int option) {
    static const std::string top[] = {row(9, "The device is restarting"),
                                      row(3, "The device is factory resetting"),
                                      row(1, "The device is being reset and upgraded")};
    return {top[option < 1 || option > 3 ? 2 : option - 1], row(13, "Please wait......")};
}

// After the core announced reboot `option`: the program ends with status 1,
// its port was opened and closed once, and the panel keeps the notice with
// every LED and every blink off. Nothing but LED frames follows the notice.
inline void expect_reboot_end(Sandbox& sb, int option, ms timeout = 30s) {
    const auto [top, bottom] = reboot_rows(option);
    const auto st = sb.wait_program_exit(timeout);
    ASSERT_TRUE(st.has_value()) << "still running after reboot signal " << option
                                << lcd_of(sb.panel().state());
    EXPECT_EQ(*st, 1);
    ASSERT_TRUE(sb.panel().wait_peer_closed(5s));
    const auto s = sb.panel().state();
    EXPECT_TRUE(shows(s, top, bottom)) << "reboot option " << option << lcd_of(s);
    EXPECT_EQ(s.led_steady, 0u) << lcd_of(s);
    EXPECT_EQ(s.led_blink, 0u) << lcd_of(s);
    EXPECT_EQ(sb.panel().peer_opens(), 1u);
    EXPECT_EQ(sb.panel().peer_closes(), 1u);
    EXPECT_EQ(sb.panel().malformed_frames(), 0u) << sb.panel().last_problem();
    expect_no_sanitizer_report(sb);

    const auto shots = replay(sb.panel().frames());
    const long notice = find_shot(shots, 0, [&](const auto& p) { return shows(p, top, bottom); });
    ASSERT_GE(notice, 0);
    for (size_t i = static_cast<size_t>(notice) + 1; i < shots.size(); ++i) {
        const auto k = shots[i].kind;
        EXPECT_TRUE(k == tavpanel::FrameKind::led_steady || k == tavpanel::FrameKind::led_blink)
            << "after the notice: " << tavpanel::describe(shots[i].bytes);
    }
}

// LED frames the program has sent so far: every redraw ends a page with one.
inline size_t led_frames(const Sandbox& sb) {
    size_t n = 0;
    for (const auto& f : const_cast<Sandbox&>(sb).panel().frames()) {
        n += f.kind == tavpanel::FrameKind::led_steady;
    }
    return n;
}
// Waits until more than `before` LED frames have come (at most 5 s).
inline bool wait_led_frames(Sandbox& sb, size_t before) {
    const auto end = std::chrono::steady_clock::now() + 5s;
    for (;;) {
        const uint64_t gen = sb.panel().generation();
        if (led_frames(sb) > before) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        sb.panel().wait_change(gen, 200ms);
    }
}
// Presses a key as a person does, and returns once the program has redrawn
// for the release: a release and the next key frame read in one controller
// pass would count as the same key reported twice, which is not acted on.
inline void press_key(Sandbox& sb, int key) {
    size_t n = led_frames(sb);
    sb.panel().press_no_release(key);
    wait_led_frames(sb, n);
    n = led_frames(sb);
    sb.panel().release();
    wait_led_frames(sb, n);
}
inline void press_keys(Sandbox& sb, std::initializer_list<int> keys) {
    for (int k : keys) {
        press_key(sb, k);
    }
}

// A positive number from the environment, or `dflt`.
inline long env_number(const char* name, long dflt) {
    const char* v = std::getenv(name);
    const long n = v != nullptr ? std::atol(v) : 0;
    return n > 0 ? n : dflt;
}

// Runs a control command and reports its failure with its output.
inline ::testing::AssertionResult ctl_ok(const Sandbox& sb, const std::vector<std::string>& args) {
    const CmdResult r = sb.ctl(args);
    if (r.status == 0) {
        return ::testing::AssertionSuccess();
    }
    std::string cmd;
    for (const auto& a : args) {
        cmd += " " + a;
    }
    return ::testing::AssertionFailure()
           << "tav_matrix_ctl" << cmd << " -> " << r.status << " " << r.out;
}

} // namespace tave2e
