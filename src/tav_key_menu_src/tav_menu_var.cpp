// Placeholder: replaced by the module implementation.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "tav_menu_var.h"

void tav_menu_init(void) {}
void tav_button_clear(void) {}
void load_main_set_up(void) {}
void load_main_aud_set_up(void) {}

TAV_ENUM_EVENT g_tav_menu_event = EVENT_MITT;
TAV_ENUM_MENUSTATUS g_tav_menu = menu_eth_select;
int8_t displaybuf[41];
bool_t g_tav_lcd = true;
TAV_STRUCT_KB_BUTTON g_tav_button;
TAV_ETH_STATUS g_tav_eth[2];
TAV_VERSION_STATUS g_tav_version;
TAV_PORT_STATE g_tav_portbuf[TAV_PORT_TABLE_SIZE];
uint8_t g_tav_inlist[TAV_PORT_TABLE_SIZE];
uint8_t g_tav_outlist[TAV_PORT_TABLE_SIZE];
uint8_t g_tav_in_max;
uint8_t g_tav_out_max;
TAV_PORT_STATE g_tav_aud_portbuf[TAV_PORT_TABLE_SIZE];
uint8_t g_tav_aud_inlist[TAV_PORT_TABLE_SIZE];
uint8_t g_tav_aud_outlist[TAV_PORT_TABLE_SIZE];
uint8_t g_tav_aud_in_max;
uint8_t g_tav_aud_out_max;
void* pmatrixDllHandle;
bool_t g_tav_shortcut_key1 = true;
bool_t g_tav_shortcut_key3;
bool_t g_tav_shortcut_key4;
bool_t g_tav_shortcut_key6;
bool_t g_tav_shortcut_key7 = true;
bool_t g_tav_shortcut_key9;
bool_t g_tav_lock;
