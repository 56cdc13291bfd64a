// EDID copy menu: the user types a source port (an input, an output whose
// sink EDID is taken, or 0 for the default EDID) and a destination input;
// the EDID is read from the source and written to the destination.
#include "tav_menu_edid.h"

#include <cstdio>
#include <cstring>

#include "tav_basetool.h"
#include "tav_lcd.h"
#include "tav_matrix.h"
#include "tav_menu_analize_press.h"
#include "tav_menu_control.h"
#include "tav_menu_display_str.h"
#include "tav_menu_led.h"
#include "tav_menu_strcfg.h"
#include "tav_menu_var.h"

namespace {

TAV_EDID_STATE m_tav_edid;

constexpr uint8_t kRowTitle = 29;
constexpr uint8_t kRowFields = 30;
constexpr uint8_t kNoCursor = 40;
constexpr int kEdidBufLen = 300;
constexpr int kEdidWriteLen = 256;

// Rows shown for the outcomes 1 to 6 (top, bottom).
struct OutcomeRows {
    uint8_t top;
    uint8_t bottom;
};
constexpr OutcomeRows kOutcomeRows[] = {
    {0, 0},   // 0: entry, drawn separately
    {33, 34}, // 1: source not configured
    {33, 34}, // 2: destination 0 or not configured
    {31, 32}, // 3: destination is an output
    {35, 36}, // 4: destination equals source
    {37, 38}, // 5: copy failed
    {39, 40}, // 6: copy succeeded
};

// Direction of a video port; ports outside the table count as unknown.
EM_MATRIX_IO_TYPE port_io(uint8_t port) {
    if (port == 0 || port > TAV_PORT_TABLE_SIZE) {
        return em_matrix_unknown;
    }
    return g_tav_portbuf[port - 1].port_io;
}

// Bottom line of the entry page: row 30 with the typed digits filled in.
// Returns the column for the cursor request (40 = none).
uint8_t compose_fields(int8_t* line, bool both_complete) {
    tav_menu_get_spcstr(line, kRowFields);
    const int src_col = tav_edid_field_column(MENU_ITEM_STR[kRowFields], 0);
    const int dest_col = tav_edid_field_column(MENU_ITEM_STR[kRowFields], 1);

    if (both_complete) {
        if (src_col >= 0) {
            tav_menu_put_digits(line, src_col, m_tav_edid.src, 2);
        }
        if (dest_col >= 0) {
            tav_menu_put_digits(line, dest_col, m_tav_edid.dest, 2);
        }
        return kNoCursor;
    }

    int cur_col = src_col;
    uint8_t typed = m_tav_edid.src;
    if (m_tav_edid.sel_port_step != 0) {
        if (src_col >= 0) {
            tav_menu_put_digits(line, src_col, m_tav_edid.src, 2);
        }
        cur_col = dest_col;
        typed = m_tav_edid.dest;
    }
    if (cur_col < 0) {
        // The configured row has no field for this port: nothing to show.
        return kNoCursor;
    }
    if (m_tav_edid.step != 0) {
        tav_menu_put_digits(line, cur_col, typed, 1);
        return static_cast<uint8_t>(cur_col + 1);
    }
    return static_cast<uint8_t>(cur_col);
}

} // namespace

int tav_edid_field_column(const uint8_t* row, int which) {
    if (row == nullptr || which < 0) {
        return -1;
    }
    int found = 0;
    for (int c = 0; c + 3 < TAV_MENU_COLS; ++c) {
        if (row[c] == '(' && row[c + 3] == ')') {
            if (found == which) {
                return c + 1;
            }
            ++found;
            c += 3;
        }
    }
    return -1;
}

TAV_EDID_STATE tav_menu_edid_get_state(void) {
    return m_tav_edid;
}

void tav_menu_edid_init(void) {
    m_tav_edid = {};
}

void tav_menu_edid_clear(bool_t IfSrc) {
    m_tav_edid.step = 0;
    m_tav_edid.sel_port_step = 0;
    m_tav_edid.dest = 0;
    m_tav_edid.err = 0;
    if (IfSrc) {
        m_tav_edid.src = 0;
    }
}

void tav_edid_handle_err(void) {
    switch (m_tav_edid.err) {
    case TAV_EDID_ERR_SRC_NOCFG:
    case TAV_EDID_COPY_FAILED:
    case TAV_EDID_COPY_DONE:
        tav_menu_edid_clear(true);
        break;
    case TAV_EDID_ERR_DEST_NOCFG:
    case TAV_EDID_ERR_DEST_OUTPUT:
    case TAV_EDID_ERR_SAME_PORT:
        // A refused destination is typed again; the source stays.
        tav_menu_edid_clear(false);
        m_tav_edid.sel_port_step = 1;
        break;
    default:
        break;
    }
    tav_menu_update(menu_edid_switch);
}

uint8_t tav_get_port_result(uint8_t* sel_port_step) {
    if (sel_port_step == nullptr) {
        return TAV_EDID_ENTRY;
    }
    if (*sel_port_step == 0) {
        const EM_MATRIX_IO_TYPE io = port_io(m_tav_edid.src);
        if (m_tav_edid.src != 0 && io != em_matrix_in && io != em_matrix_out) {
            return TAV_EDID_ERR_SRC_NOCFG;
        }
        m_tav_edid.step = 0;
        *sel_port_step = 1;
        return TAV_EDID_ENTRY;
    }
    const EM_MATRIX_IO_TYPE io = port_io(m_tav_edid.dest);
    if (m_tav_edid.dest != 0 && io == em_matrix_in && m_tav_edid.dest != m_tav_edid.src) {
        return TAV_EDID_COPY_REQUESTED;
    }
    if (m_tav_edid.dest == m_tav_edid.src) {
        return TAV_EDID_ERR_SAME_PORT;
    }
    if (io == em_matrix_out) {
        return TAV_EDID_ERR_DEST_OUTPUT;
    }
    return TAV_EDID_ERR_DEST_NOCFG;
}

