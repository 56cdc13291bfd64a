// The base modules against real second processes and pseudo-terminals:
// millisecond stamps and the shell runner, the serial layer, PID files, and
// the start-up and shutdown of the panel link.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <set>
#include <thread>

#include "menu_fixture.h"
#include "tav_basetool.h"
#include "tav_baseportcontrol.h"
#include "tav_baseuart.h"
#include "tav_keyboard.h"
#include "tav_lcd.h"
#include "tav_menu_control.h"
#include "tav_menu_listen_irq.h"
#include "tav_led.h"
#include "tav_pid_file.h"
#include "tav_uart_com.h"

using namespace std::chrono_literals;
using mtest::fresh_log;
using mtest::log_lines;
using mtest::root;
using ::testing::Contains;

namespace {

// A pseudo-terminal of the test's own.
struct Pty {
    Pty() {
        master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        grantpt(master);
        unlockpt(master);
        slave = ptsname(master);
    }
    ~Pty() { close(master); }
    int master = -1;
    std::string slave;
};

TEST(BaseTool, StampDifferenceIsTheElapsedTimeAcrossTheWrap) {
    // Two times as {seconds, microseconds}, the milliseconds between them;
    // 4294967.296 s is 2^32 ms.
    using Tv = struct timeval;
    const std::tuple<Tv, Tv, uint32_t> cases[] = {{{100, 0}, {101, 500000}, 1500},
                                                  {{4294966, 500000}, {4294968, 0}, 1500},
                                                  {{4294967, 296000}, {4294967, 297999}, 1},
                                                  {{8589933, 0}, {8589934, 999999}, 1999}};
    for (auto [a, b, diff] : cases) {
        EXPECT_EQ(static_cast<uint32_t>(tav_btool_stamp_of(&b) - tav_btool_stamp_of(&a)), diff);
    }
}

TEST(BaseTool, ShellRunnerStatusLogAndIgnoredChildren) {
    tavtest::PanelCapture::get();
    fresh_log();
    EXPECT_EQ(tav_btool_system("exit 0"), 0);
    EXPECT_TRUE(log_lines().empty());
    EXPECT_EQ(tav_btool_system("exit 1"), 256);
    ASSERT_EQ(log_lines().size(), 1u);
    EXPECT_EQ(log_lines()[0].rfind("11\tfunc=[tav_btool_system]system exit 1 error(", 0), 0u);
    // Collects its child even when children are ignored, and leaves that so.
    struct sigaction ign {};
    struct sigaction old {};
    ign.sa_handler = SIG_IGN;
    sigaction(SIGCHLD, &ign, &old);
    EXPECT_EQ(tav_btool_system("exit 3"), 3 << 8);
    struct sigaction now {};
    sigaction(SIGCHLD, &old, &now);
    EXPECT_EQ(now.sa_handler, SIG_IGN);
    // A tool that does not end in time counts as one that printed nothing,
    // unless its whole first line came before; one that printed its line and
    // left a child holding its output is not waited for.
    struct Run {
        const char* cmd;
        int result;
        const char* line;
        size_t logged;
    };
    for (const Run& r : {Run{"printf early; exec sleep 30", -1, "old", 1},
                         Run{"echo early; exec sleep 30", 0, "early\n", 1},
                         Run{"echo early; sleep 5 2>/dev/null & exit 0", 0, "early\n", 0}}) {
        char line[32] = "old";
        fresh_log();
        EXPECT_EQ(tav_btool_run(r.cmd, line, sizeof line, 200), r.result) << r.cmd;
        EXPECT_STREQ(line, r.line) << r.cmd;
        ASSERT_EQ(log_lines().size(), r.logged) << r.cmd;
        if (r.logged != 0) {
            EXPECT_EQ(log_lines()[0].find("12\tfunc=[tav_btool_run]"), 0u);
            EXPECT_NE(log_lines()[0].find("timed out after 200 ms"), std::string::npos);
        }
    }
    unsetenv("TAV_SYSLOG_FILE");
}

// The serial layer on a pseudo-terminal linked as line 8 (/dev/ttyPSC7).
class BaseUart : public ::testing::Test {
  protected:
    void SetUp() override {
        unlink(link_.c_str());
        ASSERT_EQ(symlink(pty_.slave.c_str(), link_.c_str()), 0);
        ASSERT_EQ(tav_buart_open(8, &fd_), 0);
    }
    void TearDown() override {
        tav_buart_close(fd_);
        unlink(link_.c_str());
    }
    struct termios attrs() const {
        struct termios t {};
        tcgetattr(fd_, &t);
        return t;
    }
    int set(const char* text) {
        char buf[64];
        snprintf(buf, sizeof buf, "%s", text);
        return tav_buart_set_param_string(fd_, buf);
    }
    Pty pty_;
    std::string link_ = root() + "/dev/ttyPSC7";
    int fd_ = -1;
};

// A text leaves the line exactly as the record it stands for, or fails at the
// same step; short texts stop before applying anything.
TEST_F(BaseUart, ParameterTextsSetTheLineLikeTheirRecord) {
    constexpr auto N = em_uart_param_parity_N, O = em_uart_param_parity_O,
                   E = em_uart_param_parity_E, S = em_uart_param_parity_S;
    constexpr auto D7 = em_uart_param_databits_7, D8 = em_uart_param_databits_8;
    constexpr auto S1 = em_uart_param_stopbits_1, S2 = em_uart_param_stopbits_2;
    const std::pair<const char*, TAV_STRUCT_UART_PARAM> cases[] = {
        {"4800;;8;1;", {4800, N, D8, S1}},
        {"19200;X;9;3;", {19200, N, D7, S2}},
        {"57600;o;8;2;", {57600, O, D8, S2}},
        {"19200;E;7;1;x;y", {19200, E, D7, S1}},
        {"19200;s;8;1;", {19200, S, D8, S1}}};
    for (const auto& [txt, record] : cases) {
        ASSERT_EQ(set("9600;N;8;2;"), 0);
        const int by_text = set(txt);
        const struct termios a = attrs();
        ASSERT_EQ(set("9600;N;8;2;"), 0);
        EXPECT_EQ(by_text, tav_buart_set_param(fd_, record)) << txt;
        const struct termios b = attrs();
        EXPECT_EQ(a.c_cflag, b.c_cflag) << txt;
        EXPECT_EQ(a.c_iflag, b.c_iflag) << txt;
        EXPECT_EQ(cfgetospeed(&a), cfgetospeed(&b)) << txt;
    }
    ASSERT_EQ(set("19200;N;8;1;"), 0);
    struct termios t = attrs();
    EXPECT_EQ(t.c_cflag & (CSIZE | PARENB | CSTOPB | CLOCAL | CREAD),
              static_cast<tcflag_t>(CS8 | CLOCAL | CREAD));
    EXPECT_EQ(cfgetispeed(&t), static_cast<speed_t>(B19200));
    EXPECT_EQ(t.c_iflag & (INPCK | ICRNL | IXON), 0u);
    EXPECT_EQ(t.c_lflag & (ICANON | ECHO | ISIG), 0u);
    EXPECT_EQ(t.c_oflag & OPOST, 0u);
    EXPECT_EQ(set("19200"), 3);
    EXPECT_EQ(set("19200;N"), 4);
    EXPECT_EQ(set("9600;N;8"), 5);
    EXPECT_EQ(tav_buart_set_param_string(fd_, nullptr), 1);
    t = attrs();
    EXPECT_EQ(cfgetospeed(&t), static_cast<speed_t>(B19200));
}

// Refusals leave the line as it was; speed 0 is a row of the table (B0); a
// speed without a row goes the custom-divisor way, which a pseudo-terminal's
// driver refuses after B38400 is set; an empty non-blocking read is 0.
TEST_F(BaseUart, EdgesOfTheLine) {
    int fd = 5;
    EXPECT_EQ(tav_buart_open(0, &fd), -1);
    EXPECT_EQ(fd, -1);
    EXPECT_EQ(tav_buart_open(1, nullptr), -1);
    // Descriptor 0 is a descriptor like any other (a program started
    // without standard input).
    const int in = dup(0);
    close(0);
    EXPECT_EQ(tav_buart_open(8, &fd), 0);
    EXPECT_EQ(fd, 0);
    char text[] = "19200;N;8;1;";
    EXPECT_EQ(tav_buart_set_param_string(0, text), 0);
    dup2(in, 0);
    close(in);
    ASSERT_EQ(set("9600;O;8;2;"), 0);
    const struct termios before = attrs();
    EXPECT_EQ(tav_buart_set_parity(fd_, static_cast<TAV_ENUM_UART_PARAM_PARITY>(4)), -2);
    EXPECT_EQ(tav_buart_set_databits(fd_, static_cast<TAV_ENUM_UART_PARAM_DATABITS>(9)), -2);
    EXPECT_EQ(tav_buart_set_stopbits(fd_, static_cast<TAV_ENUM_UART_PARAM_STOPBITS>(3)), -2);
    EXPECT_EQ(attrs().c_cflag, before.c_cflag);
    EXPECT_EQ(attrs().c_iflag, before.c_iflag);
    EXPECT_EQ(tav_buart_set_speed(fd_, 0), 0);
    EXPECT_EQ(cfgetospeed(&static_cast<const struct termios&>(attrs())), static_cast<speed_t>(B0));
    fresh_log();
    EXPECT_EQ(tav_buart_set_speed(fd_, 12345), -150);
    EXPECT_EQ(cfgetospeed(&static_cast<const struct termios&>(attrs())),
              static_cast<speed_t>(B38400));
    ASSERT_EQ(log_lines().size(), 1u);
    EXPECT_EQ(
        log_lines()[0].rfind("11\tfunc=[tav_buart_set_speed]ioctl  Get configurations  error(", 0),
        0u);
    unsetenv("TAV_SYSLOG_FILE");
    ASSERT_EQ(tav_buart_set_block(fd_, false), 0);
    char buf[8];
    EXPECT_EQ(tav_buart_read_bytes(fd_, buf, sizeof buf), 0);
    EXPECT_EQ(tav_buart_read_bytes(-1, buf, sizeof buf), -1);
    int p[2]; // a descriptor whose empty read would block (EAGAIN)
    ASSERT_EQ(pipe2(p, O_NONBLOCK), 0);
    EXPECT_EQ(tav_buart_read_bytes(p[0], buf, sizeof buf), 0);
    close(p[0]);
    close(p[1]);
}

// PID files and the start-up wait on another process's lock.
class PidFile : public ::testing::Test {
  protected:
    void SetUp() override {
        tavtest::PanelCapture::get();
        fresh_log();
        unlink(own_.c_str());
    }
    void TearDown() override { unsetenv("TAV_SYSLOG_FILE"); }
    static std::string pid_path(const std::string& name) {
        return root() + "/var/run/" + name + ".pid";
    }
    std::string own_ = pid_path(program_invocation_short_name);
};

TEST_F(PidFile, WritesTheBinaryPidAndWaitsOnlyForAHeldLock) {
    int fd = tav_pidf_open("tav_no_such_dep");
    ASSERT_GE(fd, 0);
    EXPECT_THAT(log_lines(),
                Contains("11\tfunc=[tav_pidf_wait_depend]open depend " +
                         pid_path("tav_no_such_dep") + ",err:No such file or directory"));
    std::ifstream in(own_, std::ios::binary);
    const pid_t self = getpid(); // in machine byte order
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}),
              std::string(reinterpret_cast<const char*>(&self), sizeof self));
    const int again = tav_pidf_open("tav_no_such_dep"); // locks are per process
    EXPECT_GE(again, 0);
    tav_pidf_close(again);
    tav_pidf_close(fd);
    // A file nobody locks: no wait.
    close(open(pid_path("tav_stale_dep").c_str(), O_RDWR | O_CREAT, 0644));
    EXPECT_EQ(tav_pidf_wait_depend("tav_stale_dep"), 0);
    EXPECT_THAT(log_lines(), Contains("13\tfunc=[tav_pidf_wait_depend]get lock stat 0,pid=0"));
    EXPECT_EQ(tav_pidf_wait_depend(nullptr), -1);
}

