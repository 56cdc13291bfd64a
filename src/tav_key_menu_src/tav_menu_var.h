// Menu state of the engine: start-up events, menu states, port tables and
// the start values of every menu-state variable.
//
// All of this state is touched only while holding the menu engine lock
// (tav_menu_control.h): by the main thread during a pass and by the
// inner-signal listener during a dispatch.
#pragma once

#include <cstdint>
#include <mutex>

#include "tav_common.h"
#include "tav_hardboard_var.h"
#include "tav_matrix.h"

#define TAV_PORT_TABLE_SIZE 128

typedef enum TAV_ENUM_EVENT : int32_t {
    EVENT_MITT = 0,
    EVENT_OPEN_DLL = 1,
    EVENT_SELF_CHECK = 2,
    EVENT_LOADMAIN = 3,
    EVENT_NOMAL = 4,
    EVENT_UPDATE = 5,
} TAV_ENUM_EVENT;

typedef enum TAV_ENUM_MENUSTATUS : int32_t {
    menu_spc = 0,
    menu_hot_plug = 1,
    menu_vid_display = 2,
    meun_vid_io_display = 3,
    menu_vid_switch = 4,
    menu_aud_display = 5,
    meun_aud_io_display = 6,
    menu_aud_switch = 7,
    menu_shortcut = 8,
    menu_switch_all = 9,
    menu_switch_vid_all = 10,
    menu_switch_aud_all = 11,
    menu_edid_switch = 12,
    menu_eth_select = 13,
    menu_eth_display = 14,
    menu_eth_ip = 15,
    menu_eth_mac = 16,
    menu_eth_gate = 17,
    menu_eth_mask = 18,
    menu_reset = 19,
    menu_display_version = 20,
    menu_update = 21,
    menu_lock = 22,
} TAV_ENUM_MENUSTATUS;

typedef struct PORT_STATE {
    EM_MATRIX_IO_TYPE port_io;
    uint8_t in_for_out;
} TAV_PORT_STATE;

// Network values of one interface as text (tav_menu_eth).
typedef struct ETH_STATUS {
    char IP[18];
    char MAC[18];
    char MASK[18];
    char GATEWAY[18];
} TAV_ETH_STATUS;

// Version texts (tav_menu_dispay_version).
typedef struct VERSION_STATUS {
    char main_ver[11];
    char soft_key_ver[11];
    char hard_key_ver[11];
} TAV_VERSION_STATUS;

extern TAV_ENUM_EVENT g_tav_menu_event;
extern TAV_ENUM_MENUSTATUS g_tav_menu;
extern int8_t displaybuf[41];
extern bool_t g_tav_lcd;
extern TAV_STRUCT_KB_BUTTON g_tav_button;
extern TAV_ETH_STATUS g_tav_eth[2];
extern TAV_VERSION_STATUS g_tav_version;

extern TAV_PORT_STATE g_tav_portbuf[TAV_PORT_TABLE_SIZE];
extern uint8_t g_tav_inlist[TAV_PORT_TABLE_SIZE];
extern uint8_t g_tav_outlist[TAV_PORT_TABLE_SIZE];
extern uint8_t g_tav_in_max;
extern uint8_t g_tav_out_max;
extern TAV_PORT_STATE g_tav_aud_portbuf[TAV_PORT_TABLE_SIZE];
extern uint8_t g_tav_aud_inlist[TAV_PORT_TABLE_SIZE];
extern uint8_t g_tav_aud_outlist[TAV_PORT_TABLE_SIZE];
extern uint8_t g_tav_aud_in_max;
extern uint8_t g_tav_aud_out_max;

extern void* pmatrixDllHandle;

extern bool_t g_tav_shortcut_key1;
extern bool_t g_tav_shortcut_key3;
extern bool_t g_tav_shortcut_key4;
extern bool_t g_tav_shortcut_key6;
extern bool_t g_tav_shortcut_key7;
extern bool_t g_tav_shortcut_key9;
extern bool_t g_tav_lock;

void tav_menu_init(void);
void tav_button_clear(void);
void load_main_set_up(void);
void load_main_aud_set_up(void);

// The engine lock: guards every variable of this file and the state of the
// menu modules (see tav_menu_control.h for who takes it, and when). Taken by
// the controller's pass, the listener's dispatch and the program's set-up and
// tear-down only; everything they call runs under it and never takes it.
std::mutex& tav_menu_engine_mutex(void);
