// Front-panel link state: key codes, key record, event words, firmware version.
#pragma once

#include <atomic>
#include <cstdint>

#include "tav_common.h"

typedef enum TAV_KEY_ENUM : uint32_t {
    TAV_KEY_0 = 0,
    TAV_KEY_1 = 1,
    TAV_KEY_2 = 2,
    TAV_KEY_3 = 3,
    TAV_KEY_4 = 4,
    TAV_KEY_5 = 5,
    TAV_KEY_6 = 6,
    TAV_KEY_7 = 7,
    TAV_KEY_8 = 8,
    TAV_KEY_9 = 9,
    TAV_KEY_LEFT = 10,
    TAV_KEY_RIGHT = 11,
    TAV_KEY_BREAK = 12,
    TAV_KEY_DEFAULT = 13,
    TAV_KEY_TAKE = 14,
    TAV_KEY_MENU = 15,
    TAV_KEY_LOCK = 16,
    TAV_KEY_NULL = 255,
} TAV_KEY_ENUM;

// Key-event bits of g_tav_event.
#define TAV_EVENT_KEY 0x01
#define TAV_EVENT_HARDVER 0x20

// Panel firmware version. Written by the receive thread before it raises
// TAV_EVENT_HARDVER, read by the main thread at any time: the three numbers
// are published together as one atomic word, so a reader never sees two
// version answers mixed.
typedef struct alignas(4) HARD_KEY_VER {
    uint8_t key_main_ver;
    uint8_t key_minor_ver;
    uint8_t key_build_ver;
} TAV_HARD_KEY_VER;

// Receive record of the frame parser (owned by the receive thread).
typedef struct COM_STRUCT {
    uint8_t com_current;
    uint8_t com_head;
    uint8_t com_add;
    uint8_t com_order;
    uint8_t com_len;
    uint8_t com_buf[256];
    uint8_t com_rong;
    uint8_t com_cur_rong;
} TAV_COM_STRUCT;

// Key-press record filled by the key analysis.
typedef struct KB_BUTTON {
    uint8_t number;
    uint8_t lock;
    uint8_t menu;
    uint8_t dft;
    uint8_t brk;
    uint8_t take;
    uint8_t left;
    uint8_t right;
    uint16_t press;
    bool_t longpress;
} TAV_STRUCT_KB_BUTTON;

// Descriptor of the panel port. The link reset sets it to 0, which is standard
// input, so whether the port is really open is kept apart (tav_port_is_open()).
extern std::atomic<int> uartfid;
// Transmit buffer of the fixed-size frames; only touched while holding
// tav_port_tx_mutex() (tav_baseportcontrol.h).
extern int8_t buffer[100];
extern std::atomic<int32_t> g_tav_event;
extern std::atomic<int32_t> g_tav_send_event;
extern std::atomic<TAV_HARD_KEY_VER> key_hard_ver;
extern std::atomic<TAV_KEY_ENUM> g_tav_keyval;
extern std::atomic<uint8_t> g_tav_uart_runflag;

void tav_hardkey_init(void);
