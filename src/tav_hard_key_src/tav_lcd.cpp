// LCD text and cursor commands.
#include "tav_lcd.h"

#include <cstring>
#include <mutex>

#include "tav_baseportcontrol.h"
#include "tav_com_protocol.h"

namespace {

constexpr uint8_t TAV_LCD_LINES = 2;
constexpr uint8_t TAV_LCD_COLS = 40;

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
    uint8_t frame[2 + TAV_COM_TEXT_MAX + TAV_COM_FRAME_EXTRA];
    lcd_send(frame, tav_com_text_frame(frame, linenum, colnum, displaybuf, charbuflen));
    return 0;
}

uint8_t tav_display_move_cursor(uint8_t linenum, uint8_t colnum) {
    if (uartfid.load() < 0 || linenum >= TAV_LCD_LINES || colnum >= TAV_LCD_COLS) {
        return 1;
    }
    uint8_t frame[2 + TAV_COM_FRAME_EXTRA];
    lcd_send(frame, tav_com_cursor_frame(frame, linenum, colnum));
    return 0;
}
