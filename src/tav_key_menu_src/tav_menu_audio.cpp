// Audio switching menu: the audio twin of the video menu. The switching code
// itself is shared (tav_menu_av_switch.h); this module keeps its own state.
#include "tav_menu_audio.h"

#include "tav_menu_av_switch.h"

static uint8_t m_tav_audio_switch_start;
static uint8_t m_tav_audio_io_start;
static uint8_t m_tav_audio_io_max_port;
static uint8_t m_tav_press_state;
static uint8_t m_tav_press_start;
static uint8_t m_tav_select_port_state;
static uint8_t m_config_out;
static uint8_t m_config_in;
static uint8_t m_tav_cursor_pozition;
static int8_t m_tav_out_in_buf[2][41];

static const TAV_AV_MENU m_tav_audio_menu = {
    &tav_av_kind_audio,
    {&m_tav_audio_switch_start, &m_tav_audio_io_start, &m_tav_audio_io_max_port, &m_tav_press_state,
     &m_tav_press_start, &m_tav_select_port_state, &m_config_out, &m_config_in,
     &m_tav_cursor_pozition, m_tav_out_in_buf},
};

void tav_audio_init(void) {
    tav_av_init(m_tav_audio_menu);
}
void tav_audio_clear(void) {
    tav_av_clear(m_tav_audio_menu);
}
void tav_audio_reinit(void) {
    tav_av_reinit(m_tav_audio_menu);
}
void tav_audio_to_sw(uint8_t start) {
    tav_av_to_sw(m_tav_audio_menu, start);
}
void tav_audio(void) {
    tav_av_status_key(m_tav_audio_menu);
}
void tav_audio_io(void) {
    tav_av_io_key(m_tav_audio_menu);
}
void tav_audio_switch(void) {
    tav_av_switch_key(m_tav_audio_menu, tav_audio_switch_display, tav_config_audio_switch);
}
void tav_audio_display(void) {
    tav_av_status_display(m_tav_audio_menu);
}
void tav_audio_io_display(void) {
    tav_av_io_display(m_tav_audio_menu);
}
void tav_audio_switch_display(void) {
    tav_av_switch_display(m_tav_audio_menu);
}
void tav_audio_switch_3S_timeout(void) {
    tav_av_switch_timeout(m_tav_audio_menu);
}
void tav_config_audio_switch(void) {
    tav_av_config_switch(m_tav_audio_menu);
}

TAV_AV_SWITCH_STATE tav_audio_get_state(void) {
    return tav_av_get_state(m_tav_audio_menu);
}
