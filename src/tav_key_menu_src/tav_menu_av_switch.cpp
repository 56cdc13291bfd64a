// The A/V switching engine: the status, list and number-entry pages of the
// video and the audio switching menus, over the kind tables below. Each
// module keeps its state in one TAV_AV_MENU.
#include "tav_menu_av_switch.h"

#include <cstdio>
#include <cstring>

#include "tav_key_var.h"
#include "tav_lcd.h"
#include "tav_matrix.h"
#include "tav_menu_analize_press.h"
#include "tav_menu_control.h"
#include "tav_menu_display_str.h"
#include "tav_menu_event_analy.h"
#include "tav_menu_led.h"

// ---------------------------------------------------------------------------
// The two kinds of switching.

const TAV_AV_KIND tav_av_kind_video = {
    .av_type = 1,
    .portbuf = g_tav_portbuf,
    .inlist = g_tav_inlist,
    .outlist = g_tav_outlist,
    .in_max = &g_tav_in_max,
    .out_max = &g_tav_out_max,
    .set_switch = tav_matrix_set_video_switch,
    .stash_switch = tav_matrix_stash_video_switch_data,
    .switch_done = tav_matrix_set_video_switch_done,
    .pipe_io = tav_matrix_get_video_pipe_io,
    .reload = load_main_set_up,
    .status_menu = menu_vid_display,
    .io_menu = meun_vid_io_display,
    .switch_menu = menu_vid_switch,
    .swall_menu = menu_switch_vid_all,
    .row_no_card = 77,
    .row_no_out = 11,
    .row_no_in = 10,
    .row_swall_entry = 47,
    .row_swall_switching = 51,
    .row_swall_switching_wait = 52,
    .row_swall_closing = 55,
    .row_swall_closing_wait = 56,
};

const TAV_AV_KIND tav_av_kind_audio = {
    .av_type = 2,
    .portbuf = g_tav_aud_portbuf,
    .inlist = g_tav_aud_inlist,
    .outlist = g_tav_aud_outlist,
    .in_max = &g_tav_aud_in_max,
    .out_max = &g_tav_aud_out_max,
    .set_switch = tav_matrix_set_audio_switch,
    .stash_switch = tav_matrix_stash_audio_switch_data,
    .switch_done = tav_matrix_set_audio_switch_done,
    .pipe_io = tav_matrix_get_audio_pipe_io,
    .reload = load_main_aud_set_up,
    .status_menu = menu_aud_display,
    .io_menu = meun_aud_io_display,
    .switch_menu = menu_aud_switch,
    .swall_menu = menu_switch_aud_all,
    .row_no_card = TAV_AV_NO_ROW, // no page of its own for a matrix without cards
    .row_no_out = 28,
    .row_no_in = 27,
    .row_swall_entry = 48,
    .row_swall_switching = 53,
    .row_swall_switching_wait = 54,
    .row_swall_closing = 57,
    .row_swall_closing_wait = 58,
};

// ---------------------------------------------------------------------------
// Shared switching code.

uint8_t tav_av_page_left(uint8_t start) {
    return start > 8 ? (uint8_t)(start - 8) : 0;
}

uint8_t tav_av_page_right(uint8_t start, uint8_t count) {
    if ((int)start + 19 < (int)count)
        return (uint8_t)(start + 8);
    if (count > 10)
        return (uint8_t)(count - 11);
    return 0;
}

static uint8_t tav_av_larger_count(const TAV_AV_KIND* k) {
    return *k->in_max > *k->out_max ? *k->in_max : *k->out_max;
}

void tav_av_clear(TAV_AV_MENU& m) {
    m.st.switch_start = 0;
    m.st.io_start = 0;
    m.st.io_max_port = 0;
    memset(m.line, 0, sizeof m.line);
}

void tav_av_init(TAV_AV_MENU& m) {
    tav_av_clear(m);
    m.st.io_max_port = tav_av_larger_count(m.kind);
    m.st.press_state = 1;
    m.st.press_start = 0;
    m.st.select_port_state = 0;
    m.st.config_out = 0;
    m.st.config_in = 0;
    m.st.cursor_pozition = 0;
}

