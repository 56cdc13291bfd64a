#include "tav_panel_decode.h"

#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace tavpanel {

namespace {

constexpr size_t MAX_LINE = 1 << 20;         // longest text line taken
constexpr uint64_t MAX_REPEAT = 64ull << 20; // most bytes one hexdump '*' may stand for
constexpr size_t JUNK_SHOWN = 32;            // malformed bytes printed per run

int hex_digit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v';
}

// Splits at blanks; calls f for each token until it returns false.
template <class F> bool for_tokens(std::string_view s, F f) {
    size_t i = 0;
    while (i < s.size()) {
        while (i < s.size() && is_blank(s[i])) {
            ++i;
        }
        size_t j = i;
        while (j < s.size() && !is_blank(s[j])) {
            ++j;
        }
        if (j > i && !f(s.substr(i, j - i))) {
            return false;
        }
        i = j;
    }
    return true;
}

std::string shown(std::string_view tok) {
    std::string s(tok.substr(0, 20));
    for (char& c : s) {
        if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) > 0x7E) {
            c = '?';
        }
    }
    return "'" + s + (tok.size() > 20 ? "...'" : "'");
}

const char* dir_name(Dir d) {
    return d == Dir::panel ? "panel" : d == Dir::program ? "program" : "";
}

// The frames of one direction, cut by the program's frame parser. Bytes that
// form no frame are gathered into runs and printed as such.
struct Stream {
    TAV_COM_STRUCT rec{};
    bool head_restarts = true;
    uint64_t offset = 0; // bytes taken so far
    std::vector<uint8_t> pending;
    uint64_t pending_off = 0;
    double pending_t = 0;
    std::vector<uint8_t> junk; // the first bytes of the current run
    size_t junk_n = 0;
    uint64_t junk_off = 0;
    double junk_t = 0;
    const char* junk_why = "";
};

class Capture {
  public:
    Capture(const DecodeOptions& o, FILE* out) : opts_(o), out_(out) {
        // The panel reads the program's frames by their length; everything
        // else is cut as the program's receiver cuts it.
        streams_[static_cast<int>(Dir::program)].head_restarts = false;
        streams_[static_cast<int>(Dir::none)].head_restarts = o.from != Dir::program;
    }
    void set_timed(bool on) { timed_ = on; }

    void feed(Dir d, double t, const uint8_t* p, size_t n) {
        Stream& s = streams_[static_cast<int>(d)];
        for (size_t k = 0; k < n; ++k) {
            step(s, d, t, p[k]);
        }
    }

    // Flushes what is left; returns the exit status of the frames.
    int finish() {
        for (int i = 0; i < 3; ++i) {
            Stream& s = streams_[i];
            const Dir d = static_cast<Dir>(i);
            flush_junk(s, d);
            if (!s.pending.empty()) {
                line_head(d, s.pending_t, s.pending_off);
                std::fprintf(out_, "capture ends inside a frame: %zu bytes: %s\n", s.pending.size(),
                             hex(s.pending).c_str());
                malformed_ += s.pending.size();
                s.pending.clear();
            }
        }
        if (opts_.summary) {
            print_summary();
        }
        return malformed_ > 0 ? DECODE_MALFORMED : DECODE_CLEAN;
    }

  private:
    void step(Stream& s, Dir d, double t, uint8_t b) {
        const uint64_t off = s.offset++;
        switch (tav_com_step(&s.rec, b, s.head_restarts)) {
        case TAV_COM_STEP_HEAD:
            to_junk(s, d, "frame cut short by a new head byte");
            flush_junk(s, d);
            s.pending.assign(1, b);
            s.pending_off = off;
            s.pending_t = t;
            break;
        case TAV_COM_STEP_MORE:
            s.pending.push_back(b);
            break;
        case TAV_COM_STEP_BAD_ADDR:
            s.pending.push_back(b);
            to_junk(s, d, "no address byte after the head");
            break;
        case TAV_COM_STEP_ZERO_LEN:
        case TAV_COM_STEP_FRAME:
            s.pending.push_back(b);
            flush_junk(s, d);
            frame(s, d, t);
            break;
        default:
            to_junk(s, d, "frame longer than the parser takes");
            if (s.junk_n == 0) {
                s.junk_off = off;
                s.junk_t = t;
                s.junk_why = "bytes outside any frame";
            }
            if (s.junk.size() < JUNK_SHOWN) {
                s.junk.push_back(b);
            }
            ++s.junk_n;
            break;
        }
    }

