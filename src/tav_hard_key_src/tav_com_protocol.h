// The panel line's protocol, in one place: the frame bytes, the sub-command
// numbers, the frame builders and the byte state machine that cuts frames.
// The program's link, the panel emulator and the frame decoder all use it, so
// that they agree byte for byte on what is sent and where frames start, end
// and are dropped.
//
// Frame: EB 5F order length data... check. Commands and reports use order
// 21; their first data byte is the sub-command and the check byte is 0F. An
// error reply is EB 5F order 01 code A5. The parser's position counter
// `com_current` is 0 when idle and otherwise one more than the number of
// bytes taken; it is 8-bit, so it wraps back to idle after 255. Everything
// lives in the caller's record: no allocation, no other state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tav_hardboard_var.h"

// What one byte did to the record.
enum TAV_COM_STEP : uint8_t {
    TAV_COM_STEP_DROP,     // outside any frame: ignored
    TAV_COM_STEP_HEAD,     // 0xEB: a new frame starts, any frame in progress is discarded
    TAV_COM_STEP_MORE,     // taken; the frame needs more bytes
    TAV_COM_STEP_BAD_ADDR, // not the address byte: the frame is discarded, the parser idle
    TAV_COM_STEP_ZERO_LEN, // length byte 0: the frame is discarded; the error reply is due
    TAV_COM_STEP_FRAME,    // the check byte completed the frame held in the record
    TAV_COM_STEP_AFTER,    // taken after a completed frame; never part of a frame
};

constexpr uint8_t TAV_COM_HEAD_BYTE = 0xEB;
constexpr uint8_t TAV_COM_ADDR_BYTE = 0x5F;
constexpr uint8_t TAV_COM_ORDER_BYTE = 0x21;     // the order of every command and report
constexpr uint8_t TAV_COM_CHECK_BYTE = 0x0F;     // check byte of commands and reports
constexpr uint8_t TAV_COM_ERR_CHECK_BYTE = 0xA5; // check byte of an error reply
constexpr uint8_t TAV_COM_ERR_CODE = 0xF7;       // the program's error code: a frame it refused

// Sub-commands: the first data byte of an order-21 frame.
enum TAV_COM_SUB : uint8_t {
    TAV_COM_SUB_VERSION = 0x00,     // program: handshake (payload 00); panel: its firmware version
    TAV_COM_SUB_LED_ON = 0x01,      // payload: 32-bit LED mask, most significant byte first
    TAV_COM_SUB_LED_BLINK = 0x02,   // payload: 32-bit mask of blinking LEDs
    TAV_COM_SUB_BLINK_CYCLE = 0x03, // payload: 01, cycle 1..20
    TAV_COM_SUB_LCD_TEXT = 0x04,    // payload: line, column, characters
    TAV_COM_SUB_CURSOR = 0x05,      // payload: line, column
    TAV_COM_SUB_KEY_ENABLE = 0x06,  // payload: 32-bit mask of enabled keys
    TAV_COM_SUB_KEY = 0x07,         // panel: 32-bit mask of the keys held, 0 on release
};
constexpr size_t TAV_COM_MASK_LEN = 4;    // payload of the mask sub-commands
constexpr size_t TAV_COM_VERSION_LEN = 5; // payload of the panel's version: 00 main minor build
constexpr size_t TAV_COM_FRAME_EXTRA = 6; // bytes of an order-21 frame besides its payload
constexpr size_t TAV_COM_TEXT_MAX = 40;   // characters of one text frame: an LCD line
constexpr uint8_t TAV_COM_LCD_LINES = 2;
constexpr uint8_t TAV_COM_BLINK_CYCLE_MAX = 20;

