// LED scenes of the menus and the start-up self-check pattern.
#pragma once

#include <cstdint>

#include "tav_menu_var.h"

uint8_t tav_menuselfcheck_leds(uint8_t showwhichled);
unsigned char tav_bdl_menu_showleds(TAV_ENUM_MENUSTATUS state, bool_t Take_blink);
