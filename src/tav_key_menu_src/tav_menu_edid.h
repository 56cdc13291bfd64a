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
