// Program entry, start-up and shutdown.
#pragma once

#include <cstdint>

void tav_dev_init(void);
int tav_base_port_open(void);
uint8_t tav_create_thread(void);
// Shutdown; safe to run more than once and from the inner-signal thread.
void tav_dev_destory(void);
// After the shutdown: waits (at most a second) for the receive thread to end.
void tav_join_rx_thread(void);
// SIGINT/SIGTERM handler (async-signal-safe).
void signal_handle(int isignum);
// Installs signal_handle for SIGINT and SIGTERM.
void tav_install_signal_handlers(void);
