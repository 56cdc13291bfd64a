// Reset menu: confirmation steps, requests to the core and the flag file.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "service_menu_support.h"
#include "tav_menu_dispay_version.h"
#include "tav_menu_control.h"
#include "tav_menu_reset.h"

namespace {

std::string flag_path() {
    return tavtest::PanelCapture::get().root() + "/tmp/tav_z8_reboot.flag";
}

std::string read_flag() {
    std::ifstream in(flag_path());
    return std::string(std::istreambuf_iterator<char>(in), {});
}

void keys(const char* seq) {
    svc::keys(seq, tav_menu_reset);
}

class ResetTest : public svc::ServiceMenuTest {
  protected:
    void SetUp() override {
        ServiceMenuTest::SetUp();
        std::remove(flag_path().c_str());
        tav_menu_reset_init();
        g_tav_menu = menu_reset;
    }
};

struct SeqCase {
    const char* name;
    const char* keys;
    std::vector<std::string> requests; // library calls, in order
    const char* flag;                  // file content afterwards
    uint8_t step;
};

class ResetSeqTest : public ResetTest, public ::testing::WithParamInterface<SeqCase> {};

TEST_P(ResetSeqTest, RequestsAndFlagFile) {
    const SeqCase& c = GetParam();
    keys(c.keys);
    EXPECT_EQ(fakematrix::calls_starting("set_inner_signal_reboot_opt"), c.requests);
    EXPECT_EQ(read_flag(), c.flag);
    EXPECT_EQ(tav_menu_reset_get_step(), c.step);
    EXPECT_EQ(g_tav_menu, menu_reset);
}

const std::string R1 = "set_inner_signal_reboot_opt(1)";

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Keys, ResetSeqTest,
    ::testing::Values(
        SeqCase{"FactoryNeedsTwoTakes", "2TT", {"set_inner_signal_reboot_opt(2)"}, "2\n", 3},
        SeqCase{"FirstTakeOnlyAsksAgain", "2T", {}, "", 3},
        SeqCase{"RestartTwice", "1TT", {R1, R1}, "1\n", 1},
        SeqCase{"BackThenRestart", "2L1T", {R1}, "1\n", 1},
        SeqCase{"TakeInStepZero", "T", {}, "", 0},
        SeqCase{"OtherDigitInStepZero", "5", {}, "", 0},
        SeqCase{"DigitsIgnoredWhileConfirming", "12T", {R1}, "1\n", 1},
        SeqCase{"LeftFromSecondConfirmation", "2TLT", {}, "", 0},
        SeqCase{"RightAndDefaultDoNothing", "1RD", {}, "", 1}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

TEST_F(ResetTest, PagesAndTakeBlink) {
    struct Step {
        const char* keys;
        const char* top;
        bool blink;
    };
    const Step steps[] = {{"", "COMPLETELY MATRIX RESET", false},
                          {"2", "The Device will be factory default", true},
                          {"T", "RESET Matrix to factory default ?", true},
                          {"L", "COMPLETELY MATRIX RESET", false},
                          {"1", "The Device will be reset", true}};
    for (const Step& s : steps) {
        SCOPED_TRACE(s.keys);
        keys(s.keys);
        tav_menu_reset_display();
        EXPECT_NE(lcd(0).find(s.top), std::string::npos) << lcd(0);
        EXPECT_EQ((leds_blinking() >> TAV_KEY_TAKE) & 1u, s.blink ? 1u : 0u);
    }
}

TEST_F(ResetTest, LeavingResetsTheStep) {
    svc::FakeTools::get().set_main_version("3.10.42\n");
    keys("2M");
    EXPECT_EQ(g_tav_menu, menu_display_version);
    EXPECT_EQ(tav_menu_reset_get_step(), 0);
    EXPECT_STREQ(g_tav_version.main_ver, "03.10.0042"); // versions read again

    for (const char* leave : {"1B", "1K"}) {
        g_tav_menu = menu_reset;
        keys(leave);
        EXPECT_EQ(g_tav_menu, menu_vid_display);
        EXPECT_EQ(tav_menu_reset_get_step(), 0);
    }
    EXPECT_TRUE(fakematrix::calls_starting("set_inner_signal_reboot_opt").empty());
}

// DEFAULT opens the menu at its first step from every menu that reads keys,
// whatever step it was left in.
TEST_F(ResetTest, DefaultOpensTheFirstStepFromEveryMenu) {
    const TAV_ENUM_MENUSTATUS openers[] = {
        menu_vid_display,    meun_vid_io_display, menu_vid_switch,  menu_aud_display,
        meun_aud_io_display, menu_aud_switch,     menu_shortcut,    menu_switch_all,
        menu_switch_vid_all, menu_switch_aud_all, menu_edid_switch, menu_eth_select,
        menu_eth_display,    menu_eth_ip,         menu_eth_mac,     menu_eth_gate,
        menu_eth_mask,       menu_display_version};
    for (TAV_ENUM_MENUSTATUS from : openers) {
        SCOPED_TRACE(from);
        g_tav_menu = menu_reset;
        keys("2T"); // left at the second factory confirmation
        ASSERT_EQ(tav_menu_reset_get_step(), 3);
        g_tav_menu = from;
        g_tav_menu_event = EVENT_NOMAL;
        svc::press(TAV_PRESS_DEFAULT);
        tav_nomal_work();
        EXPECT_EQ(g_tav_menu, menu_reset);
        EXPECT_EQ(g_tav_menu_event, EVENT_UPDATE);
        EXPECT_EQ(tav_menu_reset_get_step(), 0);
    }
}

} // namespace
