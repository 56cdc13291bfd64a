// Composition of LCD lines: row copies, number slots and port-list lines.
//
// Line buffers are 41 bytes: columns 0-39 and one spare byte never sent.
// Callers hold the engine lock, so a line never mixes two states of the port
// tables. A port-list line is a 6-character head followed by 11 slots of three
// columns (two digits and a blank); column 39 stays blank.
#include "tav_menu_display_str.h"

#include <cstring>
#include <mutex>

#include "tav_key_var.h"
#include "tav_lcd.h"
#include "tav_menu_control.h"
#include "tav_menu_strcfg.h"

namespace {

constexpr uint8_t kLineCols = 40;
constexpr uint8_t kBufLen = 41;
constexpr uint8_t kSlots = 11;
constexpr uint8_t kPrintNumber = 1;
constexpr uint8_t kPrintBlank = 2;

constexpr uint8_t slot_column(int k) {
    return static_cast<uint8_t>(6 + 3 * k);
}

bool is_x(int8_t c) {
    return c == 'X' || c == 'x';
}

// A row index outside the table is shown as the blank row 0.
const uint8_t* row_text(uint8_t line) {
    return MENU_ITEM_STR[line < TAV_MENU_ROWS ? line : 0];
}

void put(int8_t* buf, int col, char c) {
    if (col < kBufLen) {
        buf[col] = static_cast<int8_t>(c);
    }
}

void put_head(int8_t* buf, uint8_t head) {
    memcpy(buf, MENU_SPC_HEAD[head], TAV_MENU_HEAD_LEN);
}

void print_port(int8_t* buf, int k, uint8_t value) {
    tav_menu_print(buf, kPrintNumber, slot_column(k), value);
}

void print_blank(int8_t* buf, int k) {
    tav_menu_print(buf, kPrintBlank, slot_column(k), 0);
}

// Slot k of a port-list line: entry start + k of the list when there is one,
// else blank.
void print_entry(int8_t* buf, int k, const uint8_t* list, int count, int start) {
    if (start + k < count && list != nullptr) {
        print_port(buf, k, list[start + k]);
    } else {
        print_blank(buf, k);
    }
}

// Blank lines with their heads (the bottom line's head follows the top's).
void start_lines(int8_t* top, int8_t* bottom, uint8_t head) {
    tav_menu_clear_lcd(0, top);
    put_head(top, head);
    if (bottom != nullptr) {
        tav_menu_clear_lcd(0, bottom);
        put_head(bottom, static_cast<uint8_t>(head + 1));
    }
}

} // namespace

uint8_t tav_menu_clear_lcd(uint8_t start, int8_t* buf) {
    if (start >= kLineCols || buf == nullptr) {
        return 1;
    }
    memset(buf + start, ' ', kLineCols - start);
    return 0;
}

void tav_menu_print(int8_t* buf, uint8_t print_type, uint8_t offset, uint8_t ucValue) {
    if (buf == nullptr) {
        return;
    }
    const int col = offset;
    if (print_type == kPrintBlank) {
        for (int i = 0; i < 4; ++i) {
            put(buf, col + i, ' ');
        }
    } else if (print_type == kPrintNumber) {
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

void tav_menu_put_digits(int8_t* line, int col, unsigned value, int width) {
    for (int i = width - 1; i >= 0; --i, value /= 10) {
        line[col + i] = static_cast<int8_t>('0' + value % 10);
    }
}

void tav_menu_put_number(int8_t* line, int end, unsigned value, int width) {
    for (int i = 1; i <= width; ++i, value /= 10) {
        line[end - i] = static_cast<int8_t>(i == 1 || value != 0 ? '0' + value % 10 : ' ');
    }
}

bool tav_menu_put_slot_number(int8_t* line, uint8_t slot) {
    for (int p = 0; p + 1 < TAV_MENU_COLS; ++p) {
        if (is_x(line[p]) && is_x(line[p + 1])) {
            if (slot >= 100) {
                line[p] = '-';
                line[p + 1] = '-';
            } else {
                tav_menu_put_digits(line, p, slot, 2);
            }
            return true;
        }
    }
    return false;
}

int tav_menu_print_sw_outin(uint8_t av_type, uint8_t out_start, uint8_t* Outbuf, uint8_t max_out,
                            TAV_PORT_STATE* port_list, int8_t* out_linebuf, int8_t* in_linebuf) {
    if (out_linebuf == nullptr || in_linebuf == nullptr) {
        return em_err_inparam;
    }
    start_lines(out_linebuf, in_linebuf, av_type == 1 ? 0 : 2);
    for (int k = 0; k < max_out && k < kSlots; ++k) {
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
    start_lines(out_linebuf, in_linebuf, av_type == 1 ? 4 : 6);
    for (int k = 0; k < max_port && k < kSlots; ++k) {
        print_entry(out_linebuf, k, Outbuf, max_out, start);
        print_entry(in_linebuf, k, Inbuf, max_in, start);
    }
    return 0;
}

int tav_menu_print_str_for_switch_all(uint8_t av_type, uint8_t start, uint8_t* listbuf,
                                      uint8_t max_port, int8_t* linebuf) {
    if (linebuf == nullptr) {
        return em_err_inparam;
    }
    start_lines(linebuf, nullptr, av_type == 1 ? 8 : 9);
    for (int k = 0; k < max_port && k < kSlots; ++k) {
        print_entry(linebuf, k, listbuf, max_port, start);
    }
    return 0;
}
