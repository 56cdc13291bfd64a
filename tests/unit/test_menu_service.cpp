// The service menus: EDID copy, network display, reset and versions, with
// the real device tools on PATH recording their calls below $TAV_ROOT/sim.
#include <cstring>

#include "menu_fixture.h"
#include "tav_menu_dispay_version.h"

using namespace mtest;

namespace {

// ---------------------------------------------------------------------------
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

TEST_F(Edid, OutcomeOfTheLastField) {
    struct Case {
        const char* keys;
        uint8_t err, sel_port_step, src, dest;
    };
    const Case cases[] = {
        {"03", TAV_EDID_ENTRY, 1, 3, 0},
        {"12", TAV_EDID_ENTRY, 1, 12, 0},
        {"00", TAV_EDID_ENTRY, 1, 0, 0},
        {"0R", TAV_EDID_ENTRY, 1, 0, 0},
        {"3R", TAV_EDID_ENTRY, 1, 3, 0},
        {"17", TAV_EDID_ERR_SRC_NOCFG, 0, 17, 0},
        {"99", TAV_EDID_ERR_SRC_NOCFG, 0, 99, 0},
        {"0305", TAV_EDID_COPY_REQUESTED, 1, 3, 5},
        {"0005", TAV_EDID_COPY_REQUESTED, 1, 0, 5},
        {"0905", TAV_EDID_COPY_REQUESTED, 1, 9, 5},
        {"3R5R", TAV_EDID_COPY_REQUESTED, 1, 3, 5},
        {"0303", TAV_EDID_ERR_SAME_PORT, 1, 3, 3},
        {"0909", TAV_EDID_ERR_SAME_PORT, 1, 9, 9},
        {"0310", TAV_EDID_ERR_DEST_OUTPUT, 1, 3, 10},
        {"0300", TAV_EDID_ERR_DEST_NOCFG, 1, 3, 0},
        {"030R", TAV_EDID_ERR_DEST_NOCFG, 1, 3, 0},
        {"0317", TAV_EDID_ERR_DEST_NOCFG, 1, 3, 17},
        {"0340", TAV_EDID_ERR_DEST_NOCFG, 1, 3, 40},
        // Source 0 and destination 0 are the same port: checked before "0".
        {"0000", TAV_EDID_ERR_SAME_PORT, 1, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.keys);
        enter();
        keys(c.keys);
        EXPECT_EQ(s().err, c.err);
        EXPECT_EQ(s().sel_port_step, c.sel_port_step);
        EXPECT_EQ(s().src, c.src);
        if (c.sel_port_step == 1 && c.err != TAV_EDID_ENTRY) {
            EXPECT_EQ(s().dest, c.dest);
        }
        EXPECT_EQ(s().step, 0);
    }
}

// The refusal page, then the clearing: refused destinations return to the
// destination with the source kept; a refused source and a copy start over.
TEST_F(Edid, RefusalPageAndOutcomeClearing) {
    struct Case {
        const char* keys;
        uint8_t sel_port_step, src;
        int top; // row of the refusal, 0: the copy runs
    };
    for (const Case& c : {Case{"17", 0, 0, 33}, Case{"0300", 1, 3, 33}, Case{"0310", 1, 3, 31},
                          Case{"0303", 1, 3, 35}, Case{"0305", 0, 0, 0}}) {
        SCOPED_TRACE(c.keys);
        enter();
        keys(c.keys);
        tav_edid_display();
        if (c.top == 0) {
            ASSERT_EQ(s().err, TAV_EDID_COPY_DONE);
        } else {
            EXPECT_EQ(lcd(0), row(c.top));
            EXPECT_EQ(lcd(1), row(c.top + 1));
        }
        tav_edid_handle_err();
        EXPECT_EQ(s().err, TAV_EDID_ENTRY);
        EXPECT_EQ(s().dest, 0);
        EXPECT_EQ(s().sel_port_step, c.sel_port_step);
        EXPECT_EQ(s().src, c.src);
        EXPECT_EQ(g_tav_menu, menu_edid_switch);
    }
    keys("0303"
         "05"); // the first key clears the refusal and is then handled
    EXPECT_EQ(s().err, TAV_EDID_COPY_REQUESTED);
    EXPECT_EQ(s().dest, 5);
}

TEST_F(Edid, LeftRightAndRetyping) {
    keys("R"); // RIGHT with nothing typed
    EXPECT_EQ(s().sel_port_step, 0);
    keys("03L"); // back from the destination to the source
    EXPECT_EQ(s().sel_port_step, 0);
    keys("0705");
    EXPECT_EQ(s().src, 7);
    EXPECT_EQ(s().err, TAV_EDID_COPY_REQUESTED);
    enter();
    keys("0L"); // drops the typed digit, stays
    EXPECT_EQ(g_tav_menu, menu_edid_switch);
    keys("L"); // nothing typed in the source: back to the shortcut menu
    EXPECT_EQ(g_tav_menu, menu_shortcut);
    for (auto [k, cleared] : {std::pair{"M", true}, std::pair{"D", false}}) {
        enter();
        keys("03");
        keys(k);
        EXPECT_EQ(s().src, cleared ? 0 : 3) << k;
    }
}

TEST_F(Edid, FieldColumnsFoundInTheRow) {
    struct Case {
        const char* row;
        int src_col, dest_col;
    };
    for (const Case& c :
         {Case{"                 SOURCE(__)=>DEST(__)   ", 24, 34}, Case{"IN(__) OUT(__", 3, -1},
          Case{"no fields here", -1, -1}, Case{"                                     (__)", -1, -1},
          Case{"((__))  (__)", 2, 9}}) {
        uint8_t r[TAV_MENU_COLS];
        memset(r, ' ', sizeof r);
        memcpy(r, c.row, std::min(strlen(c.row), sizeof r));
        EXPECT_EQ(tav_edid_field_column(r, 0), c.src_col) << c.row;
        EXPECT_EQ(tav_edid_field_column(r, 1), c.dest_col) << c.row;
    }
}

TEST_F(Edid, EntryPageCopyAndResultPages) {
    struct Step {
        const char* keys;
        const char* bottom; // columns 17 to 36
        int cursor_col;
    };
    for (const Step& st :
         {Step{"", "SOURCE(__)=>DEST(__)", 24}, Step{"0", "SOURCE(0_)=>DEST(__)", 25},
          Step{"3", "SOURCE(03)=>DEST(__)", 34}, Step{"0", "SOURCE(03)=>DEST(0_)", 35},
          Step{"L", "SOURCE(__)=>DEST(__)", 24}}) {
        keys(st.keys);
        tav_edid_display();
        EXPECT_EQ(lcd(0), row(29)) << st.keys;
        EXPECT_EQ(lcd(1).substr(17, 20), st.bottom) << st.keys;
        EXPECT_EQ(panel().cursor_col, st.cursor_col) << st.keys;
    }
    for (int32_t result : {0, -1}) {
        enter();
        fakematrix::state().set_edid_result = result;
        keys("0305");
        tav_edid_display(); // shows both fields, then copies
        EXPECT_EQ(lcd(1).substr(17, 20), "SOURCE(03)=>DEST(05)");
        EXPECT_EQ(s().err, result == 0 ? TAV_EDID_COPY_DONE : TAV_EDID_COPY_FAILED);
        tav_edid_display();
        EXPECT_EQ(lcd(0), row(result == 0 ? 39 : 37));
        EXPECT_EQ(lcd(1), row(result == 0 ? 40 : 38));
    }
    // A configured row without fields: entry still works, nothing is written
    // outside the line.
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
    const Case cases[] = {
        {3, 5, 0, 0, 0, {"get_port_edid(3,0,300)", "set_port_edid(5,0,256)"}, {"0 3 5 0"}, 0},
        {0, 5, 0, 0, 0, {"get_port_edid(5,2,300)", "set_port_edid(5,0,256)"}, {"2 0 5 0"}, 0},
        {12, 5, 0, 0, 0, {"get_port_edid(12,1,300)", "set_port_edid(5,0,256)"}, {"1 12 5 0"}, 0},
        {3, 5, -6, 0, -6, {"get_port_edid(3,0,300)"}, {}, 0},
        {3, 10, 0, 0, -2, {"get_port_edid(3,0,300)"}, {}, 0},
        {3, 5, 0, 4, 4, {"get_port_edid(3,0,300)", "set_port_edid(5,0,256)"}, {"0 3 5 0"}, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << int(c.src) << "->" << int(c.dest));
        fakematrix::state().calls.clear();
        std::remove((root() + "/sim/tav_echo_cpedid.log").c_str());
        std::remove((root() + "/sim/tav_echo_clean_edid.log").c_str());
        fakematrix::state().get_edid_result = c.get_result;
        fakematrix::state().set_edid_result = c.set_result;
        EXPECT_EQ(edid_copy_down(c.src, c.dest), c.expected);
        EXPECT_EQ(calls(), c.lib);
        EXPECT_EQ(tool_calls("tav_echo_cpedid"), c.cpedid);
        EXPECT_EQ(tool_calls("tav_echo_clean_edid").size(), c.cleans);
    }
    fakematrix::state().get_edid_result = fakematrix::state().set_edid_result = 0;
    std::vector<uint8_t> src(300);
    for (size_t i = 0; i < src.size(); ++i)
        src[i] = static_cast<uint8_t>(i * 7);
    auto& edid = fakematrix::state().edid;
    edid[{3, em_matrix_edid_in}] = src;
    ASSERT_EQ(edid_copy_down(3, 5), 0);
    EXPECT_EQ(edid[std::make_pair(5, int32_t{em_matrix_edid_in})],
              std::vector<uint8_t>(src.begin(), src.begin() + 256));
    // Nothing read: the buffer's own start (0xFF, then zeros) is written.
    ASSERT_EQ(edid_copy_down(0, 6), 0);
    std::vector<uint8_t> blank(256, 0);
    blank[0] = 0xFF;
    EXPECT_EQ(edid[std::make_pair(6, int32_t{em_matrix_edid_in})], blank);
}

// ---------------------------------------------------------------------------
// Network display.
TEST(EthPad, PadsGroupsToThreeDigits) {
    const std::pair<std::string, std::string> cases[] = {
        {"192.168.1.39\n", "192.168.001.039\n"},
        {"10.0.0.1\n", "010.000.000.001\n"},
        {"192.168.001.039\n", "192.168.001.039\n"},
        // Without the line end the last group gets one zero too many.
        {"1.2.3.4", "001.002.003.0004"},
        {"00:1A:2B:3C:4D:5E", "00:1A:2B:3C:4D:5E"},
        {"", "0000000000000000"},
        {"0000000000000000", "0000000000000000"},
        {"12345678901234567", "12345678901234567"},
    };
    for (const auto& [in, out] : cases) {
        char field[18] = {};
        memcpy(field, in.data(), in.size());
        AddIP_GATE_MASK_0(field);
        EXPECT_EQ(std::string(field, strnlen(field, sizeof field)), out) << in;
    }
}

TEST(EthRead, ReadsOnlyTheFirstLine) {
    struct Case {
        const char* cmd;
        int len, result;
        std::string text;
    };
    for (const Case& c :
         {Case{"printf '10.0.0.1\\nsecond\\n'", 18, 0, "10.0.0.1\n"},
          Case{"printf 'abc'", 18, 0, "abc"},
          Case{"printf '%0100d\\n' 0", 18, 0, std::string(17, '0')}, Case{"true", 18, -1, "old"},
          Case{"/nonexistent/tool 2>/dev/null", 18, -1, "old"}, Case{"echo x", 1, -1, "old"}}) {
        char buf[40];
        memset(buf, '#', sizeof buf);
        strcpy(buf, "old");
        EXPECT_EQ(mytav_btool_system(c.cmd, buf, c.len), c.result) << c.cmd;
        EXPECT_EQ(std::string(buf), c.text) << c.cmd;
        for (int i = std::max(c.len, 4); i < static_cast<int>(sizeof buf); ++i)
            ASSERT_EQ(buf[i], '#') << c.cmd << ": written past len at " << i;
    }
}

TEST_F(MenuTest, EthPagesAskTheToolAndShowTheField) {
    std::ofstream(root() + "/sim/ifcfg.conf")
        << "eth0 MASK 255.255.255.255.255.255.255\neth1 IP -\n";
    struct Case {
        const char* keys; // interface, then value
        TAV_ENUM_MENUSTATUS menu;
        const char* tool;  // its recorded call
        const char* title; // columns 10 to 39
        const char* shown; // columns 14 to 39
    };
    const Case cases[] = {
        {"11", menu_eth_ip, "eth0 IP", "CURRENT SYSTEM ETH0 IP        ",
         "192.168.001.039           "},
        {"12", menu_eth_mac, "eth0 MAC", "CURRENT SYSTEM ETH0 MAC       ",
         "00:1A:2B:3C:4D:5E         "},
        {"24", menu_eth_gate, "eth1 GATEWAY", "CURRENT SYSTEM ETH1 GATEWAY   ",
         "010.000.000.001           "},
        // Nothing printed leaves a never-filled field: fifteen of its zeros.
        {"21", menu_eth_ip, "eth1 IP", "CURRENT SYSTEM ETH1 IP        ",
         "000000000000000           "},
        // An overlong line is cut to the field.
        {"13", menu_eth_mask, "eth0 MASK", "CURRENT SYSTEM ETH0 MASK      ",
         "255.255.255.255           "},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.tool);
        std::remove((root() + "/sim/tav_ifcfg.log").c_str());
        memset(g_tav_eth, 0, sizeof g_tav_eth);
        g_tav_menu = menu_eth_select;
        keys(c.keys);
        EXPECT_EQ(g_tav_menu, c.menu);
        EXPECT_EQ(tool_calls("tav_ifcfg"), std::vector<std::string>{c.tool});
        draw();
        EXPECT_EQ(lcd(0), std::string(10, ' ') + c.title);
        EXPECT_EQ(lcd(1), std::string(14, ' ') + c.shown);
    }
    g_tav_menu = menu_eth_select;
    keys("29"); // 9 does nothing in the value menu
    EXPECT_EQ(g_tav_menu, menu_eth_display);
    draw();
    EXPECT_EQ(lcd(0).substr(12, 16), "ETH1 NET DISPLAY");
    EXPECT_EQ(lcd(1), row(7));
}

