// Video switching menu (the home page), the switching code it shares with the
// audio menu, and the front-panel lock.
#include "tav_menu_video.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "tav_key_var.h"
#include "tav_lcd.h"
#include "tav_matrix.h"
#include "tav_menu_analize_press.h"
#include "tav_menu_av_switch.h"
#include "tav_menu_control.h"
#include "tav_menu_display_str.h"
#include "tav_menu_event_analy.h"
#include "tav_menu_led.h"
#include "tav_menu_reset.h"
#include "tav_platform.h"

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
    .menu_next = menu_aud_display,
    .status_break = TAV_AV_NO_MENU,
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
    .menu_next = menu_shortcut,
    .status_break = menu_vid_display,
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

void tav_av_clear(const TAV_AV_MENU& m) {
    *m.v.switch_start = 0;
    *m.v.io_start = 0;
    *m.v.io_max_port = 0;
    memset(m.v.line, 0, 2 * sizeof(m.v.line[0]));
}

void tav_av_init(const TAV_AV_MENU& m) {
    tav_av_clear(m);
    *m.v.io_max_port = tav_av_larger_count(m.kind);
    *m.v.press_state = 1;
    *m.v.press_start = 0;
    *m.v.select_port_state = 0;
    *m.v.config_out = 0;
    *m.v.config_in = 0;
    *m.v.cursor_pozition = 0;
}

void tav_av_reinit(const TAV_AV_MENU& m) {
    *m.v.io_max_port = tav_av_larger_count(m.kind);
    *m.v.switch_start = 0;
    *m.v.io_start = 0;
}

