// Front-panel link state and its reset.
#include "tav_hardboard_var.h"

#include <cstring>

#include "tav_baseportcontrol.h"

std::atomic<int> uartfid{0};
int8_t buffer[100];
std::atomic<int32_t> g_tav_event{0};
std::atomic<int32_t> g_tav_send_event{0};
std::atomic<TAV_HARD_KEY_VER> key_hard_ver{TAV_HARD_KEY_VER{0, 0, 0}};
static_assert(std::atomic<TAV_HARD_KEY_VER>::is_always_lock_free, "one word");
std::atomic<TAV_KEY_ENUM> g_tav_keyval{TAV_KEY_NULL};
std::atomic<uint8_t> g_tav_uart_runflag{0};

static_assert(std::atomic<uint8_t>::is_always_lock_free,
              "run flags are cleared by a signal handler");

void tav_hardkey_init(void) {
    uartfid.store(0);
    {
        std::lock_guard<std::mutex> lk(tav_port_tx_mutex());
        memset(buffer, 0, sizeof buffer);
    }
    g_tav_event.store(0);
    g_tav_send_event.store(0);
    key_hard_ver.store(TAV_HARD_KEY_VER{0, 0, 0});
    g_tav_keyval.store(TAV_KEY_NULL);
    tav_key_queue_reset();
    g_tav_uart_runflag.store(0);
}
