#include "fake_matrix.h"

#include <algorithm>
#include <cstring>

namespace fakematrix {

namespace {
State g_state;
std::mutex g_mutex;
int g_handle_token;

void log_call(const std::string& s) {
    g_state.calls.push_back(s);
}

std::string args(std::initializer_list<int32_t> list) {
    std::string s = "(";
    bool first = true;
    for (int32_t v : list) {
        if (!first) {
            s += ",";
        }
        s += std::to_string(v);
        first = false;
    }
    return s + ")";
}

Port* port(int32_t p) {
    if (p < 1 || p >= static_cast<int32_t>(g_state.ports.size())) {
        return nullptr;
    }
    return &g_state.ports[static_cast<size_t>(p)];
}
} // namespace

State& state() {
    return g_state;
}
std::mutex& mutex() {
    return g_mutex;
}

void reset() {
    std::lock_guard<std::mutex> g(g_mutex);
    g_state = State{};
}

void make_device(int n_in, int n_out, bool audio) {
    std::lock_guard<std::mutex> g(g_mutex);
    for (auto& p : g_state.ports) {
        p = Port{};
    }
    for (int i = 1; i <= n_in; ++i) {
        g_state.ports[static_cast<size_t>(i)].vio = em_matrix_in;
        if (audio) {
            g_state.ports[static_cast<size_t>(i)].aio = em_matrix_in;
        }
    }
    for (int i = n_in + 1; i <= n_in + n_out; ++i) {
        g_state.ports[static_cast<size_t>(i)].vio = em_matrix_out;
        if (audio) {
            g_state.ports[static_cast<size_t>(i)].aio = em_matrix_out;
        }
    }
    g_state.device_type = n_in + n_out;
}

bool raise_signal(uint32_t bits, uint32_t src_parameter) {
    TAV_MATRIX_SIGNAL_CALLBACK cb;
    {
        std::lock_guard<std::mutex> g(g_mutex);
        g_state.signal = TAV_MATRIX_OBJ_SIGNAL_FLAG{};
        g_state.signal.src = em_matrix_sig_src_core;
        g_state.signal.src_parameter = src_parameter;
        g_state.signal.sig_bit_map = bits;
        cb = g_state.callback;
    }
    if (cb == nullptr) {
        return false;
    }
    cb(0);
    return true;
}

int signal_fetches() {
    std::lock_guard<std::mutex> g(g_mutex);
    return g_state.signal_fetches;
}

std::vector<std::string> calls_starting(const std::string& prefix) {
    std::lock_guard<std::mutex> g(g_mutex);
    std::vector<std::string> out;
    for (const auto& c : g_state.calls) {
        if (c.rfind(prefix, 0) == 0) {
            out.push_back(c);
        }
    }
    return out;
}

} // namespace fakematrix

using namespace fakematrix;

