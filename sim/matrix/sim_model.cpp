#include "sim_model.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

namespace tavsim {

namespace {

struct Line {
    int no;
    std::vector<std::string> w;
};

std::string at(int no, const std::string& msg) {
    return "line " + std::to_string(no) + ": " + msg;
}

bool parse_dir(const std::string& s, int32_t& d) {
    static const struct {
        const char* name;
        int32_t dir;
    } names[] = {{"in", em_matrix_in},
                 {"out", em_matrix_out},
                 {"mix", em_matrix_mix},
                 {"none", em_matrix_ioundefine},
                 {"unknown", em_matrix_unknown}};
    for (const auto& n : names)
        if (s == n.name) {
            d = n.dir;
            return true;
        }
    return false;
}

bool parse_range(const std::string& s, int& a, int& b) {
    auto dash = s.find('-');
    long x = 0, y = 0;
    if (dash == std::string::npos) {
        if (!parse_int(s, x))
            return false;
        y = x;
    } else if (!parse_int(s.substr(0, dash), x) || !parse_int(s.substr(dash + 1), y)) {
        return false;
    }
    a = static_cast<int>(x);
    b = static_cast<int>(y);
    return true;
}

std::string join_from(const std::vector<std::string>& w, size_t i) {
    std::string r;
    for (; i < w.size(); ++i)
        r += (r.empty() ? "" : " ") + w[i];
    return r;
}

// Each pass handles one keyword family, so the file may list them in any order.
bool pass_ports(const Line& l, Chassis& c, std::string& err) {
    long n = 0;
    if (l.w.size() != 2 || !parse_int(l.w[1], n) || n < 1 || n > kMaxPorts) {
        err = at(l.no, "ports needs one number 1.." + std::to_string(kMaxPorts));
        return false;
    }
    c.ports = static_cast<int>(n);
    return true;
}

bool pass_card(const Line& l, Chassis& c, std::string& err) {
    long slot = 0;
    if (l.w.size() < 4 || !parse_int(l.w[1], slot)) {
        err = at(
            l.no,
            "usage: card SLOT in|out FIRST-LAST [av|video|audio] [state=S] [type=N] [ver=A.B.C]");
        return false;
    }
    if (slot < 1 || slot > kMaxSlots) {
        err = at(l.no, "slot " + l.w[1] + " out of range 1.." + std::to_string(kMaxSlots));
        return false;
    }
    Card& k = c.cards[slot];
    if (k.defined) {
        err = at(l.no, "slot " + l.w[1] + " already holds a card");
        return false;
    }
    if (l.w[2] != "in" && l.w[2] != "out") {
        err = at(l.no, "card kind must be in or out, not " + l.w[2]);
        return false;
    }
    k.is_input = l.w[2] == "in";
    if (!parse_range(l.w[3], k.first, k.last) || k.first > k.last) {
        err = at(l.no, "bad port range " + l.w[3]);
        return false;
    }
    if (k.first < 1 || k.last > c.ports) {
        err = at(l.no,
                 "port out of range: " + l.w[3] + " (ports 1.." + std::to_string(c.ports) + ")");
        return false;
    }
    for (size_t i = 4; i < l.w.size(); ++i) {
        const std::string& o = l.w[i];
        long v = 0;
        if (o == "av" || o == "video" || o == "audio") {
            k.video = o != "audio";
            k.audio = o != "video";
        } else if (o.rfind("state=", 0) == 0) {
            if (!parse_state(o.substr(6), k.state)) {
                err = at(l.no, "unknown card state " + o.substr(6));
                return false;
            }
        } else if (o.rfind("type=", 0) == 0 && parse_int(o.substr(5), v)) {
            k.type_id = static_cast<int16_t>(v);
        } else if (o.rfind("ver=", 0) == 0) {
            int a = 0, b = 0, d = 0;
            if (std::sscanf(o.c_str() + 4, "%d.%d.%d", &a, &b, &d) != 3) {
                err = at(l.no, "ver needs A.B.C");
                return false;
            }
            k.ver_major = static_cast<int16_t>(a);
            k.ver_minor = static_cast<int16_t>(b);
            k.ver_build = static_cast<int16_t>(d);
        } else {
            err = at(l.no, "unknown card option " + o);
            return false;
        }
    }
    for (int p = k.first; p <= k.last; ++p) {
        if (c.port[p].slot != 0) {
            err = at(l.no, "port " + std::to_string(p) + " already on the card in slot " +
                               std::to_string(c.port[p].slot));
            return false;
        }
        const int32_t d = k.is_input ? em_matrix_in : em_matrix_out;
        c.port[p].slot = static_cast<int>(slot);
        c.port[p].vdir = k.video ? d : em_matrix_ioundefine;
        c.port[p].adir = k.audio ? d : em_matrix_ioundefine;
    }
    k.defined = true;
    return true;
}

bool port_arg(const Line& l, size_t i, const Chassis& c, int& port, std::string& err) {
    long v = 0;
    if (i >= l.w.size() || !parse_int(l.w[i], v)) {
        err = at(l.no, "missing port number");
        return false;
    }
    if (v < 1 || v > c.ports) {
        err = at(l.no,
                 "port out of range: " + l.w[i] + " (ports 1.." + std::to_string(c.ports) + ")");
        return false;
    }
    port = static_cast<int>(v);
    return true;
}

bool pass_port(const Line& l, Chassis& c, std::string& err) {
    int p = 0;
    int32_t d = 0;
    if (!port_arg(l, 1, c, p, err))
        return false;
    if (l.w.size() != 4 || (l.w[2] != "video" && l.w[2] != "audio") || !parse_dir(l.w[3], d)) {
        err = at(l.no, "usage: port N video|audio in|out|mix|none|unknown");
        return false;
    }
    (l.w[2] == "video" ? c.port[p].vdir : c.port[p].adir) = d;
    return true;
}

bool pass_nosink(const Line& l, Chassis& c, std::string& err) {
    int p = 0;
    if (!port_arg(l, 1, c, p, err))
        return false;
    c.port[p].sink = false;
    return true;
}

bool pass_route(const Line& l, Chassis& c, std::string& err) {
    if (l.w.size() != 4 || (l.w[1] != "video" && l.w[1] != "audio")) {
        err = at(l.no, "usage: route video|audio OUTPUT INPUT");
        return false;
    }
    const bool audio = l.w[1] == "audio";
    int out = 0, in = 0;
    if (!port_arg(l, 2, c, out, err))
        return false;
    long v = 0;
    if (!parse_int(l.w[3], v) || v < 0 || v > c.ports) {
        err = at(l.no,
                 "port out of range: " + l.w[3] + " (ports 0.." + std::to_string(c.ports) + ")");
        return false;
    }
    in = static_cast<int>(v);
    Port& po = c.port[out];
    if ((audio ? po.adir : po.vdir) != em_matrix_out) {
        err =
            at(l.no, "port " + l.w[2] + " is not " + (audio ? "an audio" : "a video") + " output");
        return false;
    }
    if (in != 0 && (audio ? c.port[in].adir : c.port[in].vdir) != em_matrix_in) {
        err = at(l.no, "port " + l.w[3] + " is not " + (audio ? "an audio" : "a video") + " input");
        return false;
    }
    (audio ? po.aroute : po.vroute) = in;
    return true;
}

bool pass_edid(const Line& l, Chassis& c, std::string& err) {
    if (l.w.size() >= 3 && l.w[1] == "default") {
        c.default_edid = make_edid(join_from(l.w, 2), 0);
        return true;
    }
    int p = 0;
    if (!port_arg(l, 1, c, p, err))
        return false;
    if (l.w.size() < 4 || (l.w[2] != "in" && l.w[2] != "load")) {
        err = at(l.no, "usage: edid PORT in|load NAME, or edid default NAME");
        return false;
    }
    (l.w[2] == "in" ? c.port[p].own : c.port[p].load) = make_edid(join_from(l.w, 3), p);
    return true;
}

bool pass_update(const Line& l, Chassis& c, std::string& err) {
    long s = 0, pct = 0;
    if (l.w.size() != 3 || !parse_int(l.w[1], s) || !parse_int(l.w[2], pct) || s < 0 ||
        s > kMaxUpdateId || pct < 0 || pct > 100) {
        err = at(l.no, "usage: update SLOT(0..20) PERCENT(0..100)");
        return false;
    }
    c.update_slot = static_cast<int>(s);
    c.update_pct = static_cast<int>(pct);
    return true;
}

using Pass = bool (*)(const Line&, Chassis&, std::string&);
const struct {
    const char* keyword;
    Pass pass;
} kPasses[] = {{"ports", pass_ports},   {"card", pass_card},   {"port", pass_port},
               {"nosink", pass_nosink}, {"route", pass_route}, {"edid", pass_edid},
               {"update", pass_update}};

} // namespace

bool parse_chassis(const std::string& text, Chassis& out, std::string& err) {
    Chassis c;
    std::vector<Line> lines;
    std::istringstream in(text);
    std::string raw;
    int no = 0;
    while (std::getline(in, raw)) {
        ++no;
        auto hash = raw.find('#');
        if (hash != std::string::npos)
            raw.erase(hash);
        Line l{no, split_words(raw)};
        if (l.w.empty())
            continue;
        bool known = false;
        for (const auto& p : kPasses)
            known = known || l.w[0] == p.keyword;
        if (!known) {
            err = at(no, "unknown keyword " + l.w[0]);
            return false;
        }
        lines.push_back(std::move(l));
    }
    for (const auto& p : kPasses) {
        if (std::strcmp(p.keyword, "card") == 0 && c.ports == 0) {
            err = "the chassis declares no ports (keyword ports)";
            return false;
        }
        for (const auto& l : lines)
            if (l.w[0] == p.keyword && !p.pass(l, c, err))
                return false;
    }
    // EDIDs nobody named get a name from their port.
    bool have_default = false;
    for (uint8_t b : c.default_edid)
        have_default = have_default || b != 0;
    if (!have_default)
        c.default_edid = make_edid("TAV-DEFAULT", 0);
    for (int p = 1; p <= c.ports; ++p) {
        char name[16];
        if (c.port[p].own[1] == 0) { // no header yet: not named in the file
            std::snprintf(name, sizeof name, "SRC-%02d", p);
            c.port[p].own = make_edid(name, p);
        }
        if (c.port[p].load[1] == 0) {
            std::snprintf(name, sizeof name, "MON-%02d", p);
            c.port[p].load = make_edid(name, p);
        }
    }
    out = c;
    return true;
}

Edid make_edid(const std::string& name, int product) {
    static const uint8_t header[8] = {0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00};
    // 1920x1080 at 60 Hz, and the monitor range limits.
    static const uint8_t dtd[18] = {0x02, 0x3A, 0x80, 0x18, 0x71, 0x38, 0x2D, 0x40, 0x58,
                                    0x2C, 0x45, 0x00, 0xC4, 0x8E, 0x21, 0x00, 0x00, 0x1E};
    static const uint8_t range[18] = {0x00, 0x00, 0x00, 0xFD, 0x00, 0x38, 0x4B, 0x1E, 0x53,
                                      0x11, 0x00, 0x0A, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20};
    Edid e{};
    std::memcpy(&e[0], header, 8);
    e[8] = 0x50; // manufacturer "TAV"
    e[9] = 0x36;
    e[10] = static_cast<uint8_t>(product & 0xFF);
    e[11] = static_cast<uint8_t>((product >> 8) & 0xFF);
    e[12] = static_cast<uint8_t>(product & 0xFF);
    e[16] = 12; // week
    e[17] = 29; // 2019
    e[18] = 1;  // EDID 1.3
    e[19] = 3;
    e[20] = 0x80; // digital input
    e[21] = 52;
    e[22] = 29;
    e[23] = 0x78;
    e[24] = 0x0A;
    for (int i = 38; i < 54; ++i)
        e[i] = 0x01; // no standard timings
    std::memcpy(&e[54], dtd, 18);
    std::memcpy(&e[72], range, 18);
    uint8_t* d = &e[90];
    d[3] = 0xFC;
    size_t n = name.size() < 13 ? name.size() : 13;
    for (size_t i = 0; i < 13; ++i)
        d[5 + i] = i < n ? static_cast<uint8_t>(name[i]) : (i == n ? 0x0A : 0x20);
    d = &e[108];
    d[3] = 0x10; // dummy descriptor
    e[126] = 1;  // one extension
    uint8_t sum = 0;
    for (int i = 0; i < 127; ++i)
        sum = static_cast<uint8_t>(sum + e[i]);
    e[127] = static_cast<uint8_t>(0x100 - sum);
    e[128] = 0x02; // CEA-861 extension without data blocks
    e[129] = 0x03;
    e[130] = 0x04;
    sum = 0;
    for (int i = 128; i < 255; ++i)
        sum = static_cast<uint8_t>(sum + e[i]);
    e[255] = static_cast<uint8_t>(0x100 - sum);
    return e;
}

std::string edid_name(const Edid& e) {
    for (int off = 54; off <= 108; off += 18) {
        if (e[off] == 0 && e[off + 1] == 0 && e[off + 3] == 0xFC) {
            std::string n;
            for (int i = 5; i < 18 && e[off + i] != 0x0A; ++i)
                n += static_cast<char>(e[off + i]);
            while (!n.empty() && n.back() == ' ')
                n.pop_back();
            return n;
        }
    }
    return "";
}

uint32_t edid_crc(const Edid& e) {
    uint32_t crc = 0xFFFFFFFFu;
    for (uint8_t b : e) {
        crc ^= b;
        for (int k = 0; k < 8; ++k)
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

const char* dir_name(int32_t dir) {
    switch (dir) {
    case em_matrix_in:
        return "in";
    case em_matrix_out:
        return "out";
    case em_matrix_mix:
        return "mix";
    case em_matrix_ioundefine:
        return "none";
    default:
        return "unknown";
    }
}

namespace {
const struct {
    const char* name;
    int32_t state;
} kStates[] = {{"offline", em_matrix_card_offline},       {"online", em_matrix_card_online},
               {"normal", em_matrix_card_normal},         {"power_down", em_matrix_card_power_down},
               {"uart_error", em_matrix_card_uart_error}, {"iap", em_matrix_card_iap}};
} // namespace

const char* state_name(int32_t state) {
    for (const auto& s : kStates)
        if (s.state == state)
            return s.name;
    return "unknown";
}

bool parse_state(const std::string& word, int32_t& state) {
    for (const auto& s : kStates)
        if (word == s.name) {
            state = s.state;
            return true;
        }
    long v = 0;
    if (parse_int(word, v) && v >= -2 && v <= 5) {
        state = static_cast<int32_t>(v);
        return true;
    }
    return false;
}

int32_t port_dir(const Chassis& c, int port, bool audio, bool active) {
    if (port < 1 || port > c.ports)
        return em_matrix_unknown;
    const Port& p = c.port[port];
    const int32_t d = audio ? p.adir : p.vdir;
    if (p.slot == 0)
        return d; // set by a port line alone
    const int32_t st = c.cards[p.slot].state;
    if (active)
        return st == em_matrix_card_normal ? d : em_matrix_unknown;
    return st == em_matrix_card_offline ? em_matrix_unknown : d;
}

int32_t route_of(const Chassis& c, bool audio, int output) {
    if (output < 1 || output > c.ports ||
        (audio ? c.port[output].adir : c.port[output].vdir) != em_matrix_out)
        return -2;
    return audio ? c.port[output].aroute : c.port[output].vroute;
}

Edid* edid_of(Chassis& c, int port, int32_t kind) {
    if (kind == em_matrix_edid_default)
        return &c.default_edid;
    if (port < 1 || port > c.ports)
        return nullptr;
    if (kind == em_matrix_edid_in)
        return &c.port[port].own;
    return kind == em_matrix_edid_load ? &c.port[port].load : nullptr;
}

int32_t check_route(const Chassis& c, bool audio, int input, int output) {
    if (port_dir(c, output, audio, true) != em_matrix_out)
        return -2;
    if (input != 0 && port_dir(c, input, audio, true) != em_matrix_in)
        return -3;
    return 0;
}

bool apply_batch(Chassis& c, bool audio, Batch& b) {
    auto& m = audio ? b.audio : b.video;
    const bool any = !m.empty();
    for (const auto& [out, in] : m)
        (audio ? c.port[out].aroute : c.port[out].vroute) = in;
    m.clear();
    return any;
}

void set_card_state(Chassis& c, int slot, int32_t state, std::vector<Signal>& out) {
    if (slot < 1 || slot > kMaxSlots || !c.cards[slot].defined)
        return;
    Card& k = c.cards[slot];
    const bool was = k.state == em_matrix_card_normal;
    k.state = state;
    const bool now = k.state == em_matrix_card_normal;
    if (was != now) {
        Signal s{em_matrix_sig_src_subboard, 0, static_cast<uint32_t>(slot), 0};
        if (k.video)
            s.bits |= TAV_MATRIX_SIG_VIDEO_PORT;
        if (k.audio)
            s.bits |= TAV_MATRIX_SIG_AUDIO_PORT;
        if (s.bits)
            out.push_back(s);
    }
    out.push_back(
        {em_matrix_sig_src_subboard, 0, static_cast<uint32_t>(slot), TAV_MATRIX_SIG_SLOT});
}

TAV_MATRIX_OBJ_CARD card_record(const Chassis& c, int slot) {
    TAV_MATRIX_OBJ_CARD r{};
    r.slot_id = static_cast<uint32_t>(slot);
    r.card_status = em_matrix_card_offline;
    if (slot < 1 || slot > kMaxSlots || !c.cards[slot].defined)
        return r;
    const Card& k = c.cards[slot];
    r.card_status = k.state;
    if (k.state == em_matrix_card_offline)
        return r;
    r.type_id = k.type_id;
    r.ver_major = k.ver_major;
    r.ver_minor = k.ver_minor;
    r.ver_build = k.ver_build;
    r.io_dir = k.is_input ? em_matrix_in : em_matrix_out;
    r.gens = 1;
    r.iap_support = 1;
    r.audiomatrix_support = k.audio ? 1 : 0;
    r.inner_irq_support = 1;
    r.uart_set_support = 1;
    r.subfun_number = k.last - k.first + 1;
    return r;
}

std::string describe(const Chassis& c) {
    std::string s;
    char b[256];
    std::snprintf(b, sizeof b, "device ports=%d\n", c.ports);
    s += b;
    for (int i = 1; i <= kMaxSlots; ++i) {
        const Card& k = c.cards[i];
        if (!k.defined)
            continue;
        std::snprintf(b, sizeof b,
                      "card %d kind=%s ports=%d-%d media=%s state=%s type=%d ver=%d.%d.%d\n", i,
                      k.is_input ? "in" : "out", k.first, k.last,
                      k.video && k.audio ? "av"
                      : k.video          ? "video"
                                         : "audio",
                      state_name(k.state), k.type_id, k.ver_major, k.ver_minor, k.ver_build);
        s += b;
    }
    for (int p = 1; p <= c.ports; ++p) {
        std::snprintf(b, sizeof b,
                      "port %d slot=%d video=%s audio=%s active_video=%s active_audio=%s\n", p,
                      c.port[p].slot, dir_name(c.port[p].vdir), dir_name(c.port[p].adir),
                      dir_name(port_dir(c, p, false, true)), dir_name(port_dir(c, p, true, true)));
        s += b;
    }
    for (int p = 1; p <= c.ports; ++p) {
        const Port& po = c.port[p];
        if (po.vdir != em_matrix_out && po.adir != em_matrix_out)
            continue;
        std::snprintf(b, sizeof b, "route %d video=%d audio=%d\n", p, po.vroute, po.aroute);
        s += b;
    }
    auto edid_line = [&](int p, const char* kind, const Edid& e) {
        std::string n = edid_name(e);
        for (char& ch : n)
            if (ch == ' ')
                ch = '_';
        std::snprintf(b, sizeof b, "edid %d kind=%s name=%s crc=%08x\n", p, kind,
                      n.empty() ? "-" : n.c_str(), edid_crc(e));
        s += b;
    };
    edid_line(0, "default", c.default_edid);
    for (int p = 1; p <= c.ports; ++p) {
        const Port& po = c.port[p];
        if (po.vdir == em_matrix_in)
            edid_line(p, "in", po.own);
        if (po.vdir == em_matrix_out) {
            if (po.sink)
                edid_line(p, "load", po.load);
            else {
                std::snprintf(b, sizeof b, "edid %d kind=load name=- crc=nosink\n", p);
                s += b;
            }
        }
    }
    std::snprintf(b, sizeof b, "update slot=%d pct=%d\n", c.update_slot, c.update_pct);
    s += b;
    return s;
}

std::vector<std::string> split_words(const std::string& line) {
    std::vector<std::string> w;
    std::istringstream in(line);
    std::string x;
    while (in >> x)
        w.push_back(x);
    return w;
}

bool parse_int(const std::string& s, long& v) {
    if (s.empty())
        return false;
    char* end = nullptr;
    errno = 0;
    const bool hex = s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X');
    v = std::strtol(s.c_str(), &end, hex ? 16 : 10);
    return errno == 0 && end && *end == 0;
}

std::string to_hex(const uint8_t* p, size_t n) {
    static const char* d = "0123456789abcdef";
    std::string s;
    s.reserve(n * 2);
    for (size_t i = 0; i < n; ++i) {
        s += d[p[i] >> 4];
        s += d[p[i] & 15];
    }
    return s;
}

bool from_hex(const std::string& s, std::vector<uint8_t>& out) {
    if (s.size() % 2)
        return false;
    out.clear();
    auto nib = [](char c) -> int {
        if (c >= '0' && c <= '9')
            return c - '0';
        if (c >= 'a' && c <= 'f')
            return c - 'a' + 10;
        if (c >= 'A' && c <= 'F')
            return c - 'A' + 10;
        return -1;
    };
    for (size_t i = 0; i < s.size(); i += 2) {
        int h = nib(s[i]), l = nib(s[i + 1]);
        if (h < 0 || l < 0)
            return false;
        out.push_back(static_cast<uint8_t>(h * 16 + l));
    }
    return true;
}

} // namespace tavsim
