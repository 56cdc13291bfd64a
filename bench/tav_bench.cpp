// Measurements of the program against the panel emulator and the simulated
// core (run by hand, not part of ctest). The panel's line runs at 19200 baud
// as on the board, except where "unpaced" says otherwise.
//   - key latency on the home page: key frame arrived -> last LCD frame of
//     the redraw, median and 99th percentile, and the line time of the
//     redraw's frames up to that one (what no program can beat); the same
//     with an unpaced line; the bytes sent per key;
//   - quick taps: 20 taps of digit 1 of 10, 30 and 80 ms (key frame to
//     release frame on the line), each looked for as the "OUT1_" entry;
//   - type-ahead: switches typed as 40-ms taps 100 ms apart, and the routes
//     the core has afterwards;
//   - heap allocations while 100 keys are pressed on the home page (the
//     program runs with the allocation counter preloaded);
//   - CPU time and wake-ups with the panel silent, with the library failing
//     to open, and idle on the home page.
// Figures go to stdout as "BENCH name value unit" lines; a figure with a
// target is followed by the target and "met" or "MISSED".
//
//   tav_bench [--gtest_filter=Bench.KeyLatency*] [--keys N] [--seconds S]
#include <dirent.h>
#include <dlfcn.h>
#include <getopt.h>
#include <gtest/gtest.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "e2e_scenarios.h"

using namespace tave2e;
using Clock = std::chrono::steady_clock;

namespace {

int g_keys = 240;       // key presses for the latency figures
int g_cpu_seconds = 30; // length of each CPU measurement

double now_s() {
    return std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
}

void report(const char* name, double value, const char* unit) {
    std::printf("BENCH %-46s %12.3f %s\n", name, value, unit);
    std::fflush(stdout);
}

// A figure with a target: at most `most` (or at least, with `at_least`).
void report(const std::string& name, double value, const char* unit, double target,
            bool at_least = false) {
    const bool met = at_least ? value >= target : value <= target;
    std::printf("BENCH %-46s %12.3f %-6s target %s %g  %s\n", name.c_str(), value, unit,
                at_least ? ">=" : "<=", target, met ? "met" : "MISSED");
    std::fflush(stdout);
}

// Times any thread of `pid` went to sleep or was preempted: the voluntary
// and involuntary context switches of /proc/<pid>/task/*/status. -1 once
// it is gone.
long wake_ups(pid_t pid) {
    const std::string dir = "/proc/" + std::to_string(pid) + "/task";
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) {
        return -1;
    }
    long sum = 0;
    while (dirent* e = readdir(d)) {
        std::ifstream in(dir + "/" + e->d_name + "/status");
        for (std::string line; e->d_name[0] != '.' && std::getline(in, line);) {
            if (line.find("ctxt_switches:") != std::string::npos) {
                sum += std::atol(line.c_str() + line.find(':') + 1);
            }
        }
    }
    closedir(d);
    return sum;
}

// CPU time of all threads of `pid` in seconds: the scheduler's run time in
// nanoseconds, summed over /proc/<pid>/task/*/schedstat. -1 once it is gone.
double cpu_seconds(pid_t pid) {
    const std::string dir = "/proc/" + std::to_string(pid) + "/task";
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) {
        return -1;
    }
    double sum = 0;
    while (dirent* e = readdir(d)) {
        if (e->d_name[0] == '.') {
            continue;
        }
        std::ifstream in(dir + "/" + e->d_name + "/schedstat");
        unsigned long long ns = 0;
        if (in >> ns) {
            sum += static_cast<double>(ns) / 1e9;
        }
    }
    closedir(d);
    return sum;
}

