// Serial captures of the panel line turned into words: the readers of the
// capture formats (raw bytes, hex text, hexdump -C, the emulator's
// recording), the frame decoder built on the program's own frame parser, and
// the recording format that the emulator writes and replays.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tav_panel_model.h"

namespace tavpanel {

// Who sent a run of bytes; `none` when the capture does not say.
enum class Dir { none, panel, program };

// The recording: a header line, then one line per read or write,
//   SECONDS DIR HEX...
// SECONDS since the start with microseconds, DIR "panel" (the panel sent the
// bytes) or "program" (the program sent them), then the bytes as two-digit
// hex separated by blanks. Lines starting with '#' are comments.
constexpr const char* RECORD_HEADER = "# tav_panel_emu recording 1";

struct RecordLine {
    double t = 0;
    Dir dir = Dir::none;
    std::vector<uint8_t> bytes;
};

std::string format_record_line(double t, Dir dir, const uint8_t* bytes, size_t n);
// False with a message in `err` when the line is not a byte line (comments
// and blank lines give false with `err` empty).
bool parse_record_line(std::string_view line, RecordLine& out, std::string& err);
// Reads a whole recording file; false with a message on the first bad line.
bool load_recording(const std::string& path, std::vector<RecordLine>& out, std::string& err);

// Hex text: blank-separated tokens of an even number of hex digits, each
// with an optional 0x and a trailing comma (xxd -p, od -An -tx1, plain
// bytes). False with a message when a token is not hex.
bool parse_hex_line(std::string_view line, std::vector<uint8_t>& out, std::string& err);

enum class InputFormat { detect, raw, hex, hexdump, record };

struct DecodeOptions {
    InputFormat format = InputFormat::detect;
    Dir from = Dir::none; // who sent a raw or hex capture
    bool summary = false; // the summary after the frames
    bool frames = true;   // one line per frame
    bool show_hex = false;
};

// Exit statuses of the decoder.
enum DecodeStatus : int {
    DECODE_CLEAN = 0,     // every byte belonged to a frame
    DECODE_MALFORMED = 1, // bytes that form no frame, or the capture ends inside a frame
    DECODE_USAGE = 2,     // bad arguments, unreadable file
    DECODE_BAD_INPUT = 3, // text that is not the chosen format (not hex, a bad line, a huge line)
};

// Reads a capture through `read_some` (returns the bytes read, 0 at the end,
// negative on an error) and prints to `out`, messages to `err`.
int decode_capture(const std::function<long(uint8_t*, size_t)>& read_some,
                   const DecodeOptions& opts, FILE* out, FILE* err);

} // namespace tavpanel
