// Placeholder: replaced by the module implementation.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "tav_menu_audio.h"

void tav_audio_init(void) {}
void tav_audio_clear(void) {}
void tav_audio_reinit(void) {}
void tav_audio_to_sw(uint8_t start) {}
void tav_audio(void) {}
void tav_audio_io(void) {}
void tav_audio_switch(void) {}
void tav_audio_display(void) {}
void tav_audio_io_display(void) {}
void tav_audio_switch_display(void) {}
void tav_audio_switch_3S_timeout(void) {}
void tav_config_audio_switch(void) {}