    // Moves the unfinished frame into the current run of malformed bytes.
    void to_junk(Stream& s, Dir, const char* why) {
        if (s.pending.empty()) {
            return;
        }
        if (s.junk_n == 0) {
            s.junk_off = s.pending_off;
            s.junk_t = s.pending_t;
            s.junk_why = why;
        }
        for (uint8_t b : s.pending) {
            if (s.junk.size() < JUNK_SHOWN) {
                s.junk.push_back(b);
            }
        }
        s.junk_n += s.pending.size();
        s.pending.clear();
    }

    void flush_junk(Stream& s, Dir d) {
        if (s.junk_n == 0) {
            return;
        }
        malformed_ += s.junk_n;
        if (opts_.frames) {
            line_head(d, s.junk_t, s.junk_off);
            std::fprintf(out_, "malformed %zu byte%s (%s): %s%s\n", s.junk_n,
                         s.junk_n == 1 ? "" : "s", s.junk_why, hex(s.junk).c_str(),
                         s.junk_n > s.junk.size() ? " ..." : "");
        }
        s.junk.clear();
        s.junk_n = 0;
    }

    void frame(Stream& s, Dir d, double t) {
        const FrameKind k = tav_com_classify(s.pending);
        const std::string words = tav_com_row(k).say(s.pending);
        ++counts_[static_cast<size_t>(k)];
        if (d != Dir::panel) {
            PanelModel::decode(s.pending, lcd_);
        }
        if (opts_.frames) {
            line_head(d, t, s.pending_off);
            std::fprintf(out_, "%s%s%s%s\n", words.c_str(), opts_.show_hex ? "  [" : "",
                         opts_.show_hex ? hex(s.pending).c_str() : "", opts_.show_hex ? "]" : "");
        }
        s.pending.clear();
    }

    void line_head(Dir d, double t, uint64_t off) {
        if (timed_) {
            std::fprintf(out_, "%11.6f %-7s ", t, dir_name(d));
        } else {
            std::fprintf(out_, "%08" PRIx64 "  ", off);
        }
    }

    void print_summary() {
        size_t total = 0;
        for (size_t c : counts_) {
            total += c;
        }
        std::fprintf(out_, "summary: %zu frames, %zu malformed bytes\n", total, malformed_);
        for (size_t k = 0; k < TAV_COM_KIND_COUNT; ++k) {
            if (counts_[k] > 0) {
                std::fprintf(out_, "  %-17s %zu\n", TAV_COM_ROWS[k].name, counts_[k]);
            }
        }
        for (int line = 0; line < LCD_LINES; ++line) {
            std::string text = lcd_.lcd[line];
            for (char& c : text) {
                c = (c >= 0x20 && c < 0x7F) ? c : '?';
            }
            std::fprintf(out_, "  lcd line %d        |%s|\n", line, text.c_str());
        }
    }

    DecodeOptions opts_;
    FILE* out_;
    Stream streams_[3];
    bool timed_ = false;
    std::array<size_t, TAV_COM_KIND_COUNT> counts_{};
    size_t malformed_ = 0;
    PanelState lcd_;
};

bool is_text_byte(uint8_t b) {
    return (b >= 0x20 && b < 0x7F) || b == '\n' || b == '\r' || b == '\t';
}

bool starts_hexdump(std::string_view l) {
    size_t i = 0;
    while (i < l.size() && hex_digit(l[i]) >= 0) {
        ++i;
    }
    return i >= 7 && l.substr(i, 2) == "  " && l.find('|') != std::string_view::npos;
}

// The format of a capture from its first bytes; `decided` false when more
// bytes are needed.
InputFormat sniff(const std::vector<uint8_t>& head, bool eof, bool& decided) {
    decided = true;
    for (uint8_t b : head) {
        if (!is_text_byte(b)) {
            return InputFormat::raw;
        }
    }
    size_t start = 0;
    for (;;) {
        size_t nl = start;
        while (nl < head.size() && head[nl] != '\n') {
            ++nl;
        }
        if (nl == head.size() && !eof && head.size() < 4096) {
            decided = false;
            return InputFormat::detect;
        }
        const std::string_view line(reinterpret_cast<const char*>(head.data()) + start, nl - start);
        bool blank = true;
        for (char c : line) {
            blank = blank && is_blank(c);
        }
        if (!blank || nl >= head.size()) {
            if (line.substr(0, 25) == std::string_view(RECORD_HEADER).substr(0, 25)) {
                return InputFormat::record;
            }
            return starts_hexdump(line) ? InputFormat::hexdump : InputFormat::hex;
        }
        start = nl + 1;
    }
}

// Reads the lines of a text capture.
class TextReader {
  public:
    TextReader(InputFormat f, Dir from, Capture& cap, FILE* err)
        : fmt_(f), from_(from), cap_(cap), err_(err) {}