void tav_av_to_sw(const TAV_AV_MENU& m, uint8_t start) {
    *m.v.press_state = 1;
    *m.v.press_start = start;
    *m.v.select_port_state = 0;
    *m.v.config_out = 0;
    *m.v.config_in = 0;
    tav_analy_keypress(&g_tav_button, m.v.press_state, m.v.press_start, *m.kind->out_max,
                       m.kind->outlist, m.v.config_out, 0);
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

// The keys that leave the list page and number entry alike: MENU to the next
// menu of the cycle, LOCK and BREAK home, DEFAULT to the reset menu. TAKE and
// any other key do nothing.
static void tav_av_leave_key(const TAV_AV_MENU& m) {
    switch (g_tav_button.press) {
    case TAV_PRESS_MENU:
        tav_menu_update(m.kind->menu_next);
        break;
    case TAV_PRESS_LOCK:
    case TAV_PRESS_BREAK:
        tav_menu_update(menu_vid_display);
        break;
    case TAV_PRESS_DEFAULT:
        tav_menu_reset_open();
        break;
    default:
        break;
    }
}

void tav_av_status_key(const TAV_AV_MENU& m) {
    const TAV_AV_KIND* k = m.kind;
    switch (g_tav_button.press) {
    case TAV_PRESS_DIGIT:
        tav_av_to_sw(m, *m.v.switch_start);
        break;
    case TAV_PRESS_MENU:
        tav_menu_update(k->io_menu);
        tav_av_reinit(m);
        break;
    case TAV_PRESS_LOCK:
        tav_menu_update(menu_vid_display);
        break;
    case TAV_PRESS_BREAK:
        if (k->status_break != TAV_AV_NO_MENU)
            tav_menu_update(k->status_break);
        break;
    case TAV_PRESS_DEFAULT:
        tav_menu_reset_open();
        break;
    default: // LEFT, RIGHT; TAKE does nothing
        tav_av_page_key(m.v.switch_start, *k->out_max, k->status_menu);
        break;
    }
}

void tav_av_io_key(const TAV_AV_MENU& m) {
    if (g_tav_button.press == TAV_PRESS_DIGIT)
        tav_av_to_sw(m, *m.v.io_start);
    else if (!tav_av_page_key(m.v.io_start, *m.v.io_max_port, m.kind->io_menu))
        tav_av_leave_key(m);
}

void tav_av_switch_timeout(const TAV_AV_MENU& m) {
    if (*m.v.press_state != 4)
        return;
    if (*m.v.select_port_state == 0)
        *m.v.config_out = 0;
    else
        *m.v.config_in = 0;
    *m.v.press_state = 1;
    tav_menu_update(m.kind->switch_menu);
}

void tav_av_switch_key(const TAV_AV_MENU& m, void (*display)(void), void (*config)(void)) {
    const TAV_AV_KIND* k = m.kind;
    // A key pressed while a refusal is shown first clears it.
    tav_av_switch_timeout(m);
    const bool entering_output = *m.v.select_port_state == 0;
    switch (g_tav_button.press) {
    case TAV_PRESS_DIGIT:
    case TAV_PRESS_RIGHT:
        if (entering_output) {
            tav_analy_keypress(&g_tav_button, m.v.press_state, m.v.press_start, *k->out_max,
                               k->outlist, m.v.config_out, 0);
            if (*m.v.press_state == 3) {
                *m.v.press_start = 0;
                *m.v.select_port_state = 1;
                *m.v.press_state = 1;
            }
            tav_menu_update(k->switch_menu);
        } else {
            tav_analy_keypress(&g_tav_button, m.v.press_state, m.v.press_start, *k->in_max,
                               k->inlist, m.v.config_in, 1);
            if (*m.v.press_state == 3) {
                // Show the accepted pair for a second, then switch.
                display();
                tav_menu_sleep_ms(1000);
                *m.v.select_port_state = 0;
                config();
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
            *m.v.config_in = 0;
            *m.v.press_state = 1;
        }
        break;
    default: // MENU, LOCK, BREAK, DEFAULT; TAKE does nothing
        tav_av_leave_key(m);
        break;
    }
}

void tav_av_config_switch(const TAV_AV_MENU& m) {
    const TAV_AV_KIND* k = m.kind;
    k->set_switch(pmatrixDllHandle, *m.v.config_in, *m.v.config_out);
    k->stash_switch(pmatrixDllHandle, *m.v.config_in, *m.v.config_out);
    k->switch_done(pmatrixDllHandle);
    // The status page opens with the switched output in view.
    *m.v.switch_start = tav_menu_ctl_get_startport(k->outlist, *k->out_max, *m.v.config_out);
    tav_menu_update(k->status_menu);
}

static void tav_av_send_lines(const TAV_AV_MENU& m, uint8_t cursor) {
    tav_display_string(0, 0, m.v.line[0], 40);
    tav_display_string(1, 0, m.v.line[1], 40);
    tav_display_move_cursor(1, cursor);
}

bool tav_av_draw_status(const TAV_AV_MENU& m, bool with_no_card_row) {
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
    tav_menu_print_sw_outin(k->av_type, *m.v.switch_start, k->outlist, *k->out_max, k->portbuf,
                            m.v.line[0], m.v.line[1]);
    tav_av_send_lines(m, 40);
    return true;
}

void tav_av_status_display(const TAV_AV_MENU& m) {
    if (tav_av_draw_status(m, true))
        tav_bdl_menu_showleds(m.kind->status_menu, false);
    else
        tav_bdl_menu_showleds(menu_spc, false);
}

void tav_av_io_display(const TAV_AV_MENU& m) {
    const TAV_AV_KIND* k = m.kind;
    tav_menu_print_io_outin(k->av_type, *m.v.io_start, k->outlist, *k->out_max, k->inlist,
                            *k->in_max, *m.v.io_max_port, m.v.line[0], m.v.line[1]);
    tav_av_send_lines(m, 40);
    tav_bdl_menu_showleds(k->status_menu, false);
}

// Right part of the bottom line (columns 27-38) during number entry and the
// cursor column that goes with it. The text's terminating zero lands in
// column 39.
static uint8_t tav_av_entry_text(const TAV_AV_MENU& m, char* out, size_t len) {
    const unsigned state = *m.v.press_state;
    const unsigned oo = *m.v.config_out % 100;
    const unsigned ii = *m.v.config_in % 100;
    if (*m.v.select_port_state == 0) {
        if (state == 2) {
            snprintf(out, len, "      OUT%u_ ", *m.v.config_out % 10u);
            return 37;
        }
        snprintf(out, len, "      OUT__ ");
        return 40;
    }
    if (state == 2) {
        snprintf(out, len, "IN%u_=>OUT%02u ", *m.v.config_in % 10u, oo);
        return 30;
    }
    if (state == 3) {
        snprintf(out, len, "IN%02u=>OUT%02u ", ii, oo);
        return 40;
    }
    snprintf(out, len, "IN__=>OUT%02u ", oo);
    return 40;
}

TAV_AV_SWITCH_STATE tav_av_get_state(const TAV_AV_MENU& m) {
    const TAV_AV_MENU_VARS& v = m.v;
    return {*v.switch_start,      *v.io_start,   *v.io_max_port, *v.press_state,    *v.press_start,
            *v.select_port_state, *v.config_out, *v.config_in,   *v.cursor_pozition};
}

void tav_av_switch_display(const TAV_AV_MENU& m) {
    const TAV_AV_KIND* k = m.kind;
    if (*m.v.press_state == 4) {
        tav_menu_spc_display(displaybuf, *m.v.select_port_state == 0 ? 74 : 75, 76);
    } else {
        tav_menu_print_sw_outin(k->av_type, *m.v.switch_start, k->outlist, *k->out_max, k->portbuf,
                                m.v.line[0], m.v.line[1]);
        tav_menu_clear_lcd(27, m.v.line[0]);
        *m.v.cursor_pozition = tav_av_entry_text(m, (char*)&m.v.line[1][27], 13);
        tav_av_send_lines(m, *m.v.cursor_pozition);
    }
    tav_bdl_menu_showleds(k->switch_menu, *m.v.press_state == 1 ? false : true);
}

// ---------------------------------------------------------------------------
// The video module.

static uint8_t m_tav_video_switch_start;
static uint8_t m_tav_video_io_start;
static uint8_t m_tav_video_io_max_port;
static uint8_t m_tav_press_state;
static uint8_t m_tav_press_start;
static uint8_t m_tav_select_port_state;
static uint8_t m_config_out;
static uint8_t m_config_in;
static uint8_t m_tav_cursor_pozition;
static int8_t m_tav_out_in_buf[2][41];

static const TAV_AV_MENU m_tav_video_menu = {
    &tav_av_kind_video,
    {&m_tav_video_switch_start, &m_tav_video_io_start, &m_tav_video_io_max_port, &m_tav_press_state,
     &m_tav_press_start, &m_tav_select_port_state, &m_config_out, &m_config_in,
     &m_tav_cursor_pozition, m_tav_out_in_buf},
};

void tav_video_init(void) {
    tav_av_init(m_tav_video_menu);
}
void tav_video_clear(void) {
    tav_av_clear(m_tav_video_menu);
}
void tav_video_reinit(void) {
    tav_av_reinit(m_tav_video_menu);
}
void tav_video_to_sw(uint8_t start) {
    tav_av_to_sw(m_tav_video_menu, start);
}
void tav_video(void) {
    tav_av_status_key(m_tav_video_menu);
}
void tav_video_io(void) {
    tav_av_io_key(m_tav_video_menu);
}
void tav_video_switch(void) {
    tav_av_switch_key(m_tav_video_menu, tav_video_switch_display, tav_config_video_switch);
}
void tav_video_display(void) {
    tav_av_status_display(m_tav_video_menu);
}
void tav_video_io_display(void) {
    tav_av_io_display(m_tav_video_menu);
}
void tav_video_switch_display(void) {
    tav_av_switch_display(m_tav_video_menu);
}
void tav_video_switch_3S_timeout(void) {
    tav_av_switch_timeout(m_tav_video_menu);
}
void tav_config_video_switch(void) {
    tav_av_config_switch(m_tav_video_menu);
}

TAV_AV_SWITCH_STATE tav_video_get_state(void) {
    return tav_av_get_state(m_tav_video_menu);
}

// ---------------------------------------------------------------------------
// Front-panel lock. The state is one byte at offset 0 of a file shared with
// the device's other applications: '1' locked, anything else unlocked.

static int tav_lock_open(void) {
    char path[256];
    tav_platform_path("/nandflash/config/.tav_lock_fp", path, sizeof(path));
    return open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
}

void tav_poweron_resetlock(void) {
    int fd = tav_lock_open();
    if (fd < 0)
        return;
    // Written in place: other applications may keep more in the file.
    if (pwrite(fd, "0", 1, 0) != 1) {
        // Nothing to do: the panel starts unlocked whatever the file says.
    }
    close(fd);
}

// The lock file could not keep the state asked for by LOCK: logged once per
// key, with the reason; the panel stays as it is.
static void tav_lock_file_failed(const char* what, int err) {
    tav_log(TAV_LOG_ERR, "func=[%s]lock file %s err:%s", "tav_update_to_lock", what,
            strerror(err));
}

void tav_update_to_lock(uint8_t update_or_press) {
    int fd = tav_lock_open();
    if (fd < 0) {
        if (update_or_press == 1)
            tav_lock_file_failed("open", errno);
        return;
    }
    if (update_or_press == 2) {
        // Another application changed the lock: follow the file.
        char c = '0';
        if (pread(fd, &c, 1, 0) != 1)
            c = '0';
        const bool file_locked = c == '1';
        if (file_locked == (g_tav_lock ? true : false)) {
            close(fd);
            return;
        }
        g_tav_lock = file_locked;
    } else if (update_or_press == 1) {
        // The file first, then the announcement: a peer that reads the file
        // on the signal sees the new state. A file that cannot keep it
        // changes nothing, as one that cannot be opened.
        const bool locked = !g_tav_lock;
        if (pwrite(fd, locked ? "1" : "0", 1, 0) != 1) {
            tav_lock_file_failed("write", errno == 0 ? EIO : errno);
            close(fd);
            return;
        }
        g_tav_lock = locked;
        tav_matrix_set_inner_signal_lock_fp_opt(pmatrixDllHandle);
    }
    close(fd);

    tav_av_draw_status(m_tav_video_menu, false);
    if (g_tav_lock) {
        g_tav_menu = menu_lock;
        tav_bdl_menu_showleds(menu_lock, false);
    } else {
        tav_menu_update(menu_vid_display);
    }
}
