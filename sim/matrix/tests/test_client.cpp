// libtav_matrix.so against the simulated core, started as a subprocess in a
// temporary root.
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "sim_model.h"
#include "tav_matrix.h"

using namespace std::chrono;

namespace {

// Signal records the callback has seen, in order.
struct Recorder {
    std::mutex mu;
    std::condition_variable cv;
    std::vector<TAV_MATRIX_OBJ_SIGNAL_FLAG> recs;
    std::atomic<void*> handle{nullptr};

    void clear() {
        std::lock_guard<std::mutex> g(mu);
        recs.clear();
    }
    // Waits until `n` records have arrived; returns a copy.
    std::vector<TAV_MATRIX_OBJ_SIGNAL_FLAG> wait(size_t n, int ms = 3000) {
        std::unique_lock<std::mutex> g(mu);
        cv.wait_for(g, milliseconds(ms), [&] { return recs.size() >= n; });
        return recs;
    }
} g_rec;

void on_signal(int) {
    TAV_MATRIX_OBJ_SIGNAL_FLAG r{};
    ASSERT_EQ(tav_matrix_get_inner_signal_information(g_rec.handle.load(), &r), 0);
    std::lock_guard<std::mutex> g(g_rec.mu);
    g_rec.recs.push_back(r);
    g_rec.cv.notify_all();
}

class SimCore : public ::testing::Test {
  protected:
    std::string root;
    pid_t core = -1;

    void SetUp() override {
        char tmpl[] = "/tmp/tav_sim_XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        root = tmpl;
        setenv("TAV_ROOT", root.c_str(), 1);
        unsetenv("TAV_MATRIX_TIMEOUT_MS");
        g_rec.clear();
    }
    void TearDown() override {
        stop();
        std::filesystem::remove_all(root);
    }

    void start() {
        std::vector<std::string> a = {TAV_SIM_BIN_DIR "/tav_matrix_core",
                                      "--root",
                                      root,
                                      "--startup-delay-ms",
                                      "0",
                                      "--normal-delay-ms",
                                      "50"};
        core = fork();
        ASSERT_GE(core, 0);
        if (core == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL); // a test that dies takes the core along
            std::vector<char*> argv;
            for (auto& s : a)
                argv.push_back(s.data());
            argv.push_back(nullptr);
            int null = open("/dev/null", O_WRONLY);
            dup2(null, 1);
            execv(argv[0], argv.data());
            _exit(127);
        }
        const auto until = steady_clock::now() + seconds(5);
        while (steady_clock::now() < until && !answers())
            std::this_thread::sleep_for(milliseconds(10));
        ASSERT_TRUE(answers()) << "the core did not come up";
    }
    void stop() {
        if (core > 0) {
            kill(core, SIGKILL);
            kill(core, SIGCONT);
            waitpid(core, nullptr, 0);
        }
        core = -1;
    }
    bool answers() {
        int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un a{};
        a.sun_family = AF_UNIX;
        std::snprintf(a.sun_path, sizeof a.sun_path, "%s/var/run/tav_matrix.sock", root.c_str());
        const bool ok = connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
        close(fd);
        return ok;
    }
    // Runs the control client; returns its output, "ERR" on a failing exit.
    std::string ctl(const std::string& args) {
        std::string cmd =
            std::string(TAV_SIM_BIN_DIR "/tav_matrix_ctl --root ") + root + " " + args + " 2>&1";
        FILE* p = popen(cmd.c_str(), "r");
        std::string out;
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, p)) > 0)
            out.append(buf, n);
        const int st = pclose(p);
        return st == 0 ? out : "ERR " + out;
    }
    static void* open_core() {
        void* h = tav_matrix_open(TAV_MATRIX_OPEN_VERSION);
        EXPECT_NE(h, nullptr);
        return h;
    }
    // Waits until the core lists this process's signal stream with `mask`.
    bool subscribed(uint32_t mask) {
        char want[64];
        std::snprintf(want, sizeof want, "client pid=%d mask=0x%04x", int(getpid()),
                      unsigned(mask));
        const auto until = steady_clock::now() + seconds(5);
        while (steady_clock::now() < until && ctl("state").find(want) == std::string::npos)
            std::this_thread::sleep_for(milliseconds(20));
        return ctl("state").find(want) != std::string::npos;
    }
    void* open_registered(uint32_t mask) {
        void* h = open_core();
        g_rec.handle = h;
        EXPECT_EQ(tav_matrix_register_inner_signal(h, mask, on_signal), 0);
        EXPECT_TRUE(subscribed(mask));
        return h;
    }
};

