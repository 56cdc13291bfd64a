// Simulated matrix core: stands in for matrix_app_quoral on a PC.
//
// One thread, one poll loop: the listening socket DIR/var/run/tav_matrix.sock,
// the client connections, a self-pipe for SIGINT/SIGTERM and a timer list
// (PID-file lock release, cards turning normal, a running update).
//
// Line protocol, one request per line, in plain text so that clients of any
// byte order and word size are served alike (described in full at the top of
// tav_matrix_client.cpp):
//   library calls:  "<call> ARGS..." -> "<result> [payload]"
//   signal stream:  "subscribe PID [MASK]" turns the connection into a signal
//                   stream (and records the client's mask); the core then
//                   pushes "sig SRC THREAD PARAM BITS"
//   control client: "ctl COMMAND ARGS..." -> "| text" lines, then "ok" or "err TEXT"
#include <fcntl.h>
#include <getopt.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "ctl_commands.h"
#include "sim_model.h"

using namespace tavsim;
using Clock = std::chrono::steady_clock;

namespace {

struct Conn {
    std::string in, out;
    bool subscriber = false;
    long pid = 0;
    Batch batch;
};

Chassis g_ch;
std::map<int, Conn> g_conns;
std::map<std::string, int32_t> g_fails; // library call -> forced result
std::map<long, uint32_t> g_masks;       // client pid -> registered mask
std::deque<std::string> g_log;          // library calls received
std::multimap<Clock::time_point, std::function<void()>> g_timers;
int g_normal_delay_ms = 1500;
int g_sigpipe[2] = {-1, -1};
int g_run_step_ms = 300;
unsigned g_update_gen = 0; // a new start, set or end stops a running "update run"

constexpr size_t kLogMax = 200000;
constexpr size_t kOutMax = 16u << 20; // a subscriber this far behind is dropped

void on_signal(int) {
    const char b = 1;
    (void)!write(g_sigpipe[1], &b, 1);
}

void after(int ms, std::function<void()> fn) {
    g_timers.emplace(Clock::now() + std::chrono::milliseconds(ms), std::move(fn));
}

void raise_sig(const Signal& s) {
    char line[96];
    std::snprintf(line, sizeof line, "sig %u %u %u %u\n", s.src,
                  s.thread_id ? s.thread_id : (uint32_t)getpid(), s.param, s.bits);
    for (auto& [fd, c] : g_conns)
        if (c.subscriber && c.out.size() < kOutMax)
            c.out += line;
}

void raise_all(const std::vector<Signal>& v) {
    for (const auto& s : v)
        raise_sig(s);
}

long arg(const std::vector<std::string>& w, size_t i, long dflt = -1) {
    long v = dflt;
    if (i < w.size() && !parse_int(w[i], v))
        v = dflt;
    return v;
}

void log_call(const std::vector<std::string>& w, int32_t rc) {
    std::string s = w[0] + "(";
    for (size_t i = 1; i < w.size(); ++i) {
        if (w[0] == "set_port_edid" && i == 4)
            break; // the bytes go to the state, not the log
        s += (i > 1 ? "," : "") + w[i];
    }
    s += ") = " + std::to_string(rc);
    g_log.push_back(s);
    if (g_log.size() > kLogMax)
        g_log.pop_front();
}

// ---- library calls ---------------------------------------------------------

std::string library_call(Conn& c, const std::vector<std::string>& w) {
    const std::string& v = w[0];
    std::string payload;
    int32_t rc = 0;
    const bool audio = v.find("audio") != std::string::npos;
    auto f = g_fails.find(v);
    if (f != g_fails.end()) {
        rc = f->second;
    } else if (v == "open") {
        c.pid = arg(w, 2, 0);
    } else if (v == "get_device_type") {
        rc = g_ch.ports;
    } else if (v == "get_active_video_pipe_io" || v == "get_active_audio_pipe_io") {
        rc = port_dir(g_ch, (int)arg(w, 1), audio, true);
    } else if (v == "get_video_pipe_io" || v == "get_audio_pipe_io") {
        rc = port_dir(g_ch, (int)arg(w, 1), audio, false);
    } else if (v == "get_video_switch_state" || v == "get_audio_switch_state") {
        rc = route_of(g_ch, audio, (int)arg(w, 1));
    } else if (v == "set_video_switch" || v == "set_audio_switch" ||
               v == "stash_video_switch_data" || v == "stash_audio_switch_data") {
        const int in = (int)arg(w, 1), out = (int)arg(w, 2);
        rc = check_route(g_ch, audio, in, out);
        if (rc == 0)
            (audio ? c.batch.audio : c.batch.video)[out] = in;
    } else if (v == "set_video_switch_done" || v == "set_audio_switch_done") {
        if (apply_batch(g_ch, audio, c.batch))
            raise_sig({em_matrix_sig_src_core, 0, 0,
                       audio ? TAV_MATRIX_SIG_AUDIO_CONNECT : TAV_MATRIX_SIG_VIDEO_CONNECT});
    } else if (v == "get_port_edid") {
        const int p = (int)arg(w, 1), kind = (int)arg(w, 2), len = (int)arg(w, 3);
        const Edid* e = nullptr;
        if (p < 1 || p > g_ch.ports || len <= 0)
            rc = -2;
        else if (kind == em_matrix_edid_default)
            e = &g_ch.default_edid;
        else if (kind == em_matrix_edid_in && port_dir(g_ch, p, false, true) == em_matrix_in)
            e = &g_ch.port[p].own;
        else if (kind == em_matrix_edid_load && port_dir(g_ch, p, false, true) == em_matrix_out &&
                 g_ch.port[p].sink)
            e = &g_ch.port[p].load;
        else
            rc = -3;
        if (e)
            payload = to_hex(e->data(), len < kEdidSize ? (size_t)len : (size_t)kEdidSize);
    } else if (v == "set_port_edid") {
        const int p = (int)arg(w, 1), kind = (int)arg(w, 2), len = (int)arg(w, 3);
        std::vector<uint8_t> bytes;
        if (p < 1 || p > g_ch.ports || len <= 0 || w.size() < 5 || !from_hex(w[4], bytes))
            rc = -2;
        else if (kind != em_matrix_edid_in || port_dir(g_ch, p, false, true) != em_matrix_in)
            rc = -3;
        else {
            Edid e{};
            for (size_t i = 0; i < bytes.size() && i < e.size(); ++i)
                e[i] = bytes[i];
            g_ch.port[p].own = e;
        }
    } else if (v == "get_card_information") {
        const int s = (int)arg(w, 1);
        if (s < 1 || s > kMaxSlots) {
            rc = -2;
        } else {
            TAV_MATRIX_OBJ_CARD r = card_record(g_ch, s);
            char b[256];
            std::snprintf(b, sizeof b, "%u %d %d %d %d %d %d %d %d %d %d %d %d %d %d %d %d",
                          r.slot_id, r.card_status, r.type_id, r.ver_major, r.ver_minor,
                          r.ver_build, r.io_dir, r.link_mode, r.gens, r.iap_support,
                          r.audiomatrix_support, r.network_support, r.inner_irq_support,
                          r.uart_set_support, r.sync_support, r.subfun_number, r.main_cpu_type);
            payload = b;
        }
    } else if (v == "get_iap_process_slotID") {
        rc = g_ch.update_slot;
    } else if (v == "get_iap_process_PCT") {
        rc = arg(w, 1) == g_ch.update_slot ? g_ch.update_pct : 0;
    } else if (v == "set_inner_signal_reboot_opt") {
        const long opt = arg(w, 1);
        if (opt < em_irq_reboot_none || opt > em_irq_reboot_update)
            rc = -2;
        else if (opt != em_irq_reboot_none)
            raise_sig({em_matrix_sig_src_core, 0, (uint32_t)opt, TAV_MATRIX_SIG_REBOOT});
    } else if (v == "set_inner_signal_lock_fp_opt") {
        const long pid = arg(w, 1, c.pid);
        raise_sig(
            {em_matrix_sig_app, (uint32_t)pid, (uint32_t)pid & 0xFFFFu, TAV_MATRIX_SIG_PARAM});
    } else if (v == "register_inner_signal") {
        g_masks[c.pid] |= (uint32_t)arg(w, 1, 0);
    } else if (v == "unregister_inner_signal") {
        g_masks[c.pid] &= ~(uint32_t)arg(w, 1, 0);
    } else {
        rc = -1;
    }
    log_call(w, rc);
    return std::to_string(rc) + (payload.empty() ? "" : " " + payload) + "\n";
}

// ---- control commands ------------------------------------------------------

struct CtlOut {
    std::string text;
    void line(const std::string& s) { text += "| " + s + "\n"; }
};

// Moves a card to `state` and raises the signals of the change.
void change_card(long slot, int32_t state) {
    std::vector<Signal> sigs;
    set_card_state(g_ch, (int)slot, state, sigs);
    raise_all(sigs);
}

void card_normal_later(int slot, int ms) {
    after(ms, [slot] {
        if (g_ch.cards[slot].state == em_matrix_card_online) // else pulled meanwhile
            change_card(slot, em_matrix_card_normal);
    });
}

void update_step(int slot, unsigned gen) {
    if (gen != g_update_gen || g_ch.update_pct >= 100)
        return;
    g_ch.update_pct = g_ch.update_pct + 5 > 100 ? 100 : g_ch.update_pct + 5;
    if (g_ch.update_pct < 100) {
        after(g_run_step_ms, [slot, gen] { update_step(slot, gen); });
        return;
    }
    after(g_run_step_ms, [slot, gen] {
        if (gen == g_update_gen)
            raise_sig({em_matrix_sig_src_core, 0, (uint32_t)slot, TAV_MATRIX_SIG_UPDATE});
    });
}

// ---- control command handlers ----------------------------------------------
// Each takes the request's words ("ctl", the keyword, its arguments) and
// returns an error text, "" on success, or kBadUsage for the row's usage line.

using Words = std::vector<std::string>;
const std::string kBadUsage = "\x01";

long num(const Words& w, size_t i, long dflt = -1) {
    return arg(w, i, dflt);
}

// The number after the word `name` among the NAME VALUE pairs from w[first]
// on (the last one given counts); `dflt` when absent.
long named(const Words& w, size_t first, const std::string& name, long dflt) {
    long v = dflt;
    for (size_t i = first; i + 1 < w.size(); i += 2)
        if (w[i] == name)
            v = num(w, i + 1, dflt);
    return v;
}

std::string ctl_state(const Words&, CtlOut& o) {
    std::istringstream in(describe(g_ch));
    std::string l;
    while (std::getline(in, l))
        o.line(l);
    for (const auto& [call, rc] : g_fails)
        o.line("fail " + call + " rc=" + std::to_string(rc));
    for (const auto& [fd, c] : g_conns)
        if (c.subscriber) {
            char b[64];
            std::snprintf(b, sizeof b, "client pid=%ld mask=0x%04x", c.pid, g_masks[c.pid]);
            o.line(b);
        }
    return "";
}

std::string ctl_log(const Words& w, CtlOut& o) {
    const bool results = w.size() > 2 && w[2] == "-r";
    const size_t first = results ? 3 : 2;
    for (const auto& e : g_log) {
        bool match = w.size() <= first;
        for (size_t i = first; i < w.size(); ++i)
            match = match || e.rfind(w[i], 0) == 0;
        if (match)
            o.line(results ? e : e.substr(0, e.rfind(" = ")));
    }
    return "";
}

std::string ctl_clear_log(const Words&, CtlOut&) {
    g_log.clear();
    return "";
}

// The card commands: the slot (w[2]) is checked before their handler runs.
template <std::string (*Fn)(const Words&, long, Card&)>
std::string with_slot(const Words& w, CtlOut&) {
    const long slot = num(w, 2);
    if (slot < 1 || slot > kMaxSlots)
        return "slot must be 1.." + std::to_string(kMaxSlots);
    return Fn(w, slot, g_ch.cards[slot]);
}

// Describes a new card the way the chassis file does and takes its ports.
std::string place_new_card(const Words& w, long slot, size_t& i) {
    Card& k = g_ch.cards[slot];
    if (k.defined && k.state != em_matrix_card_offline)
        return "slot " + w[2] + " is occupied";
    std::string text = "ports " + std::to_string(g_ch.ports) + "\ncard 1 " + w[3] + " " + w[4];
    i = 5;
    if (i < w.size() && (w[i] == "av" || w[i] == "video" || w[i] == "audio"))
        text += " " + w[i++];
    Chassis probe;
    std::string err;
    if (!parse_chassis(text, probe, err))
        return err.substr(err.find(':') + 2);
    const Card& nk = probe.cards[1];
    for (int p = 1; p <= g_ch.ports; ++p)
        if (g_ch.port[p].slot == slot)
            g_ch.port[p].slot = 0;
    for (int p = nk.first; p <= nk.last; ++p) {
        if (g_ch.port[p].slot != 0)
            return "port " + std::to_string(p) + " belongs to another card";
    }
    for (int p = nk.first; p <= nk.last; ++p) {
        g_ch.port[p].slot = (int)slot;
        g_ch.port[p].vdir = probe.port[p].vdir;
        g_ch.port[p].adir = probe.port[p].adir;
    }
    k = nk;
    k.state = em_matrix_card_offline;
    return "";
}

std::string ctl_insert(const Words& w, long slot, Card& k) {
    size_t i = 3;
    if (w.size() > 4 && (w[3] == "in" || w[3] == "out")) {
        const std::string err = place_new_card(w, slot, i);
        if (!err.empty())
            return err;
    } else if (!k.defined) {
        return "slot " + w[2] +
               " has no card in the chassis: insert SLOT in|out FIRST-LAST [av|video|audio]";
    } else if (k.state != em_matrix_card_offline) {
        return "slot " + w[2] + " is occupied";
    }
    const long delay = named(w, i, "--delay", g_normal_delay_ms);
    change_card(slot, em_matrix_card_online);
    card_normal_later((int)slot, delay < 0 ? 0 : (int)delay);
    return "";
}

std::string ctl_pull(const Words& w, long slot, Card& k) {
    if (!k.defined || k.state == em_matrix_card_offline)
        return "slot " + w[2] + " is empty";
    change_card(slot, em_matrix_card_offline);
    return "";
}

std::string ctl_cardstate(const Words& w, long slot, Card& k) {
    int32_t st = 0;
    if (!k.defined)
        return "slot " + w[2] + " holds no card";
    if (w.size() < 4 || !parse_state(w[3], st))
        return kBadUsage;
    change_card(slot, st);
    return "";
}

std::string ctl_update(const Words& w, CtlOut&) {
    const std::string sub = w.size() > 2 ? w[2] : "";
    if (sub == "start" || sub == "run") {
        const long slot = num(w, 3);
        if (slot < 1 || slot > kMaxUpdateId)
            return "update slot must be 1.." + std::to_string(kMaxUpdateId);
        g_ch.update_slot = (int)slot;
        g_ch.update_pct = 0;
        const unsigned gen = ++g_update_gen;
        raise_sig({em_matrix_sig_src_core, 0, 0x8000u | (uint32_t)slot, TAV_MATRIX_SIG_UPDATE});
        if (sub == "run") {
            g_run_step_ms = (int)num(w, 4, 300);
            after(g_run_step_ms, [slot, gen] { update_step((int)slot, gen); });
        }
        return "";
    }
    if (sub == "set") {
        ++g_update_gen;
        const long pct = num(w, 3);
        if (pct < 0 || pct > 255)
            return "usage: update set PERCENT";
        g_ch.update_pct = (int)pct;
        return "";
    }
    if (sub == "finish" || sub == "end" || sub == "fail") {
        ++g_update_gen;
        if (sub == "finish")
            g_ch.update_pct = 100;
        if (sub == "fail")
            g_ch.update_pct = 0;
        raise_sig({em_matrix_sig_src_core, 0, (uint32_t)g_ch.update_slot, TAV_MATRIX_SIG_UPDATE});
        return "";
    }
    return kBadUsage;
}

std::string ctl_reboot(const Words& w, CtlOut&) {
    raise_sig({em_matrix_sig_src_core, 0, (uint32_t)num(w, 2, 0), TAV_MATRIX_SIG_REBOOT});
    return "";
}

std::string ctl_raise(const Words& w, CtlOut&) {
    const long bits = num(w, 2, -1), param = num(w, 3, 0);
    if (bits < 0)
        return kBadUsage;
    const long src = named(w, 4, "--src", em_matrix_sig_src_core),
               count = named(w, 4, "--count", 1), tid = named(w, 4, "--thread", 0);
    for (long i = 0; i < count; ++i)
        raise_sig({(uint32_t)src, (uint32_t)tid, (uint32_t)param, (uint32_t)bits});
    return "";
}

// Mixed signals that change nothing in the chassis: connection and port
// changes, slot signals of the cards present, parameter signals of a foreign
// kind (high bits set).
std::string ctl_burst(const Words& w, CtlOut&) {
    const long count = num(w, 2, 0);
    std::vector<int> slots;
    for (int s = 1; s <= kMaxSlots; ++s)
        if (g_ch.cards[s].defined && g_ch.cards[s].state == em_matrix_card_normal)
            slots.push_back(s);
    uint32_t x = (uint32_t)num(w, 3, 12345);
    static const uint32_t kinds[6] = {TAV_MATRIX_SIG_VIDEO_CONNECT, TAV_MATRIX_SIG_AUDIO_CONNECT,
                                      TAV_MATRIX_SIG_SLOT,          TAV_MATRIX_SIG_VIDEO_PORT,
                                      TAV_MATRIX_SIG_AUDIO_PORT,    TAV_MATRIX_SIG_PARAM};
    for (long i = 0; i < count; ++i) {
        x = x * 1103515245u + 12345u;
        const uint32_t r = (x >> 16) % 6;
        uint32_t param = 0;
        if (kinds[r] == TAV_MATRIX_SIG_SLOT)
            param = slots.empty() ? 1 : slots[(x >> 8) % slots.size()];
        if (kinds[r] == TAV_MATRIX_SIG_PARAM)
            param = 0x10000u | 1u;
        raise_sig({em_matrix_sig_src_core, 0, param, kinds[r]});
    }
    return "";
}

std::string ctl_route(const Words& w, CtlOut&) {
    if (w.size() != 5 || (w[2] != "video" && w[2] != "audio"))
        return kBadUsage;
    const bool audio = w[2] == "audio";
    const long out = num(w, 3), in = num(w, 4);
    const std::string what = audio ? "an audio" : "a video";
    if (out < 1 || out > g_ch.ports ||
        (audio ? g_ch.port[out].adir : g_ch.port[out].vdir) != em_matrix_out)
        return "port " + w[3] + " is not " + what + " output";
    if (in != 0 && (in < 1 || in > g_ch.ports ||
                    (audio ? g_ch.port[in].adir : g_ch.port[in].vdir) != em_matrix_in))
        return "port " + w[4] + " is not " + what + " input";
    (audio ? g_ch.port[out].aroute : g_ch.port[out].vroute) = (int)in;
    raise_sig({em_matrix_sig_src_core, 0, 0,
               audio ? TAV_MATRIX_SIG_AUDIO_CONNECT : TAV_MATRIX_SIG_VIDEO_CONNECT});
    return "";
}

std::string ctl_fail(const Words& w, CtlOut&) {
    if (w.size() > 3 && w[3] == "off")
        g_fails.erase(w[2]);
    else
        g_fails[w[2]] = (int32_t)num(w, 3, -1);
    return "";
}

std::string ctl_edid(const Words& w, CtlOut& o) {
    const std::string kind = w.size() > 3 ? w[3] : "";
    const Edid* e = edid_of(g_ch, (int)num(w, 2),
                            kind == "default" ? em_matrix_edid_default
                            : kind == "in"    ? em_matrix_edid_in
                            : kind == "load"  ? em_matrix_edid_load
                                              : -1);
    if (!e)
        return kBadUsage;
    o.line(to_hex(e->data(), e->size()));
    return "";
}

struct CtlCommand {
    std::string_view keyword;
    size_t min_args;        // arguments after the keyword, below which the usage is the reply
    std::string_view usage; // the reply's text after "usage: "
    std::string (*run)(const Words&, CtlOut&);
};

constexpr CtlCommand kCtlCommands[] = {
    {"state", 0, "state", ctl_state},
    {"log", 0, "log [-r] [PREFIX...]", ctl_log},
    {"clear-log", 0, "clear-log", ctl_clear_log},
    {"insert", 0, "insert SLOT [in|out A-B [av|video|audio]] [--delay MS]", with_slot<ctl_insert>},
    {"pull", 0, "pull SLOT", with_slot<ctl_pull>},
    {"cardstate", 0, "cardstate SLOT STATE", with_slot<ctl_cardstate>},
    {"update", 0, "update start|run SLOT | set PCT | finish | end | fail", ctl_update},
    {"reboot", 1, "reboot OPTION", ctl_reboot},
    {"raise", 0, "raise BITS [PARAM] [--src S] [--thread T] [--count N]", ctl_raise},
    {"burst", 0, "burst N [SEED]", ctl_burst},
    {"route", 0, "route video|audio OUTPUT INPUT", ctl_route},
    {"fail", 1, "fail CALL [RESULT|off]", ctl_fail},
    {"edid", 0, "edid PORT in|load|default", ctl_edid},
};

// Every command here is listed by tav_matrix_ctl --help, and every command
// listed there is either here or the client's own.
constexpr bool ctl_table_matches_help() {
    for (const auto& c : kCtlCommands) {
        bool listed = false;
        for (const auto& h : kCtlCommandHelp)
            listed = listed || (!h.client_side && ctl_keyword(h.synopsis) == c.keyword);
        if (!listed)
            return false;
    }
    for (const auto& h : kCtlCommandHelp) {
        bool served = h.client_side;
        for (const auto& c : kCtlCommands)
            served = served || ctl_keyword(h.synopsis) == c.keyword;
        if (!served)
            return false;
    }
    return true;
}
static_assert(ctl_table_matches_help());

// Returns an error text, or "" on success.
std::string ctl_command(const Words& w, CtlOut& o) {
    const std::string cmd = w.size() > 1 ? w[1] : "";
    for (const auto& c : kCtlCommands) {
        if (c.keyword != cmd)
            continue;
        std::string err = w.size() < c.min_args + 2 ? kBadUsage : c.run(w, o);
        return err == kBadUsage ? "usage: " + std::string(c.usage) : err;
    }
    return "unknown command '" + cmd + "' (see tav_matrix_ctl --help)";
}

void handle_line(int fd, Conn& c, const std::string& line) {
    const std::vector<std::string> w = split_words(line);
    if (w.empty())
        return;
    if (w[0] == "hello") {
        c.pid = arg(w, 1, 0);
        return;
    }
    if (w[0] == "subscribe") {
        c.subscriber = true;
        c.pid = arg(w, 1, 0);
        // A client subscribing again after a restart of the core brings its mask.
        if (w.size() > 2)
            g_masks[c.pid] = (uint32_t)arg(w, 2, 0);
        return;
    }
    if (w[0] == "ctl") {
        CtlOut o;
        const std::string err = ctl_command(w, o);
        c.out += o.text + (err.empty() ? "ok\n" : "err " + err + "\n");
        return;
    }
    (void)fd;
    c.out += library_call(c, w);
}

int make_listener(const std::string& path) {
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    if (path.size() >= sizeof a.sun_path) {
        std::fprintf(stderr, "tav_matrix_core: socket path too long: %s\n", path.c_str());
        return -1;
    }
    std::strcpy(a.sun_path, path.c_str());
    // A core already serving here keeps its socket.
    int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (probe >= 0 && connect(probe, (sockaddr*)&a, sizeof a) == 0) {
        close(probe);
        std::fprintf(stderr, "tav_matrix_core: another core serves %s\n", path.c_str());
        return -1;
    }
    if (probe >= 0)
        close(probe);
    unlink(path.c_str());
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0 || bind(fd, (sockaddr*)&a, sizeof a) != 0 || listen(fd, 64) != 0) {
        std::fprintf(stderr, "tav_matrix_core: %s: %s\n", path.c_str(), std::strerror(errno));
        if (fd >= 0)
            close(fd);
        return -1;
    }
    return fd;
}

