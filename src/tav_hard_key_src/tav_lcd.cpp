// LCD text and cursor commands (sub-commands 4 and 5).
#include "tav_lcd.h"

#include <cstring>
#include <mutex>

#include "tav_baseportcontrol.h"

namespace {

constexpr uint8_t TAV_LCD_LINES = 2;
constexpr uint8_t TAV_LCD_COLS = 40;
constexpr uint8_t TAV_SUB_TEXT = 4;
constexpr uint8_t TAV_SUB_CURSOR = 5;

void lcd_send(const uint8_t* frame, int len) {
    std::lock_guard<std::mutex> lk(tav_port_tx_mutex());
    tav_port_write_locked(frame, len);
}

} // namespace

uint8_t tav_display_string(uint8_t linenum, uint8_t colnum, int8_t* displaybuf,
                           uint8_t charbuflen) {
    if (uartfid.load() < 0 || displaybuf == nullptr || charbuflen == 0 ||
        charbuflen > TAV_LCD_COLS || linenum >= TAV_LCD_LINES || colnum >= TAV_LCD_COLS ||
        colnum + charbuflen > TAV_LCD_COLS) {
        return 1;
    }
    uint8_t frame[100];
    memset(frame, 0, sizeof frame);
    frame[0] = 0xEB;
    frame[1] = 0x5F;
    frame[2] = 0x21;
    frame[3] = static_cast<uint8_t>(charbuflen + 3);
    frame[4] = TAV_SUB_TEXT;
    frame[5] = linenum;
    frame[6] = colnum;
    memcpy(frame + 7, displaybuf, charbuflen);
    frame[7 + charbuflen] = 0x0F;
    lcd_send(frame, charbuflen + 8);
    return 0;
}

uint8_t tav_display_move_cursor(uint8_t linenum, uint8_t colnum) {
    if (uartfid.load() < 0 || linenum >= TAV_LCD_LINES || colnum >= TAV_LCD_COLS) {
        return 1;
    }
    uint8_t frame[16];
    memset(frame, 0, sizeof frame);
    const uint8_t bytes[] = {0xEB, 0x5F, 0x21, 0x03, TAV_SUB_CURSOR, linenum, colnum, 0x0F};
    memcpy(frame, bytes, sizeof bytes);
    lcd_send(frame, sizeof bytes);
    return 0;
}
