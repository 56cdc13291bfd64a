// Code shared by the video and the audio switching menus and by switch-all.
// Private to tav_menu_video, tav_menu_audio and tav_menu_switch_all.
//
// What differs between video and audio is described once per kind
// (TAV_AV_KIND): the port tables, the library calls, the menu states, the
// warning rows and the keys that lead elsewhere. The state of a switching
// menu stays in its own module's variables; TAV_AV_MENU_VARS points at them
// so that one implementation serves both modules.
#pragma once

#include <cstdint>

#include "tav_menu_var.h"
#include "tav_menu_video.h"

typedef int32_t (*tav_av_switch_fn)(void* handle, int32_t input, int32_t output);
typedef int32_t (*tav_av_done_fn)(void* handle);
typedef int32_t (*tav_av_pipe_io_fn)(void* handle, int32_t port);

// Marks a key or a row that a kind does not have.
#define TAV_AV_NO_MENU ((TAV_ENUM_MENUSTATUS)-1)
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
    TAV_ENUM_MENUSTATUS menu_next;    // MENU on the list page and in number entry
    TAV_ENUM_MENUSTATUS status_break; // BREAK on the status page

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

// The variables of one switching menu module.
struct TAV_AV_MENU_VARS {
    uint8_t* switch_start;
    uint8_t* io_start;
    uint8_t* io_max_port;
    uint8_t* press_state;
    uint8_t* press_start;
    uint8_t* select_port_state;
    uint8_t* config_out;
    uint8_t* config_in;
    uint8_t* cursor_pozition;
    int8_t (*line)[41]; // two line buffers: [0] top, [1] bottom
};

struct TAV_AV_MENU {
    const TAV_AV_KIND* kind;
    TAV_AV_MENU_VARS v;
};

// Paging over a list of `count` entries, 11 shown, steps of 8; the last page
// ends on the last entry.
uint8_t tav_av_page_left(uint8_t start);
uint8_t tav_av_page_right(uint8_t start, uint8_t count);

void tav_av_init(const TAV_AV_MENU& m);
void tav_av_clear(const TAV_AV_MENU& m);
void tav_av_reinit(const TAV_AV_MENU& m);
void tav_av_to_sw(const TAV_AV_MENU& m, uint8_t start);
void tav_av_status_key(const TAV_AV_MENU& m);
void tav_av_io_key(const TAV_AV_MENU& m);
// `display` and `config` are the module's own display and switch functions.
void tav_av_switch_key(const TAV_AV_MENU& m, void (*display)(void), void (*config)(void));
void tav_av_status_display(const TAV_AV_MENU& m);
void tav_av_io_display(const TAV_AV_MENU& m);
void tav_av_switch_display(const TAV_AV_MENU& m);
void tav_av_switch_timeout(const TAV_AV_MENU& m);
void tav_av_config_switch(const TAV_AV_MENU& m);

// Switch status lines of the current page composed in the module's line
// buffer and sent, cursor parked; or the warning rows when a kind of port is
// missing (`with_no_card_row`: the kind's own page for a matrix without
// cards). Returns false when warning rows were shown.
bool tav_av_draw_status(const TAV_AV_MENU& m, bool with_no_card_row);

// The module's state as tav_video_get_state / tav_audio_get_state report it.
TAV_AV_SWITCH_STATE tav_av_get_state(const TAV_AV_MENU& m);
