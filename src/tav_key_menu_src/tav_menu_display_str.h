// Composition of LCD lines: row copies, number slots and port-list lines.
#pragma once

#include <cstdint>

#include "tav_menu_var.h"

uint8_t tav_menu_clear_lcd(uint8_t start, int8_t* buf);
void tav_menu_print(int8_t* buf, uint8_t print_type, uint8_t offset, uint8_t ucValue);
void tav_menu_spc_display(int8_t* buf, uint8_t line1, uint8_t line2);
void tav_menu_get_spcstr(int8_t* buf, uint8_t line);
// The last `width` digits of `value`, zero-padded, into columns col.. of a line.
void tav_menu_put_digits(int8_t* line, int col, unsigned value, int width);
// `value` right-aligned in the `width` columns before column `end`, leading
// zeros blank (at least one digit).
void tav_menu_put_number(int8_t* line, int end, unsigned value, int width);
// `slot` as two digits into the first "XX" pair (either case) of a 40-column
// line; false when the line has no such pair, which is left unchanged. A slot
// of 100 or more does not fit and is shown as "--".
bool tav_menu_put_slot_number(int8_t* line, uint8_t slot);
int tav_menu_print_sw_outin(uint8_t av_type, uint8_t out_start, uint8_t* Outbuf, uint8_t max_out,
                            TAV_PORT_STATE* port_list, int8_t* out_linebuf, int8_t* in_linebuf);
int tav_menu_print_io_outin(uint8_t av_type, uint8_t start, uint8_t* Outbuf, uint8_t max_out,
                            uint8_t* Inbuf, uint8_t max_in, uint8_t max_port, int8_t* out_linebuf,
                            int8_t* in_linebuf);
int tav_menu_print_str_for_switch_all(uint8_t av_type, uint8_t start, uint8_t* listbuf,
                                      uint8_t max_port, int8_t* linebuf);
