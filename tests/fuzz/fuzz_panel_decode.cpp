// Arbitrary text or bytes into the capture decoder: format guessing, the hex,
// hexdump and recording readers, and the frame decoder behind them. The
// first byte chooses the format (or guessing) and the size of the reads.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "tav_panel_decode.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static FILE* sink = std::fopen("/dev/null", "w");
    if (size == 0 || sink == nullptr) {
        return 0;
    }
    tavpanel::DecodeOptions o;
    o.format = static_cast<tavpanel::InputFormat>(data[0] % 5);
    o.from = (data[0] & 0x08) ? tavpanel::Dir::program : tavpanel::Dir::none;
    o.summary = (data[0] & 0x10) != 0;
    o.show_hex = (data[0] & 0x20) != 0;
    const size_t chunk = 1 + (data[0] >> 6) * 7;
    size_t pos = 1;
    const int rc = tavpanel::decode_capture(
        [&](uint8_t* buf, size_t n) -> long {
            n = std::min({n, chunk, size - pos});
            std::memcpy(buf, data + pos, n);
            pos += n;
            return static_cast<long>(n);
        },
        o, sink, sink);
    if (rc < tavpanel::DECODE_CLEAN || rc > tavpanel::DECODE_BAD_INPUT) {
        __builtin_trap();
    }
    return 0;
}
