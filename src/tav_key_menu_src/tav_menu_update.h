// Firmware update progress display.
#pragma once

void tav_menu_updating_init(void);
void tav_menu_updating_clear(void);
void tav_menu_updating_set(void);
void tav_menu_updating_down(void);
void tav_menu_updating(void);
void tav_menu_updating_display(void);
