// Network display: zero-filling of addresses, the first-line reader, the
// pages and their keys.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "service_menu_support.h"
#include "tav_menu_eth.h"

namespace {

using svc::FakeTools;
using svc::press_digit;

struct PadCase {
    const char* name;
    std::string in;
    std::string out;
};

class EthPadTest : public ::testing::TestWithParam<PadCase> {};

TEST_P(EthPadTest, PadsGroupsToThreeDigits) {
    char field[18] = {};
    memcpy(field, GetParam().in.data(), GetParam().in.size());
    AddIP_GATE_MASK_0(field);
    EXPECT_EQ(std::string(field, strnlen(field, sizeof field)), GetParam().out);
}

INSTANTIATE_TEST_SUITE_P(
    Addresses, EthPadTest,
    ::testing::Values(PadCase{"ToolLineEnd", "192.168.1.39\n", "192.168.001.039\n"},
                      PadCase{"AllShort", "10.0.0.1\n", "010.000.000.001\n"},
                      PadCase{"Mask", "255.255.255.0\n", "255.255.255.000\n"},
                      PadCase{"AlreadyPadded", "192.168.001.039\n", "192.168.001.039\n"},
                      // Without the line end the last group gets one zero too many.
                      PadCase{"NoLineEnd", "192.168.1.39", "192.168.001.0039"},
                      PadCase{"NoLineEndShortest", "1.2.3.4", "001.002.003.0004"},
                      PadCase{"Mac", "00:1A:2B:3C:4D:5E", "00:1A:2B:3C:4D:5E"},
                      PadCase{"Empty", "", "0000000000000000"},
                      PadCase{"PaddedNeverFilledStays", "0000000000000000", "0000000000000000"},
                      PadCase{"Overlong", "12345678901234567", "12345678901234567"}),
    [](const auto& info) { return std::string(info.param.name); });

// Whatever the tool printed, padding stays inside the 18-byte field.
TEST(EthPad, GarbageNeverLeavesTheField) {
    std::mt19937 rng(7);
    const char alphabet[] = "0123456789.:\nx\0";
    for (int round = 0; round < 2000; ++round) {
        struct {
            char before[8];
            char field[18];
            char after[8];
        } mem;
        memset(&mem, 0x5A, sizeof mem);
        memset(mem.field, 0, sizeof mem.field);
        const int len = static_cast<int>(rng() % 18);
        for (int i = 0; i < len; ++i) {
            mem.field[i] = alphabet[rng() % (sizeof alphabet - 1)];
        }
        AddIP_GATE_MASK_0(mem.field);
        ASSERT_EQ(std::string(mem.before, 8) + std::string(mem.after, 8), std::string(16, 0x5A));
        ASSERT_EQ(mem.field[17], 0) << "round " << round;
    }
}

struct ReadCase {
    const char* name;
    const char* cmd;
    int len;
    int result;
    std::string text; // expected buffer text; "" with result -1: untouched
};

class EthReadTest : public ::testing::TestWithParam<ReadCase> {};

TEST_P(EthReadTest, ReadsOnlyTheFirstLine) {
    const ReadCase& c = GetParam();
    char buf[40];
    memset(buf, '#', sizeof buf);
    strcpy(buf, "old");
    EXPECT_EQ(mytav_btool_system(c.cmd, buf, c.len), c.result);
    if (c.result == 0) {
        EXPECT_EQ(std::string(buf), c.text);
    } else {
        EXPECT_STREQ(buf, "old");
    }
    for (int i = c.len > 4 ? c.len : 4; i < static_cast<int>(sizeof buf); ++i) {
        ASSERT_EQ(buf[i], '#') << "written past len at " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Lines, EthReadTest,
    ::testing::Values(ReadCase{"FirstOfTwo", "printf '10.0.0.1\\nsecond\\n'", 18, 0, "10.0.0.1\n"},
                      ReadCase{"NoLineEnd", "printf 'abc'", 18, 0, "abc"},
                      ReadCase{"Overlong", "printf '%0100d\\n' 0", 18, 0, std::string(17, '0')},
                      ReadCase{"Nothing", "true", 18, -1, ""},
                      ReadCase{"CannotRun", "/nonexistent/tool 2>/dev/null", 18, -1, ""},
                      ReadCase{"LenTooSmall", "echo x", 1, -1, ""}),
    [](const auto& info) { return std::string(info.param.name); });

class EthMenuTest : public svc::ServiceMenuTest {
  protected:
    void SetUp() override {
        ServiceMenuTest::SetUp();
        tav_eth_init();
    }
    // Interface digit in the choice, then the value digit in the value menu.
    void open_page(uint8_t iface_digit, uint8_t value_digit) {
        g_tav_menu = menu_eth_select;
        press_digit(iface_digit);
        tav_eth_sec();
        press_digit(value_digit);
        tav_eth_dis();
    }
};

TEST_F(EthMenuTest, ValuePagesTitleAndField) {
    struct Case {
        uint8_t iface, value;
        const char* tool_what;
        const char* printed;
        TAV_ENUM_MENUSTATUS menu;
        void (*display)(void);
        const char* title; // columns 10 to 39
        const char* shown; // columns 14 to 39
    };
    const Case cases[] = {
        {1, 1, "IP", "192.168.1.39\n", menu_eth_ip, tav_eth_ip_display,
         "CURRENT SYSTEM ETH0 IP        ", "192.168.001.039           "},
        {1, 2, "MAC", "00:1A:2B:3C:4D:5E\n", menu_eth_mac, tav_eth_mac_display,
         "CURRENT SYSTEM ETH0 MAC       ", "00:1A:2B:3C:4D:5E         "},
        {2, 4, "GATEWAY", "10.0.0.1\n", menu_eth_gate, tav_eth_gate_display,
         "CURRENT SYSTEM ETH1 GATEWAY   ", "010.000.000.001           "},
        // A tool that prints nothing leaves a never-filled field: sixteen
        // zeros, of which fifteen are shown.
        {2, 1, "IP", nullptr, menu_eth_ip, tav_eth_ip_display, "CURRENT SYSTEM ETH1 IP        ",
         "000000000000000           "},
        // An overlong line is cut to the field.
        {1, 3, "MASK", "255.255.255.255.255.255.255\n", menu_eth_mask, tav_eth_mask_display,
         "CURRENT SYSTEM ETH0 MASK      ", "255.255.255.255           "},
        {2, 3, "MASK", "255.255.255.0\n", menu_eth_mask, tav_eth_mask_display,
         "CURRENT SYSTEM ETH1 MASK      ", "255.255.255.000           "},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.tool_what);
        memset(g_tav_eth, 0, sizeof g_tav_eth);
        FakeTools::get().reset();
        const std::string iface = c.iface == 1 ? "eth0" : "eth1";
        if (c.printed != nullptr) {
            FakeTools::get().set_ifcfg(iface, c.tool_what, c.printed);
        }
        open_page(c.iface, c.value);
        EXPECT_EQ(g_tav_menu, c.menu);
        EXPECT_EQ(tav_eth_get_sec(), c.iface - 1);
        EXPECT_EQ(FakeTools::get().calls(),
                  std::vector<std::string>{"tav_ifcfg " + iface + " " + c.tool_what});
        c.display();
        EXPECT_EQ(lcd(0), std::string(10, ' ') + c.title);
        EXPECT_EQ(lcd(1), std::string(14, ' ') + c.shown);
    }
}

TEST_F(EthMenuTest, ValueMenuShowsInterfaceDigit) {
    open_page(2, 9); // digit 9 does nothing in the value menu
    EXPECT_EQ(g_tav_menu, menu_eth_display);
    tav_eth_dis_display();
    EXPECT_EQ(lcd(0).substr(12, 16), "ETH1 NET DISPLAY");
    EXPECT_EQ(lcd(1).substr(7, 23), "1IP 2MAC 3MASK 4GATEWAY");
    EXPECT_TRUE(FakeTools::get().calls().empty());
}

// Keys by page: the menu each key leads to (same menu = nothing happens).
TEST_F(EthMenuTest, KeyTable) {
    struct Case {
        TAV_ENUM_MENUSTATUS from;
        void (*handler)(void);
        const char* key;
        TAV_ENUM_MENUSTATUS to;
    };
    // clang-format off
    const Case cases[] = {
        {menu_eth_select, tav_eth_sec, "3", menu_eth_select},
        {menu_eth_select, tav_eth_sec, "L", menu_eth_select},
        {menu_eth_select, tav_eth_sec, "R", menu_eth_select},
        {menu_eth_select, tav_eth_sec, "T", menu_eth_select},
        {menu_eth_select, tav_eth_sec, "M", menu_reset},
        {menu_eth_select, tav_eth_sec, "D", menu_reset},
        {menu_eth_select, tav_eth_sec, "B", menu_vid_display},
        {menu_eth_select, tav_eth_sec, "K", menu_vid_display},
        {menu_eth_display, tav_eth_dis, "L", menu_eth_select},
        {menu_eth_display, tav_eth_dis, "3", menu_eth_mask},
        {menu_eth_display, tav_eth_dis, "4", menu_eth_gate},
        {menu_eth_display, tav_eth_dis, "5", menu_eth_display},
        {menu_eth_display, tav_eth_dis, "M", menu_reset},
        {menu_eth_display, tav_eth_dis, "B", menu_vid_display},
        {menu_eth_ip, tav_eth_ip, "L", menu_eth_display},
        {menu_eth_mac, tav_eth_mac, "2", menu_eth_mac},
        {menu_eth_gate, tav_eth_gate, "D", menu_reset},
        {menu_eth_mask, tav_eth_mask, "K", menu_vid_display},
        {menu_eth_mask, tav_eth_mask, "R", menu_eth_mask},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "menu " << c.from << " key " << c.key);
        FakeTools::get().reset();
        g_tav_menu = c.from;
        svc::keys(c.key, c.handler);
        EXPECT_EQ(g_tav_menu, c.to);
        // Only the value menu's digits 1 to 4 query the tool.
        const bool query = c.from == menu_eth_display && c.key[0] >= '1' && c.key[0] <= '4';
        EXPECT_EQ(FakeTools::get().calls().size(), query ? 1u : 0u);
    }
}

} // namespace