// Writes the frame EB 5F 21 len sub payload... check into `out`, which has
// room for n + TAV_COM_FRAME_EXTRA bytes; returns the frame's length.
inline int tav_com_frame(uint8_t* out, uint8_t sub, const uint8_t* payload, size_t n,
                         uint8_t check = TAV_COM_CHECK_BYTE) {
    out[0] = TAV_COM_HEAD_BYTE;
    out[1] = TAV_COM_ADDR_BYTE;
    out[2] = TAV_COM_ORDER_BYTE;
    out[3] = static_cast<uint8_t>(n + 1);
    out[4] = sub;
    if (n > 0) {
        memcpy(out + 5, payload, n);
    }
    out[5 + n] = check;
    return static_cast<int>(n + TAV_COM_FRAME_EXTRA);
}

// The frames of each sub-command, built by tav_com_frame.
inline int tav_com_handshake_frame(uint8_t* out) {
    const uint8_t ask = 0x00;
    return tav_com_frame(out, TAV_COM_SUB_VERSION, &ask, 1);
}
inline int tav_com_mask_frame(uint8_t* out, uint8_t sub, const uint8_t mask[TAV_COM_MASK_LEN],
                              uint8_t check = TAV_COM_CHECK_BYTE) {
    return tav_com_frame(out, sub, mask, TAV_COM_MASK_LEN, check);
}
inline int tav_com_blink_cycle_frame(uint8_t* out, uint8_t cycle) {
    const uint8_t p[] = {0x01, cycle};
    return tav_com_frame(out, TAV_COM_SUB_BLINK_CYCLE, p, sizeof p);
}
// `n` characters at most TAV_COM_TEXT_MAX.
inline int tav_com_text_frame(uint8_t* out, uint8_t line, uint8_t col, const void* chars,
                              size_t n) {
    uint8_t p[2 + TAV_COM_TEXT_MAX] = {line, col};
    n = n < TAV_COM_TEXT_MAX ? n : TAV_COM_TEXT_MAX;
    memcpy(p + 2, chars, n);
    return tav_com_frame(out, TAV_COM_SUB_LCD_TEXT, p, n + 2);
}
inline int tav_com_cursor_frame(uint8_t* out, uint8_t line, uint8_t col) {
    const uint8_t p[] = {line, col};
    return tav_com_frame(out, TAV_COM_SUB_CURSOR, p, sizeof p);
}
inline int tav_com_version_frame(uint8_t* out, uint8_t main, uint8_t minor, uint8_t build_hi,
                                 uint8_t build_lo, uint8_t check = TAV_COM_CHECK_BYTE) {
    const uint8_t p[] = {0x00, main, minor, build_hi, build_lo};
    return tav_com_frame(out, TAV_COM_SUB_VERSION, p, sizeof p, check);
}

// The error reply EB 5F order 01 code A5 (6 bytes) into `out`; returns its length.
inline int tav_com_error_frame(uint8_t* out, uint8_t order, uint8_t code) {
    const uint8_t f[] = {TAV_COM_HEAD_BYTE,     TAV_COM_ADDR_BYTE, order, 0x01, code,
                         TAV_COM_ERR_CHECK_BYTE};
    memcpy(out, f, sizeof f);
    return static_cast<int>(sizeof f);
}

