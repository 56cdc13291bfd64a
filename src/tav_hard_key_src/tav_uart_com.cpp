// Panel frame parser, key decoding, error reply and handshake.
//
// The byte state machine (tav_com_protocol.h) restarts on every head byte and
// keeps its state in `com`, so frames may be split over reads.
#include "tav_uart_com.h"

#include <cstring>
#include <mutex>

#include "tav_baseportcontrol.h"
#include "tav_com_protocol.h"

TAV_COM_STRUCT com;

namespace {

constexpr int TAV_KEY_BITS = 17;

// Writes a frame that `build` makes in the shared transmit buffer.
template <class Build> void send_fixed_frame(Build build) {
    std::lock_guard<std::mutex> lk(tav_port_tx_mutex());
    memset(buffer, 0, sizeof buffer);
    uint8_t* const frame = reinterpret_cast<uint8_t*>(buffer);
    tav_port_write_locked(frame, build(frame));
}

} // namespace

void tav_comint(void) {
    memset(&com, 0, sizeof com);
}

void tav_analyze_data(uint8_t* buf, uint8_t len) {
    if (buf == nullptr) {
        return;
    }
    for (int k = 0; k < len; ++k) {
        switch (tav_com_step(&com, buf[k])) {
        case TAV_COM_STEP_ZERO_LEN:
            tav_back_err(0, TAV_COM_ERR_CODE);
            break;
        case TAV_COM_STEP_FRAME:
            tav_porg_a_format(&com);
            break;
        default:
            break;
        }
    }
}

void tav_porg_a_format(TAV_COM_STRUCT* com_data) {
    if (com_data != nullptr && com_data->com_order == TAV_COM_ORDER_BYTE) {
        tav_a_format_sub21(com_data);
    }
}

void tav_a_format_sub21(TAV_COM_STRUCT* com_data) {
    if (com_data == nullptr) {
        return;
    }
    const uint8_t* d = com_data->com_buf;
    switch (d[0]) {
    case TAV_COM_SUB_VERSION:
        if (com_data->com_len != 1 + TAV_COM_VERSION_LEN) {
            tav_back_err(0, TAV_COM_ERR_CODE);
            break;
        }
        key_hard_ver.store(TAV_HARD_KEY_VER{d[2], d[3], static_cast<uint8_t>(d[4] | d[5])});
        tav_sethardkey_event(TAV_EVENT_HARDVER);
        break;
    case TAV_COM_SUB_KEY: {
        // The mask, most significant byte first; bytes past the length are 0.
        const uint32_t mask = (static_cast<uint32_t>(d[1]) << 24) |
                              (static_cast<uint32_t>(d[2]) << 16) |
                              (static_cast<uint32_t>(d[3]) << 8) | static_cast<uint32_t>(d[4]);
        tav_getkey(static_cast<int>(mask));
        break;
    }
    default:
        break;
    }
}

void tav_getkey(int key_val) {
    const uint32_t mask = static_cast<uint32_t>(key_val);
    if (mask == 0) {
        tav_setkey(TAV_KEY_NULL);
        return;
    }
    if ((mask & (mask - 1)) != 0) {
        return; // more than one key
    }
    for (int n = 0; n < TAV_KEY_BITS; ++n) {
        if (mask == (1u << n)) {
            tav_setkey(static_cast<TAV_KEY_ENUM>(n));
            return;
        }
    }
}

void tav_setkey(TAV_KEY_ENUM keyval) {
    tav_key_push(keyval);
}

void tav_back_err(uint8_t order, uint8_t code) {
    send_fixed_frame([&](uint8_t* f) { return tav_com_error_frame(f, order, code); });
}

void tav_sys_hardmint(void) {
    send_fixed_frame(tav_com_handshake_frame);
}
