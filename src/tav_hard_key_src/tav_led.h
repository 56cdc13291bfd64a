// Key LED, blink and key-enable commands.
#pragma once

#include <cstdint>

void tav_display_set_led(uint8_t cmd_id, uint8_t* ucledstatus);
uint8_t tav_display_led_mutil_on(uint8_t* ucwhichled, uint8_t ledlength);
uint8_t tav_display_led_sigle_on(int32_t led_id);
uint8_t tav_display_led_all_on(void);
uint8_t tav_display_led_all_off(void);
uint8_t tav_display_led_blink_mutil_on(uint8_t* ucwhichled, uint8_t ledlength);
uint8_t tav_display_led_blink_sigle_on(int led_id);
uint8_t tav_display_led_blink_all_on(void);
uint8_t tav_display_led_blink_all_off(void);
uint8_t tav_display_led_blink_cycle(uint8_t uccycle);
uint8_t tav_display_key_mutil_enbale(uint8_t* ucwhichkey, uint8_t length);
uint8_t tav_display_key_sigle_enable(int key_id);
uint8_t tav_display_key_all_enable(void);
uint8_t tav_display_key_all_disable(void);
