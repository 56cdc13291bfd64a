// Card inserted / pulled-out notices.
#pragma once

#include <cstdint>

void tav_menu_card_plug_init(void);
void tav_menu_card_plug_set_status(uint8_t slot_id, uint8_t status);
void tav_menu_card_plug_clear(void);
void tav_menu_card_plug_display(void);

// Kind of the notice on show: 0 none, 1 inserted, 2 pulled out.
uint8_t tav_menu_card_plug_get_status(void);
uint8_t tav_menu_card_plug_get_slot(void);
