// Signals raised while a handler pauses, and what must not outlive the
// shutdown: dispatches after tear-down, the receive thread, descriptors
// inherited by the shell tools, start-up work after a stop, a lock change the
// file could not keep, and a device tool that never ends.
#include <gtest/gtest.h>

#include <chrono>
#include <dirent.h>
#include <sys/stat.h>
#include <thread>

#include "foundation_support.h"
#include "listener_support.h"
#include "menu_switch_fixture.h"
#include "tav_basetool.h"
#include "tav_keyboard.h"
#include "tav_menu_switch_all.h"

using namespace std::chrono_literals;

namespace {

template <class F> bool wait_for(F done, int ms) {
    for (int i = 0; i < ms / 5 && !done(); ++i) {
        std::this_thread::sleep_for(5ms);
    }
    return done();
}

// One key through the current menu's handlers, work and redraw, as the
// controller's passes do it: with the engine lock held, pauses included.
void key(switchtest::Key k) {
    std::lock_guard<std::recursive_mutex> lk(tav_menu_engine_mutex());
    switchtest::set_button(k);
    tav_nomal_work();
    tav_nomal_display();
}

// A card is pulled during the handler's pause; then the switch's own
// connection signal arrives. The pull must still be noticed.
uint32_t g_pause_ms;
void pull_during_pause(uint32_t ms) {
    if (ms == g_pause_ms) {
        const int before = fakematrix::signal_fetches();
        fakematrix::raise_signal(TAV_MATRIX_SIG_SLOT, 3);
        wait_for([&] { return fakematrix::signal_fetches() > before; }, 1000);
    }
}

struct PauseCase {
    const char* name;
    uint8_t switch_all_mode; // 0: the switch confirmation from the home page
    std::vector<switchtest::Key> keys;
    uint32_t pause_ms;
    const char* commit;
};

class SignalDuringPause : public irqtest::ListenerTest,
                          public ::testing::WithParamInterface<PauseCase> {};

TEST_P(SignalDuringPause, IsHandledAfterThePass) {
    const PauseCase& c = GetParam();
    set_card(3, em_matrix_card_offline);
    g_pause_ms = c.pause_ms;
    tav_menu_ctl_set_time_source(irqtest::fake_now, pull_during_pause);
    if (c.switch_all_mode != 0) {
        g_tav_menu = menu_switch_vid_all;
        tav_menu_set_switch_all_mode(c.switch_all_mode);
    }
    tav_matrix_irq_open();
    for (switchtest::Key k : c.keys) {
        key(k);
    }
    ASSERT_EQ(fakematrix::calls_starting(c.commit).size(), 1u);
    ASSERT_TRUE(fakematrix::raise_signal(TAV_MATRIX_SIG_VIDEO_CONNECT, 0));
    EXPECT_TRUE(wait_for(
        [] {
            std::lock_guard<std::recursive_mutex> lk(tav_menu_engine_mutex());
            return g_tav_menu == menu_hot_plug && tav_menu_card_plug_get_status() == 2;
        },
        2000));
    EXPECT_EQ(fakematrix::calls_starting("get_card_information"),
              std::vector<std::string>{"get_card_information(3)"});
    tav_matrix_irq_close();
}

using switchtest::K3;
using switchtest::K6;
using switchtest::RIGHT;
using switchtest::TAKE;
INSTANTIATE_TEST_SUITE_P(
    Pauses, SignalDuringPause,
    ::testing::Values(
        PauseCase{"SwitchConfirmation", 0, {K6, RIGHT, K3, RIGHT}, 1000, "set_video_switch_done"},
        PauseCase{"SwitchAll", 1, {K3, RIGHT, TAKE}, 3000, "set_video_switch_done"}),
    [](const auto& info) { return std::string(info.param.name); });

class Engine : public irqtest::ListenerTest {};

// Wake-ups still in the pipe when the engine is torn down are not dispatched.
TEST_F(Engine, NothingDispatchedAfterTearDown) {
    tav_matrix_irq_open();
    {
        std::lock_guard<std::recursive_mutex> lk(tav_menu_engine_mutex());
        ASSERT_TRUE(fakematrix::raise_signal(TAV_MATRIX_SIG_VIDEO_CONNECT, 0));
        tav_menu_ctl_distory();
    }
    EXPECT_FALSE(wait_for([this] { return !trace().empty(); }, 300));
}

// The receive thread ends by itself at shutdown, with nothing from the panel;
// no descriptor of the program is inherited by a child.
TEST(Shutdown, ReceiveThreadEndsAndDescriptorsCloseOnExec) {
    std::vector<bool> inherited(1024);
    DIR* d = opendir("/proc/self/fd");
    ASSERT_NE(d, nullptr);
    for (dirent* e; (e = readdir(d)) != nullptr;) {
        inherited[static_cast<size_t>(atoi(e->d_name)) % 1024] = true;
    }
    closedir(d);
    fndtest::ensure_port_open();
    set_uart_runflag();
    tav_key_var_init();
    pmatrixDllHandle = tav_matrix_open(TAV_MATRIX_OPEN_VERSION);
    tav_matrix_irq_open();
    ASSERT_EQ(tav_create_thread(), 0);
    d = opendir("/proc/self/fd");
    ASSERT_NE(d, nullptr);
    for (dirent* e; (e = readdir(d)) != nullptr;) {
        const int fd = atoi(e->d_name);
        if (!inherited[static_cast<size_t>(fd) % 1024] && fd != dirfd(d) &&
            fd != tavtest::PanelCapture::get().master_fd()) {
            EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << "descriptor " << fd;
        }
    }
    closedir(d);
    pthread_t rx = g_uart_pthread_id;
    const auto start = std::chrono::steady_clock::now();
    tav_dev_destory();
    struct timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += 2;
    EXPECT_EQ(pthread_timedjoin_np(rx, nullptr, &until), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
}

// A stop during the wait for the matrix core: the start-up step does nothing
// more (no version read, no tables, no listener).
TEST_F(Engine, StopDuringStartupWaitEndsTheStep) {
    fakematrix::reset();
    g_tav_menu_event = EVENT_LOADMAIN;
    tav_menu_ctl_set_time_source(irqtest::fake_now, [](uint32_t) { signal_handle(SIGTERM); });
    tav_menu_control();
    EXPECT_TRUE(trace().empty());
    EXPECT_TRUE(fakematrix::state().calls.empty());
    EXPECT_EQ(g_tav_key_runflag.load(), 0);
}

// A lock change the file cannot keep changes nothing and is not announced.
TEST_F(Engine, LockChangeTheFileCannotKeep) {
    const std::string path = tavtest::PanelCapture::get().root() + "/nandflash/config/.tav_lock_fp";
    mkdir((tavtest::PanelCapture::get().root() + "/nandflash").c_str(), 0755);
    mkdir((tavtest::PanelCapture::get().root() + "/nandflash/config").c_str(), 0755);
    unlink(path.c_str());
    ASSERT_EQ(mkfifo(path.c_str(), 0644), 0); // opens read-write, refuses a positioned write
    g_tav_lock = false;
    tav_update_to_lock(1);
    unlink(path.c_str());
    EXPECT_FALSE(g_tav_lock);
    EXPECT_EQ(g_tav_menu, menu_vid_display);
    EXPECT_TRUE(fakematrix::calls_starting("set_inner_signal_lock_fp_opt").empty());
}

// A device tool that does not end in time counts as one that printed nothing.
TEST(ShellRunner, ToolOutputAndTimeOut) {
    fndtest::LogFile log;
    char line[32] = "old";
    EXPECT_EQ(tav_btool_run("echo 1.2.3; echo 4", line, sizeof line, 2000), 0);
    EXPECT_STREQ(line, "1.2.3\n");
    strcpy(line, "old");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(tav_btool_run("echo early; exec sleep 30", line, sizeof line, 200), -1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
    EXPECT_STREQ(line, "old");
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(
        log.lines()[0].rfind("12\tfunc=[tav_btool_run]echo early; exec sleep 30 timed out", 0), 0u)
        << log.lines()[0];
}

} // namespace
