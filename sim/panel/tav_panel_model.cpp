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

} // namespace

PanelModel::PanelModel() : t0_(now_s()) {}

FrameKind PanelModel::decode(const std::vector<uint8_t>& f, PanelState& st) {
    const FrameKind kind = tav_com_classify(f);
    const uint8_t* d = f.data() + 5; // payload after the sub-command
    switch (kind) {
    case TAV_COM_KIND_LED_STEADY:
        st.led_steady = mask_of(d);
        break;
    case TAV_COM_KIND_LED_BLINK:
        st.led_blink = mask_of(d);
        break;
    case TAV_COM_KIND_KEY_ENABLE:
        st.key_enable = mask_of(d);
        break;
    case TAV_COM_KIND_BLINK_CYCLE:
        st.blink_cycle = d[1];
        break;
    case TAV_COM_KIND_LCD_TEXT:
        st.lcd[d[0]].replace(d[1], f[3] - 3u, reinterpret_cast<const char*>(d + 2), f[3] - 3u);
        break;
    case TAV_COM_KIND_CURSOR:
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
    case TAV_COM_KIND_HANDSHAKE:
        ++handshakes_;
        break;
    case TAV_COM_KIND_ERROR_REPLY:
        ++error_replies_;
        break;
    case TAV_COM_KIND_UNKNOWN:
        ++unknown_;
        break;
    case TAV_COM_KIND_MALFORMED:
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
        // The panel reads the program's frames by their length: a head byte in a
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

std::vector<uint8_t> mask_frame(uint32_t mask, uint8_t check) {
    const uint8_t m[] = {static_cast<uint8_t>(mask >> 24), static_cast<uint8_t>(mask >> 16),
                         static_cast<uint8_t>(mask >> 8), static_cast<uint8_t>(mask)};
    return built([&](uint8_t* f) { return tav_com_mask_frame(f, TAV_COM_SUB_KEY, m, check); });
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

} // namespace tavpanel
