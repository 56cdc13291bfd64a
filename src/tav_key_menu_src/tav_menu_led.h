// LED scenes of the menus and the start-up self-check pattern.
#pragma once

#include <cstdint>

#include "tav_menu_var.h"

#define TAV_LED_LCD 31
// Most LEDs a scene or a self-check step switches on.
#define TAV_LED_SCENE_MAX 12

uint8_t tav_menuselfcheck_leds(uint8_t showwhichled);
unsigned char tav_bdl_menu_showleds(TAV_ENUM_MENUSTATUS state, bool_t Take_blink);

// The LEDs that the scene of `state` switches on, given the current LCD,
// lock and shortcut flags; writes them to `leds` (TAV_LED_SCENE_MAX entries)
// and returns their number, 0 for a state without a scene.
uint8_t tav_menu_led_scene(TAV_ENUM_MENUSTATUS state, bool_t Take_blink, uint8_t* leds);
