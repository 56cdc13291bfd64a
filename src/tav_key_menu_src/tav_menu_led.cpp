// Placeholder: replaced by the module implementation.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "tav_menu_led.h"

uint8_t tav_menuselfcheck_leds(uint8_t showwhichled) { return {}; }
unsigned char tav_bdl_menu_showleds(TAV_ENUM_MENUSTATUS state, bool_t Take_blink) { return {}; }
