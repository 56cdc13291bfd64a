// Placeholder: replaced by the module implementation.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "tav_menu_switch_all.h"

void tav_menu_set_switch_all_mode(uint8_t mode) {}
void tav_menu_switch_all_init(void) {}
void tav_menu_switch_all_clear(void) {}
void tav_menu_switch_all(void) {}
void tav_menu_switch_all_display(void) {}
void tav_menu_swall_handle_3s(void) {}
void tav_swall_down(void) {}
