// Placeholder: replaced by the module implementation.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "tav_led.h"

void tav_display_set_led(uint8_t cmd_id, uint8_t* ucledstatus) {}
uint8_t tav_display_led_mutil_on(uint8_t* ucwhichled, uint8_t ledlength) { return {}; }
uint8_t tav_display_led_sigle_on(int32_t led_id) { return {}; }
uint8_t tav_display_led_all_on(void) { return {}; }
uint8_t tav_display_led_all_off(void) { return {}; }
uint8_t tav_display_led_blink_mutil_on(uint8_t* ucwhichled, uint8_t ledlength) { return {}; }
uint8_t tav_display_led_blink_sigle_on(int led_id) { return {}; }
uint8_t tav_display_led_blink_all_on(void) { return {}; }
uint8_t tav_display_led_blink_all_off(void) { return {}; }
uint8_t tav_display_led_blink_cycle(uint8_t uccycle) { return {}; }
uint8_t tav_display_key_mutil_enbale(uint8_t* ucwhichkey, uint8_t length) { return {}; }
uint8_t tav_display_key_sigle_enable(int key_id) { return {}; }
uint8_t tav_display_key_all_enable(void) { return {}; }
uint8_t tav_display_key_all_disable(void) { return {}; }
