// Switch-all menu: one input to every output, or every output closed.
#pragma once

#include <cstdint>

#include "tav_menu_var.h"

void tav_menu_set_switch_all_mode(uint8_t mode);
void tav_menu_switch_all_init(void);
void tav_menu_switch_all_clear(void);
void tav_menu_switch_all(void);
void tav_menu_switch_all_display(void);
void tav_menu_swall_handle_3s(void);
void tav_swall_down(void);

// The module's state; tav_menu_switch_all_get_state reports a copy, for the
// tests and diagnostics.
struct TAV_SWALL_STATE {
    uint8_t mode;        // 1 video, otherwise audio
    uint8_t step;        // 1 no digit, 2 one digit, 3 accepted, 4 refused, 5 switching
    uint8_t port;        // input typed; 0 closes every output
    uint8_t maxport;     // valid entries of the input list copy
    uint8_t press_start; // first list index of the input page
    uint8_t inbuf[TAV_PORT_TABLE_SIZE]; // the input list copy, taken on entry
};
TAV_SWALL_STATE tav_menu_switch_all_get_state(void);
