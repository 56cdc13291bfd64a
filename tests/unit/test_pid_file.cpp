// PID files and the start-up wait on another process's lock, against real
// second processes.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <string>

#include "foundation_support.h"
#include "tav_pid_file.h"

namespace {

using Clock = std::chrono::steady_clock;
using fndtest::LockHolder;

std::string run_dir() {
    return tavtest::PanelCapture::get().root() + "/var/run/";
}
std::string pid_path(const char* name) {
    return run_dir() + name + ".pid";
}

class PidFile : public ::testing::Test {
  protected:
    void SetUp() override {
        tavtest::PanelCapture::get();
        unlink(own_.c_str());
    }
    bool has_line(const std::string& line) const {
        const auto lines = log_.lines();
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }
    std::string own_ = pid_path(program_invocation_short_name);
    fndtest::LogFile log_;
};

TEST_F(PidFile, WithoutDependencyFileItLogsAndWritesTheBinaryPid) {
    const std::string dep = pid_path("tav_no_such_dep");
    int fd = tav_pidf_open("tav_no_such_dep");
    ASSERT_GE(fd, 0);
    EXPECT_TRUE(has_line("11\tfunc=[tav_pidf_wait_depend]open depend " + dep +
                         ",err:No such file or directory"));
    int in = open(own_.c_str(), O_RDONLY);
    ASSERT_GE(in, 0);
    unsigned char raw[8];
    ASSERT_EQ(read(in, raw, sizeof raw), 4);
    close(in);
    pid_t stored;
    memcpy(&stored, raw, sizeof stored);
    EXPECT_EQ(stored, getpid()); // machine byte order
    tav_pidf_close(fd);
}

TEST_F(PidFile, StaleDependencyFileDoesNotWait) {
    const std::string dep = pid_path("tav_stale_dep");
    close(open(dep.c_str(), O_RDWR | O_CREAT, 0644));
    auto start = Clock::now();
    EXPECT_EQ(tav_pidf_wait_depend("tav_stale_dep"), 0);
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(200));
    EXPECT_TRUE(has_line("13\tfunc=[tav_pidf_wait_depend]get lock stat 0,pid=0"));
    EXPECT_EQ(tav_pidf_wait_depend(nullptr), -1);
}

TEST_F(PidFile, OpenReturnsOnlyAfterTheDependencyReleasesItsLock) {
    const std::string dep = pid_path("tav_held_dep");
    LockHolder holder(dep, 400);
    ASSERT_TRUE(holder.locked());
    auto start = Clock::now();
    int fd = tav_pidf_open("tav_held_dep");
    auto waited = Clock::now() - start;
    EXPECT_GE(fd, 0);
    EXPECT_GE(waited, std::chrono::milliseconds(300));
    EXPECT_TRUE(has_line("13\tfunc=[tav_pidf_wait_depend]get lock stat 1,pid=" +
                         std::to_string(holder.pid())));
    tav_pidf_close(fd);
}

TEST_F(PidFile, SecondInstanceIsRefusedAtOnce) {
    LockHolder first(own_, 5000);
    ASSERT_TRUE(first.locked());
    auto start = Clock::now();
    EXPECT_EQ(tav_pidf_open("tav_no_such_dep"), -1);
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(500));
    auto lines = log_.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].rfind("11\tfunc=[tav_pidf_lock]lock err:", 0), 0u) << lines[0];
    EXPECT_EQ(lines[1], "13\tfunc=[tav_pidf_open]have lock by " + std::to_string(first.pid()));
}

TEST_F(PidFile, QueriesAndFailuresOfTheLockCalls) {
    // Locks belong to the process: a second open of its own file succeeds.
    int a = tav_pidf_open(nullptr);
    int b = tav_pidf_open(nullptr);
    EXPECT_GE(b, 0);
    EXPECT_EQ(tav_pidf_get_lock(a, nullptr), 0);
    tav_pidf_close(b);
    tav_pidf_close(a);

    LockHolder holder(pid_path("tav_query_dep"), 5000);
    ASSERT_TRUE(holder.locked());
    int fd = open(pid_path("tav_query_dep").c_str(), O_RDWR);
    pid_t who = 0;
    EXPECT_EQ(tav_pidf_get_lock(fd, &who), 1);
    EXPECT_EQ(who, holder.pid());
    EXPECT_EQ(tav_pidf_lock(fd, 1), -1);
    close(fd);
    EXPECT_EQ(tav_pidf_get_lock(-1, &who), -1);
    tav_pidf_close(-1); // logs the unlock failure, nothing else
    EXPECT_TRUE(has_line("11\tfunc=[tav_pidf_get_lock]fcntl F_GETLK:Bad file descriptor"));
    EXPECT_TRUE(has_line("11\tfunc=[tav_pidf_unlock]lock err:Bad file descriptor"));
}

} // namespace
