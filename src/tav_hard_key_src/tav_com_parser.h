// Byte state machine of the panel frame parser. The program's receive thread,
// the panel emulator and the frame decoder all cut frames with it, so that
// they agree byte for byte on where frames start, end and are dropped.
//
// Frame: EB 5F order length data... check. The record's position counter
// `com_current` is 0 when idle and otherwise one more than the number of
// bytes taken; it is 8-bit, so it wraps back to idle after 255. Everything
// lives in the caller's record: no allocation, no other state.
#pragma once

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
