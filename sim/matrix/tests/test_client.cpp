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

    void start(int startup_delay_ms = 0, const std::string& chassis = "") {
        // clang-format off
        std::vector<std::string> a = {TAV_SIM_BIN_DIR "/tav_matrix_core", "--root", root,
            "--startup-delay-ms", std::to_string(startup_delay_ms), "--normal-delay-ms", "50"};
        // clang-format on
        if (!chassis.empty()) {
            std::ofstream(root + "/chassis.txt") << chassis;
            a.push_back("--chassis");
            a.push_back(root + "/chassis.txt");
        }
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
    void* open_registered(uint32_t mask) {
        void* h = open_core();
        g_rec.handle = h;
        EXPECT_EQ(tav_matrix_register_inner_signal(h, mask, on_signal), 0);
        // The signal stream is open once the core lists it.
        const auto until = steady_clock::now() + seconds(3);
        while (steady_clock::now() < until && ctl("state").find("client pid=") == std::string::npos)
            std::this_thread::sleep_for(milliseconds(10));
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

struct Twin {
    const char* name;
    int32_t (*set)(void*, int32_t, int32_t);
    int32_t (*stash)(void*, int32_t, int32_t);
    int32_t (*done)(void*);
    int32_t (*state)(void*, int32_t);
    uint32_t signal;
};

class SimSwitch : public SimCore, public ::testing::WithParamInterface<Twin> {};

TEST_P(SimSwitch, RoutesApplyOnlyWithDoneInCallOrder) {
    const Twin& t = GetParam();
    start();
    void* h = open_registered(TAV_MATRIX_SIG_MASK);
    ctl("clear-log");
    ASSERT_EQ(t.state(h, 17), 1);
    EXPECT_EQ(t.set(h, 5, 17), 0);
    EXPECT_EQ(t.state(h, 17), 1) << "set alone must not switch";
    EXPECT_EQ(t.stash(h, 5, 17), 0);
    EXPECT_EQ(t.set(h, 0, 18), 0); // input 0 disconnects
    EXPECT_EQ(t.stash(h, 0, 18), 0);
    EXPECT_EQ(t.state(h, 17), 1) << "stash alone must not switch";
    EXPECT_TRUE(g_rec.wait(1, 100).empty());
    EXPECT_EQ(t.done(h), 0);
    EXPECT_EQ(t.state(h, 17), 5);
    EXPECT_EQ(t.state(h, 18), 0);
    auto recs = g_rec.wait(1);
    ASSERT_EQ(recs.size(), 1u);
    EXPECT_EQ(recs[0].sig_bit_map, t.signal);
    EXPECT_EQ(recs[0].src, (uint32_t)em_matrix_sig_src_core);
    // Refused routes: an output as input, an input as output, port 16's audio.
    EXPECT_LT(t.set(h, 20, 17), 0);
    EXPECT_LT(t.set(h, 1, 2), 0);
    const bool video = std::string(t.name) == "Video";
    const std::string set = video ? "set_video_switch" : "set_audio_switch";
    const std::string stash = video ? "stash_video_switch_data" : "stash_audio_switch_data";
    EXPECT_EQ(ctl(video ? "log set_video stash_video" : "log set_audio stash_audio"),
              set + "(5,17)\n" + stash + "(5,17)\n" + set + "(0,18)\n" + stash + "(0,18)\n" + set +
                  "_done()\n" + set + "(20,17)\n" + set + "(1,2)\n");
    EXPECT_NE(ctl("state").find(video ? "route 17 video=5" : "route 17 video=1 audio=5"),
              std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Twins, SimSwitch,
    ::testing::Values(Twin{"Video", tav_matrix_set_video_switch, tav_matrix_stash_video_switch_data,
                           tav_matrix_set_video_switch_done, tav_matrix_get_video_switch_state,
                           TAV_MATRIX_SIG_VIDEO_CONNECT},
                      Twin{"Audio", tav_matrix_set_audio_switch, tav_matrix_stash_audio_switch_data,
                           tav_matrix_set_audio_switch_done, tav_matrix_get_audio_switch_state,
                           TAV_MATRIX_SIG_AUDIO_CONNECT}),
    [](const ::testing::TestParamInfo<Twin>& i) { return std::string(i.param.name); });

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

struct Raised {
    const char* name;
    const char* ctl_args;   // nullptr: the library call below
    int32_t (*call)(void*); // a library call raising a signal
    uint32_t bits;
    long param; // -1: this process's id (low 16 bits)
};

int32_t reboot_factory(void* h) {
    return tav_matrix_set_inner_signal_reboot_opt(h, em_irq_reboot_factory);
}

class SimRaise : public SimCore, public ::testing::WithParamInterface<Raised> {};

TEST_P(SimRaise, RecordCarriesBitsAndParameter) {
    const Raised& r = GetParam();
    start();
    void* h = open_registered(TAV_MATRIX_SIG_MASK);
    if (r.ctl_args)
        ASSERT_EQ(ctl(r.ctl_args), "");
    else
        ASSERT_EQ(r.call(h), 0);
    auto recs = g_rec.wait(1);
    ASSERT_FALSE(recs.empty());
    const TAV_MATRIX_OBJ_SIGNAL_FLAG& rec = recs.back();
    EXPECT_EQ(rec.sig_bit_map, r.bits);
    EXPECT_EQ((long)rec.src_parameter, r.param < 0 ? (long)(getpid() & 0xFFFF) : r.param);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Kinds, SimRaise, ::testing::Values(
    Raised{"LockFromThisProcess", nullptr, tav_matrix_set_inner_signal_lock_fp_opt, 0x2000, -1},
    Raised{"RebootRequest", nullptr, reboot_factory, 0x1000, 2},
    Raised{"ForeignLockHighBits", "lock 1 0x10005", nullptr, 0x2000, 0x10005},
    Raised{"UpdateStart", "update start 5", nullptr, 0x0800, 0x8005},
    Raised{"RouteBehindTheBack", "route video 20 9", nullptr, 0x0020, 0}),
    [](const ::testing::TestParamInfo<Raised>& i) { return std::string(i.param.name); });
// clang-format on

TEST_F(SimCore, CardPulledAndInsertedWithSlotAndPortSignals) {
    start();
    void* h = open_registered(TAV_MATRIX_SIG_MASK);
    ASSERT_EQ(ctl("pull 3"), "");
    auto recs = g_rec.wait(2);
    ASSERT_EQ(recs.size(), 2u);
    EXPECT_EQ(recs[0].sig_bit_map, TAV_MATRIX_SIG_VIDEO_PORT | TAV_MATRIX_SIG_AUDIO_PORT);
    EXPECT_EQ(recs[1].sig_bit_map, TAV_MATRIX_SIG_SLOT);
    EXPECT_EQ(recs[1].src_parameter, 3u);
    TAV_MATRIX_OBJ_CARD card{};
    ASSERT_EQ(tav_matrix_get_card_information(h, 3, &card), 0);
    EXPECT_EQ(card.card_status, em_matrix_card_offline);
    EXPECT_EQ(tav_matrix_get_active_video_pipe_io(h, 9), em_matrix_unknown);

    ASSERT_EQ(ctl("insert 3 --delay 100"), "");
    recs = g_rec.wait(3);
    ASSERT_EQ(recs.size(), 3u);
    EXPECT_EQ(recs[2].sig_bit_map, TAV_MATRIX_SIG_SLOT);
    ASSERT_EQ(tav_matrix_get_card_information(h, 3, &card), 0);
    EXPECT_EQ(card.card_status, em_matrix_card_online);
    recs = g_rec.wait(5);
    ASSERT_EQ(recs.size(), 5u);
    EXPECT_EQ(recs[3].sig_bit_map, TAV_MATRIX_SIG_VIDEO_PORT | TAV_MATRIX_SIG_AUDIO_PORT);
    EXPECT_EQ(recs[4].sig_bit_map, TAV_MATRIX_SIG_SLOT);
    ASSERT_EQ(tav_matrix_get_card_information(h, 3, &card), 0);
    EXPECT_EQ(card.card_status, em_matrix_card_normal);
    EXPECT_EQ(card.slot_id, 3u);
    EXPECT_EQ(tav_matrix_get_active_video_pipe_io(h, 9), em_matrix_in);
}

TEST_F(SimCore, EdidCopyReachesTheDestinationInput) {
    start();
    void* h = open_core();
    tavsim::Edid e{};
    e.fill(0xFF);
    ASSERT_EQ(tav_matrix_get_port_edid(h, 1, em_matrix_edid_in, e.data(), 256), 0);
    EXPECT_EQ(tavsim::edid_name(e), "CAMERA-1");
    ASSERT_EQ(tav_matrix_get_port_edid(h, 17, em_matrix_edid_load, e.data(), 256), 0);
    EXPECT_EQ(tavsim::edid_name(e), "PROJECTOR");
    ASSERT_EQ(tav_matrix_get_port_edid(h, 9, em_matrix_edid_default, e.data(), 256), 0);
    EXPECT_EQ(tavsim::edid_name(e), "TAV-1080P");
    ASSERT_EQ(tav_matrix_set_port_edid(h, 5, em_matrix_edid_in, e.data(), 256), 0);
    char crc[16];
    std::snprintf(crc, sizeof crc, "%08x", tavsim::edid_crc(e));
    EXPECT_NE(ctl("state").find(std::string("edid 5 kind=in name=TAV-1080P crc=") + crc),
              std::string::npos);
    // Refused: a missing sink, an input's EDID of an output, a write to an
    // output, a forced failure.
    EXPECT_LT(tav_matrix_get_port_edid(h, 32, em_matrix_edid_load, e.data(), 256), 0);
    EXPECT_LT(tav_matrix_get_port_edid(h, 17, em_matrix_edid_in, e.data(), 256), 0);
    EXPECT_LT(tav_matrix_set_port_edid(h, 17, em_matrix_edid_in, e.data(), 256), 0);
    ASSERT_EQ(ctl("fail set_port_edid -7"), "");
    EXPECT_EQ(tav_matrix_set_port_edid(h, 5, em_matrix_edid_in, e.data(), 256), -7);
    EXPECT_EQ(ctl("log set_port_edid"),
              "set_port_edid(5,0,256)\nset_port_edid(17,0,256)\nset_port_edid(5,0,256)\n");
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
    const auto t2 = steady_clock::now();
    EXPECT_LT(tav_matrix_get_video_switch_state(h, 17), 0);
    EXPECT_LT(ms_since(t2), 200);
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

TEST_F(SimCore, PidFileLockHeldForTheStartupDelay) {
    const auto t = steady_clock::now();
    start(800);
    const std::string path = root + "/var/run/matrix_app_quoral.pid";
    int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    pid_t content = 0;
    ASSERT_EQ(read(fd, &content, sizeof content), (ssize_t)sizeof content);
    EXPECT_EQ(content, core);
    struct flock q {};
    q.l_type = F_WRLCK;
    q.l_whence = SEEK_SET;
    struct flock w = q;
    ASSERT_EQ(fcntl(fd, F_GETLK, &q), 0);
    EXPECT_EQ(q.l_type, F_WRLCK);
    EXPECT_EQ(q.l_pid, core);
    ASSERT_EQ(fcntl(fd, F_SETLKW, &w), 0); // returns once the core lets go
    EXPECT_GE(ms_since(t), 750);
    EXPECT_LT(ms_since(t), 3000);
    close(fd);
    EXPECT_TRUE(answers()) << "the core keeps serving after the start-up";
}

} // namespace
