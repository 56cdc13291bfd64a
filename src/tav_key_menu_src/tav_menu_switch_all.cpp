// Switch-all menu: one input to every output of a kind, or every output of
// the kind closed (input 0). Serves both menu_switch_vid_all and
// menu_switch_aud_all; the kind comes from the mode set on entry.
#include "tav_menu_switch_all.h"

#include <cstring>

#include "tav_key_var.h"
#include "tav_lcd.h"
#include "tav_menu_analize_press.h"
#include "tav_menu_av_switch.h"
#include "tav_menu_control.h"
#include "tav_menu_display_str.h"
#include "tav_menu_event_analy.h"
#include "tav_menu_led.h"

static TAV_SWALL_STATE m_tav_swall = {1, 1, 0, 0, 0, {}};

// Port numbers on the panel are one byte: a switch-all never asks the
// library about more ports than that.
constexpr int32_t kSwallMaxPort = 255;

static const TAV_AV_KIND& tav_swall_kind(void) {
    return m_tav_swall.mode == 1 ? tav_av_kind_video : tav_av_kind_audio;
}

void tav_menu_switch_all_clear(void) {
    m_tav_swall.mode = 1;
    m_tav_swall.step = 1;
    m_tav_swall.port = 0;
    m_tav_swall.press_start = 0;
    m_tav_swall.maxport = 0;
    memset(m_tav_swall.inbuf, 0xFF, sizeof(m_tav_swall.inbuf));
}

void tav_menu_switch_all_init(void) {
    tav_menu_switch_all_clear();
}

void tav_menu_set_switch_all_mode(uint8_t mode) {
    m_tav_swall.mode = mode;
    m_tav_swall.step = 1;
    m_tav_swall.port = 0;
    m_tav_swall.press_start = 0;
    memset(m_tav_swall.inbuf, 0xFF, sizeof(m_tav_swall.inbuf));
    const TAV_AV_KIND& k = tav_swall_kind();
    uint8_t n = *k.in_max;
    if (n > TAV_PORT_TABLE_SIZE)
        n = TAV_PORT_TABLE_SIZE;
    memcpy(m_tav_swall.inbuf, k.inlist, n);
    m_tav_swall.maxport = n;
}

void tav_menu_swall_handle_3s(void) {
    if (m_tav_swall.step != 4)
        return;
    m_tav_swall.port = 0;
    m_tav_swall.step = 1;
    tav_menu_update(tav_swall_kind().swall_menu);
}

static void tav_swall_keypress(void) {
    tav_analy_keypress(&g_tav_button, &m_tav_swall.step, &m_tav_swall.press_start,
                       m_tav_swall.maxport, m_tav_swall.inbuf, &m_tav_swall.port, 1);
}

void tav_menu_switch_all(void) {
    // A key pressed while a refusal is shown first clears it.
    tav_menu_swall_handle_3s();
    switch (g_tav_button.press) {
    case TAV_PRESS_DIGIT:
        tav_menu_update(tav_swall_kind().swall_menu);
        tav_swall_keypress();
        break;
    case TAV_PRESS_RIGHT:
        if (m_tav_swall.step == 2)
            tav_swall_keypress(); // the single digit is the input
        else if (m_tav_swall.step == 1)
            m_tav_swall.press_start =
                tav_av_page_right(m_tav_swall.press_start, m_tav_swall.maxport);
        break;
    case TAV_PRESS_LEFT:
        if (m_tav_swall.step == 1) {
            if (m_tav_swall.press_start == 0)
                tav_menu_update(menu_switch_all);
            else
                m_tav_swall.press_start = tav_av_page_left(m_tav_swall.press_start);
        } else {
            m_tav_swall.step = 1;
            m_tav_swall.port = 0;
        }
        break;
    case TAV_PRESS_TAKE:
        if (m_tav_swall.step == 3)
            m_tav_swall.step = 5;
        break;
    default:
        break;
    }
}

void tav_menu_switch_all_display(void) {
    const TAV_AV_KIND& k = tav_swall_kind();
    switch (m_tav_swall.step) {
    case 1:
    case 2:
    case 3: {
        tav_menu_print_str_for_switch_all(k.av_type, m_tav_swall.press_start, m_tav_swall.inbuf,
                                          m_tav_swall.maxport, displaybuf);
        tav_display_string(0, 0, displaybuf, 40);
        tav_menu_get_spcstr(displaybuf, k.row_swall_entry);
        uint8_t cursor = 28;
        if (m_tav_swall.step == 2) {
            tav_menu_put_digits(displaybuf, 28, m_tav_swall.port, 1);
            cursor = 29;
        } else if (m_tav_swall.step == 3) {
            tav_menu_put_digits(displaybuf, 28, m_tav_swall.port, 2);
            cursor = 40;
        }
        tav_display_string(1, 0, displaybuf, 40);
        tav_display_move_cursor(1, cursor);
        break;
    }
    case 4:
        tav_menu_spc_display(displaybuf, 75, 76);
        tav_display_move_cursor(1, 40);
        break;
    case 5:
        if (m_tav_swall.port == 0) {
            tav_menu_spc_display(displaybuf, k.row_swall_closing, k.row_swall_closing_wait);
        } else {
            tav_menu_get_spcstr(displaybuf, k.row_swall_switching);
            tav_menu_put_digits(displaybuf, 26, m_tav_swall.port, 2);
            tav_display_string(0, 0, displaybuf, 40);
            tav_menu_get_spcstr(displaybuf, k.row_swall_switching_wait);
            tav_display_string(1, 0, displaybuf, 40);
        }
        tav_display_move_cursor(1, 40);
        tav_bdl_menu_showleds(k.swall_menu, false);
        tav_swall_down();
        break;
    default:
        break;
    }
    // TAKE blinks while an accepted input waits for it.
    tav_bdl_menu_showleds(k.swall_menu, m_tav_swall.step == 3 ? true : false);
}

void tav_swall_down(void) {
    const TAV_AV_KIND& k = tav_swall_kind();
    const int32_t p = m_tav_swall.port > TAV_DEF_MAX_PORT ? 0 : m_tav_swall.port;
    const int32_t last = TAV_DEF_MAX_PORT < kSwallMaxPort ? TAV_DEF_MAX_PORT : kSwallMaxPort;
    // The outputs are those the library reports now, not the panel's list.
    for (int32_t n = 1; n <= last; n++) {
        if (k.pipe_io(pmatrixDllHandle, n) == em_matrix_out) {
            k.set_switch(pmatrixDllHandle, p, n);
            k.stash_switch(pmatrixDllHandle, p, n);
        }
    }
    k.switch_done(pmatrixDllHandle);
    tav_menu_sleep_ms(3000);
    tav_menu_update(k.status_menu);
    k.reload();
}

TAV_SWALL_STATE tav_menu_switch_all_get_state(void) {
    return m_tav_swall;
}
