// Placeholder: replaced by the module implementation.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "tav_menu_strcfg.h"

void tav_menu_strcfg_defaults(void) {}
void tav_cfg_loadfile(char* cfg_file_path) {}

uint8_t MENU_ITEM_STR[TAV_MENU_ROWS][TAV_MENU_COLS];
uint8_t MENU_SPC_HEAD[TAV_MENU_HEADS][7];
