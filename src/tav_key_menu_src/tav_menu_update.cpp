// Placeholder: replaced by the module implementation.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "tav_menu_update.h"

void tav_menu_updating_init(void) {}
void tav_menu_updating_clear(void) {}
void tav_menu_updating_set(void) {}
void tav_menu_updating_down(void) {}
void tav_menu_updating(void) {}
void tav_menu_updating_display(void) {}
