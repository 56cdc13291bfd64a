// The front panel's side of the serial protocol: decoding the program's
// frames into an LCD/LED picture, and building the frames the panel sends.
// Used by the panel emulator and by the tests that capture the program's output.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tavpanel {

// Key numbers as the panel scans them: 0-9 digits, 10 LEFT, 11 RIGHT,
// 12 BREAK, 13 DEFAULT, 14 TAKE, 15 MENU, 16 LOCK.
enum Key : int {
    KEY_LEFT = 10,
    KEY_RIGHT = 11,
    KEY_BREAK = 12,
    KEY_DEFAULT = 13,
    KEY_TAKE = 14,
    KEY_MENU = 15,
    KEY_LOCK = 16,
};

// What the program's frames have left on the panel.
struct PanelState {
    std::array<std::string, 2> lcd{std::string(40, ' '), std::string(40, ' ')};
    int cursor_line = 0;
    int cursor_col = 0;
    uint32_t led_steady = 0; // bit n = LED n on
    uint32_t led_blink = 0;  // bit n = LED n blinking
    uint32_t key_enable = 0;
    int blink_cycle = 0;
};

// One complete frame from the program, as bytes, with its arrival time.
struct Frame {
    double t = 0;                // seconds since the model was created
    std::vector<uint8_t> bytes;  // head to check byte
};

// Stream decoder for program-to-panel frames. Frames may be split over any
// number of feed() calls; bytes outside a frame are kept as garbage.
class PanelModel {
  public:
    PanelModel();
    void feed(const uint8_t* data, size_t len);
    const PanelState& state() const { return state_; }
    // Complete frames seen so far, oldest first.
    const std::vector<Frame>& frames() const { return frames_; }
    void clear_frames() { frames_.clear(); }
    // Frames that were well-formed but not a known command (error replies,
    // handshakes and unknown sub-commands), for logging.
    size_t unknown_frames() const { return unknown_; }
    // Handshakes (EB 5F 21 02 00 00 0F) seen.
    size_t handshakes() const { return handshakes_; }
    // Error replies (EB 5F 00 01 code A5) seen.
    size_t error_replies() const { return error_replies_; }

  private:
    void apply(const std::vector<uint8_t>& f);
    PanelState state_;
    std::vector<Frame> frames_;
    std::vector<uint8_t> pending_;
    size_t unknown_ = 0;
    size_t handshakes_ = 0;
    size_t error_replies_ = 0;
    double t0_ = 0;
};

// Frames the panel sends. The check byte is 0x0F unless given.
std::vector<uint8_t> key_frame(int key, uint8_t check = 0x0F);
std::vector<uint8_t> mask_frame(uint32_t mask, uint8_t check = 0x0F); // key report with any mask
std::vector<uint8_t> release_frame(uint8_t check = 0x0F);
std::vector<uint8_t> version_frame(uint8_t main, uint8_t minor, uint8_t build_hi, uint8_t build_lo,
                                   uint8_t check = 0x0F);

// Human-readable hex ("EB 5F 21 ...").
std::string hex(const std::vector<uint8_t>& bytes);

} // namespace tavpanel
