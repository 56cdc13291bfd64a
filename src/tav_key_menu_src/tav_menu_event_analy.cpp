// Port number entry of the switching menus: one or two digits, RIGHT after a
// single digit, checked against the menu's port list.
#include "tav_menu_event_analy.h"

#include "tav_menu_analize_press.h"

namespace {

// Number-entry states.
constexpr uint8_t kWaitFirst = 1;
constexpr uint8_t kOneDigit = 2;
constexpr uint8_t kValid = 3;
constexpr uint8_t kNotInList = 4;
constexpr uint8_t kNotFound = 255;

} // namespace

void tav_analy_keypress(TAV_STRUCT_KB_BUTTON* tav_key, uint8_t* press_state, uint8_t* press_start,
                        uint8_t max_port, uint8_t* portlist, uint8_t* port_cfg, uint8_t sel_step) {
    if (press_state == nullptr) {
        return;
    }
    if (*press_state == kWaitFirst) {
        tav_analy_key_nomal(tav_key, press_state, press_start, max_port, portlist, port_cfg);
    } else if (*press_state == kOneDigit) {
        tav_analy_key_step1(tav_key, press_state, press_start, max_port, portlist, port_cfg,
                            sel_step);
    }
}

void tav_analy_key_nomal(TAV_STRUCT_KB_BUTTON* tav_key, uint8_t* press_state, uint8_t* press_start,
                         uint8_t max_port, uint8_t* portlist, uint8_t* port_cfg) {
    (void)press_start;
    (void)max_port;
    (void)portlist;
    if (tav_key == nullptr || press_state == nullptr || port_cfg == nullptr) {
        return;
    }
    if (tav_key->press == TAV_PRESS_DIGIT) {
        *port_cfg = tav_key->number;
        *press_state = kOneDigit;
    }
}

void tav_analy_key_step1(TAV_STRUCT_KB_BUTTON* tav_key, uint8_t* press_state, uint8_t* press_start,
                         uint8_t max_port, uint8_t* portlist, uint8_t* port_cfg, uint8_t sel_step) {
    if (tav_key == nullptr || press_state == nullptr || press_start == nullptr ||
        port_cfg == nullptr) {
        return;
    }
    uint8_t candidate;
    if (tav_key->press == TAV_PRESS_DIGIT) {
        candidate = static_cast<uint8_t>(*port_cfg * 10 + tav_key->number);
    } else if (tav_key->press == TAV_PRESS_RIGHT) {
        // RIGHT confirms a one-digit number.
        candidate = *port_cfg;
    } else {
        return;
    }
    if (candidate == 0) {
        // 0 answers the second question only ("no input").
        if (sel_step == 1) {
            *press_state = kValid;
            *port_cfg = 0;
        }
        return;
    }
    const uint8_t pos = tav_analy_key_check_port(candidate, max_port, portlist);
    if (pos == kNotFound) {
        *press_state = kNotInList;
        *port_cfg = 0;
        return;
    }
    if (sel_step == 0) {
        *press_start = tav_analy_key_get_start(pos);
    }
    *press_state = kValid;
    *port_cfg = candidate;
}

uint8_t tav_analy_key_check_port(uint8_t port, uint8_t max_port, uint8_t* portlist) {
    if (portlist == nullptr) {
        return kNotFound;
    }
    for (uint8_t i = 0; i < max_port; ++i) {
        if (portlist[i] == port) {
            return i;
        }
    }
    return kNotFound;
}

uint8_t tav_analy_key_get_start(uint8_t start_tmp) {
    return start_tmp > 4 ? static_cast<uint8_t>(start_tmp - 5) : 0;
}
