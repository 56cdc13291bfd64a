// Placeholder: replaced by the module implementation.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "tav_menu_analize_press.h"

unsigned char tav_ana_key(void) { return {}; }
