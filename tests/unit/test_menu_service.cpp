// The service menus: EDID copy, network display, reset and versions, with
// the real device tools on PATH recording their calls below $TAV_ROOT/sim.
#include <cstring>

#include "menu_fixture.h"
#include "tav_menu_dispay_version.h"

using namespace mtest;

namespace {

// EDID copy. Ports 1..8 inputs, 9..16 outputs, 17 mixed, the rest unknown.
class Edid : public MenuTest {
  protected:
    void SetUp() override {
        MenuTest::SetUp();
        for (int i = 0; i < TAV_PORT_TABLE_SIZE; ++i) {
            g_tav_portbuf[i].port_io = i < 8     ? em_matrix_in
                                       : i < 16  ? em_matrix_out
                                       : i == 16 ? em_matrix_mix
                                                 : em_matrix_unknown;
        }
        enter();
    }
    static void enter() {
        tav_menu_edid_init();
        g_tav_menu = menu_edid_switch;
    }
    static TAV_EDID_STATE s() { return tav_menu_edid_get_state(); }
};

TEST_F(Edid, FieldsAreJudgedAndRefusalsCleared) {
    struct Case {
        const char* keys;
        uint8_t err, sel_port_step, src, dest;
        int refusal_row;               // 0: none
        uint8_t step_after, src_after; // after the refusal is cleared
    };
    // clang-format off
    const Case cases[] = {
        {"03", TAV_EDID_ENTRY, 1, 3, 0, 0, 1, 3},           {"0R", TAV_EDID_ENTRY, 1, 0, 0, 0, 1, 0},
        {"17", TAV_EDID_ERR_SRC_NOCFG, 0, 17, 0, 33, 0, 0}, {"99", TAV_EDID_ERR_SRC_NOCFG, 0, 99, 0, 33, 0, 0},
        {"0305", TAV_EDID_COPY_REQUESTED, 1, 3, 5, 0, 1, 3}, {"0005", TAV_EDID_COPY_REQUESTED, 1, 0, 5, 0, 1, 0},
        {"3R5R", TAV_EDID_COPY_REQUESTED, 1, 3, 5, 0, 1, 3}, {"0909", TAV_EDID_ERR_SAME_PORT, 1, 9, 9, 35, 1, 9},
        {"0310", TAV_EDID_ERR_DEST_OUTPUT, 1, 3, 10, 31, 1, 3}, {"030R", TAV_EDID_ERR_DEST_NOCFG, 1, 3, 0, 33, 1, 3},
        {"0317", TAV_EDID_ERR_DEST_NOCFG, 1, 3, 17, 33, 1, 3},
        {"0000", TAV_EDID_ERR_SAME_PORT, 1, 0, 0, 35, 1, 0}, // same port is checked before "0"
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.keys);
        enter();
        keys(c.keys);
        EXPECT_EQ(s().err, c.err);
        EXPECT_EQ(s().sel_port_step, c.sel_port_step);
        EXPECT_EQ(s().src, c.src);
        EXPECT_EQ(s().dest, c.dest);
        if (c.refusal_row != 0) {
            tav_edid_display();
            EXPECT_EQ(lcd(0), row(c.refusal_row));
            EXPECT_EQ(lcd(1), row(c.refusal_row + 1));
            tav_edid_handle_err(); // refused destinations keep the source
            EXPECT_EQ(s().err, TAV_EDID_ENTRY);
            EXPECT_EQ(s().sel_port_step, c.step_after);
            EXPECT_EQ(s().src, c.src_after);
        }
    }
    keys("05"); // the destination after a cleared refusal
    EXPECT_EQ(s().err, TAV_EDID_COPY_REQUESTED);
    enter();
    keys("03L0705"); // LEFT goes back to the source
    EXPECT_EQ(s().src, 7);
    enter();
    keys("0LL"); // the digit dropped, then nothing typed: back to the shortcut menu
    EXPECT_EQ(g_tav_menu, menu_shortcut);
}