void mkdirs(const std::string& path) {
    for (size_t i = 1; i <= path.size(); ++i)
        if (i == path.size() || path[i] == '/')
            mkdir(path.substr(0, i).c_str(), 0755);
}

int usage(int rc) {
    std::fprintf(
        rc ? stderr : stdout,
        "usage: tav_matrix_core --root DIR [--chassis FILE] [--startup-delay-ms N] "
        "[--normal-delay-ms N]\n"
        "Simulated matrix core. Serves libtav_matrix.so on DIR/var/run/tav_matrix.sock and holds "
        "the\n"
        "write lock of DIR/var/run/matrix_app_quoral.pid for the start-up delay (default 1000 "
        "ms).\n"
        "Cards inserted with tav_matrix_ctl turn normal after the normal delay (default 1500 ms).\n"
        "Without --chassis the built-in chassis (sim/matrix/chassis_default.txt) is used.\n");
    return rc;
}

} // namespace

int main(int argc, char** argv) {
    std::string root, chassis_file;
    int startup_delay = 1000;
    static const option kOptions[] = {{"root", required_argument, nullptr, 'r'},
                                      {"chassis", required_argument, nullptr, 'c'},
                                      {"startup-delay-ms", required_argument, nullptr, 's'},
                                      {"normal-delay-ms", required_argument, nullptr, 'n'},
                                      {"help", no_argument, nullptr, 'h'},
                                      {}};
    int opt;
    while ((opt = getopt_long(argc, argv, "h", kOptions, nullptr)) != -1) {
        switch (opt) {
        case 'r':
            root = optarg;
            break;
        case 'c':
            chassis_file = optarg;
            break;
        case 's':
            startup_delay = std::atoi(optarg);
            break;
        case 'n':
            g_normal_delay_ms = std::atoi(optarg);
            break;
        case 'h':
            return usage(0);
        default:
            return usage(2);
        }
    }
    if (optind < argc)
        return usage(2);
    if (root.empty())
        return usage(2);

    std::string text = default_chassis_text(), err;
    if (!chassis_file.empty()) {
        std::ifstream f(chassis_file);
        if (!f) {
            std::fprintf(stderr, "tav_matrix_core: cannot read %s\n", chassis_file.c_str());
            return 1;
        }
        std::stringstream ss;
        ss << f.rdbuf();
        text = ss.str();
    }
    if (!parse_chassis(text, g_ch, err)) {
        std::fprintf(stderr, "tav_matrix_core: %s: %s\n",
                     chassis_file.empty() ? "built-in chassis" : chassis_file.c_str(), err.c_str());
        return 1;
    }

    // The PID file is locked first, as the real core does while it starts.
    const std::string run = root + "/var/run";
    mkdirs(run);
    const std::string pidpath = run + "/matrix_app_quoral.pid";
    int pidfd = open(pidpath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    struct flock lk {};
    lk.l_type = F_WRLCK;
    lk.l_whence = SEEK_SET;
    if (pidfd < 0 || fcntl(pidfd, F_SETLK, &lk) != 0) {
        std::fprintf(stderr, "tav_matrix_core: cannot lock %s: %s\n", pidpath.c_str(),
                     std::strerror(errno));
        return 1;
    }
    const pid_t me = getpid();
    if (ftruncate(pidfd, 0) != 0 || write(pidfd, &me, sizeof me) != (ssize_t)sizeof me)
        std::fprintf(stderr, "tav_matrix_core: cannot write %s\n", pidpath.c_str());
    after(startup_delay < 0 ? 0 : startup_delay, [pidfd] {
        struct flock u {};
        u.l_type = F_UNLCK;
        u.l_whence = SEEK_SET;
        fcntl(pidfd, F_SETLK, &u);
    });

    const std::string sock = run + "/tav_matrix.sock";
    const int lfd = make_listener(sock);
    if (lfd < 0)
        return 1;
    if (pipe2(g_sigpipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return 1;
    signal(SIGPIPE, SIG_IGN);
    struct sigaction sa {};
    sa.sa_handler = on_signal;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    std::printf("tav_matrix_core: ready on %s\n", sock.c_str());
    std::fflush(stdout);

    for (;;) {
        std::vector<pollfd> fds{{g_sigpipe[0], POLLIN, 0}, {lfd, POLLIN, 0}};
        for (auto& [fd, c] : g_conns)
            fds.push_back({fd, (short)(POLLIN | (c.out.empty() ? 0 : POLLOUT)), 0});
        int timeout = -1;
        if (!g_timers.empty()) {
            auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                          g_timers.begin()->first - Clock::now())
                          .count();
            timeout = ms < 0 ? 0 : (int)ms + 1;
        }
        if (poll(fds.data(), fds.size(), timeout) < 0 && errno != EINTR)
            break;
        if (fds[0].revents)
            break;
        while (!g_timers.empty() && g_timers.begin()->first <= Clock::now()) {
            auto fn = std::move(g_timers.begin()->second);
            g_timers.erase(g_timers.begin());
            fn();
        }
        if (fds[1].revents & POLLIN) {
            int cfd;
            while ((cfd = accept4(lfd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)) >= 0)
                g_conns[cfd];
        }
        for (size_t i = 2; i < fds.size(); ++i) {
            auto it = g_conns.find(fds[i].fd);
            if (it == g_conns.end())
                continue;
            Conn& c = it->second;
            bool dead = (fds[i].revents & (POLLERR | POLLNVAL)) != 0;
            if (fds[i].revents & (POLLIN | POLLHUP)) {
                char buf[8192];
                ssize_t r = read(fds[i].fd, buf, sizeof buf);
                if (r > 0) {
                    c.in.append(buf, (size_t)r);
                    size_t nl;
                    while ((nl = c.in.find('\n')) != std::string::npos) {
                        std::string line = c.in.substr(0, nl);
                        c.in.erase(0, nl + 1);
                        handle_line(fds[i].fd, c, line);
                    }
                    if (c.in.size() > 65536)
                        dead = true;
                } else if (r == 0 || (errno != EAGAIN && errno != EINTR)) {
                    dead = true;
                }
            }
            if (!dead && !c.out.empty()) {
                ssize_t wr =
                    send(fds[i].fd, c.out.data(), c.out.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
                if (wr > 0)
                    c.out.erase(0, (size_t)wr);
                else if (wr < 0 && errno != EAGAIN && errno != EINTR)
                    dead = true;
            }
            if (c.subscriber && c.out.size() >= kOutMax)
                dead = true;
            if (dead) {
                close(fds[i].fd);
                g_conns.erase(it);
            }
        }
    }
    for (auto& [fd, c] : g_conns)
        close(fd);
    close(lfd);
    unlink(sock.c_str());
    return 0;
}