// utime + stime from /proc/<pid>/stat, in seconds (clock-tick resolution).
double stat_cpu_seconds(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string s((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const size_t p = s.rfind(')');
    if (p == std::string::npos) {
        return -1;
    }
    std::istringstream rest(s.substr(p + 2));
    std::string f;
    unsigned long long ut = 0, st = 0;
    for (int i = 3; i <= 15 && rest >> f; ++i) {
        if (i == 14) {
            ut = std::stoull(f);
        } else if (i == 15) {
            st = std::stoull(f);
        }
    }
    return static_cast<double>(ut + st) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// The program's CPU over `seconds` of wall time, reported as a share of one
// core, and its wake-ups a second; with targets when they are above 0.
void measure_cpu(pid_t pid, int seconds, const std::string& name, double share_max = 0,
                 double wakes_max = 0) {
    const double c0 = cpu_seconds(pid), s0 = stat_cpu_seconds(pid);
    const long k0 = wake_ups(pid);
    const double w0 = now_s();
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    const double c1 = cpu_seconds(pid), s1 = stat_cpu_seconds(pid);
    const long k1 = wake_ups(pid);
    const double wall = now_s() - w0;
    ASSERT_GE(c1, 0) << "the program ended during the measurement";
    report((name + " cpu").c_str(), (c1 - c0) * 1000, "ms");
    report((name + " utime+stime").c_str(), (s1 - s0) * 1000, "ms");
    const double share = 100 * (c1 - c0) / wall, wakes = static_cast<double>(k1 - k0) / wall;
    if (share_max > 0) {
        report(name + " share of one core", share, "%", share_max);
        report(name + " wake-ups", wakes, "/s", wakes_max);
    } else {
        report((name + " share of one core").c_str(), share, "%");
        report((name + " wake-ups").c_str(), wakes, "/s");
    }
    report((name + " wall").c_str(), wall, "s");
}

// The allocation counter inside the program: the address of its counter is
// the same offset from the library's load address as in this process.
class AllocCounter {
  public:
    bool load() {
        handle_ = dlopen(TAV_MALLOC_COUNT_LIB, RTLD_NOW | RTLD_LOCAL);
        if (handle_ == nullptr) {
            return false;
        }
        void* sym = dlsym(handle_, "tav_malloc_count_calls");
        Dl_info info{};
        if (sym == nullptr || dladdr(sym, &info) == 0) {
            return false;
        }
        offset_ = static_cast<char*>(sym) - static_cast<char*>(info.dli_fbase);
        return true;
    }
    // The counter in process `pid`; -1 when it cannot be read.
    long read(pid_t pid) const {
        std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
        for (std::string line; std::getline(maps, line);) {
            unsigned long lo = 0, off = 0;
            char path[512] = "";
            if (std::sscanf(line.c_str(), "%lx-%*x %*s %lx %*s %*s %511s", &lo, &off, path) == 3 &&
                off == 0 && std::strstr(path, "libtav_malloc_count") != nullptr) {
                unsigned long v = 0;
                iovec local{&v, sizeof v};
                iovec remote{reinterpret_cast<void*>(lo + offset_), sizeof v};
                if (process_vm_readv(pid, &local, 1, &remote, 1, 0) == sizeof v) {
                    return static_cast<long>(v);
                }
                return -1;
            }
        }
        return -1;
    }

  private:
    void* handle_ = nullptr;
    long offset_ = 0;
};

// Waits for the next lcd_text frame for line 1 at or after frame index
// `from`; its index, or -1. `*t0` tracks the emulator's clock origin.
long wait_lcd_line1(Sandbox& sb, size_t from, double* t0, ms timeout) {
    const auto end = Clock::now() + timeout;
    for (;;) {
        const uint64_t gen = sb.panel().generation();
        const auto frames = sb.panel().frames();
        if (!frames.empty()) {
            *t0 = std::min(*t0, now_s() - frames.back().t);
        }
        for (size_t i = from; i < frames.size(); ++i) {
            if (frames[i].kind == TAV_COM_KIND_LCD_TEXT && frames[i].bytes.size() > 5 &&
                frames[i].bytes[5] == 1) {
                return static_cast<long>(i);
            }
        }
        if (Clock::now() >= end) {
            return -1;
        }
        sb.panel().wait_change(gen, 50ms);
    }
}

double percentile(std::vector<double> v, double p) {
    std::sort(v.begin(), v.end());
    const size_t i = static_cast<size_t>(p * static_cast<double>(v.size() - 1) + 0.5);
    return v[std::min(i, v.size() - 1)];
}

// One press on the home page: key frame, wait for the redraw, release, wait
// for its redraw. Latency (s) from the key frame's arrival to the redraw's
// last LCD frame and to its last frame; the line time (s) of the redraw's
// frames up to its last LCD frame; bytes of both redraws.
struct KeyResult {
    bool redrawn = false;
    double to_lcd = 0, to_end = 0, line = 0;
    size_t bytes = 0;
};

KeyResult press_measured(Sandbox& sb, int key, double* t0) {
    // Keys come at any moment of the program's pass, not in step with it.
    static std::mt19937 rng(4711);
    std::this_thread::sleep_for(std::chrono::microseconds(rng() % 120000));
    KeyResult r;
    const size_t n0 = sb.panel().frames().size();
    const auto frame = tavpanel::key_frame(key);
    // Its last byte reaches the program one line time after the start (the
    // program may have answered before send_raw returns).
    const double sent =
        now_s() + std::chrono::duration<double>(sb.panel().line_time(frame.size())).count();
    sb.panel().send_raw(frame);
    const long lcd = wait_lcd_line1(sb, n0, t0, 3s);
    if (lcd < 0) {
        return r;
    }
    // The redraw ends with the LED scene; give it time to arrive.
    std::this_thread::sleep_for(60ms);
    auto frames = sb.panel().frames();
    r.redrawn = true;
    r.to_lcd = frames[lcd].t + *t0 - sent;
    r.to_end = frames.back().t + *t0 - sent;
    size_t redraw = 0;
    for (size_t i = n0; i <= static_cast<size_t>(lcd); ++i) {
        redraw += frames[i].bytes.size();
    }
    r.line = std::chrono::duration<double>(sb.panel().line_time(redraw)).count();
    const size_t n1 = frames.size();
    sb.panel().send_raw(tavpanel::release_frame());
    // A release may redraw; its frames must not count for the next key.
    if (wait_lcd_line1(sb, n1, t0, 500ms) >= 0) {
        std::this_thread::sleep_for(60ms);
    }
    frames = sb.panel().frames();
    for (size_t i = n0; i < frames.size(); ++i) {
        r.bytes += frames[i].bytes.size();
    }
    return r;
}

// Keys alternating RIGHT (page 5, "VOSW: 22") and LEFT (page 0), each
// measured; the latency figures under `name`, with their targets: the line
// time of the redraw plus `p50_extra` and `p99_extra` ms.
std::vector<KeyResult> key_latency(Sandbox& sb, const std::string& name, double p50_extra,
                                   double p99_extra, const std::function<void(int)>& after = {}) {
    double t0 = 1e18;
    std::vector<KeyResult> res;
    std::vector<double> to_lcd, to_end, line, over_line;
    for (int i = 0; i < g_keys; ++i) {
        const KeyResult r = press_measured(sb, i % 2 == 0 ? KEY_RIGHT : KEY_LEFT, &t0);
        EXPECT_TRUE(r.redrawn) << "no redraw after key " << i << lcd_of(sb.panel().state());
        if (!r.redrawn) {
            return res;
        }
        res.push_back(r);
        to_lcd.push_back(1000 * r.to_lcd);
        to_end.push_back(1000 * r.to_end);
        line.push_back(1000 * r.line);
        over_line.push_back(1000 * (r.to_lcd - r.line));
        if (after) {
            after(i);
        }
    }
    const std::string first = sb.panel().state().lcd[0].substr(0, 8);
    EXPECT_TRUE(first == "VOSW: 17" || first == "VOSW: 22") << lcd_of(sb.panel().state());
    report((name + " keys pressed").c_str(), g_keys, "keys");
    report((name + " line time of the redraw median").c_str(), percentile(line, 0.5), "ms");
    report(name + " key to last LCD frame median", percentile(to_lcd, 0.5), "ms",
           percentile(line, 0.5) + p50_extra);
    report(name + " key to last LCD frame p99", percentile(to_lcd, 0.99), "ms",
           percentile(line, 0.99) + p99_extra);
    report(name + " ... beyond its line time, median", percentile(over_line, 0.5), "ms", p50_extra);
    report(name + " ... beyond its line time, p99", percentile(over_line, 0.99), "ms", p99_extra);
    report((name + " key to last LCD frame max").c_str(), percentile(to_lcd, 1.0), "ms");
    report((name + " key to end of redraw median").c_str(), percentile(to_end, 0.5), "ms");
    report((name + " key to end of redraw p99").c_str(), percentile(to_end, 0.99), "ms");
    return res;
}

TEST(Bench, KeyLatencyAllocationsAndIdleCpu) {
    AllocCounter counter;
    ASSERT_TRUE(counter.load()) << dlerror();
    Sandbox sb;
    ASSERT_TRUE(sb.start_core());
    ASSERT_TRUE(sb.start_program({std::string("LD_PRELOAD=") + TAV_MALLOC_COUNT_LIB}));
    ASSERT_TRUE(sb.wait_home_page(60s));
    const pid_t pid = sb.program_pid();
    std::this_thread::sleep_for(1s);
    ASSERT_GE(counter.read(pid), 0) << "allocation counter not found in the program";
    report("allocations during start-up", static_cast<double>(counter.read(pid)), "calls");

    const long before = counter.read(pid);
    long after100 = -1;
    const auto res = key_latency(sb, "paced", 15, 30, [&](int i) {
        if (i == 99) {
            after100 = counter.read(pid);
        }
        if (i == 0) {
            // What one key costs on the line, frame by frame.
            const auto frames = sb.panel().frames();
            for (size_t f = frames.size() >= 8 ? frames.size() - 8 : 0; f < frames.size(); ++f) {
                std::printf("  frame %.3f %s\n", frames[f].t,
                            tavpanel::describe(frames[f].bytes).c_str());
            }
        }
    });
    std::vector<double> b;
    for (const auto& r : res) {
        b.push_back(static_cast<double>(r.bytes));
    }
    ASSERT_FALSE(b.empty());
    report("bytes per key (press+release) median", percentile(b, 0.5), "bytes");
    report("bytes per key (press+release) max", percentile(b, 1.0), "bytes");
    if (after100 >= 0) {
        report("allocations during 100 keys", static_cast<double>(after100 - before), "calls", 0);
    }
    report("allocations during all keys", static_cast<double>(counter.read(pid) - before), "calls",
           0);

    // Idle on the home page (the 10-s return falls into the window).
    measure_cpu(pid, g_cpu_seconds, "home page idle", 0.015, 1.2);
}

TEST(Bench, KeyLatencyUnpaced) {
    Sandbox sb({.baud = 0});
    ASSERT_TRUE(bring_up(sb));
    const double line = std::chrono::duration<double>(sb.panel().line_time(1000)).count();
    ASSERT_EQ(line, 0) << "the line is paced";
    key_latency(sb, "unpaced", 10, 25);
}

// Leaves any entry for the home page: BREAK held until the page shows, so
// that it is never lost, and its release given a pass of its own. The entry
// has the home page's LEDs and head, but blanks the top line's right part
// and writes "OUT" into the bottom line's.
void back_home(Sandbox& sb) {
    sb.panel().press_no_release(KEY_BREAK);
    EXPECT_TRUE(sb.panel().wait_for(
        [](const auto& s) {
            return s.lcd[0].rfind("VOSW: ", 0) == 0 && s.lcd[0][27] != ' ' &&
                   s.lcd[1].find("OUT") == std::string::npos;
        },
        5s))
        << lcd_of(sb.panel().state());
    sb.panel().release();
    std::this_thread::sleep_for(250ms);
}

TEST(Bench, QuickTaps) {
    Sandbox sb;
    ASSERT_TRUE(bring_up(sb));
    std::mt19937 rng(11);
    for (int hold : {10, 30, 80}) {
        int acted = 0;
        for (int i = 0; i < 20; ++i) {
            std::this_thread::sleep_for(std::chrono::microseconds(rng() % 120000));
            sb.panel().tap(1, ms(hold));
            if (sb.panel().wait_for(
                    [](const auto& s) { return s.lcd[1].substr(27, 12) == "      OUT1_ "; }, 1s)) {
                ++acted;
                back_home(sb);
            }
        }
        report("taps of " + std::to_string(hold) + " ms acted on", acted, "of 20", 20, true);
    }
}

TEST(Bench, TypeAhead) {
    Sandbox sb;
    ASSERT_TRUE(bring_up(sb));
    // Output, input: one-digit inputs end with RIGHT, two-digit ones do not.
    const std::pair<int, int> entries[] = {{20, 3}, {31, 7}, {17, 12}, {25, 5}, {28, 16},
                                           {19, 9}, {32, 1}, {22, 14}, {26, 2}, {18, 10}};
    int right = 0;
    for (const auto& [out, in] : entries) {
        auto want = core_routes(sb);
        want[out].video = in;
        const int keys[] = {out / 10, out % 10, in < 10 ? in : in / 10,
                            in < 10 ? KEY_RIGHT : in % 10};
        const auto start = Clock::now();
        for (size_t k = 0; k < std::size(keys); ++k) {
            std::this_thread::sleep_until(start + k * 100ms);
            sb.panel().tap(keys[k], 40ms);
        }
        // The 1-s confirmation, the switch, the core's signal.
        std::map<int, Route> got;
        for (int i = 0; i < 40 && got != want; ++i) {
            std::this_thread::sleep_for(100ms);
            got = core_routes(sb);
        }
        if (got == want) {
            ++right;
        } else {
            std::printf("  typed output %d input %d: output %d has video input %d%s\n", out, in,
                        out, got[out].video, lcd_of(sb.panel().state()).c_str());
        }
        back_home(sb);
    }
    report("switches typed 100 ms apart that switched", right, "of 10", 10, true);
}

TEST(Bench, CpuWithTheSilentPanel) {
    Sandbox sb({.silent_panel = true});
    ASSERT_TRUE(sb.start_program());
    ASSERT_TRUE(sb.panel().wait_handshakes(1, 10s));
    measure_cpu(sb.program_pid(), g_cpu_seconds, "silent panel");
}

// The library never opens; the program ends after ten attempts, so its CPU
// is taken over its whole life (last reading before it ended).
void library_failing(Sandbox& sb, const std::string& name) {
    ASSERT_TRUE(sb.start_program());
    const pid_t pid = sb.program_pid();
    const double w0 = now_s();
    double last = 0, last_stat = 0, greet_cpu = -1, greet_w = 0;
    for (;;) {
        const double c = cpu_seconds(pid), s = stat_cpu_seconds(pid);
        if (c < 0 || !sb.program_running()) {
            break;
        }
        last = c;
        last_stat = s;
        if (greet_cpu < 0 && sb.panel().state().lcd[0].find("QUORAL") != std::string::npos) {
            greet_cpu = c;
            greet_w = now_s();
        }
        std::this_thread::sleep_for(20ms);
    }
    const double wall = now_s() - w0;
    report((name + " life").c_str(), wall, "s");
    report((name + " cpu over life").c_str(), 1000 * last, "ms");
    report((name + " utime+stime over life").c_str(), 1000 * last_stat, "ms");
    report((name + " share of one core").c_str(), 100 * last / wall, "%");
    if (greet_cpu >= 0) {
        report((name + " cpu while opening").c_str(), 1000 * (last - greet_cpu), "ms");
        report((name + " opening wall").c_str(), now_s() - greet_w, "s");
    }
}

TEST(Bench, CpuWithoutCore) {
    Sandbox sb;
    library_failing(sb, "no core");
}

TEST(Bench, CpuWithTheOpenRefused) {
    Sandbox sb;
    ASSERT_TRUE(sb.start_core());
    ASSERT_EQ(sb.ctl({"fail", "open"}).status, 0);
    library_failing(sb, "open refused");
}

} // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    // Besides Google Test's own: --keys N, --seconds N; anything else is ignored.
    static const option kOptions[] = {{"keys", required_argument, nullptr, 'k'},
                                      {"seconds", required_argument, nullptr, 's'},
                                      {}};
    opterr = 0;
    for (int opt; (opt = getopt_long(argc, argv, "", kOptions, nullptr)) != -1;) {
        if (opt == 'k') {
            g_keys = std::max(2, std::atoi(optarg));
        } else if (opt == 's') {
            g_cpu_seconds = std::max(1, std::atoi(optarg));
        }
    }
    return RUN_ALL_TESTS();
}