extern "C" {

void* tav_matrix_open(uint32_t version) {
    std::lock_guard<std::mutex> g(g_mutex);
    g_state.open_calls++;
    log_call("open" + args({static_cast<int32_t>(version)}));
    return g_state.open_fails ? nullptr : &g_handle_token;
}

int32_t tav_matrix_get_device_type(void*) {
    std::lock_guard<std::mutex> g(g_mutex);
    return g_state.device_type;
}

int32_t tav_matrix_get_active_video_pipe_io(void*, int32_t p) {
    std::lock_guard<std::mutex> g(g_mutex);
    if (p == 1) {
        g_state.table_trace.push_back("video_table");
    }
    Port* x = port(p);
    return x ? x->vio : em_matrix_unknown;
}
int32_t tav_matrix_get_active_audio_pipe_io(void*, int32_t p) {
    std::lock_guard<std::mutex> g(g_mutex);
    if (p == 1) {
        g_state.table_trace.push_back("audio_table");
    }
    Port* x = port(p);
    return x ? x->aio : em_matrix_unknown;
}
int32_t tav_matrix_get_video_pipe_io(void* h, int32_t p) {
    return tav_matrix_get_active_video_pipe_io(h, p);
}
int32_t tav_matrix_get_audio_pipe_io(void* h, int32_t p) {
    return tav_matrix_get_active_audio_pipe_io(h, p);
}
int32_t tav_matrix_get_video_switch_state(void*, int32_t p) {
    std::lock_guard<std::mutex> g(g_mutex);
    Port* x = port(p);
    return x ? x->vroute : 0;
}
int32_t tav_matrix_get_audio_switch_state(void*, int32_t p) {
    std::lock_guard<std::mutex> g(g_mutex);
    Port* x = port(p);
    return x ? x->aroute : 0;
}

int32_t tav_matrix_set_video_switch(void*, int32_t in, int32_t out) {
    std::lock_guard<std::mutex> g(g_mutex);
    log_call("set_video_switch" + args({in, out}));
    return 0;
}
int32_t tav_matrix_set_audio_switch(void*, int32_t in, int32_t out) {
    std::lock_guard<std::mutex> g(g_mutex);
    log_call("set_audio_switch" + args({in, out}));
    return 0;
}
int32_t tav_matrix_stash_video_switch_data(void*, int32_t in, int32_t out) {
    std::lock_guard<std::mutex> g(g_mutex);
    log_call("stash_video_switch_data" + args({in, out}));
    if (Port* x = port(out)) {
        x->vroute = in;
    }
    return 0;
}
int32_t tav_matrix_stash_audio_switch_data(void*, int32_t in, int32_t out) {
    std::lock_guard<std::mutex> g(g_mutex);
    log_call("stash_audio_switch_data" + args({in, out}));
    if (Port* x = port(out)) {
        x->aroute = in;
    }
    return 0;
}
int32_t tav_matrix_set_video_switch_done(void*) {
    std::lock_guard<std::mutex> g(g_mutex);
    log_call("set_video_switch_done()");
    return 0;
}
int32_t tav_matrix_set_audio_switch_done(void*) {
    std::lock_guard<std::mutex> g(g_mutex);
    log_call("set_audio_switch_done()");
    return 0;
}

int32_t tav_matrix_get_port_edid(void*, int32_t p, int32_t kind, uint8_t* buf, int32_t len) {
    std::lock_guard<std::mutex> g(g_mutex);
    log_call("get_port_edid" + args({p, kind, len}));
    auto it = g_state.edid.find({p, kind});
    if (it != g_state.edid.end() && buf != nullptr && len > 0) {
        size_t n = std::min(it->second.size(), static_cast<size_t>(len));
        memcpy(buf, it->second.data(), n);
    }
    return g_state.get_edid_result;
}
int32_t tav_matrix_set_port_edid(void*, int32_t p, int32_t kind, uint8_t* buf, int32_t len) {
    std::lock_guard<std::mutex> g(g_mutex);
    log_call("set_port_edid" + args({p, kind, len}));
    if (g_state.set_edid_result == 0 && buf != nullptr && len > 0) {
        g_state.edid[{p, kind}] = std::vector<uint8_t>(buf, buf + len);
    }
    return g_state.set_edid_result;
}

int32_t tav_matrix_register_inner_signal(void*, uint32_t mask, TAV_MATRIX_SIGNAL_CALLBACK cb) {
    std::lock_guard<std::mutex> g(g_mutex);
    log_call("register_inner_signal" + args({static_cast<int32_t>(mask)}));
    g_state.callback = cb;
    g_state.registered_mask = mask;
    return 0;
}
int32_t tav_matrix_unregister_inner_signal(void*, uint32_t mask) {
    std::lock_guard<std::mutex> g(g_mutex);
    log_call("unregister_inner_signal" + args({static_cast<int32_t>(mask)}));
    g_state.callback = nullptr;
    g_state.registered_mask = 0;
    return 0;
}
int32_t tav_matrix_get_inner_signal_information(void*, TAV_MATRIX_OBJ_SIGNAL_FLAG* rec) {
    std::lock_guard<std::mutex> g(g_mutex);
    g_state.signal_fetches++;
    if (rec != nullptr && g_state.signal_result == 0) {
        *rec = g_state.signal;
    }
    return g_state.signal_result;
}
int32_t tav_matrix_get_card_information(void*, int32_t slot, TAV_MATRIX_OBJ_CARD* card) {
    std::lock_guard<std::mutex> g(g_mutex);
    log_call("get_card_information" + args({slot}));
    g_state.table_trace.push_back("card" + args({slot}));
    auto it = g_state.cards.find(slot);
    if (card != nullptr) {
        if (it != g_state.cards.end()) {
            *card = it->second;
        } else {
            memset(card, 0, sizeof *card);
            card->slot_id = static_cast<uint32_t>(slot);
            card->card_status = em_matrix_card_unknown;
        }
    }
    return g_state.card_result;
}
int32_t tav_matrix_get_iap_process_slotID(void*) {
    std::lock_guard<std::mutex> g(g_mutex);
    return g_state.iap_slot;
}
int32_t tav_matrix_get_iap_process_PCT(void*, int32_t) {
    std::lock_guard<std::mutex> g(g_mutex);
    return g_state.iap_pct;
}
int32_t tav_matrix_set_inner_signal_reboot_opt(void*, int32_t option) {
    std::lock_guard<std::mutex> g(g_mutex);
    log_call("set_inner_signal_reboot_opt" + args({option}));
    return 0;
}
int32_t tav_matrix_set_inner_signal_lock_fp_opt(void*) {
    std::lock_guard<std::mutex> g(g_mutex);
    log_call("set_inner_signal_lock_fp_opt()");
    return 0;
}

} // extern "C"