TEST_F(PidFile, SecondInstanceIsRefusedAtOnce) {
    mtest::LockHolder first(own_);
    ASSERT_TRUE(first.locked());
    EXPECT_EQ(tav_pidf_open("tav_no_such_dep"), -1);
    const auto lines = log_lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].rfind("11\tfunc=[tav_pidf_lock]lock err:", 0), 0u);
    EXPECT_EQ(lines[1], "13\tfunc=[tav_pidf_open]have lock by " + std::to_string(first.pid()));
}

// Start-up and shutdown of the panel link: the port is closed once, nothing
// is written afterwards, descriptors are not inherited, and a stop signal
// interrupts the start-up wait.
// Descriptors the test process was started with.
const std::set<int> g_inherited = [] {
    std::set<int> fds;
    for (const auto& e : std::filesystem::directory_iterator("/proc/self/fd"))
        fds.insert(std::stoi(e.path().filename()));
    return fds;
}();

class ThreadsLifecycle : public ::testing::Test {
  protected:
    void SetUp() override {
        tavtest::PanelCapture::get();
        tavtest::reopen_port();
        tav_hardkey_init();
        set_uart_runflag();
        tav_key_var_init();
        tav_comint();
        cap().clear();
    }
    void TearDown() override {
        setenv("TAV_ROOT", root().c_str(), 1);
        unsetenv("TAV_SYSLOG_FILE");
        tavtest::reopen_port();
        cap().clear();
    }
    static tavtest::PanelCapture& cap() { return tavtest::PanelCapture::get(); }
};

