// Main-loop run flag, receive-thread identity and the device's port count.
#include "tav_key_var.h"

std::atomic<uint8_t> g_tav_key_runflag{0};
pthread_t g_uart_pthread_id;
int32_t TAV_DEF_MAX_PORT = 255;

void tav_key_var_init(void) {
    g_uart_pthread_id = pthread_t{};
    g_tav_key_runflag.store(1);
}

void tav_key_var_destory(void) {
    g_tav_key_runflag.store(0);
}