// Feeds one byte. `head_in_body_restarts` true is the program's receiver:
// every 0xEB starts a new frame. False is the panel's side, which reads the
// program's unescaped payload by its length: a 0xEB inside the order, length,
// data or check byte of a frame is taken as data.
inline TAV_COM_STEP tav_com_step(TAV_COM_STRUCT* c, uint8_t b, bool head_in_body_restarts = true) {
    const bool in_body = c->com_current >= 3 && c->com_current - 6 < static_cast<int>(c->com_len);
    if (b == TAV_COM_HEAD_BYTE && (head_in_body_restarts || !in_body)) {
        memset(c, 0, sizeof *c);
        c->com_current = 1;
    }
    if (c->com_current != 0) {
        ++c->com_current;
    }
    switch (c->com_current) {
    case 0:
        return TAV_COM_STEP_DROP;
    case 2:
        c->com_head = TAV_COM_HEAD_BYTE;
        return TAV_COM_STEP_HEAD;
    case 3:
        if (b != TAV_COM_ADDR_BYTE) {
            memset(c, 0, sizeof *c);
            return TAV_COM_STEP_BAD_ADDR;
        }
        c->com_add = b;
        c->com_cur_rong = static_cast<uint8_t>(c->com_cur_rong + b);
        return TAV_COM_STEP_MORE;
    case 4:
        c->com_order = b;
        c->com_cur_rong = static_cast<uint8_t>(c->com_cur_rong + b);
        return TAV_COM_STEP_MORE;
    case 5:
        if (b == 0) {
            memset(c, 0, sizeof *c);
            return TAV_COM_STEP_ZERO_LEN;
        }
        c->com_len = b;
        c->com_cur_rong = static_cast<uint8_t>(c->com_cur_rong + b);
        return TAV_COM_STEP_MORE;
    default: {
        // The counter reaches the check byte's position only once, so bytes
        // after a completed frame land beyond its data and are never dispatched.
        const int i = c->com_current - 6;
        if (i == c->com_len) {
            c->com_rong = b;
            return TAV_COM_STEP_FRAME;
        }
        c->com_buf[i] = b;
        c->com_cur_rong = static_cast<uint8_t>(c->com_cur_rong + b);
        return i < c->com_len ? TAV_COM_STEP_MORE : TAV_COM_STEP_AFTER;
    }
    }
}

// Frames in words: their kinds, one row per kind, and the one describer the
// emulator's log and the capture decoder print.

// Key numbers as the panel scans them (bit n of a key mask): 0-9 digits,
// 10 LEFT, 11 RIGHT, 12 BREAK, 13 DEFAULT, 14 TAKE, 15 MENU, 16 LOCK.
constexpr int TAV_COM_KEY_COUNT = 17;
constexpr int TAV_COM_LED_LCD = 31; // the LED that belongs to no key (on with the LCD)

// Short name of a key ("0".."9", "LEFT", ...); "?" for anything else.
inline const char* tav_com_key_name(int key) {
    static const char* const names[TAV_COM_KEY_COUNT] = {
        "0", "1",    "2",     "3",     "4",       "5",    "6",    "7",   "8",
        "9", "LEFT", "RIGHT", "BREAK", "DEFAULT", "TAKE", "MENU", "LOCK"};
    return (key >= 0 && key < TAV_COM_KEY_COUNT) ? names[key] : "?";
}

// 4 mask bytes, most significant first, as a 32-bit mask.
inline uint32_t tav_com_mask_of(const uint8_t* b) {
    return (static_cast<uint32_t>(b[0]) << 24) | (static_cast<uint32_t>(b[1]) << 16) |
           (static_cast<uint32_t>(b[2]) << 8) | b[3];
}

// Human-readable hex ("EB 5F 21 ...").
inline std::string tav_com_hex(const std::vector<uint8_t>& bytes) {
    std::string s;
    char b[8];
    for (size_t i = 0; i < bytes.size(); ++i) {
        std::snprintf(b, sizeof b, i ? " %02X" : "%02X", bytes[i]);
        s += b;
    }
    return s;
}

// Names of the numbers set in an LED or key mask ("TAKE MENU LCD", "none").
inline std::string tav_com_mask_names(uint32_t mask) {
    if (mask == 0) {
        return "none";
    }
    if (mask == 0xFFFFFFFFu) {
        return "all";
    }
    std::string s;
    for (int n = 0; n < 32; ++n) {
        if ((mask >> n) & 1u) {
            s += s.empty() ? "" : " ";
            s += n < TAV_COM_KEY_COUNT  ? tav_com_key_name(n)
                 : n == TAV_COM_LED_LCD ? "LCD"
                                        : "#" + std::to_string(n);
        }
    }
    return s;
}

