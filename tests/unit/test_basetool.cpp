// Millisecond stamps across the 32-bit wrap, and the shell runner.
#include <gtest/gtest.h>

#include <csignal>

#include "foundation_support.h"
#include "tav_basetool.h"

namespace {

struct WrapCase {
    time_t sec0;
    suseconds_t usec0;
    time_t sec1;
    suseconds_t usec1;
    uint32_t diff;
};

class StampDifference : public ::testing::TestWithParam<WrapCase> {};

TEST_P(StampDifference, IsTheElapsedTimeEvenAcrossTheWrap) {
    const WrapCase& c = GetParam();
    struct timeval a {
        c.sec0, c.usec0
    };
    struct timeval b {
        c.sec1, c.usec1
    };
    EXPECT_EQ(static_cast<uint32_t>(tav_btool_stamp_of(&b) - tav_btool_stamp_of(&a)), c.diff);
}

// 4294967.296 s is 2^32 ms.
INSTANTIATE_TEST_SUITE_P(
    Wrap, StampDifference,
    ::testing::Values(WrapCase{100, 0, 101, 500000, 1500},
                      WrapCase{4294966, 500000, 4294968, 0, 1500},   // across the wrap
                      WrapCase{4294967, 296000, 4294967, 297999, 1}, // right at it
                      WrapCase{8589933, 0, 8589934, 999999, 1999},   // the second wrap
                      WrapCase{1763856000, 123456, 1763856001, 123000, 1000}));

TEST(ShellRunner, SuccessLogsNothing) {
    fndtest::LogFile log;
    EXPECT_EQ(tav_btool_system("exit 0"), 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST(ShellRunner, FailureReturnsTheWaitStatusAndLogsOneLine) {
    fndtest::LogFile log;
    EXPECT_EQ(tav_btool_system("exit 1"), 256);
    auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].rfind("11\tfunc=[tav_btool_system]system exit 1 error(", 0), 0u) << lines[0];
}

TEST(ShellRunner, CollectsItsChildEvenWhenChildrenAreIgnored) {
    struct sigaction ign;
    struct sigaction old;
    memset(&ign, 0, sizeof ign);
    ign.sa_handler = SIG_IGN;
    sigaction(SIGCHLD, &ign, &old);
    fndtest::LogFile log;
    EXPECT_EQ(tav_btool_system("exit 3"), 3 << 8);
    struct sigaction now;
    sigaction(SIGCHLD, nullptr, &now);
    EXPECT_EQ(now.sa_handler, SIG_IGN);
    sigaction(SIGCHLD, &old, nullptr);
}

} // namespace
