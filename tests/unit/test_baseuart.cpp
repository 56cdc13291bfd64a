// The serial layer on a real pseudo-terminal linked as line 8 (/dev/ttyPSC7).
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <termios.h>
#include <thread>
#include <utility>

#include "foundation_support.h"
#include "tav_baseuart.h"

namespace {

class BaseUart : public ::testing::Test {
  protected:
    void SetUp() override {
        link_ = tavtest::PanelCapture::get().root() + "/dev/ttyPSC7";
        master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        ASSERT_GE(master_, 0);
        ASSERT_EQ(grantpt(master_), 0);
        ASSERT_EQ(unlockpt(master_), 0);
        unlink(link_.c_str());
        ASSERT_EQ(symlink(ptsname(master_), link_.c_str()), 0);
        ASSERT_EQ(tav_buart_open(8, &fd_), 0);
        ASSERT_GE(fd_, 0);
    }
    void TearDown() override {
        if (fd_ >= 0) {
            tav_buart_close(fd_);
        }
        close(master_);
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
    void master_write(const char* s) {
        ssize_t n = write(master_, s, strlen(s));
        (void)n;
    }
    std::string link_;
    int master_ = -1;
    int fd_ = -1;
};

TEST_F(BaseUart, OpenValidatesArguments) {
    int fd = 123;
    EXPECT_EQ(tav_buart_open(0, &fd), -1);
    EXPECT_EQ(fd, -1);
    EXPECT_EQ(tav_buart_open(1, nullptr), -1);
    fd = 123;
    EXPECT_EQ(tav_buart_open(9, &fd), -2); // no /dev/ttyPSC8
    EXPECT_EQ(fd, -1);
    EXPECT_EQ(tav_buart_close(-1), -1);
}

// A text leaves the line exactly as the record it stands for, or fails at the
// same step (a pseudo-terminal refuses some modes).
struct ParamCase {
    const char* text;
    TAV_STRUCT_UART_PARAM record;
};

class ParamText : public BaseUart, public ::testing::WithParamInterface<ParamCase> {};

TEST_P(ParamText, SetsTheLineLikeItsRecord) {
    const ParamCase& c = GetParam();
    ASSERT_EQ(set("9600;N;8;2;"), 0);
    int by_text = set(c.text);
    struct termios a = attrs();
    ASSERT_EQ(set("9600;N;8;2;"), 0);
    int by_record = tav_buart_set_param(fd_, c.record);
    struct termios b = attrs();
    EXPECT_EQ(by_text, by_record);
    EXPECT_EQ(a.c_cflag, b.c_cflag);
    EXPECT_EQ(a.c_iflag, b.c_iflag);
    EXPECT_EQ(a.c_lflag, b.c_lflag);
    EXPECT_EQ(cfgetospeed(&a), cfgetospeed(&b));
}

constexpr auto N = em_uart_param_parity_N, O = em_uart_param_parity_O, E = em_uart_param_parity_E,
               S = em_uart_param_parity_S;
constexpr auto D7 = em_uart_param_databits_7, D8 = em_uart_param_databits_8;
constexpr auto S1 = em_uart_param_stopbits_1, S2 = em_uart_param_stopbits_2;

INSTANTIATE_TEST_SUITE_P(Texts, ParamText,
                         ::testing::Values(ParamCase{"19200;N;8;1;", {19200, N, D8, S1}},
                                           ParamCase{"19200;n;8;1", {19200, N, D8, S1}},
                                           ParamCase{"4800;;8;1;", {4800, N, D8, S1}},
                                           ParamCase{"19200;X;9;3;", {19200, N, D7, S2}},
                                           ParamCase{"57600;o;8;2;", {57600, O, D8, S2}},
                                           ParamCase{"19200;E;7;1;x;y", {19200, E, D7, S1}},
                                           ParamCase{"19200;s;8;1;", {19200, S, D8, S1}}));

TEST_F(BaseUart, PanelTextGivesRaw19200With8N1) {
    ASSERT_EQ(set("19200;N;8;1;"), 0);
    struct termios t = attrs();
    EXPECT_EQ(t.c_cflag & (CSIZE | PARENB | CSTOPB), static_cast<tcflag_t>(CS8));
    EXPECT_EQ(cfgetospeed(&t), static_cast<speed_t>(B19200));
    EXPECT_EQ(cfgetispeed(&t), static_cast<speed_t>(B19200));
    EXPECT_EQ(t.c_iflag & (INPCK | ICRNL | IXON), 0u);
    EXPECT_EQ(t.c_lflag & (ICANON | ECHO | ISIG), 0u);
    EXPECT_EQ(t.c_oflag & OPOST, 0u);
    EXPECT_EQ(t.c_cflag & (CLOCAL | CREAD), static_cast<tcflag_t>(CLOCAL | CREAD));
}

TEST_F(BaseUart, ShortTextsStopBeforeApplyingAnything) {
    ASSERT_EQ(set("9600;N;8;2;"), 0);
    struct termios before = attrs();
    EXPECT_EQ(set("19200"), 3);
    EXPECT_EQ(set("19200;N"), 4);
    EXPECT_EQ(set("19200;N;8"), 5);
    EXPECT_EQ(tav_buart_set_param_string(fd_, nullptr), 1);
    char txt[] = "19200;N;8;1;";
    EXPECT_EQ(tav_buart_set_param_string(-1, txt), 1);
    struct termios after = attrs();
    EXPECT_EQ(after.c_cflag, before.c_cflag);
    EXPECT_EQ(cfgetospeed(&after), static_cast<speed_t>(B9600));
}

TEST_F(BaseUart, SettersRejectValuesOutsideTheirEnumeration) {
    ASSERT_EQ(set("19200;N;8;2;"), 0);
    struct termios before = attrs();
    EXPECT_EQ(tav_buart_set_parity(fd_, static_cast<TAV_ENUM_UART_PARAM_PARITY>(4)), -2);
    EXPECT_EQ(tav_buart_set_databits(fd_, static_cast<TAV_ENUM_UART_PARAM_DATABITS>(9)), -2);
    EXPECT_EQ(tav_buart_set_stopbits(fd_, static_cast<TAV_ENUM_UART_PARAM_STOPBITS>(3)), -2);
    EXPECT_EQ(attrs().c_cflag, before.c_cflag);
    EXPECT_EQ(tav_buart_set_parity(-1, em_uart_param_parity_N), -1);
    EXPECT_EQ(tav_buart_set_other(-1), -1);
    EXPECT_EQ(tav_buart_set_speed(-1, 9600), -1);
}

TEST_F(BaseUart, SetParamReportsTheFailingStep) {
    TAV_STRUCT_UART_PARAM p{19200, em_uart_param_parity_N, em_uart_param_databits_8,
                            em_uart_param_stopbits_1};
    EXPECT_EQ(tav_buart_set_param(fd_, p), 0);
    p.em_stopbits = static_cast<TAV_ENUM_UART_PARAM_STOPBITS>(0);
    EXPECT_EQ(tav_buart_set_param(fd_, p), -3);
    p.em_stopbits = em_uart_param_stopbits_1;
    p.em_parity = static_cast<TAV_ENUM_UART_PARAM_PARITY>(7);
    EXPECT_EQ(tav_buart_set_param(fd_, p), -4);
    p.em_databits = static_cast<TAV_ENUM_UART_PARAM_DATABITS>(5);
    EXPECT_EQ(tav_buart_set_param(fd_, p), -2);
}

TEST_F(BaseUart, SpeedTableAndCustomDivisor) {
    struct termios t;
    for (auto [baud, code] : {std::pair{0, B0}, std::pair{115200, B115200}}) {
        EXPECT_EQ(tav_buart_set_speed(fd_, baud), 0);
        t = attrs();
        EXPECT_EQ(cfgetospeed(&t), static_cast<speed_t>(code));
    }
    // A pseudo-terminal has no divisor: the line is left at B38400.
    fndtest::LogFile log;
    EXPECT_EQ(tav_buart_set_speed(fd_, 12345), -150);
    t = attrs();
    EXPECT_EQ(cfgetospeed(&t), static_cast<speed_t>(B38400));
    auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].rfind("11\tfunc=[tav_buart_set_speed]ioctl  Get configurations  error(", 0),
              0u)
        << lines[0];
}