// Kinds of complete frames, in the order of TAV_COM_ROWS.
enum TAV_COM_KIND : uint8_t {
    TAV_COM_KIND_KEY_PRESS,
    TAV_COM_KIND_KEY_RELEASE,
    TAV_COM_KIND_KEY_MASK,
    TAV_COM_KIND_VERSION,
    TAV_COM_KIND_HANDSHAKE,
    TAV_COM_KIND_LCD_TEXT,
    TAV_COM_KIND_CURSOR,
    TAV_COM_KIND_LED_STEADY,
    TAV_COM_KIND_LED_BLINK,
    TAV_COM_KIND_BLINK_CYCLE,
    TAV_COM_KIND_KEY_ENABLE,
    TAV_COM_KIND_ERROR_REPLY,
    TAV_COM_KIND_UNKNOWN,   // well-formed, but no kind the panel or the program knows
    TAV_COM_KIND_MALFORMED, // a known sub-command that breaks its rule, or no frame at all
};

// One kind of frame. An order-21 frame is of the first row whose sub-command
// it has and whose payload rule it meets; the check byte then has to be 0F
// where `checked`. A frame of a known sub-command that meets no row's rule is
// malformed, unless the sub-command's rows have no `sub_name`.
struct TAV_COM_ROW {
    TAV_COM_KIND kind;
    const char* name;     // the kind in words
    int sub;              // -1: no sub-command row
    const char* sub_name; // the sub-command, for a malformed frame
    size_t min, max;      // payload bytes after the sub-command
    bool checked;
    bool (*fits)(const uint8_t* d, size_t n);          // further payload rule, or nullptr
    std::string (*say)(const std::vector<uint8_t>& f); // describer: the whole frame
};

namespace tav_com_detail {
inline std::string fmt(const char* f, unsigned a, unsigned b) {
    char s[96];
    std::snprintf(s, sizeof s, f, a, b);
    return s;
}
inline uint32_t mask(const std::vector<uint8_t>& f) {
    return tav_com_mask_of(f.data() + 5);
}
inline int single_key(uint32_t m) {
    for (int k = 0; k < TAV_COM_KEY_COUNT; ++k) {
        if (m == (uint32_t{1} << k)) {
            return k;
        }
    }
    return -1;
}
inline std::string quoted(const uint8_t* p, size_t n) {
    std::string s = "\"";
    char b[8];
    for (size_t i = 0; i < n; ++i) {
        if (p[i] >= 0x20 && p[i] < 0x7F && p[i] != '"' && p[i] != '\\') {
            s += static_cast<char>(p[i]);
        } else {
            std::snprintf(b, sizeof b, "\\x%02X", p[i]);
            s += b;
        }
    }
    return s + "\"";
}
// Names the sub-command from the table, so it is defined after it.
inline std::string malformed(const std::vector<uint8_t>& f);
} // namespace tav_com_detail

constexpr size_t TAV_COM_ANY_LEN = 255;

