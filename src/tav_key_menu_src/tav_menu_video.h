// Video switching menu (the home page) and the front-panel lock.
#pragma once

#include <cstdint>

#include "tav_menu_av_switch.h"

void tav_video_init(void);
void tav_video_clear(void);
void tav_video_reinit(void);
void tav_video_to_sw(uint8_t start);
void tav_video(void);
void tav_video_io(void);
void tav_video_switch(void);
void tav_video_display(void);
void tav_video_io_display(void);
void tav_video_switch_display(void);
void tav_video_switch_3S_timeout(void);
void tav_config_video_switch(void);

// Front-panel lock.
void tav_poweron_resetlock(void);
void tav_update_to_lock(uint8_t update_or_press);

// A copy of the module state, for the tests and diagnostics.
TAV_AV_SWITCH_STATE tav_video_get_state(void);