    // False after a bad line (reported).
    bool feed(const uint8_t* p, size_t n) {
        for (size_t k = 0; k < n; ++k) {
            if (p[k] == '\n') {
                if (!line(partial_)) {
                    return false;
                }
                partial_.clear();
            } else if (partial_.size() >= MAX_LINE) {
                return fail("is longer than " + std::to_string(MAX_LINE) + " characters");
            } else {
                partial_ += static_cast<char>(p[k]);
            }
        }
        return true;
    }
    bool finish() {
        if (!partial_.empty() && !line(partial_)) {
            return false;
        }
        if (repeat_) {
            return fail("ends with '*' (repeated lines) and no final offset");
        }
        return true;
    }

  private:
    bool fail(const std::string& why) {
        std::fprintf(err_, "tav_panel_decode: line %zu %s\n", lineno_ + 1, why.c_str());
        return false;
    }

    bool line(std::string_view l) {
        bool ok = true;
        std::string err;
        if (fmt_ == InputFormat::record) {
            RecordLine r;
            if (parse_record_line(l, r, err)) {
                cap_.feed(r.dir, r.t, r.bytes.data(), r.bytes.size());
            } else if (!err.empty()) {
                ok = fail(err);
            }
        } else if (fmt_ == InputFormat::hexdump) {
            ok = hexdump_line(l);
        } else {
            bytes_.clear();
            if (parse_hex_line(l, bytes_, err)) {
                cap_.feed(from_, 0, bytes_.data(), bytes_.size());
            } else {
                ok = fail(err);
            }
        }
        ++lineno_;
        return ok;
    }

    // "OFFSET  hex bytes  |text|", "*" for repeated lines, a last line with
    // the offset alone.
    bool hexdump_line(std::string_view l) {
        while (!l.empty() && is_blank(l.back())) {
            l.remove_suffix(1);
        }
        if (l.empty()) {
            return true;
        }
        if (l == "*") {
            repeat_ = true;
            return true;
        }
        uint64_t off = 0;
        size_t i = 0;
        for (; i < l.size() && hex_digit(l[i]) >= 0; ++i) {
            if (off >> 56) {
                return fail("has an offset too large");
            }
            off = off * 16 + static_cast<uint64_t>(hex_digit(l[i]));
        }
        if (i == 0 || (i < l.size() && !is_blank(l[i]))) {
            return fail("is not a hexdump -C line: " + shown(l));
        }
        std::string_view rest = l.substr(i);
        const size_t bar = rest.find('|');
        rest = rest.substr(0, bar);
        if (repeat_) {
            if (off < next_ || prev_.empty() || (off - next_) % prev_.size() != 0 ||
                off - next_ > MAX_REPEAT) {
                return fail("does not fit the repeated line before it");
            }
            for (; next_ < off; next_ += prev_.size()) {
                cap_.feed(from_, 0, prev_.data(), prev_.size());
            }
            repeat_ = false;
        }
        if (off != next_) {
            return fail("has offset " + std::to_string(off) + " where " + std::to_string(next_) +
                        " was expected (lines missing?)");
        }
        std::string err;
        bytes_.clear();
        if (!parse_hex_line(rest, bytes_, err)) {
            return fail(err);
        }
        if (bytes_.empty()) {
            return true; // the closing offset
        }
        cap_.feed(from_, 0, bytes_.data(), bytes_.size());
        next_ = off + bytes_.size();
        prev_ = bytes_;
        return true;
    }

    InputFormat fmt_;
    Dir from_;
    Capture& cap_;
    FILE* err_;
    std::string partial_;
    size_t lineno_ = 0;
    std::vector<uint8_t> bytes_, prev_;
    uint64_t next_ = 0;
    bool repeat_ = false;
};

} // namespace

std::string format_record_line(double t, Dir dir, const uint8_t* bytes, size_t n) {
    char b[48];
    std::snprintf(b, sizeof b, "%.6f %s", t, dir_name(dir));
    std::string s = b;
    for (size_t i = 0; i < n; ++i) {
        std::snprintf(b, sizeof b, " %02X", bytes[i]);
        s += b;
    }
    return s;
}