inline constexpr TAV_COM_ROW TAV_COM_ROWS[] = {
    {TAV_COM_KIND_KEY_PRESS, "key press", TAV_COM_SUB_KEY, nullptr, TAV_COM_MASK_LEN,
     TAV_COM_ANY_LEN, false,
     [](const uint8_t* d, size_t) { return tav_com_detail::single_key(tav_com_mask_of(d)) >= 0; },
     [](const std::vector<uint8_t>& f) {
         return std::string("key press ") +
                tav_com_key_name(tav_com_detail::single_key(tav_com_detail::mask(f)));
     }},
    {TAV_COM_KIND_KEY_RELEASE, "key release", TAV_COM_SUB_KEY, nullptr, TAV_COM_MASK_LEN,
     TAV_COM_ANY_LEN, false, [](const uint8_t* d, size_t) { return tav_com_mask_of(d) == 0; },
     [](const std::vector<uint8_t>&) { return std::string("key release"); }},
    {TAV_COM_KIND_KEY_MASK, "key mask", TAV_COM_SUB_KEY, nullptr, TAV_COM_MASK_LEN, TAV_COM_ANY_LEN,
     false, nullptr,
     [](const std::vector<uint8_t>& f) {
         char b[64];
         std::snprintf(b, sizeof b, "key mask %08X (not one key: ignored)",
                       static_cast<unsigned>(tav_com_detail::mask(f)));
         return std::string(b);
     }},
    {TAV_COM_KIND_VERSION, "firmware version", TAV_COM_SUB_VERSION, "version/handshake",
     TAV_COM_VERSION_LEN, TAV_COM_VERSION_LEN, false, nullptr,
     [](const std::vector<uint8_t>& f) {
         return tav_com_detail::fmt("firmware version %u.%u", f[6], f[7]) + " build " +
                std::to_string(f[8] | f[9]);
     }},
    {TAV_COM_KIND_HANDSHAKE, "handshake", TAV_COM_SUB_VERSION, "version/handshake", 1, 1, true,
     [](const uint8_t* d, size_t) { return d[0] == 0; },
     [](const std::vector<uint8_t>&) {
         return std::string("handshake (asks for the firmware version)");
     }},
    {TAV_COM_KIND_LCD_TEXT, "lcd text", TAV_COM_SUB_LCD_TEXT, "lcd text", 3, TAV_COM_ANY_LEN, true,
     [](const uint8_t* d, size_t n) {
         return d[0] < TAV_COM_LCD_LINES && d[1] < TAV_COM_TEXT_MAX &&
                d[1] + (n - 2) <= TAV_COM_TEXT_MAX;
     },
     [](const std::vector<uint8_t>& f) {
         return tav_com_detail::fmt("lcd line %u col %u ", f[5], f[6]) +
                tav_com_detail::quoted(f.data() + 7, f.size() - 8);
     }},
    {TAV_COM_KIND_CURSOR, "cursor", TAV_COM_SUB_CURSOR, "cursor", 2, 2, true,
     [](const uint8_t* d, size_t) { return d[0] < TAV_COM_LCD_LINES && d[1] < TAV_COM_TEXT_MAX; },
     [](const std::vector<uint8_t>& f) {
         return tav_com_detail::fmt("cursor line %u col %u", f[5], f[6]);
     }},
    {TAV_COM_KIND_LED_STEADY, "leds on", TAV_COM_SUB_LED_ON, "leds on", TAV_COM_MASK_LEN,
     TAV_COM_MASK_LEN, true, nullptr,
     [](const std::vector<uint8_t>& f) {
         return "leds on: " + tav_com_mask_names(tav_com_detail::mask(f));
     }},
    {TAV_COM_KIND_LED_BLINK, "leds blinking", TAV_COM_SUB_LED_BLINK, "leds blinking",
     TAV_COM_MASK_LEN, TAV_COM_MASK_LEN, true, nullptr,
     [](const std::vector<uint8_t>& f) {
         return "leds blinking: " + tav_com_mask_names(tav_com_detail::mask(f));
     }},
    {TAV_COM_KIND_BLINK_CYCLE, "blink cycle", TAV_COM_SUB_BLINK_CYCLE, "blink cycle", 2, 2, true,
     [](const uint8_t* d, size_t) {
         return d[0] == 0x01 && d[1] >= 1 && d[1] <= TAV_COM_BLINK_CYCLE_MAX;
     },
     [](const std::vector<uint8_t>& f) { return "blink cycle " + std::to_string(f[6]); }},
    {TAV_COM_KIND_KEY_ENABLE, "keys enabled", TAV_COM_SUB_KEY_ENABLE, "keys enabled",
     TAV_COM_MASK_LEN, TAV_COM_MASK_LEN, true, nullptr,
     [](const std::vector<uint8_t>& f) {
         return "keys enabled: " + tav_com_mask_names(tav_com_detail::mask(f));
     }},
    {TAV_COM_KIND_ERROR_REPLY, "error reply", -1, nullptr, 0, 0, false, nullptr,
     [](const std::vector<uint8_t>& f) {
         return tav_com_detail::fmt("error reply order %02X code %02X", f[2], f[4]);
     }},
    {TAV_COM_KIND_UNKNOWN, "unknown", -1, nullptr, 0, 0, false, nullptr,
     [](const std::vector<uint8_t>& f) {
         return tav_com_detail::fmt("unknown frame order %02X sub-command %02X: ", f[2],
                                    f.size() > 5 ? f[4] : 0) +
                tav_com_hex(f);
     }},
    {TAV_COM_KIND_MALFORMED, "malformed frame", -1, nullptr, 0, 0, false, nullptr,
     tav_com_detail::malformed},
};
constexpr size_t TAV_COM_KIND_COUNT = sizeof TAV_COM_ROWS / sizeof TAV_COM_ROWS[0];
static_assert(
    [] {
        for (size_t i = 0; i < TAV_COM_KIND_COUNT; ++i) {
            if (static_cast<size_t>(TAV_COM_ROWS[i].kind) != i) {
                return false;
            }
        }
        return TAV_COM_KIND_COUNT == static_cast<size_t>(TAV_COM_KIND_MALFORMED) + 1;
    }(),
    "one row per kind, in the order of TAV_COM_KIND");