long ms_since(steady_clock::time_point t) {
    return duration_cast<milliseconds>(steady_clock::now() - t).count();
}

TEST_F(SimCore, OpenFailsFastWithoutACoreOrWhenMadeToFail) {
    const auto t = steady_clock::now();
    EXPECT_EQ(tav_matrix_open(TAV_MATRIX_OPEN_VERSION), nullptr);
    EXPECT_LT(ms_since(t), 200);
    start();
    ASSERT_EQ(ctl("fail open"), "");
    EXPECT_EQ(tav_matrix_open(TAV_MATRIX_OPEN_VERSION), nullptr);
    ASSERT_EQ(ctl("fail open off"), "");
    void* h = open_core();
    EXPECT_EQ(tav_matrix_get_device_type(h), 32);
}

TEST_F(SimCore, RoutesApplyOnlyWithDoneInCallOrder) {
    start();
    void* h = open_registered(TAV_MATRIX_SIG_MASK);
    ctl("clear-log");
    ASSERT_EQ(tav_matrix_get_video_switch_state(h, 17), 1);
    EXPECT_EQ(tav_matrix_set_video_switch(h, 5, 17), 0);
    EXPECT_EQ(tav_matrix_stash_video_switch_data(h, 5, 17), 0);
    EXPECT_EQ(tav_matrix_set_video_switch(h, 0, 18), 0); // input 0 disconnects
    EXPECT_EQ(tav_matrix_stash_video_switch_data(h, 0, 18), 0);
    EXPECT_EQ(tav_matrix_get_video_switch_state(h, 17), 1) << "no switch before done";
    EXPECT_TRUE(g_rec.wait(1, 100).empty());
    EXPECT_EQ(tav_matrix_set_video_switch_done(h), 0);
    EXPECT_EQ(tav_matrix_get_video_switch_state(h, 17), 5);
    EXPECT_EQ(tav_matrix_get_video_switch_state(h, 18), 0);
    auto recs = g_rec.wait(1);
    ASSERT_EQ(recs.size(), 1u);
    EXPECT_EQ(recs[0].sig_bit_map, TAV_MATRIX_SIG_VIDEO_CONNECT);
    // Refused: an output as input, an input as output, port 16's audio.
    EXPECT_LT(tav_matrix_set_video_switch(h, 20, 17), 0);
    EXPECT_LT(tav_matrix_set_video_switch(h, 1, 2), 0);
    EXPECT_LT(tav_matrix_set_audio_switch(h, 16, 17), 0);
    EXPECT_EQ(ctl("log set_video stash_video"),
              "set_video_switch(5,17)\nstash_video_switch_data(5,17)\nset_video_switch(0,18)\n"
              "stash_video_switch_data(0,18)\nset_video_switch_done()\nset_video_switch(20,17)\n"
              "set_video_switch(1,2)\n");
}

TEST_F(SimCore, CallbackOnlyForRegisteredBitsUntilUnregistered) {
    start();
    open_registered(TAV_MATRIX_SIG_VIDEO_CONNECT | TAV_MATRIX_SIG_SLOT);
    ASSERT_EQ(ctl("raise 0x0040 9"), "");                     // not registered
    ASSERT_EQ(ctl("raise 0x0100 9"), "");                     // not registered
    ASSERT_EQ(ctl("raise 0x0060 7 --src 0 --thread 99"), ""); // meets the mask
    ASSERT_EQ(ctl("raise 0x0080 3 --count 3"), "");           // one call per signal
    auto recs = g_rec.wait(4);
    ASSERT_EQ(recs.size(), 4u);
    EXPECT_EQ(recs[0].sig_bit_map, 0x0060u);
    EXPECT_EQ(recs[0].src_parameter, 7u);
    EXPECT_EQ(recs[0].src, 0u);
    EXPECT_EQ(recs[0].thread_id, 99u);
    for (int i = 1; i < 4; ++i)
        EXPECT_EQ(recs[i].sig_bit_map, TAV_MATRIX_SIG_SLOT);
    EXPECT_EQ(g_rec.wait(5, 150).size(), 4u);
    ASSERT_EQ(tav_matrix_unregister_inner_signal(g_rec.handle.load(), TAV_MATRIX_SIG_MASK), 0);
    ASSERT_EQ(ctl("raise 0x20 --count 5"), "");
    EXPECT_EQ(g_rec.wait(5, 300).size(), 4u);
}

