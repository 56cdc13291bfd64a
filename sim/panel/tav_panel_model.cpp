#include "tav_panel_model.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace tavpanel {

namespace {

double now_s() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

// A frame made by one of the protocol's builders.
template <class Build> std::vector<uint8_t> built(Build build) {
    std::vector<uint8_t> f(2 + TAV_COM_TEXT_MAX + TAV_COM_FRAME_EXTRA);
    f.resize(static_cast<size_t>(build(f.data())));
    return f;
}

std::string printable(const uint8_t* p, size_t n) {
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        char c = static_cast<char>(p[i]);
        s += (p[i] >= 0x20 && p[i] < 0x7F) ? c : '.';
    }
    return s;
}

} // namespace

const char* key_name(int key) {
    static const char* const names[KEY_COUNT] = {
        "0", "1",    "2",     "3",     "4",       "5",    "6",    "7",   "8",
        "9", "LEFT", "RIGHT", "BREAK", "DEFAULT", "TAKE", "MENU", "LOCK"};
    return (key >= 0 && key < KEY_COUNT) ? names[key] : "?";
}

const char* kind_name(FrameKind kind) {
    switch (kind) {
    case FrameKind::led_steady:
        return "led_steady";
    case FrameKind::led_blink:
        return "led_blink";
    case FrameKind::blink_cycle:
        return "blink_cycle";
    case FrameKind::lcd_text:
        return "lcd_text";
    case FrameKind::cursor:
        return "cursor";
    case FrameKind::key_enable:
        return "key_enable";
    case FrameKind::handshake:
        return "handshake";
    case FrameKind::error_reply:
        return "error_reply";
    case FrameKind::unknown:
        return "unknown";
    case FrameKind::malformed:
        return "malformed";
    }
    return "?";
}

uint32_t mask_of(const uint8_t* b) {
    return (static_cast<uint32_t>(b[0]) << 24) | (static_cast<uint32_t>(b[1]) << 16) |
           (static_cast<uint32_t>(b[2]) << 8) | b[3];
}

PanelModel::PanelModel() : t0_(now_s()) {}

FrameKind PanelModel::decode(const std::vector<uint8_t>& f, PanelState& st) {
    if (f.size() < 5 || f[0] != TAV_COM_HEAD_BYTE || f[1] != TAV_COM_ADDR_BYTE || f[3] == 0 ||
        f.size() != f[3] + 5u) {
        return FrameKind::malformed;
    }
    const uint8_t len = f[3];
    const uint8_t check = f.back();
    // The error reply carries its own order byte.
    if (len == 1 && check == TAV_COM_ERR_CHECK_BYTE) {
        return FrameKind::error_reply;
    }
    if (f[2] != TAV_COM_ORDER_BYTE) {
        return FrameKind::unknown;
    }
    const uint8_t sub = f[4];
    const uint8_t* d = f.data() + 5; // payload after the sub-command
    const size_t n = len - 1u;
    FrameKind kind = FrameKind::unknown;
    bool ok = false;
    switch (sub) {
    case TAV_SUB_VERSION:
        kind = FrameKind::handshake;
        ok = n == 1 && d[0] == 0;
        break;
    case TAV_SUB_LED_ON:
    case TAV_SUB_LED_BLINK:
    case TAV_SUB_KEY_ENABLE:
        kind = sub == TAV_SUB_LED_ON      ? FrameKind::led_steady
               : sub == TAV_SUB_LED_BLINK ? FrameKind::led_blink
                                          : FrameKind::key_enable;
        ok = n == TAV_COM_MASK_LEN;
        break;
    case TAV_SUB_BLINK_CYCLE:
        kind = FrameKind::blink_cycle;
        ok = n == 2 && d[0] == 1 && d[1] >= 1 && d[1] <= 20;
        break;
    case TAV_SUB_LCD_TEXT:
        kind = FrameKind::lcd_text;
        ok = n >= 3 && d[0] < LCD_LINES && d[1] < LCD_COLS && d[1] + (n - 2) <= size_t{LCD_COLS};
        break;
    case TAV_SUB_CURSOR:
        kind = FrameKind::cursor;
        ok = n == 2 && d[0] < LCD_LINES && d[1] < LCD_COLS;
        break;
    default:
        return FrameKind::unknown;
    }
    if (!ok || check != TAV_COM_CHECK_BYTE) {
        return FrameKind::malformed;
    }
    switch (kind) {
    case FrameKind::led_steady:
        st.led_steady = mask_of(d);
        break;
    case FrameKind::led_blink:
        st.led_blink = mask_of(d);
        break;
    case FrameKind::key_enable:
        st.key_enable = mask_of(d);
        break;
    case FrameKind::blink_cycle:
        st.blink_cycle = d[1];
        break;
    case FrameKind::lcd_text:
        st.lcd[d[0]].replace(d[1], n - 2, reinterpret_cast<const char*>(d + 2), n - 2);
        break;
    case FrameKind::cursor:
        st.cursor_line = d[0];
        st.cursor_col = d[1];
        break;
    default:
        break;
    }
    return kind;
}