TEST_F(ThreadsLifecycle, ShutdownTwiceClosesOnceAndSendsNothingAfterwards) {
    tav_dev_destory();
    EXPECT_FALSE(tav_port_is_open());
    tav_dev_destory();
    EXPECT_EQ(g_tav_key_runflag.load(), 0);
    EXPECT_EQ(g_tav_uart_runflag.load(), 0);
    tav_sys_hardmint();
    tav_display_led_all_on();
    tav_back_err(0, 0xF7);
    EXPECT_TRUE(cap().take_hex().empty());
    // Without a device the port does not open.
    setenv("TAV_ROOT", (root() + "/nowhere").c_str(), 1);
    EXPECT_EQ(tav_base_port_open(), 1);
}

// No descriptor of the program (the port, the listener's pipe, the PID
// file) is inherited by the device tools.
TEST_F(ThreadsLifecycle, DescriptorsAreClosedOnExec) {
    tav_matrix_irq_open();
    const int pid_fd = tav_pidf_open("tav_no_such_dep");
    for (const auto& e : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int fd = std::stoi(e.path().filename());
        if (g_inherited.count(fd) == 0 && fcntl(fd, F_GETFD) >= 0) {
            EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << "descriptor " << fd;
        }
    }
    tav_pidf_close(pid_fd);
    tav_matrix_irq_close();
}

