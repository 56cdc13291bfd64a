// The service menus end to end with the simulated core and the device tools:
// EDID copies and their refusals, the network display, the version pages and
// the restart and factory reset asked for from the panel.
#include <gtest/gtest.h>
#include <signal.h>

#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "e2e_notices.h"

using namespace tave2e;

namespace {

const std::string kEdidTop = row(10, "MATRIX EDID OPERATION");
const std::string kReselect = row(8, "PLEASE RESELECT THE PORT");
const std::string kNoConfigure = row(1, "The Port You Select is No Configure");

std::string edid_entry(const std::string& src, const std::string& dest) {
    return row(17, "SOURCE(" + src + ")=>DEST(" + dest + ")");
}

void press_all(Sandbox& sb, std::initializer_list<int> keys) {
    for (int k : keys) {
        press_key(sb, k);
    }
}

std::string edid_of(const Sandbox& sb, int port, const char* kind) {
    const CmdResult r = sb.ctl({"edid", std::to_string(port), kind});
    EXPECT_EQ(r.status, 0) << "edid " << port << " " << kind;
    return r.out;
}

// Last line of a tool's call log below $TAV_ROOT/sim.
std::string last_line(const Sandbox& sb, const std::string& tool) {
    std::string text = sb.read_file("sim/" + tool + ".log");
    if (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text.substr(text.rfind('\n') == std::string::npos ? 0 : text.rfind('\n') + 1);
}

struct Copy {
    const char* name;
    int src_tens, src_units; // keys of the source
    int dest;                // destination input (two keys)
    int src_port;            // port whose EDID is copied
    const char* src_kind;    // and which of its EDIDs
    const char* tool_line;   // arguments tav_echo_cpedid receives
};

TEST(E2eService, EdidCopiesNetworkAndVersions) {
    Sandbox sb({.fw_main = 5, .fw_minor = 2, .fw_build_hi = 0, .fw_build_lo = 10});
    ASSERT_TRUE(bring_up(sb));

    // Both panel versions were published at start-up.
    const std::string published = sb.read_file("sim/tav_version.log");
    EXPECT_NE(published.find("tav_keyboard_soft 01.01.0001\n"), std::string::npos) << published;
    EXPECT_NE(published.find("tav_keyboard_hard 05.02.0010\n"), std::string::npos) << published;

    // Home, video lists, audio status, audio lists, shortcut menu; 7: EDID copy.
    press_all(sb, {KEY_MENU, KEY_MENU, KEY_MENU, KEY_MENU});
    ASSERT_TRUE(sb.panel().wait_leds(leds({1, 7, KEY_MENU, tavpanel::LED_LCD}), 5s))
        << lcd_of(sb.panel().state());
    press_key(sb, 7);
    ASSERT_TRUE(wait_lines(sb, kEdidTop, edid_entry("__", "__")));
    EXPECT_EQ(sb.panel().state().led_steady, leds({KEY_LEFT, KEY_RIGHT, KEY_MENU, 31}));

    // Three copies: from an input, from the default, from an output's sink.
    const Copy copies[] = {
        {"input 3 to 5", 0, 3, 5, 3, "in", "0 3 5 0"},
        {"default to 6", 0, 0, 6, 6, "default", "2 0 6 0"},
        {"sink of 17 to 7", 1, 7, 7, 17, "load", "1 17 7 0"},
    };
    for (const Copy& c : copies) {
        SCOPED_TRACE(c.name);
        const std::string want = edid_of(sb, c.src_port, c.src_kind);
        ASSERT_NE(edid_of(sb, c.dest, "in"), want) << "the test needs different EDIDs";
        press_all(sb, {c.src_tens, c.src_units});
        const std::string src = std::to_string(c.src_tens) + std::to_string(c.src_units);
        ASSERT_TRUE(wait_lines(sb, kEdidTop, edid_entry(src, "__")));
        press_all(sb, {c.dest / 10, c.dest % 10});
        ASSERT_TRUE(wait_lines(sb, kEdidTop, row(11, "EDID COPY Success")));
        EXPECT_EQ(edid_of(sb, c.dest, "in"), want);
        EXPECT_EQ(last_line(sb, "tav_echo_cpedid"), c.tool_line);
    }
    EXPECT_EQ(sb.read_file("sim/tav_echo_clean_edid.log"), "");

    // Refusals of the destination keep the source: an output, the same port,
    // a port the device does not have, 0.
    press_all(sb, {0, 3});
    ASSERT_TRUE(wait_lines(sb, kEdidTop, edid_entry("03", "__")));
    press_all(sb, {2, 0});
    ASSERT_TRUE(wait_lines(sb, row(0, "You Have select output port as dest port"), kReselect));
    press_key(sb, 0); // clears the refusal, then is the first digit
    ASSERT_TRUE(wait_lines(sb, kEdidTop, edid_entry("03", "0_")));
    press_key(sb, 3);
    ASSERT_TRUE(wait_lines(sb, row(2, "The Port You Select The Same Port"), kReselect));
    press_all(sb, {4, 0});
    ASSERT_TRUE(wait_lines(sb, kNoConfigure, kReselect));
    press_key(sb, 0);
    ASSERT_TRUE(wait_lines(sb, kEdidTop, edid_entry("03", "0_")));
    const auto t_refused = std::chrono::steady_clock::now();
    press_key(sb, 0);
    ASSERT_TRUE(wait_lines(sb, kNoConfigure, kReselect));
    // The message stays six seconds, then the destination is asked again.
    ASSERT_TRUE(wait_lines(sb, kEdidTop, edid_entry("03", "__"), 12s));
    EXPECT_GT(seconds_since(t_refused), 5.0);
    // LEFT goes back to the source; a source the device does not have is refused.
    press_key(sb, KEY_LEFT);
    ASSERT_TRUE(wait_lines(sb, kEdidTop, edid_entry("__", "__")));
    press_all(sb, {4, 0});
    ASSERT_TRUE(wait_lines(sb, kNoConfigure, kReselect));
    EXPECT_EQ(core_calls(sb, {"set_port_edid"}).size(), 3u) << "a refused copy reached the core";

    // A write that fails: the error rows and the clean-up tool.
    ASSERT_TRUE(ctl_ok(sb, {"fail", "set_port_edid", "-7"}));
    const std::string before = edid_of(sb, 8, "in");
    press_all(sb, {0, 4});
    ASSERT_TRUE(wait_lines(sb, kEdidTop, edid_entry("04", "__")));
    press_all(sb, {0, 8});
    ASSERT_TRUE(wait_lines(sb, kEdidTop, row(11, "EDID COPY ERR Occur")));
    EXPECT_EQ(last_line(sb, "tav_echo_cpedid"), "0 4 8 0");
    EXPECT_EQ(sb.read_file("sim/tav_echo_clean_edid.log"), "\n");
    EXPECT_EQ(edid_of(sb, 8, "in"), before);
    ASSERT_TRUE(ctl_ok(sb, {"fail", "set_port_edid", "off"}));

    // MENU: the network menus; eth1, its mask.
    press_key(sb, KEY_MENU);
    ASSERT_TRUE(wait_lines(sb, row(12, "ETH  NET DISPLAY"), row(12, "1 ETH0  2 ETH1")));
    press_key(sb, 2);
    ASSERT_TRUE(wait_lines(sb, row(12, "ETH1 NET DISPLAY"), row(7, "1IP 2MAC 3MASK 4GATEWAY")));
    press_key(sb, 3);
    ASSERT_TRUE(wait_lines(sb, row(10, "CURRENT SYSTEM ETH1 MASK"), row(14, "255.255.255.000")));
    EXPECT_EQ(last_line(sb, "tav_ifcfg"), "eth1 MASK");

    // DEFAULT: the reset menu; MENU: the version pages.
    press_key(sb, KEY_DEFAULT);
    ASSERT_TRUE(
        wait_lines(sb, row(6, "COMPLETELY MATRIX RESET"), row(5, "1:Reset     2:Factory Default")));
    press_key(sb, KEY_MENU);
    const std::string version_top = row(4, "Version Information Display");
    ASSERT_TRUE(wait_lines(sb, version_top, "      MAIN APP VERSION  : 03.10.0042  >>"));
    press_key(sb, KEY_RIGHT);
    ASSERT_TRUE(wait_lines(sb, version_top, "<<    SOFT KEY VERSION  : 01.01.0001  >>"));
    press_key(sb, KEY_RIGHT);
    ASSERT_TRUE(wait_lines(sb, version_top, "<<    HARD KEY VERSION  : 05.02.0010    "));
    // The main version is read again each time the display opens.
    press_all(sb, {KEY_LEFT, KEY_LEFT, KEY_DEFAULT});
    ASSERT_TRUE(
        wait_lines(sb, row(6, "COMPLETELY MATRIX RESET"), row(5, "1:Reset     2:Factory Default")));
    sb.write_file("sim/quoral_version", "4.1.7\n");
    press_key(sb, KEY_MENU);
    ASSERT_TRUE(wait_lines(sb, version_top, "      MAIN APP VERSION  : 04.01.0007  >>"));

    EXPECT_EQ(core_calls(sb, {"set_inner_signal_reboot_opt"}).size(), 0u);
    ASSERT_TRUE(sb.signal_program(SIGTERM));
    EXPECT_EQ(sb.wait_program_exit(15s), std::optional<int>(1));
    expect_no_sanitizer_report(sb);
}

// A restart (one TAKE) and a factory reset (two TAKEs) asked for from the
// panel: the library request, the flag file, the core's reboot signal, the
// notice and the end.
struct ResetCase {
    const char* name;
    int option;
};

void PrintTo(const ResetCase& c, std::ostream* os) {
    *os << c.name;
}

class E2eServiceReset : public ::testing::TestWithParam<ResetCase> {};

TEST_P(E2eServiceReset, RequestedFromThePanel) {
    const int option = GetParam().option;
    Sandbox sb;
    ASSERT_TRUE(bring_up(sb));
    press_key(sb, KEY_DEFAULT);
    ASSERT_TRUE(
        wait_lines(sb, row(6, "COMPLETELY MATRIX RESET"), row(5, "1:Reset     2:Factory Default")));
    EXPECT_EQ(sb.panel().state().led_steady, leds({1, 2, KEY_MENU, 31}));
    EXPECT_EQ(sb.panel().state().led_blink, 0u);
    const uint32_t confirm_leds = leds({KEY_LEFT, KEY_MENU, 31});
    const uint32_t take_blink = leds({KEY_TAKE});
    if (option == 1) {
        press_key(sb, 1);
        ASSERT_TRUE(
            wait_lines(sb, row(7, "The Device will be reset"), row(9, "Press TAKE to confirm")));
    } else {
        press_key(sb, 2);
        ASSERT_TRUE(wait_lines(sb, row(4, "The Device will be factory default"),
                               row(9, "Press TAKE to confirm")));
        EXPECT_TRUE(sb.panel().wait_for(
            [&](const auto& s) {
                return s.led_steady == confirm_leds && s.led_blink == take_blink;
            },
            2s))
            << lcd_of(sb.panel().state());
        press_key(sb, KEY_TAKE);
        ASSERT_TRUE(wait_lines(sb, row(4, "RESET Matrix to factory default ?"),
                               row(7, "Once more TAKE to confirm")));
        EXPECT_TRUE(core_calls(sb, {"set_inner_signal_reboot_opt"}).empty());
        EXPECT_TRUE(sb.program_running());
    }
    EXPECT_TRUE(sb.panel().wait_for(
        [&](const auto& s) { return s.led_steady == confirm_leds && s.led_blink == take_blink; },
        2s))
        << lcd_of(sb.panel().state());
    press_key(sb, KEY_TAKE);
    expect_reboot_end(sb, option);
    EXPECT_EQ(
        core_calls(sb, {"set_inner_signal_reboot_opt"}),
        std::vector<std::string>{"set_inner_signal_reboot_opt(" + std::to_string(option) + ")"});
    EXPECT_EQ(sb.read_file("tmp/tav_z8_reboot.flag"), std::to_string(option) + "\n");
}

INSTANTIATE_TEST_SUITE_P(Kinds, E2eServiceReset,
                         ::testing::Values(ResetCase{"Restart", 1}, ResetCase{"Factory", 2}),
                         [](const auto& info) { return std::string(info.param.name); });

} // namespace