// ---------------------------------------------------------------------------
// Reset menu: confirmation steps, requests to the core and the flag file.
TEST_F(MenuTest, ResetRequestsAndFlagFile) {
    const std::string flag = root() + "/tmp/tav_z8_reboot.flag";
    const std::string R1 = "set_inner_signal_reboot_opt(1)";
    struct Case {
        const char* keys;
        std::vector<std::string> requests;
        const char* flag;
        uint8_t step;
    };
    const Case cases[] = {
        {"2TT", {"set_inner_signal_reboot_opt(2)"}, "2\n", 3}, // factory needs two TAKEs
        {"2T", {}, "", 3},
        {"1TT", {R1, R1}, "1\n", 1},
        {"2L1T", {R1}, "1\n", 1},
        {"T", {}, "", 0},
        {"5", {}, "", 0},
        {"12T", {R1}, "1\n", 1}, // digits ignored while confirming
        {"2TLT", {}, "", 0},
        {"1RD", {}, "", 1},
    };
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
        EXPECT_EQ(g_tav_menu, menu_reset);
    }
}

TEST_F(MenuTest, ResetPagesAndTakeBlink) {
    g_tav_menu = menu_reset;
    struct Step {
        const char* keys;
        int top;
        bool blink;
    };
    for (const Step& st : {Step{"", 65, false}, Step{"2", 69, true}, Step{"T", 71, true},
                           Step{"L", 65, false}, Step{"1", 67, true}}) {
        keys(st.keys);
        tav_menu_reset_display();
        EXPECT_EQ(lcd(0), row(st.top)) << st.keys;
        EXPECT_EQ(lcd(1), row(st.top + 1)) << st.keys;
        EXPECT_EQ(panel().led_blink, st.blink ? 1u << TAV_KEY_TAKE : 0u) << st.keys;
    }
    // Leaving for the versions resets the step and reads the versions again.
    std::ofstream(root() + "/sim/quoral_version") << "3.10.42\n";
    keys("2M");
    EXPECT_EQ(g_tav_menu, menu_display_version);
    EXPECT_EQ(tav_menu_reset_get_step(), 0);
    EXPECT_STREQ(g_tav_version.main_ver, "03.10.0042");
    // DEFAULT opens the first step again, from wherever it was left.
    g_tav_menu = menu_reset;
    keys("2T");
    g_tav_menu = menu_eth_mask;
    keys("D");
    EXPECT_EQ(g_tav_menu, menu_reset);
    EXPECT_EQ(tav_menu_reset_get_step(), 0);
}

