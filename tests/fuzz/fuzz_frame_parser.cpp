// Arbitrary bytes from the panel, cut into arbitrary reads, into the frame
// parser. The first byte of the input chooses the chunk sizes.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "tav_baseportcontrol.h"
#include "tav_hardboard_var.h"
#include "tav_uart_com.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static uint8_t chunk[256];
    tav_hardkey_init();
    tav_comint();
    if (size == 0) {
        return 0;
    }
    uint32_t seed = data[0];
    size_t pos = 1;
    while (pos < size) {
        seed = seed * 1103515245u + 12345u;
        size_t n = 1 + (seed >> 16) % 255;
        if (n > size - pos) {
            n = size - pos;
        }
        memcpy(chunk, data + pos, n);
        tav_analyze_data(chunk, static_cast<uint8_t>(n));
        pos += n;
    }
    const TAV_KEY_ENUM key = tav_getkey_val();
    if (key > TAV_KEY_LOCK && key != TAV_KEY_NULL) {
        __builtin_trap();
    }
    if ((tav_gethardkey_event() & ~(TAV_EVENT_KEY | TAV_EVENT_HARDVER)) != 0) {
        __builtin_trap();
    }
    return 0;
}
