// Key LED, blink and key-enable commands. Each mask frame carries the whole
// state of its sub-command: bit n of the 32-bit mask (most significant byte
// first on the wire) stands for LED or key n.
#include "tav_led.h"

#include <cstring>
#include <mutex>

#include "tav_baseportcontrol.h"
#include "tav_com_protocol.h"

namespace {

constexpr int TAV_MASK_MAX_ID = 31;

void mask_set(uint8_t mask[4], int n) {
    mask[3 - n / 8] = static_cast<uint8_t>(mask[3 - n / 8] | (1u << (n % 8)));
}

// Mask of the listed numbers; numbers above 31 are skipped.
uint8_t send_list(uint8_t cmd, const uint8_t* ids, uint8_t count) {
    if (uartfid.load() < 0 || ids == nullptr || count == 0) {
        return 1;
    }
    uint8_t mask[4] = {0, 0, 0, 0};
    for (uint8_t k = 0; k < count; ++k) {
        if (ids[k] <= TAV_MASK_MAX_ID) {
            mask_set(mask, ids[k]);
        }
    }
    tav_display_set_led(cmd, mask);
    return 0;
}

uint8_t send_single(uint8_t cmd, int id) {
    if (uartfid.load() < 0 || id < 0 || id > TAV_MASK_MAX_ID) {
        return 1;
    }
    uint8_t mask[4] = {0, 0, 0, 0};
    mask_set(mask, id);
    tav_display_set_led(cmd, mask);
    return 0;
}

uint8_t send_fill(uint8_t cmd, uint8_t fill) {
    if (uartfid.load() < 0) {
        return 1;
    }
    uint8_t mask[4] = {fill, fill, fill, fill};
    tav_display_set_led(cmd, mask);
    return 0;
}

} // namespace

void tav_display_set_led(uint8_t cmd_id, uint8_t* ucledstatus) {
    if (ucledstatus == nullptr) {
        return;
    }
    std::lock_guard<std::mutex> lk(tav_port_tx_mutex());
    memset(buffer, 0, sizeof buffer);
    uint8_t* const frame = reinterpret_cast<uint8_t*>(buffer);
    tav_port_write_locked(frame, tav_com_mask_frame(frame, cmd_id, ucledstatus));
}

uint8_t tav_display_led_mutil_on(uint8_t* ucwhichled, uint8_t ledlength) {
    return send_list(TAV_COM_SUB_LED_ON, ucwhichled, ledlength);
}
uint8_t tav_display_led_sigle_on(int32_t led_id) {
    return send_single(TAV_COM_SUB_LED_ON, led_id);
}
uint8_t tav_display_led_all_on(void) {
    return send_fill(TAV_COM_SUB_LED_ON, 0xFF);
}
uint8_t tav_display_led_all_off(void) {
    return send_fill(TAV_COM_SUB_LED_ON, 0x00);
}

uint8_t tav_display_led_blink_mutil_on(uint8_t* ucwhichled, uint8_t ledlength) {
    return send_list(TAV_COM_SUB_LED_BLINK, ucwhichled, ledlength);
}
uint8_t tav_display_led_blink_sigle_on(int led_id) {
    return send_single(TAV_COM_SUB_LED_BLINK, led_id);
}
uint8_t tav_display_led_blink_all_on(void) {
    return send_fill(TAV_COM_SUB_LED_BLINK, 0xFF);
}
uint8_t tav_display_led_blink_all_off(void) {
    return send_fill(TAV_COM_SUB_LED_BLINK, 0x00);
}

uint8_t tav_display_led_blink_cycle(uint8_t uccycle) {
    if (uartfid.load() < 0 || uccycle == 0 || uccycle > TAV_COM_BLINK_CYCLE_MAX) {
        return 1;
    }
    std::lock_guard<std::mutex> lk(tav_port_tx_mutex());
    memset(buffer, 0, sizeof buffer);
    uint8_t* const frame = reinterpret_cast<uint8_t*>(buffer);
    tav_port_write_locked(frame, tav_com_blink_cycle_frame(frame, uccycle));
    return 0;
}

uint8_t tav_display_key_mutil_enbale(uint8_t* ucwhichkey, uint8_t length) {
    return send_list(TAV_COM_SUB_KEY_ENABLE, ucwhichkey, length);
}
uint8_t tav_display_key_sigle_enable(int key_id) {
    return send_single(TAV_COM_SUB_KEY_ENABLE, key_id);
}
uint8_t tav_display_key_all_enable(void) {
    return send_fill(TAV_COM_SUB_KEY_ENABLE, 0xFF);
}
uint8_t tav_display_key_all_disable(void) {
    return send_fill(TAV_COM_SUB_KEY_ENABLE, 0x00);
}
