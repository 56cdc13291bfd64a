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

// Keys as a quick hand types them: taps of `hold` (key frame to release
// frame on the line), one every `every`. The program keeps every key in
// order, so nothing is waited for here: the caller waits for the effect it
// expects, which no other redraw can be mistaken for.
inline void press_keys(Sandbox& sb, std::initializer_list<int> keys, ms hold = 60ms,
                       ms every = 150ms) {
    auto next = std::chrono::steady_clock::now();
    for (int k : keys) {
        std::this_thread::sleep_until(next);
        sb.panel().tap(k, hold);
        next += every;
    }
}
inline void press_key(Sandbox& sb, int key) {
    press_keys(sb, {key});
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
