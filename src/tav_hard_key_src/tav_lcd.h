// LCD text and cursor commands.
#pragma once

#include <cstdint>

uint8_t tav_display_string(uint8_t linenum, uint8_t colnum, int8_t* displaybuf, uint8_t charbuflen);
uint8_t tav_display_move_cursor(uint8_t linenum, uint8_t colnum);
