#include "tav_panel_emu.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

#include "tav_panel_decode.h"

namespace tavpanel {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

// One step of the sender: bytes to write, then a pause.
struct SendStep {
    std::vector<uint8_t> bytes;
    microseconds pause{0};
};

timespec timespec_of(Clock::duration d) {
    const auto us = std::chrono::duration_cast<microseconds>(std::max(d, Clock::duration::zero()));
    return {static_cast<time_t>(us.count() / 1000000),
            static_cast<long>(us.count() % 1000000) * 1000};
}

double now_s() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

} // namespace

struct PanelEmulator::Impl {
    EmulatorOptions opts;
    std::string slave;
    std::string link;
    int master = -1;
    int stop_pipe[2] = {-1, -1};
    int ctl_pipe[2] = {-1, -1}; // wakes the reader when the line is dropped
    int notify_pipe[2] = {-1, -1};
    std::thread reader;
    std::thread sender;

    mutable std::mutex m; // everything below
    mutable std::condition_variable cv;
    PanelModel model;
    bool stopping = false;
    bool running = false;
    bool peer_open = false;
    bool dropped = false;
    size_t opens = 0, closes = 0;
    uint64_t gen = 0;
    std::string problem;
    FILE* log = nullptr;
    FILE* rec = nullptr;
    double t0 = now_s();
    std::deque<SendStep> queue;
    uint64_t queued = 0, sent = 0; // steps, for waiting on press()

    std::mutex write_m;          // one frame per write on the master
    Clock::time_point tx_free{}; // under write_m: when the line to the program is idle
    // Under the reader only: bytes from the program still on the line, each
    // with the time its last bit arrives.
    std::deque<std::pair<uint8_t, Clock::time_point>> rx_line;
    Clock::time_point rx_free{};
    std::mutex port_m; // one drop or restore at a time

    explicit Impl(EmulatorOptions o) : opts(std::move(o)) {
        model.set_frame_limit(opts.frame_limit);
    }

