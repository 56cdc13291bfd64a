// EDID copy menu.
#pragma once

#include <cstdint>

#include "tav_common.h"
#include "tav_hardboard_var.h"

void tav_menu_edid_init(void);
void tav_menu_edid_clear(bool_t IfSrc);
void tav_edid(void);
void tav_edid_display(void);
void tav_edid_handle_err(void);
uint8_t tav_edid_analize_key(TAV_STRUCT_KB_BUTTON* tav_key, uint8_t* tav_edid_port,
                             uint8_t* sel_port_step);
void tav_edid_nomal(TAV_STRUCT_KB_BUTTON* tav_key, uint8_t* tav_edid_port);
uint8_t tav_edid_step(TAV_STRUCT_KB_BUTTON* tav_key, uint8_t* tav_edid_port,
                      uint8_t* sel_port_step);
uint8_t tav_get_port_result(uint8_t* sel_port_step);
int32_t edid_copy_down(uint8_t src, uint8_t dest);

// Outcome codes of the page (TAV_EDID_STATE::err).
enum : uint8_t {
    TAV_EDID_ENTRY = 0,
    TAV_EDID_ERR_SRC_NOCFG = 1,
    TAV_EDID_ERR_DEST_NOCFG = 2,
    TAV_EDID_ERR_DEST_OUTPUT = 3,
    TAV_EDID_ERR_SAME_PORT = 4,
    TAV_EDID_COPY_FAILED = 5,
    TAV_EDID_COPY_DONE = 6,
    TAV_EDID_COPY_REQUESTED = 7,
};

// The module's state; tav_menu_edid_get_state reports a copy, for the tests
// and diagnostics.
struct TAV_EDID_STATE {
    uint8_t step;          // 0 no digit typed in the current field, 1 one digit typed
    uint8_t sel_port_step; // 0 entering the source, 1 entering the destination
    uint8_t src;
    uint8_t dest;
    uint8_t err;
};
TAV_EDID_STATE tav_menu_edid_get_state(void);

// Column of the first digit of field `which` (0 source, 1 destination) in
// a 40-column row, or -1 when the row holds no such field. A field is a "("
// with a ")" three columns further on; fields do not overlap.
int tav_edid_field_column(const uint8_t* row, int which);