TEST_F(Edid, EntryPageAndCopyResultPages) {
    struct Step {
        const char* keys;
        const char* bottom; // columns 17 to 36
        int cursor_col;
    };
    // clang-format off
    for (const Step& st : {Step{"", "SOURCE(__)=>DEST(__)", 24}, Step{"0", "SOURCE(0_)=>DEST(__)", 25},
                           Step{"3", "SOURCE(03)=>DEST(__)", 34}, Step{"0", "SOURCE(03)=>DEST(0_)", 35}}) {
        // clang-format on
        keys(st.keys);
        tav_edid_display();
        EXPECT_EQ(lcd(0), row(29));
        EXPECT_EQ(lcd(1).substr(17, 20), st.bottom) << st.keys;
        EXPECT_EQ(panel().cursor_col, st.cursor_col) << st.keys;
    }
    for (int32_t result : {0, -1}) {
        enter();
        fakematrix::state().set_edid_result = result;
        keys("0305");
        tav_edid_display(); // both fields shown, then the copy
        EXPECT_EQ(lcd(1).substr(17, 20), "SOURCE(03)=>DEST(05)");
        tav_edid_display();
        EXPECT_EQ(lcd(0), row(result == 0 ? 39 : 37));
        EXPECT_EQ(lcd(1), row(result == 0 ? 40 : 38));
    }
    // A configured row without fields: entry works, nothing is written outside.
    set_row(30, "COPY EDID");
    fakematrix::state().set_edid_result = 0;
    enter();
    displaybuf[40] = 0x11;
    keys("0");
    tav_edid_display();
    EXPECT_EQ(lcd(1), row(30));
    EXPECT_EQ(displaybuf[40], 0x11);
    keys("305");
    tav_edid_display();
    EXPECT_EQ(s().err, TAV_EDID_COPY_DONE);
}

TEST_F(Edid, CopyCallsAndBytes) {
    struct Case {
        uint8_t src, dest;
        int32_t get_result, set_result, expected;
        std::vector<std::string> lib, cpedid;
        size_t cleans;
    };
    const std::string G3 = "get_port_edid(3,0,300)", S5 = "set_port_edid(5,0,256)";
    // clang-format off
    const Case cases[] = {
        {3, 5, 0, 0, 0, {G3, S5}, {"0 3 5 0"}, 0},
        {0, 5, 0, 0, 0, {"get_port_edid(5,2,300)", S5}, {"2 0 5 0"}, 0},
        {12, 5, 0, 0, 0, {"get_port_edid(12,1,300)", S5}, {"1 12 5 0"}, 0},
        {3, 5, -6, 0, -6, {G3}, {}, 0},
        {3, 10, 0, 0, -2, {G3}, {}, 0},
        {3, 5, 0, 4, 4, {G3, S5}, {"0 3 5 0"}, 1},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << int(c.src) << "->" << int(c.dest));
        fakematrix::state().calls.clear();
        std::filesystem::remove_all(root() + "/sim");
        fakematrix::state().get_edid_result = c.get_result;
        fakematrix::state().set_edid_result = c.set_result;
        EXPECT_EQ(edid_copy_down(c.src, c.dest), c.expected);
        EXPECT_EQ(calls(), c.lib);
        EXPECT_EQ(tool_calls("tav_echo_cpedid"), c.cpedid);
        EXPECT_EQ(tool_calls("tav_echo_clean_edid").size(), c.cleans);
    }
    fakematrix::state().get_edid_result = fakematrix::state().set_edid_result = 0;
    tavsim::Edid src;
    for (size_t i = 0; i < src.size(); ++i)
        src[i] = static_cast<uint8_t>(i * 7);
    auto& port = fakematrix::state().port;
    port[3].own = src;
    ASSERT_EQ(edid_copy_down(3, 5), 0);
    EXPECT_EQ(port[5].own, src);
    fakematrix::state().default_edid = tavsim::make_edid("DEFAULT", 1);
    ASSERT_EQ(edid_copy_down(0, 6), 0); // source 0: the default EDID
    EXPECT_EQ(port[6].own, fakematrix::state().default_edid);
}