// ---------------------------------------------------------------------------
// Version display.
TEST(VersionText, PadsToTwoTwoFour) {
    const std::pair<std::string, std::string> cases[] = {{"3.10.42\n", "03.10.0042"},
                                                         {"1.2.3", "01.02.0003"},
                                                         {"12.34.5678\n", "12.34.5678"},
                                                         {"12.34.5678901234", "12.34.5678"},
                                                         {"123.4.5\n", "12300.0004"},
                                                         {"abc", "abc"},
                                                         {"", ""}};
    for (const auto& [in, out] : cases) {
        char src[64] = {};
        memcpy(src, in.data(), in.size());
        char dest[12];
        memset(dest, 0x5A, sizeof dest);
        tav_version_add_0(src, dest);
        EXPECT_EQ(std::string(dest, strnlen(dest, 11)), out) << in;
        EXPECT_EQ(dest[11], 0x5A) << in; // ten characters and the terminator at most
    }
}

class Version : public MenuTest {
  protected:
    void SetUp() override {
        MenuTest::SetUp();
        key_hard_ver.key_main_ver = 5;
        key_hard_ver.key_minor_ver = 2;
        key_hard_ver.key_build_ver = 10;
        tav_version_clear();
        g_tav_menu = menu_display_version;
    }
    static void main_version(const std::string& text) {
        std::ofstream(root() + "/sim/quoral_version") << text;
    }
};