void PanelModel::apply(const std::vector<uint8_t>& f) {
    Frame fr;
    fr.t = now_s() - t0_;
    fr.bytes = f;
    fr.kind = decode(f, state_);
    switch (fr.kind) {
    case FrameKind::handshake:
        ++handshakes_;
        break;
    case FrameKind::error_reply:
        ++error_replies_;
        break;
    case FrameKind::unknown:
        ++unknown_;
        break;
    case FrameKind::malformed:
        ++malformed_;
        break;
    default:
        break;
    }
    frames_.push_back(std::move(fr));
    ++total_;
    if (frame_limit_ > 0 && frames_.size() > frame_limit_) {
        frames_.erase(frames_.begin(), frames_.begin() + static_cast<long>(frames_.size() / 2));
    }
}

void PanelModel::reset_picture() {
    state_ = PanelState{};
    rec_ = TAV_COM_STRUCT{};
    pending_.clear();
}

void PanelModel::feed(const uint8_t* data, size_t len) {
    if (data == nullptr) {
        return;
    }
    for (size_t k = 0; k < len; ++k) {
        const uint8_t b = data[k];
        // The panel reads the program's frames by their length: a 0xEB in a
        // text is data, not a new head.
        switch (tav_com_step(&rec_, b, false)) {
        case TAV_COM_STEP_HEAD:
            garbage_ += pending_.size();
            pending_.assign(1, b);
            break;
        case TAV_COM_STEP_MORE:
            pending_.push_back(b);
            break;
        case TAV_COM_STEP_ZERO_LEN:
        case TAV_COM_STEP_FRAME:
            // A length of 0 has no data and no defined end: the four bytes
            // are kept as a malformed frame.
            pending_.push_back(b);
            apply(pending_);
            pending_.clear();
            break;
        default: // a byte outside any frame; a wrap drops the frame so far
            garbage_ += pending_.size() + 1;
            pending_.clear();
            break;
        }
    }
}

std::string describe(const std::vector<uint8_t>& f) {
    PanelState st;
    const FrameKind kind = PanelModel::decode(f, st);
    std::string s = kind_name(kind);
    char buf[96];
    switch (kind) {
    case FrameKind::led_steady:
    case FrameKind::led_blink:
    case FrameKind::key_enable:
        std::snprintf(buf, sizeof buf, " %08X",
                      kind == FrameKind::led_steady  ? st.led_steady
                      : kind == FrameKind::led_blink ? st.led_blink
                                                     : st.key_enable);
        s += buf;
        break;
    case FrameKind::blink_cycle:
        s += " " + std::to_string(st.blink_cycle);
        break;
    case FrameKind::lcd_text:
        std::snprintf(buf, sizeof buf, " line %u col %u \"", f[5], f[6]);
        s += buf + printable(f.data() + 7, f.size() - 8) + "\"";
        break;
    case FrameKind::cursor:
        std::snprintf(buf, sizeof buf, " line %d col %d", st.cursor_line, st.cursor_col);
        s += buf;
        break;
    case FrameKind::error_reply:
        std::snprintf(buf, sizeof buf, " order %02X code %02X", f[2], f[4]);
        s += buf;
        break;
    case FrameKind::handshake:
        break;
    default:
        s += " " + hex(f);
        break;
    }
    return s;
}

std::vector<uint8_t> mask_frame(uint32_t mask, uint8_t check) {
    const uint8_t m[] = {static_cast<uint8_t>(mask >> 24), static_cast<uint8_t>(mask >> 16),
                         static_cast<uint8_t>(mask >> 8), static_cast<uint8_t>(mask)};
    return built([&](uint8_t* f) { return tav_com_mask_frame(f, TAV_SUB_KEY, m, check); });
}

std::vector<uint8_t> key_frame(int key, uint8_t check) {
    // Keys outside the 32 mask bits have no frame.
    if (key < 0 || key > 31) {
        return {};
    }
    return mask_frame(uint32_t{1} << key, check);
}

std::vector<uint8_t> release_frame(uint8_t check) {
    return mask_frame(0, check);
}

std::vector<uint8_t> version_frame(uint8_t main, uint8_t minor, uint8_t build_hi, uint8_t build_lo,
                                   uint8_t check) {
    return built([&](uint8_t* f) {
        return tav_com_version_frame(f, main, minor, build_hi, build_lo, check);
    });
}

std::string hex(const std::vector<uint8_t>& bytes) {
    std::string s;
    char b[8];
    for (size_t i = 0; i < bytes.size(); ++i) {
        std::snprintf(b, sizeof b, i ? " %02X" : "%02X", bytes[i]);
        s += b;
    }
    return s;
}

} // namespace tavpanel
