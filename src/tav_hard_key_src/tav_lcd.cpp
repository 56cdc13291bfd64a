// Placeholder: replaced by the module implementation.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "tav_lcd.h"

uint8_t tav_display_string(uint8_t linenum, uint8_t colnum, int8_t* displaybuf, uint8_t charbuflen) { return {}; }
uint8_t tav_display_move_cursor(uint8_t linenum, uint8_t colnum) { return {}; }
