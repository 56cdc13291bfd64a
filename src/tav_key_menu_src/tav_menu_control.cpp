// Placeholder: replaced by the module implementation.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "tav_menu_control.h"
#include <unistd.h>

void tav_menu_control(void) { usleep(100000); }
void tav_menu_ctl_init(void) {}
void tav_menu_ctl_distory(void) {}
void tav_menu_update(TAV_ENUM_MENUSTATUS menuwhich) {}
void tav_menu_ctl_cleartime(void) {}
void tav_menu_clear_timer_counter(void) {}
void tav_menu_timeout_clear(void) {}
void tav_listen_hardkey(void) {}
void tav_nomal_work(void) {}
void tav_nomal_display(void) {}
uint8_t tav_menu_ctl_get_startport(uint8_t* port_list, uint8_t maxport, uint8_t selectPort) { return {}; }
void tav_menu_ctl_set_time_source(tav_menu_clock_fn now, tav_menu_sleep_fn sleep) {}
uint32_t tav_menu_now(void) { return {}; }
void tav_menu_sleep_ms(uint32_t ms) {}

std::recursive_mutex& tav_menu_engine_mutex(void) {
    static std::recursive_mutex m;
    return m;
}
