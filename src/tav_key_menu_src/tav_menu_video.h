// Video switching menu (the home page) and the front-panel lock.
#pragma once

#include <cstdint>

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

// Read-only view of a switching menu's state (video or audio), for the tests
// and diagnostics.
struct TAV_AV_SWITCH_STATE {
    uint8_t switch_start; // first output-list index of the status page
    uint8_t io_start;     // first list index of the list page
    uint8_t io_max_port;  // paging range of the list page
    uint8_t press_state;  // number entry: 1 none, 2 one digit, 3 accepted, 4 refused
    uint8_t press_start;
    uint8_t select_port_state; // 0 entering the output, 1 entering the input
    uint8_t config_out;
    uint8_t config_in;
    uint8_t cursor_pozition;
};
TAV_AV_SWITCH_STATE tav_video_get_state(void);