void tav_av_reinit(TAV_AV_MENU& m) {
    m.st.io_max_port = tav_av_larger_count(m.kind);
    m.st.switch_start = 0;
    m.st.io_start = 0;
}

void tav_av_to_sw(TAV_AV_MENU& m, uint8_t start) {
    m.st.press_state = 1;
    m.st.press_start = start;
    m.st.select_port_state = 0;
    m.st.config_out = 0;
    m.st.config_in = 0;
    tav_analy_keypress(&g_tav_button, &m.st.press_state, &m.st.press_start, *m.kind->out_max,
                       m.kind->outlist, &m.st.config_out, 0);
    tav_menu_update(m.kind->switch_menu);
}

// LEFT and RIGHT page the list page or the status page over `count` entries
// and redraw it. Returns false for any other key.
static bool tav_av_page_key(uint8_t* start, uint8_t count, TAV_ENUM_MENUSTATUS page) {
    switch (g_tav_button.press) {
    case TAV_PRESS_LEFT:
        *start = tav_av_page_left(*start);
        break;
    case TAV_PRESS_RIGHT:
        *start = tav_av_page_right(*start, count);
        break;
    default:
        return false;
    }
    tav_menu_update(page);
    return true;
}

void tav_av_status_key(TAV_AV_MENU& m) {
    if (g_tav_button.press == TAV_PRESS_DIGIT)
        tav_av_to_sw(m, m.st.switch_start);
    else // LEFT and RIGHT page; any other key does nothing
        tav_av_page_key(&m.st.switch_start, *m.kind->out_max, m.kind->status_menu);
}

void tav_av_io_key(TAV_AV_MENU& m) {
    if (g_tav_button.press == TAV_PRESS_DIGIT)
        tav_av_to_sw(m, m.st.io_start);
    else
        tav_av_page_key(&m.st.io_start, m.st.io_max_port, m.kind->io_menu);
}

void tav_av_switch_timeout(TAV_AV_MENU& m) {
    if (m.st.press_state != 4)
        return;
    if (m.st.select_port_state == 0)
        m.st.config_out = 0;
    else
        m.st.config_in = 0;
    m.st.press_state = 1;
    tav_menu_update(m.kind->switch_menu);
}

void tav_av_switch_key(TAV_AV_MENU& m) {
    const TAV_AV_KIND* k = m.kind;
    // A key pressed while a refusal is shown first clears it.
    tav_av_switch_timeout(m);
    const bool entering_output = m.st.select_port_state == 0;
    switch (g_tav_button.press) {
    case TAV_PRESS_DIGIT:
    case TAV_PRESS_RIGHT:
        if (entering_output) {
            tav_analy_keypress(&g_tav_button, &m.st.press_state, &m.st.press_start, *k->out_max,
                               k->outlist, &m.st.config_out, 0);
            if (m.st.press_state == 3) {
                m.st.press_start = 0;
                m.st.select_port_state = 1;
                m.st.press_state = 1;
            }
            tav_menu_update(k->switch_menu);
        } else {
            tav_analy_keypress(&g_tav_button, &m.st.press_state, &m.st.press_start, *k->in_max,
                               k->inlist, &m.st.config_in, 1);
            if (m.st.press_state == 3) {
                // Show the accepted pair for a second, then switch.
                tav_av_switch_display(m);
                tav_menu_sleep_ms(1000);
                m.st.select_port_state = 0;
                tav_av_config_switch(m);
            } else {
                tav_menu_update(k->switch_menu);
            }
        }
        break;
    case TAV_PRESS_LEFT:
        if (entering_output) {
            tav_menu_update(k->status_menu);
        } else {
            // The input entry starts over; the chosen output stays.
            m.st.config_in = 0;
            m.st.press_state = 1;
        }
        break;
    default: // TAKE does nothing
        break;
    }
}

