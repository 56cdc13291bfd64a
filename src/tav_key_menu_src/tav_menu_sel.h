// Shortcut menu and the video/audio choice of switch-all.
#pragma once

#include "tav_common.h"

bool_t tav_get_menu_sel_valid(void);
void tav_menu_sel(void);
void tav_menu_sel_display(void);
void tav_menu_sel_av_swall(void);
void tav_menu_sel_av_swall_display(void);
void tav_menu_sel_init(void);
void tav_menu_sel_clear(void);
