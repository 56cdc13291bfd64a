// The panel emulator against a stand-in for the program that opens the
// linked pty slave directly.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "tav_panel_emu.h"

using namespace std::chrono_literals;
using Bytes = std::vector<uint8_t>;

namespace {

class PanelEmu : public ::testing::Test {
  protected:
    void SetUp() override {
        char tmpl[] = "/tmp/tav_emu_XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        root_ = tmpl;
    }
    void TearDown() override {
        if (fd_ >= 0) {
            close(fd_);
        }
        emu_.reset();
        std::filesystem::remove_all(root_);
    }
    void start(bool answer = true, int hold_ms = 100) {
        tavpanel::EmulatorOptions o;
        o.root = root_;
        o.answer_handshake = answer;
        o.fw_main = 2;
        o.fw_minor = 5;
        o.fw_build_hi = 1;
        o.fw_build_lo = 2;
        o.hold_ms = hold_ms;
        o.log_path = root_ + "/panel.log";
        emu_ = std::make_unique<tavpanel::PanelEmulator>(o);
        ASSERT_TRUE(emu_->start());
    }
    void open_port() {
        fd_ = open((root_ + "/dev/ttyPSC3").c_str(), O_RDWR | O_NOCTTY);
        ASSERT_GE(fd_, 0);
    }
    void put(const Bytes& b) {
        ASSERT_EQ(write(fd_, b.data(), b.size()), static_cast<ssize_t>(b.size()));
    }
    // Reads what the panel sent until `n` bytes arrived or `timeout` passed.
    Bytes get(size_t n, std::chrono::milliseconds timeout) {
        Bytes out;
        const auto end = std::chrono::steady_clock::now() + timeout;
        uint8_t b[256];
        ssize_t r = 0;
        while (out.size() < n) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                end - std::chrono::steady_clock::now());
            pollfd p{fd_, POLLIN, 0};
            if (left.count() <= 0 || poll(&p, 1, static_cast<int>(left.count())) <= 0 ||
                (r = read(fd_, b, sizeof b)) <= 0) {
                break;
            }
            out.insert(out.end(), b, b + r);
        }
        return out;
    }

    std::string root_;
    int fd_ = -1;
    std::unique_ptr<tavpanel::PanelEmulator> emu_;
};

const Bytes kHandshake{0xEB, 0x5F, 0x21, 0x02, 0x00, 0x00, 0x0F};

TEST_F(PanelEmu, AnswersEachHandshakeWithTheVersionUnlessSilent) {
    start(false);
    open_port();
    put(kHandshake);
    ASSERT_TRUE(emu_->wait_handshakes(1, 2s));
    EXPECT_TRUE(get(1, 300ms).empty());
    emu_->set_answer_handshake(true);
    put(kHandshake);
    EXPECT_EQ(tavpanel::hex(get(11, 2s)), "EB 5F 21 06 00 00 02 05 01 02 0F");
    // Handshake split over two writes, then another in one.
    put(Bytes(kHandshake.begin(), kHandshake.begin() + 3));
    put(Bytes(kHandshake.begin() + 3, kHandshake.end()));
    put(kHandshake);
    EXPECT_EQ(get(22, 2s).size(), 22u);
    EXPECT_EQ(emu_->handshakes(), 4u);
}

TEST_F(PanelEmu, KeyPressIsKeyThenReleaseAfterTheHoldTime) {
    start(true, 150);
    open_port();
    const auto t0 = std::chrono::steady_clock::now();
    emu_->press(tavpanel::KEY_TAKE);
    EXPECT_GE(std::chrono::steady_clock::now() - t0, 150ms);
    EXPECT_EQ(tavpanel::hex(get(20, 1s)),
              "EB 5F 21 05 07 00 00 40 00 0F EB 5F 21 05 07 00 00 00 00 0F");
    emu_->lock_toggle();
    EXPECT_EQ(tavpanel::hex(get(30, 2s)),
              "EB 5F 21 05 07 00 01 00 00 0F EB 5F 21 05 07 00 01 00 00 0F "
              "EB 5F 21 05 07 00 00 00 00 0F");
}

TEST_F(PanelEmu, ProgramFramesBecomeThePicture) {
    start();
    open_port();
    Bytes text{0xEB, 0x5F, 0x21, 0x08, 0x04, 0x01, 0x00, 'H', 'e', 'l', 'l', 'o', 0x0F};
    put(text);
    put({0xEB, 0x5F, 0x21, 0x05, 0x01, 0x80, 0x00, 0x8C, 0x00, 0x0F});
    EXPECT_TRUE(emu_->wait_lcd(1, "Hello", 2s));
    EXPECT_TRUE(emu_->wait_lcd_contains(1, "ell", 2s));
    EXPECT_TRUE(emu_->wait_leds(0x80008C00u, 2s));
    EXPECT_FALSE(emu_->wait_lcd(0, "Hello", 50ms));
    put({0xEB, 0x5F, 0x00, 0x01, 0xF7, 0xA5});
    ASSERT_TRUE(emu_->wait_error_replies(1, 2s));
    EXPECT_EQ(emu_->last_problem(), "error_reply order 00 code F7");
}

TEST_F(PanelEmu, SeesTheProgramOpenAndCloseItsPort) {
    start();
    EXPECT_FALSE(emu_->peer_closed());
    EXPECT_FALSE(emu_->wait_peer_open(50ms));
    for (size_t round = 1; round <= 2; ++round) {
        open_port();
        ASSERT_TRUE(emu_->wait_peer_open(1s));
        EXPECT_FALSE(emu_->peer_closed());
        close(fd_);
        fd_ = -1;
        ASSERT_TRUE(emu_->wait_peer_closed(1s));
        EXPECT_EQ(emu_->peer_opens(), round);
        EXPECT_EQ(emu_->peer_closes(), round);
    }
}

TEST_F(PanelEmu, StopRemovesTheLinkAndHangsUpThePort) {
    start();
    open_port();
    emu_->stop();
    EXPECT_FALSE(std::filesystem::exists(root_ + "/dev/ttyPSC3"));
    uint8_t b;
    EXPECT_LE(read(fd_, &b, 1), 0);
    emu_->press(3); // after stop: nothing, and no hang
}

} // namespace