void tav_av_config_switch(TAV_AV_MENU& m) {
    const TAV_AV_KIND* k = m.kind;
    k->set_switch(pmatrixDllHandle, m.st.config_in, m.st.config_out);
    k->stash_switch(pmatrixDllHandle, m.st.config_in, m.st.config_out);
    k->switch_done(pmatrixDllHandle);
    // The status page opens with the switched output in view.
    m.st.switch_start = tav_menu_ctl_get_startport(k->outlist, *k->out_max, m.st.config_out);
    tav_menu_update(k->status_menu);
}

static void tav_av_send_lines(TAV_AV_MENU& m, uint8_t cursor) {
    tav_display_string(0, 0, m.line[0], 40);
    tav_display_string(1, 0, m.line[1], 40);
    tav_display_move_cursor(1, cursor);
}

bool tav_av_draw_status(TAV_AV_MENU& m, bool with_no_card_row) {
    const TAV_AV_KIND* k = m.kind;
    uint8_t row = TAV_AV_NO_ROW;
    if (with_no_card_row && k->row_no_card != TAV_AV_NO_ROW && *k->in_max == 0 && *k->out_max == 0)
        row = k->row_no_card;
    else if (*k->out_max == 0)
        row = k->row_no_out;
    else if (*k->in_max == 0)
        row = k->row_no_in;
    if (row != TAV_AV_NO_ROW) {
        tav_menu_spc_display(displaybuf, row, 12);
        return false;
    }
    tav_menu_print_sw_outin(k->av_type, m.st.switch_start, k->outlist, *k->out_max, k->portbuf,
                            m.line[0], m.line[1]);
    tav_av_send_lines(m, 40);
    return true;
}

void tav_av_status_display(TAV_AV_MENU& m) {
    if (tav_av_draw_status(m, true))
        tav_bdl_menu_showleds(m.kind->status_menu, false);
    else
        tav_bdl_menu_showleds(menu_spc, false);
}

void tav_av_io_display(TAV_AV_MENU& m) {
    const TAV_AV_KIND* k = m.kind;
    tav_menu_print_io_outin(k->av_type, m.st.io_start, k->outlist, *k->out_max, k->inlist,
                            *k->in_max, m.st.io_max_port, m.line[0], m.line[1]);
    tav_av_send_lines(m, 40);
    tav_bdl_menu_showleds(k->status_menu, false);
}

// Right part of the bottom line (columns 27-38) during number entry and the
// cursor column that goes with it. The text's terminating zero lands in
// column 39.
static uint8_t tav_av_entry_text(TAV_AV_MENU& m, char* out, size_t len) {
    const unsigned state = m.st.press_state;
    const unsigned oo = m.st.config_out % 100;
    const unsigned ii = m.st.config_in % 100;
    if (m.st.select_port_state == 0) {
        if (state == 2) {
            snprintf(out, len, "      OUT%u_ ", m.st.config_out % 10u);
            return 37;
        }
        snprintf(out, len, "      OUT__ ");
        return 40;
    }
    if (state == 2) {
        snprintf(out, len, "IN%u_=>OUT%02u ", m.st.config_in % 10u, oo);
        return 30;
    }
    if (state == 3) {
        snprintf(out, len, "IN%02u=>OUT%02u ", ii, oo);
        return 40;
    }
    snprintf(out, len, "IN__=>OUT%02u ", oo);
    return 40;
}

void tav_av_switch_display(TAV_AV_MENU& m) {
    const TAV_AV_KIND* k = m.kind;
    if (m.st.press_state == 4) {
        tav_menu_spc_display(displaybuf, m.st.select_port_state == 0 ? 74 : 75, 76);
    } else {
        tav_menu_print_sw_outin(k->av_type, m.st.switch_start, k->outlist, *k->out_max, k->portbuf,
                                m.line[0], m.line[1]);
        tav_menu_clear_lcd(27, m.line[0]);
        m.st.cursor_pozition = tav_av_entry_text(m, (char*)&m.line[1][27], 13);
        tav_av_send_lines(m, m.st.cursor_pozition);
    }
    tav_bdl_menu_showleds(k->switch_menu, m.st.press_state == 1 ? false : true);
}