// Network display: the tool's first line, zero-padded into the page.
TEST(Eth, PaddingAndFirstLineReader) {
    // clang-format off
    const std::pair<std::string, std::string> pads[] = {
        {"192.168.1.39\n", "192.168.001.039\n"}, {"1.2.3.4", "001.002.003.0004"},
        {"192.168.001.039\n", "192.168.001.039\n"}, {"00:1A:2B:3C:4D:5E", "00:1A:2B:3C:4D:5E"},
        {"", "0000000000000000"}, {"12345678901234567", "12345678901234567"}};
    // clang-format on
    for (const auto& [in, out] : pads) {
        char field[18] = {};
        memcpy(field, in.data(), in.size());
        AddIP_GATE_MASK_0(field);
        EXPECT_EQ(std::string(field, strnlen(field, sizeof field)), out) << in;
    }
    struct Read {
        const char* cmd;
        int len, result;
        std::string text;
    };
    for (const Read& c : {Read{"printf '10.0.0.1\\nsecond\\n'", 18, 0, "10.0.0.1\n"},
                          Read{"printf '%0100d\\n' 0", 18, 0, std::string(17, '0')},
                          Read{"true", 18, -1, "old"}, Read{"echo x", 1, -1, "old"}}) {
        char buf[40];
        memset(buf, '#', sizeof buf);
        strcpy(buf, "old");
        EXPECT_EQ(mytav_btool_system(c.cmd, buf, c.len), c.result) << c.cmd;
        EXPECT_EQ(std::string(buf), c.text) << c.cmd;
        EXPECT_EQ(buf[20], '#') << c.cmd;
    }
}

TEST_F(MenuTest, EthPagesAskTheToolAndShowTheField) {
    std::ofstream(root() + "/sim/ifcfg.conf") << "eth0 MASK 255.255.255.255.255.255.255\n"
                                                 "eth1 IP -\n";
    struct Case {
        const char* keys; // interface, then value
        TAV_ENUM_MENUSTATUS menu;
        const char *tool, *title, *shown; // the call; columns 10..39 and 14..39
    };
    // clang-format off
    const Case cases[] = {
        {"11", menu_eth_ip, "eth0 IP", "CURRENT SYSTEM ETH0 IP        ", "192.168.001.039           "},
        {"12", menu_eth_mac, "eth0 MAC", "CURRENT SYSTEM ETH0 MAC       ", "00:1A:2B:3C:4D:5E         "},
        {"24", menu_eth_gate, "eth1 GATEWAY", "CURRENT SYSTEM ETH1 GATEWAY   ", "010.000.000.001           "},
        {"21", menu_eth_ip, "eth1 IP", "CURRENT SYSTEM ETH1 IP        ", "000000000000000           "},
        {"13", menu_eth_mask, "eth0 MASK", "CURRENT SYSTEM ETH0 MASK      ", "255.255.255.255           "},
    };
    // clang-format on
    for (const Case& c : cases) {
        std::remove((root() + "/sim/tav_ifcfg.log").c_str());
        memset(g_tav_eth, 0, sizeof g_tav_eth);
        g_tav_menu = menu_eth_select;
        keys(c.keys);
        EXPECT_EQ(g_tav_menu, c.menu) << c.tool;
        EXPECT_EQ(tool_calls("tav_ifcfg"), std::vector<std::string>{c.tool});
        draw();
        EXPECT_EQ(lcd(0), std::string(10, ' ') + c.title);
        EXPECT_EQ(lcd(1), std::string(14, ' ') + c.shown);
    }
    g_tav_menu = menu_eth_select;
    keys("2");
    draw();
    EXPECT_EQ(lcd(0).substr(12, 16), "ETH1 NET DISPLAY");
}

