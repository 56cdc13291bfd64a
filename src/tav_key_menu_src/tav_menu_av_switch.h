// The A/V switching engine shared by the video and the audio switching menus
// and by switch-all.
//
// What differs between video and audio is described once per kind
// (TAV_AV_KIND): the port tables, the library calls, the menu states and the
// warning rows. Each switching menu module keeps its state in one TAV_AV_MENU
// and defines its functions over it with TAV_AV_MENU_FUNCTIONS.
#pragma once

#include <cstdint>

#include "tav_menu_var.h"

// A switching menu's state (video or audio); tav_video_get_state and
// tav_audio_get_state report a copy, for the tests and diagnostics.
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

typedef int32_t (*tav_av_switch_fn)(void* handle, int32_t input, int32_t output);
typedef int32_t (*tav_av_done_fn)(void* handle);
typedef int32_t (*tav_av_pipe_io_fn)(void* handle, int32_t port);

// Marks a row that a kind does not have.
#define TAV_AV_NO_ROW 0xFF

struct TAV_AV_KIND {
    uint8_t av_type; // heads of the composed lines: 1 video, 2 audio
    TAV_PORT_STATE* portbuf;
    uint8_t* inlist;
    uint8_t* outlist;
    uint8_t* in_max;
    uint8_t* out_max;
    tav_av_switch_fn set_switch;
    tav_av_switch_fn stash_switch;
    tav_av_done_fn switch_done;
    tav_av_pipe_io_fn pipe_io; // the port's direction at the time of a switch-all
    void (*reload)(void);      // rebuild of this kind's port tables

    TAV_ENUM_MENUSTATUS status_menu;
    TAV_ENUM_MENUSTATUS io_menu;
    TAV_ENUM_MENUSTATUS switch_menu;
    TAV_ENUM_MENUSTATUS swall_menu;

    uint8_t row_no_card; // status page without any card (TAV_AV_NO_ROW: none)
    uint8_t row_no_out;
    uint8_t row_no_in;

    // Switch-all rows.
    uint8_t row_swall_entry;
    uint8_t row_swall_switching;
    uint8_t row_swall_switching_wait;
    uint8_t row_swall_closing;
    uint8_t row_swall_closing_wait;
};

extern const TAV_AV_KIND tav_av_kind_video;
extern const TAV_AV_KIND tav_av_kind_audio;

// One switching menu module: its kind, its state and its two line buffers
// ([0] top, [1] bottom).
struct TAV_AV_MENU {
    const TAV_AV_KIND* kind;
    TAV_AV_SWITCH_STATE st;
    int8_t line[2][41];
};

// Paging over a list of `count` entries, 11 shown, steps of 8; the last page
// ends on the last entry.
uint8_t tav_av_page_left(uint8_t start);
uint8_t tav_av_page_right(uint8_t start, uint8_t count);

void tav_av_init(TAV_AV_MENU& m);
void tav_av_clear(TAV_AV_MENU& m);
void tav_av_reinit(TAV_AV_MENU& m);
void tav_av_to_sw(TAV_AV_MENU& m, uint8_t start);
void tav_av_status_key(TAV_AV_MENU& m);
void tav_av_io_key(TAV_AV_MENU& m);
void tav_av_switch_key(TAV_AV_MENU& m);
void tav_av_status_display(TAV_AV_MENU& m);
void tav_av_io_display(TAV_AV_MENU& m);
void tav_av_switch_display(TAV_AV_MENU& m);
void tav_av_switch_timeout(TAV_AV_MENU& m);
void tav_av_config_switch(TAV_AV_MENU& m);

// Switch status lines of the current page composed in the module's line
// buffer and sent, cursor parked; or the warning rows when a kind of port is
// missing (`with_no_card_row`: the kind's own page for a matrix without
// cards). Returns false when warning rows were shown.
bool tav_av_draw_status(TAV_AV_MENU& m, bool with_no_card_row);

// The functions a switching menu module offers (tav_video, tav_video_io,
// tav_video_switch_3S_timeout, tav_config_video_switch, ... for `video`),
// defined over the module's TAV_AV_MENU `m`.
// clang-format off
#define TAV_AV_MENU_FUNCTIONS(kind, m)                                                             \
    void tav_##kind##_init(void) { tav_av_init(m); }                                               \
    void tav_##kind##_clear(void) { tav_av_clear(m); }                                             \
    void tav_##kind##_reinit(void) { tav_av_reinit(m); }                                           \
    void tav_##kind##_to_sw(uint8_t start) { tav_av_to_sw(m, start); }                            \
    void tav_##kind(void) { tav_av_status_key(m); }                                                \
    void tav_##kind##_io(void) { tav_av_io_key(m); }                                               \
    void tav_##kind##_switch(void) { tav_av_switch_key(m); }                                       \
    void tav_##kind##_display(void) { tav_av_status_display(m); }                                  \
    void tav_##kind##_io_display(void) { tav_av_io_display(m); }                                   \
    void tav_##kind##_switch_display(void) { tav_av_switch_display(m); }                           \
    void tav_##kind##_switch_3S_timeout(void) { tav_av_switch_timeout(m); }                        \
    void tav_config_##kind##_switch(void) { tav_av_config_switch(m); }                             \
    TAV_AV_SWITCH_STATE tav_##kind##_get_state(void) { return m.st; }
// clang-format on