bool parse_record_line(std::string_view line, RecordLine& out, std::string& err) {
    err.clear();
    out.bytes.clear();
    int field = 0;
    bool ok = for_tokens(line, [&](std::string_view tok) {
        if (field == 0 && tok[0] == '#') {
            return false; // a comment
        }
        if (field == 0) {
            const std::string t(tok.substr(0, 32));
            char* end = nullptr;
            out.t = std::strtod(t.c_str(), &end);
            if (end == t.c_str() || *end != '\0' || !(out.t >= 0 && out.t < 1e9)) {
                err = "does not start with a time in seconds: " + shown(tok);
                return false;
            }
        } else if (field == 1) {
            out.dir = tok == "panel" ? Dir::panel : tok == "program" ? Dir::program : Dir::none;
            if (out.dir == Dir::none) {
                err = "has " + shown(tok) + " where panel or program was expected";
                return false;
            }
        } else {
            const int hi = hex_digit(tok[0]), lo = tok.size() == 2 ? hex_digit(tok[1]) : -1;
            if (hi < 0 || lo < 0) {
                err = "has " + shown(tok) + " where a two-digit hex byte was expected";
                return false;
            }
            out.bytes.push_back(static_cast<uint8_t>(hi * 16 + lo));
        }
        ++field;
        return true;
    });
    if (ok && field > 0 && field < 3) {
        err = "has no bytes";
    }
    return ok && field >= 3;
}

bool load_recording(const std::string& path, std::vector<RecordLine>& out, std::string& err) {
    std::ifstream in(path);
    if (!in) {
        err = path + ": " + std::strerror(errno);
        return false;
    }
    size_t n = 0;
    for (std::string l; std::getline(in, l);) {
        ++n;
        RecordLine r;
        if (parse_record_line(l, r, err)) {
            out.push_back(std::move(r));
        } else if (!err.empty()) {
            err = path + ": line " + std::to_string(n) + " " + err;
            return false;
        }
    }
    return true;
}

bool parse_hex_line(std::string_view line, std::vector<uint8_t>& out, std::string& err) {
    return for_tokens(line, [&](std::string_view tok) {
        const std::string_view whole = tok;
        if (!tok.empty() && tok.back() == ',') {
            tok.remove_suffix(1);
        }
        if (tok.size() > 2 && tok[0] == '0' && (tok[1] == 'x' || tok[1] == 'X')) {
            tok.remove_prefix(2);
        }
        if (whole == "*") {
            err = "holds '*', repeated lines left out (od without -v)";
            return false;
        }
        if (tok.empty() || tok.size() % 2 != 0) {
            err = "has " + shown(whole) + ", not whole hex bytes";
            return false;
        }
        for (size_t i = 0; i < tok.size(); i += 2) {
            const int hi = hex_digit(tok[i]), lo = hex_digit(tok[i + 1]);
            if (hi < 0 || lo < 0) {
                err = "has " + shown(whole) + ", not hex";
                return false;
            }
            out.push_back(static_cast<uint8_t>(hi * 16 + lo));
        }
        return true;
    });
}

int decode_capture(const std::function<long(uint8_t*, size_t)>& read_some,
                   const DecodeOptions& opts, FILE* out, FILE* err) {
    Capture cap(opts, out);
    std::vector<uint8_t> chunk(1 << 16);
    std::vector<uint8_t> head;
    bool eof = false, io_error = false;
    auto read_more = [&](std::vector<uint8_t>& into) {
        const long n = read_some(chunk.data(), chunk.size());
        if (n <= 0) {
            io_error = n < 0;
            eof = true;
            return false;
        }
        into.assign(chunk.data(), chunk.data() + n);
        return true;
    };
    InputFormat fmt = opts.format;
    if (fmt == InputFormat::detect) {
        bool decided = false;
        std::vector<uint8_t> more;
        while (!decided) {
            if (read_more(more)) {
                head.insert(head.end(), more.begin(), more.end());
            }
            fmt = sniff(head, eof, decided);
            decided = decided || eof;
        }
        if (fmt == InputFormat::detect) {
            fmt = InputFormat::hex;
        }
    }
    cap.set_timed(fmt == InputFormat::record);
    int status = DECODE_CLEAN;
    if (fmt == InputFormat::raw) {
        cap.feed(opts.from, 0, head.data(), head.size());
        while (read_more(head)) {
            cap.feed(opts.from, 0, head.data(), head.size());
            std::fflush(out); // a live tap shows each frame as it comes
        }
    } else {
        TextReader text(fmt, opts.from, cap, err);
        bool ok = text.feed(head.data(), head.size());
        while (ok && read_more(head)) {
            ok = text.feed(head.data(), head.size());
            std::fflush(out);
        }
        if (!ok || !text.finish()) {
            status = DECODE_BAD_INPUT;
        }
    }
    const int frames = cap.finish();
    if (io_error) {
        std::fprintf(err, "tav_panel_decode: read error: %s\n", std::strerror(errno));
        return DECODE_USAGE;
    }
    return status != DECODE_CLEAN ? status : frames;
}

} // namespace tavpanel
