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
#include <cstring>

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
    TAV_SUB_VERSION = 0x00,     // program: handshake (payload 00); panel: its firmware version
    TAV_SUB_LED_ON = 0x01,      // payload: 32-bit LED mask, most significant byte first
    TAV_SUB_LED_BLINK = 0x02,   // payload: 32-bit mask of blinking LEDs
    TAV_SUB_BLINK_CYCLE = 0x03, // payload: 01, cycle 1..20
    TAV_SUB_LCD_TEXT = 0x04,    // payload: line, column, characters
    TAV_SUB_CURSOR = 0x05,      // payload: line, column
    TAV_SUB_KEY_ENABLE = 0x06,  // payload: 32-bit mask of enabled keys
    TAV_SUB_KEY = 0x07,         // panel: 32-bit mask of the keys held, 0 on release
};
constexpr size_t TAV_COM_MASK_LEN = 4;    // payload of the mask sub-commands
constexpr size_t TAV_COM_VERSION_LEN = 5; // payload of the panel's version: 00 main minor build
constexpr size_t TAV_COM_FRAME_EXTRA = 6; // bytes of an order-21 frame besides its payload
constexpr size_t TAV_COM_TEXT_MAX = 40;   // characters of one text frame: an LCD line

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
    return tav_com_frame(out, TAV_SUB_VERSION, &ask, 1);
}
inline int tav_com_mask_frame(uint8_t* out, uint8_t sub, const uint8_t mask[TAV_COM_MASK_LEN],
                              uint8_t check = TAV_COM_CHECK_BYTE) {
    return tav_com_frame(out, sub, mask, TAV_COM_MASK_LEN, check);
}
inline int tav_com_blink_cycle_frame(uint8_t* out, uint8_t cycle) {
    const uint8_t p[] = {0x01, cycle};
    return tav_com_frame(out, TAV_SUB_BLINK_CYCLE, p, sizeof p);
}
// `n` characters at most TAV_COM_TEXT_MAX.
inline int tav_com_text_frame(uint8_t* out, uint8_t line, uint8_t col, const void* chars,
                              size_t n) {
    uint8_t p[2 + TAV_COM_TEXT_MAX] = {line, col};
    n = n < TAV_COM_TEXT_MAX ? n : TAV_COM_TEXT_MAX;
    memcpy(p + 2, chars, n);
    return tav_com_frame(out, TAV_SUB_LCD_TEXT, p, n + 2);
}
inline int tav_com_cursor_frame(uint8_t* out, uint8_t line, uint8_t col) {
    const uint8_t p[] = {line, col};
    return tav_com_frame(out, TAV_SUB_CURSOR, p, sizeof p);
}
inline int tav_com_version_frame(uint8_t* out, uint8_t main, uint8_t minor, uint8_t build_hi,
                                 uint8_t build_lo, uint8_t check = TAV_COM_CHECK_BYTE) {
    const uint8_t p[] = {0x00, main, minor, build_hi, build_lo};
    return tav_com_frame(out, TAV_SUB_VERSION, p, sizeof p, check);
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
