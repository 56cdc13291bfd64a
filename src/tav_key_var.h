// Main-loop run flag, receive-thread identity and the device's port count.
#pragma once

#include <atomic>
#include <cstdint>
#include <pthread.h>

// The main loop runs while this is non-zero. Cleared from the signal handler,
// the menu controller and the inner-signal listener: a lock-free atomic.
extern std::atomic<uint8_t> g_tav_key_runflag;
extern pthread_t g_uart_pthread_id;
// Port count of the switcher; 255 until the library reports the device type.
// Written and read under the menu engine lock (see tav_menu_control.h).
extern int32_t TAV_DEF_MAX_PORT;

void tav_key_var_init(void);
void tav_key_var_destory(void);
