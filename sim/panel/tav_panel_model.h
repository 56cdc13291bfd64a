// The front panel's side of the serial protocol: decoding the program's
// frames into an LCD/LED picture, and building the frames the panel sends.
// Used by the panel emulator and by the tests that capture the program's output.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tav_com_protocol.h"

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
constexpr int KEY_COUNT = TAV_COM_KEY_COUNT;
constexpr int LED_LCD = TAV_COM_LED_LCD;

constexpr int LCD_LINES = TAV_COM_LCD_LINES;
constexpr int LCD_COLS = TAV_COM_TEXT_MAX;

// Key names, masks, hex and the one frame describer come from the protocol.
inline constexpr auto& describe = tav_com_describe;
inline constexpr auto& hex = tav_com_hex;
inline constexpr auto& key_name = tav_com_key_name;
inline constexpr auto& mask_names = tav_com_mask_names;
inline constexpr auto& mask_of = tav_com_mask_of;

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

// How a complete frame was understood.
using FrameKind = TAV_COM_KIND;

// One complete frame from the program, as bytes, with its arrival time.
struct Frame {
    double t = 0;               // seconds since the model was created
    std::vector<uint8_t> bytes; // head to check byte
    FrameKind kind = TAV_COM_KIND_UNKNOWN;
};

// Stream decoder for program-to-panel frames, on the program's own frame
// parser (tav_com_protocol.h). Frames may be split over any number of feed()
// calls. The frame length comes from the length byte (the program does not
// escape payload bytes, so a text may hold the head byte); bytes that form no
// frame are counted as garbage and skipped up to the next head byte.
class PanelModel {
  public:
    PanelModel();
    void feed(const uint8_t* data, size_t len);
    const PanelState& state() const { return state_; }
    // Complete frames seen so far, oldest first (malformed ones included).
    const std::vector<Frame>& frames() const { return frames_; }
    void clear_frames() { frames_.clear(); }
    // Complete frames seen since creation, including those cleared or dropped.
    size_t frames_total() const { return total_; }
    // Keep at most about `n` frames (the older half goes when the limit is
    // passed); 0, the default, keeps all.
    void set_frame_limit(size_t n) { frame_limit_ = n; }
    // Well-formed frames that are not a command the panel knows (another
    // order byte, an unknown sub-command).
    size_t unknown_frames() const { return unknown_; }
    // Known commands with a wrong length or check byte, a field out of range,
    // or a length byte of 0.
    size_t malformed_frames() const { return malformed_; }
    // Bytes skipped outside any frame.
    size_t garbage_bytes() const { return garbage_; }
    // Handshakes seen.
    size_t handshakes() const { return handshakes_; }
    // Error replies seen.
    size_t error_replies() const { return error_replies_; }
    // A freshly powered panel: blank LCD, LEDs off, no partial frame. The
    // counters and the frames seen are kept.
    void reset_picture();
    // Whether a partial frame is waiting for more bytes.
    bool in_frame() const { return !pending_.empty(); }

    // Decodes one complete frame (head to check byte) against a picture;
    // returns how it was understood. The picture changes only for the six
    // display commands when they are well-formed.
    static FrameKind decode(const std::vector<uint8_t>& f, PanelState& st);

  private:
    void apply(const std::vector<uint8_t>& f);
    PanelState state_;
    TAV_COM_STRUCT rec_{}; // the shared frame parser's record
    std::vector<Frame> frames_;
    std::vector<uint8_t> pending_;
    size_t unknown_ = 0;
    size_t malformed_ = 0;
    size_t garbage_ = 0;
    size_t handshakes_ = 0;
    size_t error_replies_ = 0;
    size_t frame_limit_ = 0;
    size_t total_ = 0;
    double t0_ = 0;
};

// Frames the panel sends, with the usual check byte unless given.
std::vector<uint8_t> key_frame(int key, uint8_t check = TAV_COM_CHECK_BYTE);
// Key report with any mask.
std::vector<uint8_t> mask_frame(uint32_t mask, uint8_t check = TAV_COM_CHECK_BYTE);
std::vector<uint8_t> release_frame(uint8_t check = TAV_COM_CHECK_BYTE);
std::vector<uint8_t> version_frame(uint8_t main, uint8_t minor, uint8_t build_hi, uint8_t build_lo,
                                   uint8_t check = TAV_COM_CHECK_BYTE);

} // namespace tavpanel
