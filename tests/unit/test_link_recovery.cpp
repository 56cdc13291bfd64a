// A panel port that goes away and comes back, the wait for the panel's
// answer, and no library call before the library is open.
#include <gtest/gtest.h>

#include <chrono>
#include <pthread.h>
#include <sys/stat.h>
#include <thread>

#include "fake_matrix.h"
#include "foundation_support.h"
#include "tav_key_var.h"
#include "tav_keyboard.h"
#include "tav_menu_control.h"
#include "tav_menu_listen_irq.h"
#include "tav_menu_var.h"
#include "tav_uart_com.h"

using namespace std::chrono_literals;

namespace {

template <class F> bool wait_for(F done, int ms) {
    for (int i = 0; i < ms / 5 && !done(); ++i) {
        std::this_thread::sleep_for(5ms);
    }
    return done();
}

TEST(PortRecovery, PauseDoublesFromTenMsUpTo640) {
    const int schedule[][2] = {{0, 10},   {10, 20},   {20, 40},   {40, 80},
                               {80, 160}, {160, 320}, {320, 640}, {640, 640}};
    for (const auto& step : schedule) {
        EXPECT_EQ(tav_port_reopen_pause_ms(step[0]), step[1]) << "after " << step[0];
    }
}

// The device behind the port path is replaced (emulator restarted, adapter
// plugged in again): the receive thread reopens it, the next pass redraws the
// page, frames go out and keys come in on the new line.
TEST(PortRecovery, PortComesBackByItself) {
    struct Pty {
        Pty() : master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
            grantpt(master);
            unlockpt(master);
            slave = ptsname(master);
        }
        int master;
        std::string slave;
    };
    char dir[] = "/tmp/tav_link_root_XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string link = std::string(dir) + "/dev/ttyPSC3";
    mkdir((std::string(dir) + "/dev").c_str(), 0755);
    Pty first;
    ASSERT_EQ(symlink(first.slave.c_str(), link.c_str()), 0);
    setenv("TAV_ROOT", dir, 1);
    tav_hardkey_init();
    set_uart_runflag();
    tav_key_var_init();
    ASSERT_EQ(tav_base_port_open(), 0);
    ASSERT_EQ(tav_create_thread(), 0);

    close(first.master); // the line is gone
    Pty second;
    unlink(link.c_str());
    ASSERT_EQ(symlink(second.slave.c_str(), link.c_str()), 0);
    // The port's descriptor leads to the new line.
    auto on_second = [&] {
        char target[64] = {};
        const std::string fd = "/proc/self/fd/" + std::to_string(uartfid.load());
        return readlink(fd.c_str(), target, sizeof target - 1) > 0 && second.slave == target;
    };
    ASSERT_TRUE(wait_for(on_second, 3000));

    tav_menu_ctl_set_time_source([] { return 0u; }, [](uint32_t) {});
    tav_clear_keyevent(TAV_EVENT_KEY);
    g_tav_menu = menu_aud_display;
    g_tav_menu_event = EVENT_NOMAL;
    tav_menu_control();
    EXPECT_EQ(g_tav_menu_event, EVENT_UPDATE);
    EXPECT_EQ(g_tav_menu, menu_aud_display);

    tav_sys_hardmint();
    uint8_t frame[16] = {};
    pollfd p = {second.master, POLLIN, 0};
    ASSERT_EQ(poll(&p, 1, 2000), 1);
    ASSERT_EQ(read(second.master, frame, sizeof frame), 7);
    EXPECT_EQ(frame[0], 0xEB);
    const uint8_t take[] = {0xEB, 0x5F, 0x21, 0x05, 0x07, 0x00, 0x00, 0x40, 0x00, 0x0F};
    ASSERT_EQ(write(second.master, take, sizeof take), static_cast<ssize_t>(sizeof take));
    EXPECT_TRUE(wait_for([] { return (tav_gethardkey_event() & TAV_EVENT_KEY) != 0; }, 2000));
    EXPECT_EQ(tav_getkey_val(), TAV_KEY_TAKE);

    pthread_t rx = g_uart_pthread_id;
    tav_dev_destory();
    struct timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += 2;
    EXPECT_EQ(pthread_timedjoin_np(rx, nullptr, &until), 0);
    close(second.master);
    unlink(link.c_str());
    rmdir((std::string(dir) + "/dev").c_str());
    rmdir(dir);
}

// The handshake wait ends as soon as the receive thread reports the answer.
TEST(PortRecovery, AnswerEndsTheHandshakeWaitAtOnce) {
    tav_clear_keyevent(TAV_EVENT_HARDVER);
    std::thread panel([] {
        std::this_thread::sleep_for(50ms);
        tav_sethardkey_event(TAV_EVENT_HARDVER);
    });
    const auto start = std::chrono::steady_clock::now();
    tav_wait_hardkey_event(TAV_EVENT_HARDVER, 10000);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    EXPECT_NE(tav_gethardkey_event() & TAV_EVENT_HARDVER, 0);
    panel.join();
}

// The library never opened: neither the listener nor the tear-down calls it.
TEST(NoLibrary, ListenerAndTearDownLeaveTheLibraryAlone) {
    tavtest::PanelCapture::get();
    fakematrix::reset();
    pmatrixDllHandle = nullptr;
    tav_matrix_irq_open();
    tav_matrix_irq_callback(0);
    tav_menu_ctl_distory();
    EXPECT_TRUE(fakematrix::state().calls.empty());
    EXPECT_EQ(fakematrix::signal_fetches(), 0);
}

} // namespace
