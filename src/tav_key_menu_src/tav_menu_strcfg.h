// LCD text table, line heads and the configuration file reader.
#pragma once

#include <cstdint>

#define TAV_MENU_ROWS 78
#define TAV_MENU_COLS 40
#define TAV_MENU_HEADS 10

extern uint8_t MENU_ITEM_STR[TAV_MENU_ROWS][TAV_MENU_COLS];
extern uint8_t MENU_SPC_HEAD[TAV_MENU_HEADS][7];

// Restores the built-in texts (called before the file is read).
void tav_menu_strcfg_defaults(void);
void tav_cfg_loadfile(char* cfg_file_path);
// The per-key reader functions (tav_menu_cfg_*) are declared in the module.
