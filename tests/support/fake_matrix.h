// In-process stand-in for libtav_matrix.so used by the unit tests: the
// simulated core's chassis model (ports, routes, cards, EDIDs, update
// progress) answered directly, forced results, and a log of the calls.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "sim_model.h"
#include "tav_matrix.h"

namespace fakematrix {

// Ports without a card (slot 0) report the directions set here as they are,
// whatever their value; a card's ports follow its state as in the core.
struct State : tavsim::Chassis {
    State() { ports = tavsim::kMaxPorts; }
    bool open_fails = false;
    int open_calls = 0;
    int32_t device_type = 0;
    // Calls in order, e.g. "set_video_switch(3,12)", "set_video_switch_done()".
    std::vector<std::string> calls;
    tavsim::Batch batch; // routes set or stashed, applied by the done calls
    TAV_MATRIX_OBJ_SIGNAL_FLAG signal{};
    int32_t signal_result = 0;
    int32_t card_result = 0;
    int32_t get_edid_result = 0;
    int32_t set_edid_result = 0;
    TAV_MATRIX_SIGNAL_CALLBACK callback = nullptr;
    int signal_fetches = 0; // calls of get_inner_signal_information
    // Port-table rebuilds and card queries in order: "video_table" /
    // "audio_table" when the direction of port 1 is asked (each rebuild
    // starts there), "card(N)" for get_card_information.
    std::vector<std::string> table_trace;
};

// The fake's state. Tests change it while no other thread calls the fake.
State& state();
std::mutex& mutex();
// Fresh default state: no ports, nothing logged.
void reset();
// Ports 1..n_in are inputs, n_in+1..n_in+n_out outputs, for video and (when
// `audio`) audio; device_type = n_in + n_out; no routes.
void make_device(int n_in, int n_out, bool audio = true);
// A card in `slot` in the given state (EM_MATRIX_CARD_STATE).
void set_card(int slot, int32_t status);
// Stores the signal record and calls the registered callback as the library
// would (outside the fake's mutex); returns false when none is registered.
bool raise_signal(uint32_t bits, uint32_t src_parameter);
// Fetches of the signal record so far.
int signal_fetches();
// Calls whose text starts with `prefix`.
std::vector<std::string> calls_starting(const std::string& prefix);

} // namespace fakematrix