inline const TAV_COM_ROW& tav_com_row(TAV_COM_KIND k) {
    return TAV_COM_ROWS[static_cast<size_t>(k)];
}

inline std::string tav_com_detail::malformed(const std::vector<uint8_t>& f) {
    if (f.size() == 4 && f[3] == 0) {
        return "malformed frame (length 0; the program answers with an error reply): " +
               tav_com_hex(f);
    }
    const char* what = "?";
    for (const TAV_COM_ROW& r : TAV_COM_ROWS) {
        if (f.size() > 5 && r.sub == f[4] && r.sub_name != nullptr) {
            what = r.sub_name;
            break;
        }
    }
    return std::string("malformed frame (") + what + "): " + tav_com_hex(f);
}

// The kind of one complete frame (head to check byte).
inline TAV_COM_KIND tav_com_classify(const std::vector<uint8_t>& f) {
    if (f.size() < 5 || f[0] != TAV_COM_HEAD_BYTE || f[1] != TAV_COM_ADDR_BYTE || f[3] == 0 ||
        f.size() != f[3] + 5u) {
        return TAV_COM_KIND_MALFORMED;
    }
    const uint8_t check = f.back();
    if (f[3] == 1 && check == TAV_COM_ERR_CHECK_BYTE) {
        return TAV_COM_KIND_ERROR_REPLY; // with any order byte
    }
    if (f[2] != TAV_COM_ORDER_BYTE) {
        return TAV_COM_KIND_UNKNOWN;
    }
    const size_t n = f[3] - 1u;
    const TAV_COM_ROW* first = nullptr;
    for (const TAV_COM_ROW& r : TAV_COM_ROWS) {
        if (r.sub != f[4]) {
            continue;
        }
        first = first != nullptr ? first : &r;
        if (n >= r.min && n <= r.max && (r.fits == nullptr || r.fits(f.data() + 5, n))) {
            return r.checked && check != TAV_COM_CHECK_BYTE ? TAV_COM_KIND_MALFORMED : r.kind;
        }
    }
    return first != nullptr && first->sub_name != nullptr ? TAV_COM_KIND_MALFORMED
                                                          : TAV_COM_KIND_UNKNOWN;
}

// The one description of a frame, e.g. "key press TAKE" or
// "lcd line 0 col 4 \"Hello\"".
inline std::string tav_com_describe(const std::vector<uint8_t>& f) {
    return tav_com_row(tav_com_classify(f)).say(f);
}
