// Replaying a recorded panel session against a running program: the
// recording's key frames are sent with their original spacing, and with
// `expect` the program's screen after each key is compared with the one in
// the recording.
#pragma once

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "tav_panel_decode.h"
#include "tav_panel_emu.h"

namespace tavpanel {

struct ReplayStep {
    double t = 0;               // when the recording's panel sent the key frame
    std::vector<uint8_t> frame; // the key frame as recorded
    PanelState expect;          // the recorded panel when the next key came (or at the end)
    double settle = 0;          // seconds from this key to the last drawing before the next
};

struct ReplayPlan {
    std::vector<std::vector<uint8_t>> handshake_answers; // for EmulatorOptions
    PanelState before;                                   // the panel when the first key came
    std::vector<ReplayStep> steps;
};

ReplayPlan plan_replay(const std::vector<RecordLine>& lines);

struct ReplayOptions {
    double speed = 1; // 2: keys come twice as fast
    bool expect = false;
    std::chrono::milliseconds margin{3000};   // allowed beyond the recorded drawing time
    std::chrono::milliseconds startup{60000}; // for the screen before the first key
    int stop_fd = -1;                         // readable: stop at once (status 2)
};

// Plays the plan on a started emulator. Returns 0 when done (with `expect`:
// every screen as recorded), 1 at the first difference (both screens and the
// key printed to `out`), 2 when stopped.
int replay(PanelEmulator& emu, const ReplayPlan& plan, const ReplayOptions& opts, FILE* out);

// The LCD lines and LED masks, as compared by the replay.
bool same_screen(const PanelState& a, const PanelState& b);

} // namespace tavpanel
