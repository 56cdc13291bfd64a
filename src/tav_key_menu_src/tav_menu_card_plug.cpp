// Card plug notices: a two-line page naming the slot in which a card was
// inserted or from which it was pulled out. The listener raises and ends the
// notice; the controller draws it as the page of menu_hot_plug.
#include "tav_menu_card_plug.h"

#include "tav_lcd.h"
#include "tav_menu_control.h"
#include "tav_menu_display_str.h"
#include "tav_menu_led.h"
#include "tav_menu_strcfg.h"
#include "tav_menu_var.h"

namespace {

constexpr uint8_t kNoNotice = 0;
constexpr uint8_t kInserted = 1;
constexpr uint8_t kPulledOut = 2;

uint8_t card_status;
uint8_t new_slot;

struct NoticeRows {
    uint8_t top; // carries the slot number
    uint8_t bottom;
};
// Indexed by card_status - 1.
constexpr NoticeRows kNoticeRows[] = {
    {13, 14}, // "Slot XX Has a Card Insert" / "Please wait it for Initialization"
    {15, 4},  // "Card XX Pull out" / "PLEASE WAIT......"
};

} // namespace

void tav_menu_card_plug_init(void) {
    card_status = kNoNotice;
    new_slot = 0;
}

void tav_menu_card_plug_set_status(uint8_t slot_id, uint8_t status) {
    card_status = status;
    new_slot = slot_id;
    tav_menu_update(menu_hot_plug);
    g_tav_lcd = true;
}

void tav_menu_card_plug_clear(void) {
    card_status = kNoNotice;
    new_slot = 0;
    tav_menu_update(g_tav_lock ? menu_lock : menu_vid_display);
}

void tav_menu_card_plug_display(void) {
    if (card_status != kInserted && card_status != kPulledOut) {
        tav_menu_update(menu_vid_display);
        return;
    }
    const NoticeRows& rows = kNoticeRows[card_status - 1];
    tav_menu_get_spcstr(displaybuf, rows.top);
    tav_menu_put_slot_number(displaybuf, new_slot);
    tav_display_string(0, 0, displaybuf, TAV_MENU_COLS);
    tav_menu_get_spcstr(displaybuf, rows.bottom);
    tav_display_string(1, 0, displaybuf, TAV_MENU_COLS);
    tav_bdl_menu_showleds(menu_hot_plug, false);
}

uint8_t tav_menu_card_plug_get_status(void) {
    return card_status;
}

uint8_t tav_menu_card_plug_get_slot(void) {
    return new_slot;
}
