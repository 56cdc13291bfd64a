// Start-up and shutdown of the panel link: the port is closed once, nothing
// is written afterwards, the last frames reach the panel, the receive thread
// ends, and a stop signal interrupts the start-up wait.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <pthread.h>
#include <string>
#include <thread>

#include "foundation_support.h"
#include "tav_key_var.h"
#include "tav_keyboard.h"
#include "tav_lcd.h"
#include "tav_led.h"
#include "tav_pid_file.h"
#include "tav_uart_com.h"

namespace {

using namespace std::chrono_literals;

// A pseudo-terminal of the test's own.
struct Pty {
    Pty() {
        master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        grantpt(master);
        unlockpt(master);
        slave_name = ptsname(master);
    }
    ~Pty() {
        if (master >= 0) {
            close(master);
        }
    }
    bool readable(int ms) const {
        pollfd p{master, POLLIN, 0};
        return poll(&p, 1, ms) == 1 && (p.revents & POLLIN) != 0;
    }
    int master = -1;
    std::string slave_name;
};

bool wait_for_event(int bit) {
    for (int i = 0; i < 200 && !(tav_gethardkey_event() & bit); ++i) {
        std::this_thread::sleep_for(5ms);
    }
    return tav_gethardkey_event() & bit;
}

bool join_within(pthread_t t, int ms) {
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    ts.tv_nsec += static_cast<long>(ms % 1000) * 1000000L;
    ts.tv_sec += ms / 1000 + ts.tv_nsec / 1000000000L;
    ts.tv_nsec %= 1000000000L;
    return pthread_timedjoin_np(t, nullptr, &ts) == 0;
}

class Lifecycle : public ::testing::Test {
  protected:
    void SetUp() override {
        fndtest::ensure_port_open();
        tav_hardkey_init();
        set_uart_runflag();
        tav_key_var_init();
        tav_comint();
        fndtest::take_hex(5);
    }
    void TearDown() override {
        setenv("TAV_ROOT", tavtest::PanelCapture::get().root().c_str(), 1);
        fndtest::ensure_port_open();
        fndtest::take_hex(5);
    }
};

TEST_F(Lifecycle, ShutdownTwiceClosesOnceAndLeavesStandardInputAlone) {
    // Standard input is a terminal with unread input: a second shutdown that
    // flushed or closed descriptor 0 would lose it.
    Pty in;
    int saved_stdin = dup(0);
    int slave = open(in.slave_name.c_str(), O_RDWR | O_NOCTTY);
    ASSERT_GE(slave, 0);
    ASSERT_EQ(dup2(slave, 0), 0);
    close(slave);
    ASSERT_EQ(write(in.master, "zz\n", 3), 3);
    char echo[16];
    while (in.readable(30)) { // the terminal's echo
        ASSERT_GT(read(in.master, echo, sizeof echo), 0);
    }

    tav_dev_destory();
    EXPECT_FALSE(tav_port_is_open());
    EXPECT_EQ(uartfid.load(), 0);
    tav_dev_destory();
    EXPECT_EQ(g_tav_key_runflag.load(), 0);
    EXPECT_EQ(g_tav_uart_runflag.load(), 0);

    // Nothing goes out once the port is closed, neither to the panel nor to
    // descriptor 0.
    tav_sys_hardmint();
    tav_display_led_all_on();
    EXPECT_EQ(tav_display_string(0, 0, reinterpret_cast<int8_t*>(const_cast<char*>("x")), 1), 0);
    tav_back_err(0, 0xF7);
    EXPECT_EQ(fndtest::take_hex(), "");
    EXPECT_FALSE(in.readable(30));

    EXPECT_NE(fcntl(0, F_GETFD), -1);
    int fl = fcntl(0, F_GETFL);
    fcntl(0, F_SETFL, fl | O_NONBLOCK);
    char buf[8] = {};
    EXPECT_EQ(read(0, buf, sizeof buf), 3);
    dup2(saved_stdin, 0);
    close(saved_stdin);
}

TEST_F(Lifecycle, LastFramesReachThePanelBeforeTheClose) {
    std::string line(40, 'R');
    int8_t* text = reinterpret_cast<int8_t*>(line.data());
    ASSERT_EQ(tav_display_string(0, 0, text, 40), 0);
    ASSERT_EQ(tav_display_string(1, 0, text, 40), 0);
    ASSERT_EQ(tav_display_led_sigle_on(31), 0);
    tav_uartclose();
    EXPECT_FALSE(tav_port_is_open());
    std::string wire = fndtest::take_hex();
    EXPECT_EQ(wire.size(), (48 + 48 + 10) * 3 - 1u);
    EXPECT_EQ(wire.substr(wire.size() - 29), "EB 5F 21 05 01 80 00 00 00 0F");
    tav_uartclose(); // a second close does nothing
}

TEST_F(Lifecycle, ReceiveThreadDeliversEventsAndEndsAfterShutdown) {
    ASSERT_EQ(tav_create_thread(), 0);
    std::this_thread::sleep_for(100ms); // the thread discards input pending at its start
    fndtest::panel_send({0xEB, 0x5F, 0x21, 0x05, 0x07, 0x00, 0x00, 0x40, 0x00, 0x0F});
    ASSERT_TRUE(wait_for_event(TAV_EVENT_KEY));
    EXPECT_EQ(tav_getkey_val(), TAV_KEY_TAKE);
    fndtest::panel_send({0xEB, 0x5F, 0x21, 0x06, 0x00, 0x00, 0x04, 0x02, 0x10, 0x01, 0x0F});
    ASSERT_TRUE(wait_for_event(TAV_EVENT_HARDVER));
    EXPECT_EQ(tav_get_hardkey_build_ver(), 0x11);
    fndtest::panel_send({0xEB, 0x5F, 0x21, 0x00});
    EXPECT_EQ(fndtest::take_hex(100), "EB 5F 00 01 F7 A5");

    pthread_t rx = g_uart_pthread_id;
    tav_dev_destory();
    tav_dev_destory();
    // The thread is still in its read; the next byte ends it.
    fndtest::panel_send({0x00});
    EXPECT_TRUE(join_within(rx, 2000));
}

TEST_F(Lifecycle, ReceiveThreadPausesWhenThePanelSideIsGone) {
    Pty gone;
    char dir[] = "/tmp/tav_fnd_root_XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::string root = dir;
    mkdir((root + "/dev").c_str(), 0755);
    std::string link = root + "/dev/ttyPSC3";
    ASSERT_EQ(symlink(gone.slave_name.c_str(), link.c_str()), 0);
    setenv("TAV_ROOT", root.c_str(), 1);
    ASSERT_EQ(tav_base_port_open(), 0);
    ASSERT_EQ(tav_create_thread(), 0);
    pthread_t rx = g_uart_pthread_id;
    std::this_thread::sleep_for(50ms);
    close(gone.master); // reads now fail at once
    gone.master = -1;
    clockid_t cpu;
    ASSERT_EQ(pthread_getcpuclockid(rx, &cpu), 0);
    struct timespec a;
    struct timespec b;
    clock_gettime(cpu, &a);
    std::this_thread::sleep_for(300ms);
    clock_gettime(cpu, &b);
    double used_ms = (b.tv_sec - a.tv_sec) * 1e3 + (b.tv_nsec - a.tv_nsec) / 1e6;
    EXPECT_LT(used_ms, 60.0);
    tav_dev_destory();
    EXPECT_TRUE(join_within(rx, 2000));
    unlink(link.c_str());
    rmdir((root + "/dev").c_str());
    rmdir(root.c_str());
}

TEST_F(Lifecycle, PortOpenFailuresAreLoggedAndLeaveThePortClosed) {
    fndtest::LogFile log;
    char dir[] = "/tmp/tav_fnd_empty_XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    setenv("TAV_ROOT", dir, 1);
    EXPECT_EQ(tav_base_port_open(), 1);
    EXPECT_FALSE(tav_port_is_open());
    auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], "15\tfunc=[tav_base_port_open]Front panel Err .Start Uart Err.");
    rmdir(dir);

    // The device is there but refuses the parameters: closed again, 2.
    setenv("TAV_ROOT", tavtest::PanelCapture::get().root().c_str(), 1);
    int8_t param[128] = {};
    memcpy(param, "12345;N;8;1;", 12);
    EXPECT_EQ(tav_inituart(param, 4), 2);
    EXPECT_FALSE(tav_port_is_open());
    memcpy(param, "19200;N;8;1;", 12);
    EXPECT_EQ(tav_inituart(param, 4), 0);
    EXPECT_TRUE(tav_port_is_open());
}

TEST_F(Lifecycle, StopSignalInterruptsTheDependencyWait) {
    const std::string dep = tavtest::PanelCapture::get().root() + "/var/run/tav_sig_dep.pid";
    fndtest::LockHolder holder(dep, 10000);
    ASSERT_TRUE(holder.locked());
    fndtest::LogFile log;
    tav_install_signal_handlers();
    pthread_t self = pthread_self();
    std::thread killer([self] {
        std::this_thread::sleep_for(200ms);
        pthread_kill(self, SIGTERM);
    });
    auto start = std::chrono::steady_clock::now();
    int fd = tav_pidf_open("tav_sig_dep");
    auto waited = std::chrono::steady_clock::now() - start;
    killer.join();
    signal(SIGTERM, SIG_DFL);
    signal(SIGINT, SIG_DFL);
    tav_pidf_close(fd);
    EXPECT_LT(waited, 3s);
    EXPECT_EQ(g_tav_key_runflag.load(), 0);
    EXPECT_EQ(g_tav_uart_runflag.load(), 0);
    EXPECT_THAT(log.lines(),
                ::testing::Contains("11\tfunc=[tav_pidf_lock]lock err:Interrupted system call"));
}

} // namespace
