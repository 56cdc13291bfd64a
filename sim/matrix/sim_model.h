// The simulated matrix core's model: the chassis (cards, ports, routes, EDIDs,
// update progress), its text file reader and the operations the core applies
// to it. No sockets here, so the reader and the switching rules can be tested
// on their own.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tav_matrix.h"

namespace tavsim {

constexpr int kMaxPorts = 255; // in_for_out is 8 bits wide on the panel side
constexpr int kMaxSlots = 17;  // card slots; update ids 18..20 are system parts
constexpr int kMaxUpdateId = 20;
constexpr int kEdidSize = 256;

using Edid = std::array<uint8_t, kEdidSize>;

struct Card {
    bool defined = false;
    bool is_input = true;
    int first = 0, last = 0; // port range
    bool video = true, audio = true;
    int32_t state = em_matrix_card_normal;
    int16_t type_id = 0, ver_major = 1, ver_minor = 0, ver_build = 0;
};

struct Port {
    int slot = 0;                     // card holding the port, 0 = none
    int32_t vdir = em_matrix_unknown; // direction when its card is present
    int32_t adir = em_matrix_unknown;
    int vroute = 0, aroute = 0; // outputs: routed input, 0 = none
    bool sink = true;           // outputs: a sink is attached
    Edid own{}, load{};         // input's own EDID, sink's EDID
};

struct Signal {
    uint32_t src = em_matrix_sig_src_core;
    uint32_t thread_id = 0;
    uint32_t param = 0;
    uint32_t bits = 0;
};

struct Chassis {
    int ports = 0;
    std::array<Card, kMaxSlots + 1> cards{}; // index = slot
    std::array<Port, kMaxPorts + 1> port{};  // index = port number
    Edid default_edid{};
    int update_slot = 0, update_pct = 0;
};

// Reads a chassis description. On failure returns false and sets `err` to
// "line N: what is wrong".
bool parse_chassis(const std::string& text, Chassis& out, std::string& err);

// The chassis shipped with the simulator (sim/matrix/chassis_default.txt).
const char* default_chassis_text();

// A 256-byte EDID (base block and an empty CEA extension) naming the monitor.
Edid make_edid(const std::string& name, int product);
// Monitor name of an EDID ("" when it carries none); checksum-independent.
std::string edid_name(const Edid& e);
uint32_t edid_crc(const Edid& e);

const char* dir_name(int32_t dir);
const char* state_name(int32_t state);
bool parse_state(const std::string& word, int32_t& state);

// Directions as the library reports them. `active`: only while the port's
// card is in its normal state; otherwise only while a card is present.
int32_t port_dir(const Chassis& c, int port, bool audio, bool active);

// The input routed to an output; -2 when the port is no output of that kind.
int32_t route_of(const Chassis& c, bool audio, int output);

// The EDID of a port by kind (EM_MATRIX_EDID_TYPE): an input's own, the
// sink's, or the chassis default; nullptr for an unknown port or kind.
Edid* edid_of(Chassis& c, int port, int32_t kind);

// Per-client batch of routes collected by set/stash until done.
struct Batch {
    std::map<int, int> video, audio; // output -> input
};

// Checks a route for set/stash: 0 when both ends are usable, else negative.
int32_t check_route(const Chassis& c, bool audio, int input, int output);
// Applies a batch; returns true when it held at least one route.
bool apply_batch(Chassis& c, bool audio, Batch& b);

// Card state change with the signals it raises (port change first, then slot).
void set_card_state(Chassis& c, int slot, int32_t state, std::vector<Signal>& out);

TAV_MATRIX_OBJ_CARD card_record(const Chassis& c, int slot);

// The whole state as stable text lines (see tav_matrix_ctl --help).
std::string describe(const Chassis& c);

// Small helpers shared by the core, the control client and the library tests.
std::vector<std::string> split_words(const std::string& line);
bool parse_int(const std::string& s, long& v); // decimal or 0x hex
std::string to_hex(const uint8_t* p, size_t n);
bool from_hex(const std::string& s, std::vector<uint8_t>& out);

} // namespace tavsim