TEST_F(Version, ReadsPublishesAndRefreshes) {
    tav_version_handle();
    EXPECT_STREQ(g_tav_version.main_ver, "03.10.0042"); // the tool's own default
    EXPECT_STREQ(g_tav_version.soft_key_ver, "01.01.0001");
    EXPECT_STREQ(g_tav_version.hard_key_ver, "05.02.0010");
    EXPECT_EQ(tool_calls("tav_version"),
              (std::vector<std::string>{"quoral_version", "tav_keyboard_soft 01.01.0001",
                                        "tav_keyboard_hard 05.02.0010"}));
    EXPECT_EQ(pauses().size(), 1u);
    EXPECT_EQ(pauses()[0].ms, 1000u);
    // Refreshing only reads.
    main_version("1.2.3\n");
    key_hard_ver.key_main_ver = 123;
    key_hard_ver.key_minor_ver = 255;
    key_hard_ver.key_build_ver = 255;
    tav_version_refreash();
    EXPECT_STREQ(g_tav_version.main_ver, "01.02.0003");
    EXPECT_STREQ(g_tav_version.hard_key_ver, "99.99.0255");
    EXPECT_EQ(tool_calls("tav_version").size(), 4u);
    main_version(std::string(200, '9') + "\n");
    tav_version_refreash();
    EXPECT_STREQ(g_tav_version.main_ver, "9999999999");
    main_version(""); // the tool prints nothing
    tav_version_refreash();
    EXPECT_STREQ(g_tav_version.main_ver, "00.00.0000");
}

TEST_F(Version, PagesAndKeys) {
    tav_version_refreash();
    const std::string lines[] = {"      MAIN APP VERSION  : 03.10.0042  >>",
                                 "<<    SOFT KEY VERSION  : 01.01.0001  >>",
                                 "<<    HARD KEY VERSION  : 05.02.0010    "};
    for (int page = 0; page < 3; ++page) {
        tav_version_display();
        EXPECT_EQ(lcd(0), row(9));
        EXPECT_EQ(lcd(1), lines[page]);
        keys("R");
    }
    struct Case {
        const char* keys;
        uint8_t page_after;
    };
    for (const Case& c :
         {Case{"L", 0}, Case{"RL", 0}, Case{"RR", 2}, Case{"RRR", 2}, Case{"RT3", 1}}) {
        tav_version_clear();
        g_tav_menu = menu_display_version;
        keys(c.keys);
        EXPECT_EQ(tav_version_get_sec(), c.page_after) << c.keys;
        EXPECT_EQ(g_tav_menu, menu_display_version);
    }
}

} // namespace
