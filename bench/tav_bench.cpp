// Measurements of the program against the panel emulator and the simulated
// core (run by hand, not part of ctest):
//   - key latency on the home page: key frame sent -> last LCD frame of the
//     redraw, median and 99th percentile, and the bytes sent per key;
//   - heap allocations while 100 keys are pressed on the home page (the
//     program runs with the allocation counter preloaded);
//   - CPU time with the panel silent, with the library failing to open, and
//     idle on the home page.
// Figures go to stdout as "BENCH name value unit" lines.
//
//   tav_bench [--gtest_filter=Bench.KeyLatency*] [--keys N] [--seconds S]
#include <dirent.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
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
    std::printf("BENCH %-40s %12.3f %s\n", name, value, unit);
    std::fflush(stdout);
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

// The program's CPU over `seconds` of wall time, reported as a share of one core.
void measure_cpu(pid_t pid, int seconds, const std::string& name) {
    const double c0 = cpu_seconds(pid), s0 = stat_cpu_seconds(pid);
    const double w0 = now_s();
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    const double c1 = cpu_seconds(pid), s1 = stat_cpu_seconds(pid);
    const double wall = now_s() - w0;
    ASSERT_GE(c1, 0) << "the program ended during the measurement";
    report((name + " cpu").c_str(), (c1 - c0) * 1000, "ms");
    report((name + " utime+stime").c_str(), (s1 - s0) * 1000, "ms");
    report((name + " share of one core").c_str(), 100 * (c1 - c0) / wall, "%");
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
            if (frames[i].kind == tavpanel::FrameKind::lcd_text && frames[i].bytes.size() > 5 &&
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
// for its redraw. Latencies (s) of the key's redraw to its last LCD frame
// and to its last frame; bytes of both redraws.
struct KeyResult {
    double to_lcd = -1, to_end = -1;
    size_t bytes = 0;
};

KeyResult press_measured(Sandbox& sb, int key, double* t0) {
    // Keys come at any moment of the program's pass, not in step with it.
    static std::mt19937 rng(4711);
    std::this_thread::sleep_for(std::chrono::microseconds(rng() % 120000));
    KeyResult r;
    const size_t n0 = sb.panel().frames().size();
    const double sent = now_s();
    sb.panel().send_raw(tavpanel::key_frame(key));
    const long lcd = wait_lcd_line1(sb, n0, t0, 3s);
    if (lcd < 0) {
        return r;
    }
    // The redraw ends with the LED scene; give it time to arrive.
    std::this_thread::sleep_for(40ms);
    auto frames = sb.panel().frames();
    r.to_lcd = frames[lcd].t + *t0 - sent;
    size_t last = static_cast<size_t>(lcd);
    for (size_t i = lcd; i < frames.size(); ++i) {
        last = i;
    }
    r.to_end = frames[last].t + *t0 - sent;
    const size_t n1 = frames.size();
    sb.panel().send_raw(tavpanel::release_frame());
    if (wait_lcd_line1(sb, n1, t0, 3s) < 0) {
        r.to_lcd = -1;
        return r;
    }
    std::this_thread::sleep_for(40ms);
    frames = sb.panel().frames();
    for (size_t i = n0; i < frames.size(); ++i) {
        r.bytes += frames[i].bytes.size();
    }
    return r;
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

    // Alternate RIGHT (page 5, "VOSW: 22") and LEFT (page 0): each redraws.
    double t0 = 1e18;
    std::vector<double> to_lcd, to_end;
    std::vector<size_t> bytes;
    const long before = counter.read(pid);
    long after100 = -1;
    for (int i = 0; i < g_keys; ++i) {
        const KeyResult r = press_measured(sb, i % 2 == 0 ? KEY_RIGHT : KEY_LEFT, &t0);
        ASSERT_GE(r.to_lcd, 0) << "no redraw after key " << i << lcd_of(sb.panel().state());
        to_lcd.push_back(r.to_lcd);
        to_end.push_back(r.to_end);
        bytes.push_back(r.bytes);
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
    }
    const std::string first = sb.panel().state().lcd[0].substr(0, 8);
    EXPECT_TRUE(first == "VOSW: 17" || first == "VOSW: 22") << lcd_of(sb.panel().state());
    report("keys pressed", g_keys, "keys");
    report("latency to last LCD frame median", 1000 * percentile(to_lcd, 0.5), "ms");
    report("latency to last LCD frame p99", 1000 * percentile(to_lcd, 0.99), "ms");
    report("latency to last LCD frame max", 1000 * percentile(to_lcd, 1.0), "ms");
    report("latency to end of redraw median", 1000 * percentile(to_end, 0.5), "ms");
    report("latency to end of redraw p99", 1000 * percentile(to_end, 0.99), "ms");
    std::vector<double> b(bytes.begin(), bytes.end());
    report("bytes per key (press+release) median", percentile(b, 0.5), "bytes");
    report("bytes per key (press+release) max", percentile(b, 1.0), "bytes");
    report("allocations during 100 keys", static_cast<double>(after100 - before), "calls");
    report("allocations during all keys", static_cast<double>(counter.read(pid) - before), "calls");

    // Idle on the home page (the 10-s return falls into the window).
    measure_cpu(pid, g_cpu_seconds, "home page idle");
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
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], "--keys") == 0) {
            g_keys = std::max(2, std::atoi(argv[i + 1]));
        } else if (std::strcmp(argv[i], "--seconds") == 0) {
            g_cpu_seconds = std::max(1, std::atoi(argv[i + 1]));
        }
    }
    return RUN_ALL_TESTS();
}
