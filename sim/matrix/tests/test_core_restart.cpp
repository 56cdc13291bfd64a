// libtav_matrix.so across a restart of the simulated core: while no core runs
// every call fails within its time-out, and a new core instance is reached
// again by the calls and by the signal stream without help from the caller.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "tav_matrix.h"

using namespace std::chrono;

namespace {

std::mutex g_mu;
std::condition_variable g_cv;
uint32_t g_last_param = 0;

void on_signal(int param) {
    std::lock_guard<std::mutex> g(g_mu);
    g_last_param = static_cast<uint32_t>(param);
    g_cv.notify_all();
}

class CoreRestart : public ::testing::Test {
  protected:
    std::string root;
    pid_t core = -1;

    void SetUp() override {
        char tmpl[] = "/tmp/tav_restart_XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        root = tmpl;
        setenv("TAV_ROOT", root.c_str(), 1);
        setenv("TAV_MATRIX_TIMEOUT_MS", "500", 1);
    }
    void TearDown() override {
        kill_core();
        std::system(("rm -rf " + root).c_str());
    }
    void start_core() {
        core = fork();
        ASSERT_GE(core, 0);
        if (core == 0) {
            (void)!freopen("/dev/null", "w", stdout);
            execl(TAV_SIM_BIN_DIR "/tav_matrix_core", "tav_matrix_core", "--root", root.c_str(),
                  "--startup-delay-ms", "0", nullptr);
            _exit(127);
        }
    }
    void kill_core() {
        if (core > 0) {
            kill(core, SIGKILL);
            waitpid(core, nullptr, 0);
        }
        core = -1;
    }
    // Waits until the core's state lists this process's signal stream.
    bool wait_subscribed() {
        const std::string want = "client pid=" + std::to_string(getpid()) + " mask=0x3ef7";
        const std::string cmd = TAV_SIM_BIN_DIR "/tav_matrix_ctl --root " + root + " state 2>&1";
        for (const auto until = steady_clock::now() + seconds(5); steady_clock::now() < until;
             std::this_thread::sleep_for(milliseconds(20))) {
            FILE* p = popen(cmd.c_str(), "r");
            std::string out;
            char buf[4096];
            for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;)
                out.append(buf, n);
            pclose(p);
            if (out.find(want) != std::string::npos)
                return true;
        }
        return false;
    }
};

TEST_F(CoreRestart, NewCoreIsReachedByCallsAndSignalsAndNoCallWaitsForADeadOne) {
    start_core();
    void* h = nullptr;
    for (int i = 0; i < 100 && !h; ++i, std::this_thread::sleep_for(milliseconds(20)))
        h = tav_matrix_open(TAV_MATRIX_OPEN_VERSION);
    ASSERT_NE(h, nullptr);
    ASSERT_EQ(tav_matrix_register_inner_signal(h, TAV_MATRIX_SIG_MASK, on_signal), 0);
    ASSERT_TRUE(wait_subscribed());
    ASSERT_EQ(tav_matrix_get_device_type(h), 32);

    // The request connection still leads to the killed core when the new one
    // is up: the first call goes to the new one all the same.
    kill_core();
    start_core();
    ASSERT_TRUE(wait_subscribed()) << "the signal stream did not come back with its mask";
    EXPECT_EQ(tav_matrix_get_device_type(h), 32);
    const std::string raise =
        TAV_SIM_BIN_DIR "/tav_matrix_ctl --root " + root + " raise 0x20 4242 >/dev/null";
    ASSERT_EQ(std::system(raise.c_str()), 0);
    {
        std::unique_lock<std::mutex> g(g_mu);
        EXPECT_TRUE(g_cv.wait_for(g, seconds(3), [] { return g_last_param == 4242; }));
    }

    kill_core();
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
        EXPECT_LT(duration_cast<milliseconds>(steady_clock::now() - t).count(), 700);
    }
}

} // namespace
