// Whatever a network tool printed, the zero-padding of its address stays
// inside the 18-byte field and keeps it terminated.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "tav_menu_eth.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    struct {
        char before[8];
        char field[18];
        char after[8];
    } mem;
    memset(&mem, 0x5A, sizeof mem);
    memset(mem.field, 0, sizeof mem.field);
    memcpy(mem.field, data, size < 17 ? size : 17);
    AddIP_GATE_MASK_0(mem.field);
    for (size_t i = 0; i < 8; ++i) {
        if (mem.before[i] != 0x5A || mem.after[i] != 0x5A) {
            __builtin_trap();
        }
    }
    if (mem.field[17] != 0) {
        __builtin_trap();
    }
    return 0;
}
