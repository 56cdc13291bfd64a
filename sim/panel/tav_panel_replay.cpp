#include "tav_panel_replay.h"

#include <poll.h>

#include <algorithm>
#include <cstring>

namespace tavpanel {

namespace {

using Clock = std::chrono::steady_clock;

bool is_key_frame(const TAV_COM_STRUCT& r) {
    return r.com_order == TAV_COM_ORDER_BYTE && r.com_buf[0] == TAV_COM_SUB_KEY;
}

std::vector<uint8_t> frame_of(const TAV_COM_STRUCT& r) {
    std::vector<uint8_t> f(r.com_len + 5u);
    f[0] = r.com_head;
    f[1] = r.com_add;
    f[2] = r.com_order;
    f[3] = r.com_len;
    std::memcpy(f.data() + 4, r.com_buf, r.com_len);
    f[r.com_len + 4u] = r.com_rong;
    return f;
}

void print_screen(FILE* out, const char* who, const PanelState& s) {
    std::string lines[LCD_LINES];
    for (int l = 0; l < LCD_LINES; ++l) {
        for (char c : s.lcd[l]) {
            lines[l] += (c >= 0x20 && c < 0x7F) ? c : '?';
        }
    }
    std::fprintf(out, "  %-10s|%s|\n  %-10s|%s|\n  %-10sleds on: %s; blinking: %s\n", who,
                 lines[0].c_str(), "", lines[1].c_str(), "", mask_names(s.led_steady).c_str(),
                 mask_names(s.led_blink).c_str());
}

// Waits for the screen in slices, so that a stop request is seen; false on
// time-out or stop (then *stopped is set).
bool wait_screen(PanelEmulator& emu, const PanelState& want, Clock::duration timeout, int stop_fd,
                 bool* stopped) {
    const auto end = Clock::now() + timeout;
    for (;;) {
        const auto left = end - Clock::now();
        const auto slice = std::min<Clock::duration>(left, std::chrono::milliseconds(200));
        if (emu.wait_for([&](const PanelState& s) { return same_screen(s, want); },
                         std::chrono::duration_cast<std::chrono::milliseconds>(slice))) {
            return true;
        }
        pollfd p{stop_fd, POLLIN, 0};
        if (stop_fd >= 0 && ::poll(&p, 1, 0) > 0) {
            *stopped = true;
            return false;
        }
        if (Clock::now() >= end) {
            return false;
        }
    }
}

} // namespace

bool same_screen(const PanelState& a, const PanelState& b) {
    return a.lcd == b.lcd && a.led_steady == b.led_steady && a.led_blink == b.led_blink;
}

ReplayPlan plan_replay(const std::vector<RecordLine>& lines) {
    ReplayPlan plan;
    PanelModel program; // what the program drew
    TAV_COM_STRUCT rec{};
    double last_drawn = 0;
    auto close_step = [&] {
        if (plan.steps.empty()) {
            plan.before = program.state();
            return;
        }
        ReplayStep& s = plan.steps.back();
        s.expect = program.state();
        s.settle = std::max(0.0, last_drawn - s.t);
    };
    for (const RecordLine& l : lines) {
        if (l.dir == Dir::program) {
            program.feed(l.bytes.data(), l.bytes.size());
            last_drawn = l.t;
            continue;
        }
        for (uint8_t b : l.bytes) {
            if (tav_com_step(&rec, b) != TAV_COM_STEP_FRAME) {
                continue;
            }
            if (is_key_frame(rec)) {
                close_step();
                plan.steps.push_back({l.t, frame_of(rec), {}, 0});
            } else if (program.handshakes() > 0 &&
                       tav_com_classify(frame_of(rec)) == TAV_COM_KIND_VERSION) {
                // The answer to the latest handshake.
                plan.handshake_answers.resize(program.handshakes());
                if (plan.handshake_answers.back().empty()) {
                    plan.handshake_answers.back() = frame_of(rec);
                }
            }
        }
    }
    close_step();
    if (!plan.handshake_answers.empty()) {
        // Handshakes left unanswered at the end stay unanswered.
        plan.handshake_answers.resize(program.handshakes());
    }
    return plan;
}

int replay(PanelEmulator& emu, const ReplayPlan& plan, const ReplayOptions& opts, FILE* out) {
    bool stopped = false;
    if (!wait_screen(emu, plan.before, opts.startup, opts.stop_fd, &stopped)) {
        if (stopped) {
            return 2;
        }
        std::fprintf(out, "replay: the screen before the first key never came\n");
        print_screen(out, "recording", plan.before);
        print_screen(out, "program", emu.state());
        if (opts.expect) {
            return 1;
        }
    }
    const double speed = opts.speed > 0 ? opts.speed : 1;
    auto last = Clock::now();
    double prev_t = plan.steps.empty() ? 0 : plan.steps.front().t;
    for (size_t i = 0; i < plan.steps.size(); ++i) {
        const ReplayStep& s = plan.steps[i];
        const auto due = last + std::chrono::duration_cast<Clock::duration>(
                                    std::chrono::duration<double>((s.t - prev_t) / speed));
        const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(due - Clock::now());
        pollfd p{opts.stop_fd, POLLIN, 0};
        if (wait.count() > 0 &&
            ::poll(&p, opts.stop_fd >= 0 ? 1 : 0, static_cast<int>(wait.count())) > 0) {
            return 2;
        }
        emu.send_raw(s.frame);
        last = Clock::now();
        prev_t = s.t;
        const std::string what = describe(s.frame);
        if (!opts.expect) {
            std::fprintf(out, "%11.6f %s\n", s.t, what.c_str());
            continue;
        }
        const auto timeout =
            std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(s.settle)) +
            opts.margin;
        if (!wait_screen(emu, s.expect, timeout, opts.stop_fd, &stopped)) {
            if (stopped) {
                return 2;
            }
            std::fprintf(out,
                         "replay: the screen differs after %s (key frame %zu of %zu, %.3f s into "
                         "the recording)\n",
                         what.c_str(), i + 1, plan.steps.size(), s.t);
            print_screen(out, "recording", s.expect);
            print_screen(out, "program", emu.state());
            return 1;
        }
        std::fprintf(out, "%11.6f %s: screen as recorded\n", s.t, what.c_str());
        std::fflush(out);
    }
    std::fprintf(out, "replay: %zu key frames played%s\n", plan.steps.size(),
                 opts.expect ? ", every screen as recorded" : "");
    return 0;
}

} // namespace tavpanel
