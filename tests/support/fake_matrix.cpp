#include "fake_matrix.h"

#include <algorithm>
#include <cstring>

namespace fakematrix {

namespace {
State g_state;
std::mutex g_mutex;
int g_handle_token;

// Runs `f` under the fake's mutex.
template <class F> auto locked(F f) {
    std::lock_guard<std::mutex> g(g_mutex);
    return f();
}
std::string args(std::initializer_list<int32_t> list) {
    std::string s;
    for (int32_t v : list) {
        s += (s.empty() ? "" : ",") + std::to_string(v);
    }
    return "(" + s + ")";
}
void log_call(const std::string& name, std::initializer_list<int32_t> list) {
    g_state.calls.push_back(name + args(list));
}
// Direction of port p for video or audio; a table rebuild starts at port 1.
int32_t pipe_io(int32_t p, bool video, bool active) {
    return locked([&] {
        if (p == 1) {
            g_state.table_trace.push_back(video ? "video_table" : "audio_table");
        }
        return tavsim::port_dir(g_state, p, !video, active);
    });
}
int32_t logged(const char* name, std::initializer_list<int32_t> list) {
    return locked([&] {
        log_call(name, list);
        return 0;
    });
}
// A route set or stashed: checked, then held until the done call.
int32_t route(const char* name, int32_t in, int32_t out, bool video) {
    return locked([&] {
        log_call(name, {in, out});
        const int32_t rc = tavsim::check_route(g_state, !video, in, out);
        if (rc == 0) {
            (video ? g_state.batch.video : g_state.batch.audio)[out] = in;
        }
        return rc;
    });
}
int32_t switch_done(const char* name, bool video) {
    return locked([&] {
        log_call(name, {});
        tavsim::apply_batch(g_state, !video, g_state.batch);
        return 0;
    });
}
} // namespace

State& state() {
    return g_state;
}
std::mutex& mutex() {
    return g_mutex;
}

void reset() {
    locked([] { g_state = State{}; });
}

void make_device(int n_in, int n_out, bool audio) {
    locked([&] {
        for (int i = 1; i <= tavsim::kMaxPorts; ++i) {
            const int32_t dir = i <= n_in           ? em_matrix_in
                                : i <= n_in + n_out ? em_matrix_out
                                                    : em_matrix_unknown;
            g_state.port[i] = tavsim::Port{};
            g_state.port[i].vdir = dir;
            g_state.port[i].adir = audio ? dir : em_matrix_unknown;
        }
        g_state.device_type = n_in + n_out;
    });
}

void set_card(int slot, int32_t status) {
    locked([&] {
        g_state.cards.at(static_cast<size_t>(slot)).defined = true;
        g_state.cards.at(static_cast<size_t>(slot)).state = status;
    });
}

bool raise_signal(uint32_t bits, uint32_t src_parameter) {
    TAV_MATRIX_SIGNAL_CALLBACK cb = locked([&] {
        g_state.signal = TAV_MATRIX_OBJ_SIGNAL_FLAG{};
        g_state.signal.src = em_matrix_sig_src_core;
        g_state.signal.src_parameter = src_parameter;
        g_state.signal.sig_bit_map = bits;
        return g_state.callback;
    });
    if (cb != nullptr) {
        cb(0); // as the library does, outside the fake's mutex
    }
    return cb != nullptr;
}

int signal_fetches() {
    return locked([] { return g_state.signal_fetches; });
}

std::vector<std::string> calls_starting(const std::string& prefix) {
    return locked([&] {
        std::vector<std::string> out;
        std::copy_if(g_state.calls.begin(), g_state.calls.end(), std::back_inserter(out),
                     [&](const std::string& c) { return c.rfind(prefix, 0) == 0; });
        return out;
    });
}

} // namespace fakematrix

using namespace fakematrix;

