// Arbitrary bytes into the panel emulator's model: the picture stays in
// shape (two 40-column lines, cursor and blink cycle in range).
#include <cstddef>
#include <cstdint>

#include "tav_panel_model.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tavpanel::PanelModel m;
    m.set_frame_limit(16);
    for (size_t pos = 0; pos < size; pos += 7) { // fed in pieces, as reads cut it
        m.feed(data + pos, size - pos < 7 ? size - pos : 7);
    }
    const auto& s = m.state();
    if (s.lcd[0].size() != 40 || s.lcd[1].size() != 40 || s.cursor_line >= 2 ||
        s.cursor_col >= 40 || s.blink_cycle > 20) {
        __builtin_trap();
    }
    return 0;
}