    // 8N1: a start bit, 8 data bits and a stop bit.
    std::chrono::nanoseconds byte_time() const {
        return std::chrono::nanoseconds(opts.baud > 0 ? 10'000'000'000LL / opts.baud : 0);
    }

    void log_line(const char* dir, const std::string& what) {
        // Called with m held.
        if (log != nullptr) {
            std::fprintf(log, "%10.3f %s %s\n", now_s() - t0, dir, what.c_str());
            std::fflush(log);
        }
    }

    void record(Dir dir, const uint8_t* bytes, size_t n) {
        // Called with m held.
        if (rec != nullptr && n > 0) {
            std::fprintf(rec, "%s\n", format_record_line(now_s() - t0, dir, bytes, n).c_str());
            std::fflush(rec);
        }
    }

    void bump() {
        // Called with m held: wake waiters and the front end.
        ++gen;
        cv.notify_all();
        const char b = 1;
        if (notify_pipe[1] >= 0) {
            [[maybe_unused]] ssize_t r = ::write(notify_pipe[1], &b, 1);
        }
    }

    void write_bytes(const std::vector<uint8_t>& bytes) {
        if (bytes.empty()) {
            return;
        }
        {
            std::lock_guard<std::mutex> w(write_m);
            if (master < 0) {
                return; // the line is dropped
            }
            {
                // Recorded before the write, so that the program's answer
                // never comes first in the recording.
                std::lock_guard<std::mutex> l(m);
                record(Dir::panel, bytes.data(), bytes.size());
            }
            // Paced: each byte is handed over when its last bit would arrive.
            const auto bt = byte_time();
            const Clock::time_point start = std::max(Clock::now(), tx_free);
            size_t off = 0;
            while (off < bytes.size()) {
                const size_t chunk = bt.count() > 0 ? 1 : bytes.size() - off;
                if (bt.count() > 0) {
                    std::this_thread::sleep_until(start + bt * static_cast<long>(off + 1));
                }
                ssize_t n = ::write(master, bytes.data() + off, chunk);
                if (n > 0) {
                    off += static_cast<size_t>(n);
                } else if (n < 0 && errno == EAGAIN) {
                    pollfd p{master, POLLOUT, 0};
                    if (::poll(&p, 1, 200) <= 0) {
                        break;
                    }
                } else if (n < 0 && errno == EINTR) {
                    continue;
                } else {
                    break;
                }
            }
            tx_free = start + bt * static_cast<long>(bytes.size());
        }
        std::lock_guard<std::mutex> l(m);
        log_line("->", describe_sent(bytes));
    }

    // Bytes the panel sent: one frame in words with its bytes, or raw bytes.
    static std::string describe_sent(const std::vector<uint8_t>& b) {
        if (tav_com_classify(b) != TAV_COM_KIND_MALFORMED) {
            return describe(b) + "  " + hex(b);
        }
        return "raw " + hex(b);
    }

    // Called with m held, after new bytes went into the model.
    void took(size_t frames_before, size_t hs_before, std::vector<uint8_t>& answer) {
        const auto& fr = model.frames();
        const size_t fresh = std::min(model.frames_total() - frames_before, fr.size());
        for (size_t i = fr.size() - fresh; i < fr.size(); ++i) {
            log_line("<-", describe(fr[i].bytes));
            const FrameKind k = fr[i].kind;
            if (k == TAV_COM_KIND_ERROR_REPLY || k == TAV_COM_KIND_UNKNOWN ||
                k == TAV_COM_KIND_MALFORMED) {
                problem = describe(fr[i].bytes);
            }
        }
        const auto& given = opts.handshake_answers;
        if (!given.empty()) {
            for (size_t i = hs_before; i < model.handshakes(); ++i) {
                const auto& v = given[std::min(i, given.size() - 1)];
                answer.insert(answer.end(), v.begin(), v.end());
            }
        } else if (opts.answer_handshake) {
            for (size_t i = hs_before; i < model.handshakes(); ++i) {
                const auto v =
                    version_frame(opts.fw_main, opts.fw_minor, opts.fw_build_hi, opts.fw_build_lo);
                answer.insert(answer.end(), v.begin(), v.end());
            }
        }
        bump();
    }

    void set_peer(bool open) {
        std::lock_guard<std::mutex> l(m);
        if (open == peer_open) {
            return;
        }
        peer_open = open;
        open ? ++opens : ++closes;
        note(open ? "port opened by the program" : "port closed by the program");
    }

    bool stop_requested(microseconds timeout) {
        pollfd p{stop_pipe[0], POLLIN, 0};
        const timespec ts = timespec_of(timeout);
        return ::ppoll(&p, 1, &ts, nullptr) > 0;
    }

    // The reader's wait: true when it is to end (stop, or the line dropped).
    bool reader_woken(int timeout_ms) {
        pollfd p[2] = {{stop_pipe[0], POLLIN, 0}, {ctl_pipe[0], POLLIN, 0}};
        return ::poll(p, 2, timeout_ms) > 0;
    }

    // A new pty, raw, with the master non-blocking and the slave linked at
    // `link`. Called with write_m held (or before the threads run).
    bool open_pty() {
        if (!opts.device.empty()) {
            return open_device();
        }
        master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        char name[128];
        if (master < 0 || ::grantpt(master) != 0 || ::unlockpt(master) != 0 ||
            ::ptsname_r(master, name, sizeof name) != 0) {
            return false;
        }
        slave = name;
        // Open the slave once: make it raw (no echo of our frames back to us)
        // and put the master into the hang-up state that tells us when the
        // program opens and closes it.
        int s = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (s < 0) {
            return false;
        }
        termios t{};
        if (::tcgetattr(s, &t) == 0) {
            ::cfmakeraw(&t);
            ::cfsetispeed(&t, B19200);
            ::cfsetospeed(&t, B19200);
            ::tcsetattr(s, TCSANOW, &t);
        }
        ::close(s);
        ::fcntl(master, F_SETFL, ::fcntl(master, F_GETFL) | O_NONBLOCK);
        ::unlink(link.c_str());
        return ::symlink(name, link.c_str()) == 0;
    }

    // The existing line of opts.device: a unix stream socket is connected,
    // a terminal is made raw at 19200 baud. The peer holds it open all along.
    bool open_device() {
        slave = opts.device;
        struct stat st {};
        if (::stat(slave.c_str(), &st) == 0 && S_ISSOCK(st.st_mode)) {
            sockaddr_un a{};
            a.sun_family = AF_UNIX;
            if (slave.size() >= sizeof a.sun_path) {
                return false;
            }
            std::memcpy(a.sun_path, slave.c_str(), slave.size() + 1);
            master = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            if (master < 0 || ::connect(master, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
                return false;
            }
        } else {
            master = ::open(slave.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
            termios t{};
            if (master < 0 || ::tcgetattr(master, &t) != 0) {
                return false;
            }
            ::cfmakeraw(&t);
            ::cfsetispeed(&t, B19200);
            ::cfsetospeed(&t, B19200);
            ::tcsetattr(master, TCSANOW, &t);
        }
        return ::fcntl(master, F_SETFL, ::fcntl(master, F_GETFL) | O_NONBLOCK) == 0;
    }

    void note(const char* what) {
        // Called with m held.
        log_line("--", what);
        if (rec != nullptr) {
            std::fprintf(rec, "# %.6f %s\n", now_s() - t0, what);
            std::fflush(rec);
        }
        bump();
    }

    // The bytes whose time on the line is over go into the model; a
    // handshake among them is answered.
    void arrive() {
        std::vector<uint8_t> due;
        const Clock::time_point now = Clock::now();
        while (!rx_line.empty() && rx_line.front().second <= now) {
            due.push_back(rx_line.front().first);
            rx_line.pop_front();
        }
        if (due.empty()) {
            return;
        }
        std::vector<uint8_t> answer;
        {
            std::lock_guard<std::mutex> l(m);
            const size_t fb = model.frames_total();
            const size_t hb = model.handshakes();
            model.feed(due.data(), due.size());
            if (model.frames_total() == fb) {
                return; // the frame is still on the line
            }
            took(fb, hb, answer);
        }
        write_bytes(answer);
    }

    void read_loop() {
        uint8_t buf[512];
        bool open = false; // the reader's own view; published through set_peer
        rx_line.clear();   // what was on a line that was dropped never arrives
        for (;;) {
            short rev = 0;
            if (!open) {
                // The master reports a hang-up while nobody holds the slave:
                // look again every 10 ms.
                if (reader_woken(10)) {
                    return;
                }
                pollfd p{master, POLLIN, 0};
                ::poll(&p, 1, 0);
                rev = p.revents;
                if ((rev & POLLHUP) == 0) {
                    open = true;
                    set_peer(true);
                }
            } else {
                pollfd p[3] = {
                    {master, POLLIN, 0}, {stop_pipe[0], POLLIN, 0}, {ctl_pipe[0], POLLIN, 0}};
                // Bytes still on the line: wake when the first one arrives.
                timespec ts{};
                if (!rx_line.empty()) {
                    ts = timespec_of(rx_line.front().second - Clock::now());
                }
                if (::ppoll(p, 3, rx_line.empty() ? nullptr : &ts, nullptr) < 0) {
                    if (errno == EINTR) {
                        continue;
                    }
                    return;
                }
                if (p[1].revents != 0 || p[2].revents != 0) {
                    return;
                }
                rev = p[0].revents;
            }
            if (rev & POLLIN) {
                ssize_t n = ::read(master, buf, sizeof buf);
                if (n > 0) {
                    if (!open) {
                        // Data left behind by a peer that opened and closed
                        // between two looks.
                        set_peer(true);
                    }
                    {
                        std::lock_guard<std::mutex> l(m);
                        record(Dir::program, buf, static_cast<size_t>(n));
                    }
                    const auto bt = byte_time();
                    rx_free = std::max(rx_free, Clock::now());
                    for (ssize_t i = 0; i < n; ++i) {
                        rx_free += bt;
                        rx_line.emplace_back(buf[i], rx_free);
                    }
                    arrive();
                    open = open || (rev & POLLHUP) == 0;
                    continue;
                }
            }
            arrive();
            if (rev & (POLLHUP | POLLERR)) {
                // What the program wrote before it closed the port still arrives first.
                if (!rx_line.empty()) {
                    std::this_thread::sleep_until(rx_line.back().second);
                    arrive();
                }
                open = false;
                set_peer(false);
            }
        }
    }

    void send_loop() {
        std::unique_lock<std::mutex> l(m);
        for (;;) {
            cv.wait(l, [&] { return stopping || !queue.empty(); });
            if (stopping) {
                return;
            }
            SendStep step = std::move(queue.front());
            queue.pop_front();
            l.unlock();
            write_bytes(step.bytes);
            if (step.pause.count() > 0 && stop_requested(step.pause)) {
                l.lock();
                return;
            }
            l.lock();
            ++sent;
            cv.notify_all();
        }
    }

    uint64_t enqueue(std::vector<SendStep> steps) {
        std::lock_guard<std::mutex> l(m);
        if (!running || stopping) {
            return 0; // nothing is sent before start() or after stop()
        }
        for (auto& s : steps) {
            queue.push_back(std::move(s));
        }
        queued += steps.size();
        cv.notify_all();
        return queued;
    }

    void wait_sent(uint64_t upto) {
        std::unique_lock<std::mutex> l(m);
        cv.wait(l, [&] { return stopping || sent >= upto; });
    }

    template <class Pred> bool wait(Pred pred, std::chrono::milliseconds timeout) const {
        std::unique_lock<std::mutex> l(m);
        return cv.wait_for(l, timeout, [&] { return pred(); });
    }
};

PanelEmulator::PanelEmulator(EmulatorOptions opts) : impl_(new Impl(std::move(opts))) {}

PanelEmulator::~PanelEmulator() {
    stop();
    delete impl_;
}

bool PanelEmulator::start() {
    Impl& d = *impl_;
    {
        std::lock_guard<std::mutex> l(d.m);
        if (d.running) {
            return true;
        }
    }
    namespace fs = std::filesystem;
    std::error_code ec;
    if (d.opts.device.empty()) {
        fs::create_directories(fs::path(d.opts.root) / "dev", ec);
        d.link = (fs::path(d.opts.root) / "dev" / "ttyPSC3").string();
    }

    if (!d.open_pty() || ::pipe2(d.stop_pipe, O_CLOEXEC) != 0 ||
        ::pipe2(d.ctl_pipe, O_CLOEXEC | O_NONBLOCK) != 0 ||
        ::pipe2(d.notify_pipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        stop();
        return false;
    }
    if (!d.opts.log_path.empty()) {
        d.log = std::fopen(d.opts.log_path.c_str(), "a");
    }
    if (!d.opts.record_path.empty()) {
        d.rec = std::fopen(d.opts.record_path.c_str(), "w");
        if (d.rec == nullptr) {
            stop();
            return false;
        }
        std::fprintf(d.rec,
                     "%s\n# SECONDS since the start, who sent the bytes (panel or program), the "
                     "bytes in hex\n",
                     RECORD_HEADER);
    }
    {
        std::lock_guard<std::mutex> l(d.m);
        d.t0 = now_s();
        d.stopping = false;
        d.dropped = false;
        d.log_line("--", "panel on " + d.slave + " linked at " + d.link);
    }
    d.reader = std::thread([&d] { d.read_loop(); });
    d.sender = std::thread([&d] { d.send_loop(); });
    std::lock_guard<std::mutex> l(d.m);
    d.running = true;
    return true;
}

void PanelEmulator::stop() {
    Impl& d = *impl_;
    {
        std::lock_guard<std::mutex> l(d.m);
        d.stopping = true;
        d.cv.notify_all();
    }
    if (d.stop_pipe[1] >= 0) {
        const char b = 1;
        [[maybe_unused]] ssize_t r = ::write(d.stop_pipe[1], &b, 1);
    }
    if (d.reader.joinable()) {
        d.reader.join();
    }
    if (d.sender.joinable()) {
        d.sender.join();
    }
    for (int* fd : {&d.master, &d.stop_pipe[0], &d.stop_pipe[1], &d.ctl_pipe[0], &d.ctl_pipe[1],
                    &d.notify_pipe[0], &d.notify_pipe[1]}) {
        if (*fd >= 0) {
            ::close(*fd);
            *fd = -1;
        }
    }
    if (!d.link.empty()) {
        ::unlink(d.link.c_str());
    }
    std::lock_guard<std::mutex> l(d.m);
    for (FILE** f : {&d.log, &d.rec}) {
        if (*f != nullptr) {
            std::fclose(*f);
            *f = nullptr;
        }
    }
    d.running = false;
}

void PanelEmulator::press(int key) {
    const microseconds hold = std::chrono::milliseconds(impl_->opts.hold_ms);
    impl_->wait_sent(impl_->enqueue({{key_frame(key), hold}, {release_frame(), {}}}));
}

void PanelEmulator::press_async(int key) {
    const microseconds hold = std::chrono::milliseconds(impl_->opts.hold_ms);
    impl_->enqueue({{key_frame(key), hold}, {release_frame(), {}}});
}

void PanelEmulator::tap(int key, microseconds hold) {
    const auto release = release_frame();
    const microseconds pause = std::max(hold - line_time(release.size()), microseconds(0));
    impl_->wait_sent(impl_->enqueue({{key_frame(key), pause}, {release, {}}}));
}

microseconds PanelEmulator::line_time(size_t bytes) const {
    return std::chrono::duration_cast<microseconds>(impl_->byte_time() * static_cast<long>(bytes));
}

void PanelEmulator::lock_toggle(bool wait) {
    const microseconds hold = std::chrono::milliseconds(impl_->opts.hold_ms);
    const uint64_t n = impl_->enqueue(
        {{key_frame(KEY_LOCK), hold}, {key_frame(KEY_LOCK), hold}, {release_frame(), {}}});
    if (wait) {
        impl_->wait_sent(n);
    }
}

void PanelEmulator::press_no_release(int key) {
    impl_->wait_sent(impl_->enqueue({{key_frame(key), {}}}));
}

void PanelEmulator::release() {
    impl_->wait_sent(impl_->enqueue({{release_frame(), {}}}));
}

void PanelEmulator::send_raw(const std::vector<uint8_t>& bytes) {
    impl_->wait_sent(impl_->enqueue({{bytes, {}}}));
}

void PanelEmulator::send_split(const std::vector<uint8_t>& bytes, const std::vector<size_t>& cuts,
                               std::chrono::milliseconds gap) {
    std::vector<SendStep> steps;
    size_t from = 0;
    for (size_t c : cuts) {
        if (c > from && c < bytes.size()) {
            steps.push_back({std::vector<uint8_t>(bytes.begin() + static_cast<long>(from),
                                                  bytes.begin() + static_cast<long>(c)),
                             gap});
            from = c;
        }
    }
    steps.push_back(
        {std::vector<uint8_t>(bytes.begin() + static_cast<long>(from), bytes.end()), {}});
    impl_->wait_sent(impl_->enqueue(std::move(steps)));
}

bool PanelEmulator::drop_port(bool break_link) {
    Impl& d = *impl_;
    std::lock_guard<std::mutex> one(d.port_m);
    {
        std::lock_guard<std::mutex> l(d.m);
        if (!d.running || d.stopping || d.dropped) {
            return false;
        }
    }
    const char b = 1;
    [[maybe_unused]] ssize_t r = ::write(d.ctl_pipe[1], &b, 1);
    if (d.reader.joinable()) {
        d.reader.join();
    }
    char drain[16];
    while (::read(d.ctl_pipe[0], drain, sizeof drain) > 0) {
    }
    {
        std::lock_guard<std::mutex> w(d.write_m);
        ::close(d.master);
        d.master = -1;
        ::unlink(d.link.c_str());
        if (break_link) {
            // A name the pty file system never uses.
            [[maybe_unused]] int e = ::symlink((d.slave + "-gone").c_str(), d.link.c_str());
        }
    }
    std::lock_guard<std::mutex> l(d.m);
    d.dropped = true;
    d.peer_open = false;
    d.note(break_link ? "port dropped by the panel (link broken)"
                      : "port dropped by the panel (link removed)");
    return true;
}

bool PanelEmulator::restore_port() {
    Impl& d = *impl_;
    std::lock_guard<std::mutex> one(d.port_m);
    {
        std::lock_guard<std::mutex> l(d.m);
        if (!d.running || d.stopping || !d.dropped) {
            return false;
        }
    }
    {
        std::lock_guard<std::mutex> w(d.write_m);
        if (!d.open_pty()) {
            if (d.master >= 0) {
                ::close(d.master);
                d.master = -1;
            }
            return false;
        }
    }
    {
        std::lock_guard<std::mutex> l(d.m);
        d.dropped = false;
        d.model.reset_picture();
        d.note(("port back on " + d.slave).c_str());
    }
    d.reader = std::thread([&d] { d.read_loop(); });
    return true;
}

bool PanelEmulator::port_dropped() const {
    std::lock_guard<std::mutex> l(impl_->m);
    return impl_->dropped;
}

void PanelEmulator::set_answer_handshake(bool on) {
    std::lock_guard<std::mutex> l(impl_->m);
    impl_->opts.answer_handshake = on;
}

void PanelEmulator::set_firmware(uint8_t main, uint8_t minor, uint8_t build_hi, uint8_t build_lo) {
    std::lock_guard<std::mutex> l(impl_->m);
    impl_->opts.fw_main = main;
    impl_->opts.fw_minor = minor;
    impl_->opts.fw_build_hi = build_hi;
    impl_->opts.fw_build_lo = build_lo;
}

PanelState PanelEmulator::state() const {
    std::lock_guard<std::mutex> l(impl_->m);
    return impl_->model.state();
}

std::vector<Frame> PanelEmulator::frames() const {
    std::lock_guard<std::mutex> l(impl_->m);
    return impl_->model.frames();
}

void PanelEmulator::clear_frames() {
    std::lock_guard<std::mutex> l(impl_->m);
    impl_->model.clear_frames();
}

size_t PanelEmulator::handshakes() const {
    std::lock_guard<std::mutex> l(impl_->m);
    return impl_->model.handshakes();
}

size_t PanelEmulator::error_replies() const {
    std::lock_guard<std::mutex> l(impl_->m);
    return impl_->model.error_replies();
}

size_t PanelEmulator::unknown_frames() const {
    std::lock_guard<std::mutex> l(impl_->m);
    return impl_->model.unknown_frames();
}

size_t PanelEmulator::malformed_frames() const {
    std::lock_guard<std::mutex> l(impl_->m);
    return impl_->model.malformed_frames();
}

bool PanelEmulator::peer_closed() const {
    std::lock_guard<std::mutex> l(impl_->m);
    return impl_->closes > 0 && !impl_->peer_open;
}

size_t PanelEmulator::peer_opens() const {
    std::lock_guard<std::mutex> l(impl_->m);
    return impl_->opens;
}

size_t PanelEmulator::peer_closes() const {
    std::lock_guard<std::mutex> l(impl_->m);
    return impl_->closes;
}

std::string PanelEmulator::last_problem() const {
    std::lock_guard<std::mutex> l(impl_->m);
    return impl_->problem;
}

uint64_t PanelEmulator::generation() const {
    std::lock_guard<std::mutex> l(impl_->m);
    return impl_->gen;
}

bool PanelEmulator::wait_for(const std::function<bool(const PanelState&)>& pred,
                             std::chrono::milliseconds timeout) const {
    return impl_->wait([&] { return pred(impl_->model.state()); }, timeout);
}

bool PanelEmulator::wait_lcd(int line, const std::string& text,
                             std::chrono::milliseconds timeout) const {
    if (line < 0 || line > 1) {
        return false;
    }
    // A text shorter than the line matches the line's start when the rest is blank.
    std::string want = text.substr(0, LCD_COLS);
    want.resize(LCD_COLS, ' ');
    return wait_for([&](const PanelState& s) { return s.lcd[line] == want; }, timeout);
}

bool PanelEmulator::wait_lcd_contains(int line, const std::string& text,
                                      std::chrono::milliseconds timeout) const {
    if (line < 0 || line > 1) {
        return false;
    }
    return wait_for(
        [&](const PanelState& s) { return s.lcd[line].find(text) != std::string::npos; }, timeout);
}

bool PanelEmulator::wait_leds(uint32_t steady, std::chrono::milliseconds timeout) const {
    return wait_for([&](const PanelState& s) { return s.led_steady == steady; }, timeout);
}

bool PanelEmulator::wait_handshakes(size_t n, std::chrono::milliseconds timeout) const {
    return impl_->wait([&] { return impl_->model.handshakes() >= n; }, timeout);
}

bool PanelEmulator::wait_error_replies(size_t n, std::chrono::milliseconds timeout) const {
    return impl_->wait([&] { return impl_->model.error_replies() >= n; }, timeout);
}

bool PanelEmulator::wait_peer_open(std::chrono::milliseconds timeout) const {
    return impl_->wait([&] { return impl_->peer_open; }, timeout);
}

bool PanelEmulator::wait_peer_closed(std::chrono::milliseconds timeout) const {
    return impl_->wait([&] { return impl_->closes > 0 && !impl_->peer_open; }, timeout);
}

bool PanelEmulator::wait_change(uint64_t seen, std::chrono::milliseconds timeout) const {
    return impl_->wait([&] { return impl_->gen != seen; }, timeout);
}

int PanelEmulator::notify_fd() const {
    return impl_->notify_pipe[0];
}

void PanelEmulator::drain_notify() const {
    char b[64];
    while (impl_->notify_pipe[0] >= 0 && ::read(impl_->notify_pipe[0], b, sizeof b) > 0) {
    }
}

const std::string& PanelEmulator::slave_path() const {
    return impl_->slave;
}
const std::string& PanelEmulator::link_path() const {
    return impl_->link;
}

} // namespace tavpanel