extern "C" {

void* tav_matrix_open(uint32_t version) {
    return locked([&]() -> void* {
        g_state.open_calls++;
        log_call("open", {static_cast<int32_t>(version)});
        return g_state.open_fails ? nullptr : &g_handle_token;
    });
}
int32_t tav_matrix_get_device_type(void*) {
    return locked([] { return g_state.device_type; });
}
int32_t tav_matrix_get_active_video_pipe_io(void*, int32_t p) {
    return pipe_io(p, true, true);
}
int32_t tav_matrix_get_active_audio_pipe_io(void*, int32_t p) {
    return pipe_io(p, false, true);
}
int32_t tav_matrix_get_video_pipe_io(void*, int32_t p) {
    return pipe_io(p, true, false);
}
int32_t tav_matrix_get_audio_pipe_io(void*, int32_t p) {
    return pipe_io(p, false, false);
}
int32_t tav_matrix_get_video_switch_state(void*, int32_t p) {
    return locked([&] { return tavsim::route_of(g_state, false, p); });
}
int32_t tav_matrix_get_audio_switch_state(void*, int32_t p) {
    return locked([&] { return tavsim::route_of(g_state, true, p); });
}
int32_t tav_matrix_set_video_switch(void*, int32_t in, int32_t out) {
    return route("set_video_switch", in, out, true);
}
int32_t tav_matrix_set_audio_switch(void*, int32_t in, int32_t out) {
    return route("set_audio_switch", in, out, false);
}
int32_t tav_matrix_stash_video_switch_data(void*, int32_t in, int32_t out) {
    return route("stash_video_switch_data", in, out, true);
}
int32_t tav_matrix_stash_audio_switch_data(void*, int32_t in, int32_t out) {
    return route("stash_audio_switch_data", in, out, false);
}
int32_t tav_matrix_set_video_switch_done(void*) {
    return switch_done("set_video_switch_done", true);
}
int32_t tav_matrix_set_audio_switch_done(void*) {
    return switch_done("set_audio_switch_done", false);
}
int32_t tav_matrix_set_inner_signal_reboot_opt(void*, int32_t option) {
    return logged("set_inner_signal_reboot_opt", {option});
}
int32_t tav_matrix_set_inner_signal_lock_fp_opt(void*) {
    return logged("set_inner_signal_lock_fp_opt", {});
}

int32_t tav_matrix_get_port_edid(void*, int32_t p, int32_t kind, uint8_t* buf, int32_t len) {
    return locked([&] {
        log_call("get_port_edid", {p, kind, len});
        const tavsim::Edid* e = tavsim::edid_of(g_state, p, kind);
        if (e != nullptr && buf != nullptr && len > 0) {
            memcpy(buf, e->data(), std::min(e->size(), static_cast<size_t>(len)));
        }
        return g_state.get_edid_result;
    });
}
int32_t tav_matrix_set_port_edid(void*, int32_t p, int32_t kind, uint8_t* buf, int32_t len) {
    return locked([&] {
        log_call("set_port_edid", {p, kind, len});
        tavsim::Edid* e = tavsim::edid_of(g_state, p, kind);
        if (g_state.set_edid_result == 0 && e != nullptr && buf != nullptr && len > 0) {
            *e = tavsim::Edid{};
            memcpy(e->data(), buf, std::min(e->size(), static_cast<size_t>(len)));
        }
        return g_state.set_edid_result;
    });
}

int32_t tav_matrix_register_inner_signal(void*, uint32_t mask, TAV_MATRIX_SIGNAL_CALLBACK cb) {
    return locked([&] {
        log_call("register_inner_signal", {static_cast<int32_t>(mask)});
        g_state.callback = cb;
        return 0;
    });
}
int32_t tav_matrix_unregister_inner_signal(void*, uint32_t mask) {
    return locked([&] {
        log_call("unregister_inner_signal", {static_cast<int32_t>(mask)});
        g_state.callback = nullptr;
        return 0;
    });
}
int32_t tav_matrix_get_inner_signal_information(void*, TAV_MATRIX_OBJ_SIGNAL_FLAG* rec) {
    return locked([&] {
        g_state.signal_fetches++;
        if (rec != nullptr && g_state.signal_result == 0) {
            *rec = g_state.signal;
        }
        return g_state.signal_result;
    });
}
int32_t tav_matrix_get_card_information(void*, int32_t slot, TAV_MATRIX_OBJ_CARD* card) {
    return locked([&] {
        log_call("get_card_information", {slot});
        g_state.table_trace.push_back("card" + args({slot}));
        if (card != nullptr) {
            *card = tavsim::card_record(g_state, slot);
        }
        return g_state.card_result;
    });
}
int32_t tav_matrix_get_iap_process_slotID(void*) {
    return locked([] { return g_state.update_slot; });
}
int32_t tav_matrix_get_iap_process_PCT(void*, int32_t) {
    return locked([] { return g_state.update_pct; });
}

} // extern "C"
