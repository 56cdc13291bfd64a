// The program's panel link end to end: the real program against the panel
// emulator, without the matrix core.
#include <gtest/gtest.h>
#include <signal.h>

#include <string>
#include <thread>
#include <vector>

#include "e2e_harness.h"

using namespace tave2e;
using Bytes = std::vector<uint8_t>;

namespace {

const std::string kHandshake = "EB 5F 21 02 00 00 0F";
const std::string kErrorReply = "EB 5F 00 01 F7 A5";

std::vector<double> handshake_times(const tavpanel::PanelEmulator& p) {
    std::vector<double> t;
    for (const auto& f : p.frames()) {
        if (tavpanel::hex(f.bytes) == kHandshake) {
            t.push_back(f.t);
        }
    }
    return t;
}

// Starts the program against a silent panel and waits for its first handshake,
// so the port is open and the receive thread reads.
void start_until_handshake(Sandbox& sb) {
    ASSERT_TRUE(sb.start_program());
    ASSERT_TRUE(sb.panel().wait_peer_open(5s)) << "the program never opened the port";
    ASSERT_TRUE(sb.panel().wait_handshakes(1, 10s)) << "no handshake";
}

TEST(E2eLink, SilentPanelGetsAHandshakeEverySecond) {
    Sandbox sb({.silent_panel = true});
    start_until_handshake(sb);
    std::this_thread::sleep_for(5200ms);
    const auto t = handshake_times(sb.panel());
    ASSERT_GE(t.size(), 5u);
    ASSERT_LE(t.size(), 7u);
    for (size_t i = 1; i < t.size(); ++i) {
        const double gap = t[i] - t[i - 1];
        EXPECT_GT(gap, 0.8) << "handshake " << i;
        EXPECT_LT(gap, 1.4) << "handshake " << i;
    }
    // Nothing but handshakes goes to a panel that never answered.
    for (const auto& f : sb.panel().frames()) {
        EXPECT_EQ(tavpanel::hex(f.bytes), kHandshake);
    }
    EXPECT_TRUE(sb.program_running());
}

TEST(E2eLink, AnsweredHandshakeIsNotRepeated) {
    Sandbox sb;
    start_until_handshake(sb);
    std::this_thread::sleep_for(3s);
    EXPECT_LE(sb.panel().handshakes(), 2u);
}

class E2eLinkSignal : public ::testing::TestWithParam<int> {};

TEST_P(E2eLinkSignal, EndsWithStatusOneAndClosesThePortOnce) {
    Sandbox sb({.silent_panel = true});
    start_until_handshake(sb);
    ASSERT_TRUE(sb.signal_program(GetParam()));
    const auto st = sb.wait_program_exit(5s);
    ASSERT_TRUE(st.has_value()) << "still running 5 s after the signal";
    EXPECT_EQ(*st, 1);
    ASSERT_TRUE(sb.panel().wait_peer_closed(2s));
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(sb.panel().peer_opens(), 1u);
    EXPECT_EQ(sb.panel().peer_closes(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Signals, E2eLinkSignal, ::testing::Values(SIGTERM, SIGINT),
                         [](const auto& info) {
                             return info.param == SIGTERM ? "SIGTERM" : "SIGINT";
                         });

TEST(E2eLink, NoSerialDeviceEndsAfterOneSecond) {
    Sandbox sb({.start_panel = false});
    ASSERT_TRUE(sb.start_program());
    const auto st = sb.wait_program_exit(5s);
    ASSERT_TRUE(st.has_value());
    EXPECT_EQ(*st, 1);
    EXPECT_GT(sb.program_run_time(), 0.9);
    EXPECT_LT(sb.program_run_time(), 2.5);
    std::string line;
    ASSERT_TRUE(sb.wait_syslog("Front panel Err", 1s, &line));
    EXPECT_EQ(line, "15\tfunc=[tav_base_port_open]Front panel Err .Start Uart Err.");
}

struct BadFrame {
    const char* name;
    Bytes bytes;
    std::vector<size_t> cuts; // split the write here
    size_t replies;           // error replies expected
};

class E2eLinkBadFrame : public ::testing::TestWithParam<BadFrame> {};

TEST_P(E2eLinkBadFrame, ErrorReplyOnlyWhereDue) {
    const BadFrame& c = GetParam();
    Sandbox sb({.silent_panel = true});
    start_until_handshake(sb);
    // The receive thread discards what is pending when it starts, which may
    // be after the first handshake went out: send after the second.
    ASSERT_TRUE(sb.panel().wait_handshakes(2, 3s));
    sb.panel().send_split(c.bytes, c.cuts, 30ms);
    if (c.replies > 0) {
        ASSERT_TRUE(sb.panel().wait_error_replies(c.replies, 3s));
    }
    std::this_thread::sleep_for(500ms);
    EXPECT_EQ(sb.panel().error_replies(), c.replies);
    for (const auto& f : sb.panel().frames()) {
        if (f.kind == tavpanel::FrameKind::error_reply) {
            EXPECT_EQ(tavpanel::hex(f.bytes), kErrorReply);
        }
    }
    EXPECT_TRUE(sb.program_running());
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Frames, E2eLinkBadFrame, ::testing::Values(
    BadFrame{"LengthZero", {0xEB, 0x5F, 0x21, 0x00}, {}, 1},
    BadFrame{"LengthZeroSplit", {0x00, 0xEB, 0x5F, 0x21, 0x00}, {2}, 1},
    BadFrame{"TwoLengthZero", {0xEB, 0x5F, 0x21, 0x00, 0xEB, 0x5F, 0x00, 0x00}, {}, 2},
    BadFrame{"VersionOfLengthFive", {0xEB, 0x5F, 0x21, 0x05, 0x00, 0x00, 0x01, 0x02, 0x03, 0x0F}, {}, 1},
    BadFrame{"WrongAddress", {0xEB, 0x60, 0x21, 0x00}, {}, 0},
    BadFrame{"UnknownSubCommand", {0xEB, 0x5F, 0x21, 0x02, 0x09, 0x00, 0x0F}, {}, 0},
    BadFrame{"Garbage", {0x00, 0x13, 0xFF, 0x5F, 0x21}, {}, 0}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

} // namespace

namespace {

// The whole chain the other end-to-end tests stand on: the core serves, the
// panel answers, the program gets through its start-up to the home page.
TEST(E2eHarness, ProgramReachesTheHomePageWithTheCore) {
    Sandbox sb;
    ASSERT_TRUE(sb.start_core());
    const CmdResult st = sb.ctl({"state"});
    EXPECT_EQ(st.status, 0);
    EXPECT_NE(st.out.find("device ports="), std::string::npos) << st.out;
    ASSERT_TRUE(sb.start_program());
    ASSERT_TRUE(sb.wait_home_page(40s))
        << "LCD: |" << sb.panel().state().lcd[0] << "|" << sb.panel().state().lcd[1] << "|";
    EXPECT_EQ(sb.panel().handshakes(), 1u);
    EXPECT_TRUE(sb.program_running());
    ASSERT_TRUE(sb.signal_program(SIGTERM));
    EXPECT_EQ(sb.wait_program_exit(5s), std::optional<int>(1));
}

} // namespace