TEST_F(SimCore, CoreKilledMidCallGivesAnErrorNotAHang) {
    start();
    void* h = open_core();
    ASSERT_EQ(kill(core, SIGSTOP), 0); // the call below now waits for an answer
    std::atomic<int32_t> rc{1};
    const auto t = steady_clock::now();
    std::thread caller([&] { rc = tav_matrix_get_device_type(h); });
    std::this_thread::sleep_for(milliseconds(200));
    EXPECT_EQ(rc.load(), 1) << "the call should still be waiting";
    stop();
    caller.join();
    EXPECT_LT(rc.load(), 0);
    EXPECT_LT(ms_since(t), 1500);
}

TEST_F(SimCore, NewCoreIsReachedByCallsAndSignalsAndNoCallWaitsForADeadOne) {
    setenv("TAV_MATRIX_TIMEOUT_MS", "500", 1);
    start();
    void* h = open_registered(TAV_MATRIX_SIG_MASK);
    // The request connection still leads to the killed core when the new one
    // is up: the first call and the signal stream reach the new one all the same.
    stop();
    start();
    ASSERT_TRUE(subscribed(TAV_MATRIX_SIG_MASK)) << "the signal stream did not come back";
    EXPECT_EQ(tav_matrix_get_device_type(h), 32);
    ASSERT_EQ(ctl("raise 0x20 4242"), "");
    auto recs = g_rec.wait(2); // first: routes and ports may all have changed
    ASSERT_EQ(recs.size(), 2u);
    EXPECT_EQ(recs[0].sig_bit_map, 0x0660u);
    EXPECT_EQ(recs[1].src_parameter, 4242u);
    stop();
    uint8_t edid[256] = {};
    TAV_MATRIX_OBJ_CARD card;
    const std::function<int32_t()> calls[] = {
        [&] { return tav_matrix_get_device_type(h); },
        [&] { return tav_matrix_set_video_switch(h, 1, 17); },
        [&] { return tav_matrix_get_port_edid(h, 1, em_matrix_edid_in, edid, 256); },
        [&] { return tav_matrix_get_card_information(h, 1, &card); },
        [&] { return tav_matrix_set_inner_signal_reboot_opt(h, em_irq_reboot_none); },
    };
    for (const auto& call : calls) {
        const auto t = steady_clock::now();
        EXPECT_LT(call(), 0);
        EXPECT_LT(ms_since(t), 700);
    }
}

TEST_F(SimCore, SilentCoreTimesOutAndIsReachedAgainLater) {
    setenv("TAV_MATRIX_TIMEOUT_MS", "300", 1);
    start();
    void* h = open_core();
    ASSERT_EQ(kill(core, SIGSTOP), 0);
    const auto t = steady_clock::now();
    EXPECT_LT(tav_matrix_get_device_type(h), 0);
    EXPECT_GE(ms_since(t), 250);
    EXPECT_LT(ms_since(t), 1000);
    ASSERT_EQ(kill(core, SIGCONT), 0);
    EXPECT_EQ(tav_matrix_get_device_type(h), 32);
}

TEST_F(SimCore, ThreadsConcurrentCallsWhileSignalsArrive) {
    start();
    void* h = open_registered(TAV_MATRIX_SIG_MASK);
    std::atomic<int> bad{0};
    std::thread switcher([&] {
        for (int i = 0; i < 200; ++i) {
            const int in = 1 + i % 8;
            if (tav_matrix_set_video_switch(h, in, 17) != 0 ||
                tav_matrix_stash_video_switch_data(h, in, 17) != 0 ||
                tav_matrix_set_video_switch_done(h) != 0)
                ++bad;
        }
    });
    std::thread reader([&] {
        for (int i = 0; i < 200; ++i) {
            const int32_t in = tav_matrix_get_video_switch_state(h, 17);
            if (tav_matrix_get_device_type(h) != 32 || in < 1 || in > 8 ||
                tav_matrix_get_active_video_pipe_io(h, 1 + i % 16) != em_matrix_in)
                ++bad;
        }
    });
    switcher.join();
    reader.join();
    EXPECT_EQ(bad.load(), 0);
    EXPECT_EQ(tav_matrix_get_video_switch_state(h, 17), 8);
    EXPECT_EQ(g_rec.wait(200).size(), 200u); // one connection signal per done
}

} // namespace
