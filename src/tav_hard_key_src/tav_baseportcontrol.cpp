// Placeholder: replaced by the module implementation.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "tav_baseportcontrol.h"

int32_t tav_inituart(int8_t* uartbuf, uint8_t port_id) { return {}; }
void tav_uartclose(void) {}
void set_uart_runflag(void) {}
void clear_uart_runflag(void) {}
void tav_sethardkey_event(int event) {}
int32_t tav_gethardkey_event(void) { return {}; }
void tav_clear_keyevent(int event) {}
void tav_sethardsend_event(int event) {}
int32_t tav_gethardsend_event(void) { return {}; }
void tav_clear_sendevent(int event) {}
TAV_KEY_ENUM tav_getkey_val(void) { return {}; }
uint8_t tav_get_hardkey_main_ver(void) { return {}; }
uint8_t tav_get_hardkey_minor_ver(void) { return {}; }
uint8_t tav_get_hardkey_build_ver(void) { return {}; }
void* tav_uart_pthread(void* param) { return {}; }
bool tav_port_is_open(void) { return {}; }
int tav_port_write_locked(const void* frame, int len) { return {}; }
std::mutex& tav_port_tx_mutex(void) {
    static std::mutex m;
    return m;
}