TEST_F(BaseUart, NonBlockingAndTimedReadsReturnZeroWithNothingWaiting) {
    char buf[16];
    ASSERT_EQ(set("19200;N;8;1;"), 0);
    ASSERT_EQ(tav_buart_set_block(fd_, false), 0);
    EXPECT_EQ(tav_buart_read_bytes(fd_, buf, sizeof buf), 0);
    master_write("abc");
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(tav_buart_read_bytes(fd_, buf, sizeof buf), 3);
    EXPECT_EQ(tav_buart_read_bytes(-1, buf, sizeof buf), -1);
    // The timed read: nothing within the time, then the waiting byte.
    EXPECT_EQ(tav_buart_blockread_bytes(fd_, buf, sizeof buf, 50), 0);
    master_write("q");
    EXPECT_EQ(tav_buart_blockread_bytes(fd_, buf, sizeof buf, 500), 1);
    EXPECT_EQ(buf[0], 'q');
}

TEST_F(BaseUart, BlockingReadWaitsForTheFirstByte) {
    ASSERT_EQ(set("19200;N;8;1;"), 0);
    ASSERT_EQ(tav_buart_set_block(fd_, true), 0);
    EXPECT_EQ(fcntl(fd_, F_GETFL) & O_NONBLOCK, 0);
    auto start = std::chrono::steady_clock::now();
    std::thread writer([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        master_write("xy");
    });
    char buf[16];
    int n = tav_buart_read_bytes(fd_, buf, sizeof buf);
    auto waited = std::chrono::steady_clock::now() - start;
    writer.join();
    EXPECT_EQ(n, 2);
    EXPECT_GE(waited, std::chrono::milliseconds(100));
}

} // namespace
