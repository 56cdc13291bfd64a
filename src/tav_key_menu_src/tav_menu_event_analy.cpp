// Placeholder: replaced by the module implementation.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "tav_menu_event_analy.h"

void tav_analy_keypress(TAV_STRUCT_KB_BUTTON* tav_key, uint8_t* press_state, uint8_t* press_start, uint8_t max_port, uint8_t* portlist, uint8_t* port_cfg, uint8_t sel_step) {}
void tav_analy_key_nomal(TAV_STRUCT_KB_BUTTON* tav_key, uint8_t* press_state, uint8_t* press_start, uint8_t max_port, uint8_t* portlist, uint8_t* port_cfg) {}
void tav_analy_key_step1(TAV_STRUCT_KB_BUTTON* tav_key, uint8_t* press_state, uint8_t* press_start, uint8_t max_port, uint8_t* portlist, uint8_t* port_cfg, uint8_t sel_step) {}
uint8_t tav_analy_key_check_port(uint8_t port, uint8_t max_port, uint8_t* portlist) { return {}; }
uint8_t tav_analy_key_get_start(uint8_t start_tmp) { return {}; }
