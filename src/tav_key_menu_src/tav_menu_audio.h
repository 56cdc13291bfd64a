// Audio switching menu.
#pragma once

#include <cstdint>

#include "tav_menu_av_switch.h"

void tav_audio_init(void);
void tav_audio_clear(void);
void tav_audio_reinit(void);
void tav_audio_to_sw(uint8_t start);
void tav_audio(void);
void tav_audio_io(void);
void tav_audio_switch(void);
void tav_audio_display(void);
void tav_audio_io_display(void);
void tav_audio_switch_display(void);
void tav_audio_switch_3S_timeout(void);
void tav_config_audio_switch(void);

// A copy of the module state, for the tests and diagnostics.
TAV_AV_SWITCH_STATE tav_audio_get_state(void);