void tav_edid_nomal(TAV_STRUCT_KB_BUTTON* tav_key, uint8_t* tav_edid_port) {
    if (tav_key == nullptr || tav_edid_port == nullptr) {
        return;
    }
    if (tav_key->press == TAV_PRESS_DIGIT && tav_key->number <= 9) {
        *tav_edid_port = tav_key->number;
        m_tav_edid.step = 1;
    }
}

uint8_t tav_edid_step(TAV_STRUCT_KB_BUTTON* tav_key, uint8_t* tav_edid_port,
                      uint8_t* sel_port_step) {
    if (tav_key == nullptr || tav_edid_port == nullptr) {
        return TAV_EDID_ENTRY;
    }
    if (tav_key->press == TAV_PRESS_DIGIT && tav_key->number <= 9) {
        *tav_edid_port = static_cast<uint8_t>((*tav_edid_port % 10) * 10 + tav_key->number);
    } else if (tav_key->press != TAV_PRESS_RIGHT) {
        return TAV_EDID_ENTRY;
    }
    m_tav_edid.step = 0;
    return tav_get_port_result(sel_port_step);
}

uint8_t tav_edid_analize_key(TAV_STRUCT_KB_BUTTON* tav_key, uint8_t* tav_edid_port,
                             uint8_t* sel_port_step) {
    if (m_tav_edid.step == 0) {
        tav_edid_nomal(tav_key, tav_edid_port);
        return TAV_EDID_ENTRY;
    }
    return tav_edid_step(tav_key, tav_edid_port, sel_port_step);
}

void tav_edid(void) {
    tav_edid_handle_err();
    switch (g_tav_button.press) {
    case TAV_PRESS_DIGIT:
    case TAV_PRESS_RIGHT: {
        uint8_t* field = m_tav_edid.sel_port_step != 0 ? &m_tav_edid.dest : &m_tav_edid.src;
        m_tav_edid.err = tav_edid_analize_key(&g_tav_button, field, &m_tav_edid.sel_port_step);
        tav_menu_update(menu_edid_switch);
        break;
    }
    case TAV_PRESS_LEFT:
        if (m_tav_edid.step == 0 && m_tav_edid.sel_port_step == 0) {
            tav_menu_update(menu_shortcut);
        } else {
            m_tav_edid.step = 0;
            m_tav_edid.sel_port_step = 0;
        }
        break;
    default: // TAKE does nothing
        break;
    }
}

void tav_edid_display(void) {
    const uint8_t err = m_tav_edid.err;
    if (err >= TAV_EDID_ERR_SRC_NOCFG && err <= TAV_EDID_COPY_DONE) {
        tav_menu_spc_display(displaybuf, kOutcomeRows[err].top, kOutcomeRows[err].bottom);
        tav_display_move_cursor(1, kNoCursor);
        tav_bdl_menu_showleds(menu_edid_switch, false);
        return;
    }

    const bool copy = err == TAV_EDID_COPY_REQUESTED;
    tav_menu_get_spcstr(displaybuf, kRowTitle);
    tav_display_string(0, 0, displaybuf, TAV_MENU_COLS);
    const uint8_t cursor = compose_fields(displaybuf, copy);
    tav_display_string(1, 0, displaybuf, TAV_MENU_COLS);
    tav_display_move_cursor(1, cursor);
    tav_bdl_menu_showleds(menu_edid_switch, false);

    if (copy) {
        m_tav_edid.err = edid_copy_down(m_tav_edid.src, m_tav_edid.dest) != 0 ? TAV_EDID_COPY_FAILED
                                                                              : TAV_EDID_COPY_DONE;
        tav_menu_update(menu_edid_switch);
    }
}

int32_t edid_copy_down(uint8_t src, uint8_t dest) {
    uint8_t edid[kEdidBufLen];
    memset(edid, 0, sizeof edid);
    edid[0] = 0xFF;

    int kind;
    int32_t result;
    if (src == 0) {
        kind = em_matrix_edid_default;
        result = tav_matrix_get_port_edid(pmatrixDllHandle, dest, em_matrix_edid_default, edid,
                                          kEdidBufLen);
    } else if (port_io(src) == em_matrix_in) {
        kind = em_matrix_edid_in;
        result =
            tav_matrix_get_port_edid(pmatrixDllHandle, src, em_matrix_edid_in, edid, kEdidBufLen);
    } else {
        kind = em_matrix_edid_load;
        result =
            tav_matrix_get_port_edid(pmatrixDllHandle, src, em_matrix_edid_load, edid, kEdidBufLen);
    }
    if (result != 0) {
        return result;
    }
    if (port_io(dest) == em_matrix_out) {
        return -2;
    }

    char cmd[64];
    snprintf(cmd, sizeof cmd, "tav_echo_cpedid %d %d %d 0", kind, src, dest);
    tav_btool_system(cmd);

    result =
        tav_matrix_set_port_edid(pmatrixDllHandle, dest, em_matrix_edid_in, edid, kEdidWriteLen);
    if (result != 0) {
        tav_btool_system("tav_echo_clean_edid");
    }
    return result;
}