TEST_F(MenuTest, ResetStepsRequestsFlagFileAndPages) {
    const std::string flag = root() + "/tmp/tav_z8_reboot.flag";
    const std::string R1 = "set_inner_signal_reboot_opt(1)", R2 = "set_inner_signal_reboot_opt(2)";
    struct Case {
        const char* keys;
        std::vector<std::string> requests;
        const char* flag;
        uint8_t step;
        int top;
        bool blink;
    };
    // clang-format off
    const Case cases[] = {
        {"", {}, "", 0, 65, false},          {"2", {}, "", 2, 69, true},         {"2T", {}, "", 3, 71, true},
        {"2TT", {R2}, "2\n", 3, 71, true},   {"1TT", {R1, R1}, "1\n", 1, 67, true}, {"2L1T", {R1}, "1\n", 1, 67, true},
        {"T5", {}, "", 0, 65, false},        {"12T", {R1}, "1\n", 1, 67, true},  {"2TL", {}, "", 0, 65, false},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.keys);
        std::remove(flag.c_str());
        fakematrix::state().calls.clear();
        tav_menu_reset_init();
        g_tav_menu = menu_reset;
        keys(c.keys);
        EXPECT_EQ(fakematrix::calls_starting("set_inner_signal_reboot_opt"), c.requests);
        std::ifstream in(flag);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), c.flag);
        EXPECT_EQ(tav_menu_reset_get_step(), c.step);
        tav_menu_reset_display();
        EXPECT_EQ(lcd(0), row(c.top));
        EXPECT_EQ(lcd(1), row(c.top + 1));
        EXPECT_EQ(panel().led_blink, c.blink ? 1u << TAV_KEY_TAKE : 0u);
    }
    // A root whose path needs quoting in the shell still gets the flag file.
    const std::string spaced = root() + "/a b";
    std::filesystem::create_directories(spaced + "/tmp");
    setenv("TAV_ROOT", spaced.c_str(), 1);
    tav_menu_reset_init();
    g_tav_menu = menu_reset;
    keys("12T");
    setenv("TAV_ROOT", root().c_str(), 1);
    std::ifstream spaced_flag(spaced + "/tmp/tav_z8_reboot.flag");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(spaced_flag), {}), "1\n");
}

TEST(VersionText, PadsToTwoTwoFour) {
    // clang-format off
    const std::pair<std::string, std::string> cases[] = {
        {"3.10.42\n", "03.10.0042"}, {"1.2.3", "01.02.0003"}, {"12.34.5678901234", "12.34.5678"},
        {"123.4.5\n", "12300.0004"}, {"abc", "abc"}, {"", ""}};
    // clang-format on
    for (const auto& [in, out] : cases) {
        char src[64] = {};
        memcpy(src, in.data(), in.size());
        char dest[12];
        memset(dest, 0x5A, sizeof dest);
        tav_version_add_0(src, dest);
        EXPECT_EQ(std::string(dest, strnlen(dest, 11)), out) << in;
        EXPECT_EQ(dest[11], 0x5A) << in;
    }
}

TEST_F(MenuTest, VersionsReadPublishedAndPaged) {
    key_hard_ver.store({5, 2, 10});
    tav_version_clear();
    tav_version_handle();
    EXPECT_EQ(tool_calls("tav_version"),
              (std::vector<std::string>{"quoral_version", "tav_keyboard_soft 01.01.0001",
                                        "tav_keyboard_hard 05.02.0010"}));
    ASSERT_EQ(g_pauses.size(), 1u);
    EXPECT_EQ(g_pauses[0].ms, 1000u);
    g_tav_menu = menu_display_version;
    const std::string lines[] = {"      MAIN APP VERSION  : 03.10.0042  >>",
                                 "<<    SOFT KEY VERSION  : 01.01.0001  >>",
                                 "<<    HARD KEY VERSION  : 05.02.0010    "};
    for (const std::string& l : lines) {
        tav_version_display();
        EXPECT_EQ(lcd(0), row(9));
        EXPECT_EQ(lcd(1), l);
        keys("R");
    }
    EXPECT_EQ(tav_version_get_sec(), 2); // RIGHT on the last page stays
    keys("L");
    EXPECT_EQ(tav_version_get_sec(), 1);
    keys("B"); // left on page 1 and entered again from the reset menu: page 1
    g_tav_menu = menu_reset;
    keys("M");
    ASSERT_EQ(g_tav_menu, menu_display_version);
    tav_version_display();
    EXPECT_EQ(lcd(1), lines[1]);
    // Refreshing only reads; odd texts and firmware numbers.
    std::ofstream(root() + "/sim/quoral_version") << std::string(200, '9') << "\n";
    key_hard_ver.store({123, 2, 255});
    tav_version_refreash();
    EXPECT_STREQ(g_tav_version.main_ver, "9999999999");
    EXPECT_STREQ(g_tav_version.hard_key_ver, "99.02.0255");
    EXPECT_EQ(tool_calls("tav_version").size(), 5u);
    std::ofstream(root() + "/sim/quoral_version", std::ios::trunc); // prints nothing
    tav_version_refreash();
    EXPECT_STREQ(g_tav_version.main_ver, "00.00.0000");
}

} // namespace
