// Firmware update progress display.
#pragma once

#include <cstdint>

void tav_menu_updating_init(void);
void tav_menu_updating_clear(void);
void tav_menu_updating_set(void);
void tav_menu_updating_down(void);
void tav_menu_updating(void);
void tav_menu_updating_display(void);

// 0 start, 1 in progress, 2 complete, 3 error.
uint8_t tav_menu_updating_get_state(void);
