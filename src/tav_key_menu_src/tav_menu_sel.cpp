// Placeholder: replaced by the module implementation.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "tav_menu_sel.h"

bool_t tav_get_menu_sel_valid(void) { return {}; }
void tav_menu_sel(void) {}
void tav_menu_sel_display(void) {}
void tav_menu_sel_av_swall(void) {}
void tav_menu_sel_av_swall_display(void) {}
void tav_menu_sel_init(void) {}
void tav_menu_sel_clear(void) {}
