// Composition of LCD lines: row copies, number slots and port-list lines.
//
// Line buffers are 41 bytes: columns 0-39 and one spare byte never sent.
// The port-line composers take the engine lock themselves, so a line never
// mixes two states of the port tables, whichever thread composes it.
// A port-list line is a 6-character head followed by 11 slots of three
// columns (two digits and a blank); column 39 stays blank.
#include "tav_menu_display_str.h"

#include <cstring>
#include <mutex>

#include "tav_key_var.h"
#include "tav_lcd.h"
#include "tav_menu_control.h"
#include "tav_menu_strcfg.h"

namespace {

constexpr uint8_t k_line_cols = 40;
constexpr uint8_t k_buf_len = 41;
constexpr uint8_t k_slots = 11;
constexpr uint8_t k_print_number = 1;
constexpr uint8_t k_print_blank = 2;

constexpr uint8_t slot_column(int k) {
    return static_cast<uint8_t>(6 + 3 * k);
}

// A row index outside the table is shown as the blank row 0.
const uint8_t* row_text(uint8_t line) {
    return MENU_ITEM_STR[line < TAV_MENU_ROWS ? line : 0];
}

void put(int8_t* buf, int col, char c) {
    if (col < k_buf_len) {
        buf[col] = static_cast<int8_t>(c);
    }
}

void put_head(int8_t* buf, uint8_t head) {
    memcpy(buf, MENU_SPC_HEAD[head], TAV_MENU_HEAD_LEN);
}

void print_port(int8_t* buf, int k, uint8_t value) {
    tav_menu_print(buf, k_print_number, slot_column(k), value);
}

void print_blank(int8_t* buf, int k) {
    tav_menu_print(buf, k_print_blank, slot_column(k), 0);
}

} // namespace

uint8_t tav_menu_clear_lcd(uint8_t start, int8_t* buf) {
    if (start >= k_line_cols || buf == nullptr) {
        return 1;
    }
    memset(buf + start, ' ', k_line_cols - start);
    return 0;
}

void tav_menu_print(int8_t* buf, uint8_t print_type, uint8_t offset, uint8_t ucValue) {
    if (buf == nullptr) {
        return;
    }
    const int col = offset;
    if (print_type == k_print_blank) {
        for (int i = 0; i < 4; ++i) {
            put(buf, col + i, ' ');
        }
    } else if (print_type == k_print_number) {
        if (ucValue == 0) {
            put(buf, col, '0');
            put(buf, col + 1, ' ');
        } else {
            // Values of 100 and more do not fit: the first column then holds
            // the character '0' + value / 10.
            put(buf, col, static_cast<char>('0' + ucValue / 10));
            put(buf, col + 1, static_cast<char>('0' + ucValue % 10));
            put(buf, col + 2, ' ');
        }
        put(buf, col + 3, ' ');
    }
}

void tav_menu_spc_display(int8_t* buf, uint8_t line1, uint8_t line2) {
    if (buf == nullptr) {
        return;
    }
    memcpy(buf, row_text(line1), TAV_MENU_COLS);
    tav_display_string(0, 0, buf, TAV_MENU_COLS);
    memcpy(buf, row_text(line2), TAV_MENU_COLS);
    tav_display_string(1, 0, buf, TAV_MENU_COLS);
}

void tav_menu_get_spcstr(int8_t* buf, uint8_t line) {
    if (buf == nullptr) {
        return;
    }
    memcpy(buf, row_text(line), TAV_MENU_COLS);
}

int tav_menu_print_sw_outin(uint8_t av_type, uint8_t out_start, uint8_t* Outbuf, uint8_t max_out,
                            TAV_PORT_STATE* port_list, int8_t* out_linebuf, int8_t* in_linebuf) {
    if (out_linebuf == nullptr || in_linebuf == nullptr) {
        return em_err_inparam;
    }
    tav_menu_clear_lcd(0, out_linebuf);
    tav_menu_clear_lcd(0, in_linebuf);
    put_head(out_linebuf, av_type == 1 ? 0 : 2);
    put_head(in_linebuf, av_type == 1 ? 1 : 3);
    for (int k = 0; k < max_out && k < k_slots; ++k) {
        const int i = out_start + k;
        if (i >= max_out) {
            print_blank(out_linebuf, k);
            print_blank(in_linebuf, k);
            continue;
        }
        const uint8_t p = Outbuf != nullptr ? Outbuf[i] : 0;
        // A port outside the table is as wrong as one that is not an output.
        if (port_list == nullptr || p < 1 || p > TAV_PORT_TABLE_SIZE ||
            port_list[p - 1].port_io != em_matrix_out) {
            return em_err_inparam;
        }
        print_port(out_linebuf, k, p);
        const uint8_t in = port_list[p - 1].in_for_out;
        if (in >= 1 && in <= TAV_DEF_MAX_PORT) {
            print_port(in_linebuf, k, in);
        } else {
            print_blank(in_linebuf, k);
        }
    }
    return 0;
}

int tav_menu_print_io_outin(uint8_t av_type, uint8_t start, uint8_t* Outbuf, uint8_t max_out,
                            uint8_t* Inbuf, uint8_t max_in, uint8_t max_port, int8_t* out_linebuf,
                            int8_t* in_linebuf) {
    if (out_linebuf == nullptr || in_linebuf == nullptr) {
        return em_err_inparam;
    }
    tav_menu_clear_lcd(0, out_linebuf);
    tav_menu_clear_lcd(0, in_linebuf);
    put_head(out_linebuf, av_type == 1 ? 4 : 6);
    put_head(in_linebuf, av_type == 1 ? 5 : 7);
    for (int k = 0; k < max_port && k < k_slots; ++k) {
        const int i = start + k;
        if (i < max_out && Outbuf != nullptr) {
            print_port(out_linebuf, k, Outbuf[i]);
        } else {
            print_blank(out_linebuf, k);
        }
        if (i < max_in && Inbuf != nullptr) {
            print_port(in_linebuf, k, Inbuf[i]);
        } else {
            print_blank(in_linebuf, k);
        }
    }
    return 0;
}

int tav_menu_print_str_for_switch_all(uint8_t av_type, uint8_t start, uint8_t* listbuf,
                                      uint8_t max_port, int8_t* linebuf) {
    if (linebuf == nullptr) {
        return em_err_inparam;
    }
    tav_menu_clear_lcd(0, linebuf);
    put_head(linebuf, av_type == 1 ? 8 : 9);
    for (int k = 0; k < max_port && k < k_slots; ++k) {
        const int i = start + k;
        if (i < max_port && listbuf != nullptr) {
            print_port(linebuf, k, listbuf[i]);
        } else {
            print_blank(linebuf, k);
        }
    }
    return 0;
}
