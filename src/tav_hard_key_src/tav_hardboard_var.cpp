#include "tav_hardboard_var.h"

#include <cstring>

std::atomic<int> uartfid{0};
int8_t buffer[100];
std::atomic<int32_t> g_tav_event{0};
std::atomic<int32_t> g_tav_send_event{0};
TAV_HARD_KEY_VER key_hard_ver;
std::atomic<TAV_KEY_ENUM> g_tav_keyval{TAV_KEY_NULL};
std::atomic<uint8_t> g_tav_uart_runflag{0};

void tav_hardkey_init(void) {
    // Placeholder: replaced by the module implementation.
}