TEST_F(ThreadsLifecycle, StopSignalInterruptsTheDependencyWait) {
    mtest::LockHolder holder(root() + "/var/run/tav_sig_dep.pid");
    ASSERT_TRUE(holder.locked());
    fresh_log();
    const int others[] = {SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2, SIGPIPE, SIGALRM, SIGTSTP};
    struct sigaction dfl {
    }, started[7];
    dfl.sa_handler = SIG_DFL;
    for (int i = 0; i < 7; ++i) // a shell may have started the tests with some ignored
        sigaction(others[i], &dfl, &started[i]);
    tav_install_signal_handlers();
    for (int i = 0; i < 7; ++i) {
        struct sigaction now {};
        sigaction(others[i], &started[i], &now);
        EXPECT_EQ(now.sa_handler, SIG_DFL) << "signal " << others[i] << " keeps its default";
    }
    const pthread_t self = pthread_self();
    std::atomic<bool> returned{false};
    // Until the wait has returned: a signal that lands before the wait
    // starts is followed by one that interrupts it.
    std::thread killer([&] {
        while (!returned.load()) {
            pthread_kill(self, SIGTERM);
            std::this_thread::sleep_for(20ms);
        }
    });
    const int fd = tav_pidf_open("tav_sig_dep");
    returned = true;
    killer.join();
    signal(SIGTERM, SIG_DFL);
    signal(SIGINT, SIG_DFL);
    tav_pidf_close(fd);
    EXPECT_EQ(g_tav_key_runflag.load(), 0);
    EXPECT_EQ(g_tav_uart_runflag.load(), 0);
    EXPECT_THAT(log_lines(), Contains("11\tfunc=[tav_pidf_lock]lock err:Interrupted system call"));
}

} // namespace
