// The text table and its configuration file, the composition of LCD lines,
// the LED scenes and the port tables' rebuild from the library.
#include <algorithm>
#include <unistd.h>

#include "menu_fixture.h"
#include "tav_menu_display_str.h"
#include "tav_menu_led.h"

using namespace mtest;

namespace {

std::string pad40(const std::string& s) {
    return s + std::string(40 - s.size(), ' ');
}

// The configuration key of each text row ("Manual_cfg_" KEY "="), "" for
// the rows without one, and the blanks each built-in row starts with.
// clang-format off
const char* const kRowKey[TAV_MENU_ROWS] = {
    "", "vendor_name", "matrix_name", "load_main", "please_wait", "", "", "", "",
    "Version_display_first_line", "No_InPort_Warning", "No_OutPort_Warning", "No_In_Out_Warning",
    "Card_X_insert", "Wait_for_card_init", "Card_X_PullOut", "", "Device_update_Start_line1",
    "Device_update_Start_line2", "Device_update_complete_line1", "LinuxArm_updating_line1",
    "Device_update_complete_line2", "Card_Slot_x_updating_line1",
    "Matrix_Monitoring_Card_updating_line1", "update_percentage", "update_Err_line1",
    "update_Err_line2", "No_aud_InPort_Warning", "No_aud_OutPort_Warning", "EDID_First_line",
    "EDID_Secend_line", "EDID_Des_output_err_line1", "EDID_Des_output_err_line2",
    "EDID_err_no_con_line1", "EDID_err_no_con_line2", "EDID_err_same_port_line1",
    "EDID_err_same_port_line2", "EDID_err_copy_line1", "EDID_err_copy_line2",
    "EDID_success_copy_line1", "EDID_success_copy_line2", "update_Err_Linux_arm_line2",
    "update_Err_Matrix_Monitor_Card_line2", "Shortcut_line1", "Shortcut_line2",
    "select_swall_line1", "select_swall_line2", "swall_vid_line2", "swall_aud_line2",
    "swall_vclose_line1", "swall_aclose_line1", "swall_vid_switching_line1",
    "swall_vid_switching_line2", "swall_aud_switching_line1", "swall_aud_switching_line2",
    "swall_vid_Closing_line1", "swall_vid_Closing_line2", "swall_aud_Closing_line1",
    "swall_aud_Closing_line2", "restart_line1", "restart_line2", "factory_line1", "factory_line2",
    "restart_update_line1", "restart_update_line2", "reset_interface_line1",
    "reset_interface_line2", "reset_con_line1", "reset_con_line2", "factory_con_line1",
    "factory_con_line2", "factory_recon_line1", "factory_recon_line2",
    "Inner_Net_Switcher_updating_line1", "", "", "", "",
};
const int kLead[TAV_MENU_ROWS] = {
    0, 6, 11, 9, 11, 12, 12, 7, 10, 4, 1, 1, 8, 8, 5, 11, 8, 7, 4, 7, 9, 11, 4, 7, 5, 4, 8, 1, 1,
    10, 17, 0, 8, 1, 8, 2, 8, 10, 11, 10, 11, 8, 0, 1, 1, 15, 2, 20, 20, 2, 2, 8, 13, 8, 13, 8, 13,
    8, 13, 9, 13, 3, 13, 1, 13, 6, 5, 7, 9, 4, 9, 4, 7, 1, 3, 3, 6, 4,
};
// clang-format on

TEST(TextTable, BuiltInRowsStartAtTheirColumnAndHeadsAreSixCharacters) {
    tav_menu_strcfg_defaults();
    for (int r = 1; r < TAV_MENU_ROWS; ++r) {
        const std::string text = row(r);
        EXPECT_EQ(text.find_first_not_of(' '), static_cast<size_t>(kLead[r])) << "row " << r;
    }
    const char* heads[] = {"VOSW: ", "VISW: ", "AOSW: ", "AISW: ", "VOUT: ",
                           "VIN : ", "AOUT: ", "AIN : ", "ILIST:", "ILIST:"};
    for (int h = 0; h < TAV_MENU_HEADS; ++h) {
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(MENU_SPC_HEAD[h]), 7),
                  std::string(heads[h], 7));
    }
}

class CfgFile : public ::testing::Test {
  protected:
    void SetUp() override { tavtest::PanelCapture::get(); }
    void TearDown() override { tav_menu_strcfg_defaults(); }
    // Reads `content` as the configuration, starting from the built-in state.
    void load(const std::string& content) {
        tav_menu_strcfg_defaults();
        for (bool_t* f : {&g_tav_shortcut_key3, &g_tav_shortcut_key4, &g_tav_shortcut_key6,
                          &g_tav_shortcut_key9})
            *f = false;
        g_tav_shortcut_key1 = g_tav_shortcut_key7 = true;
        std::string path = root() + "/cfg.txt";
        std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
        tav_cfg_loadfile(path.data());
    }
    // Every row but `except` still holds its built-in text.
    void expect_other_rows_default(int except) {
        for (int r = 0; r < TAV_MENU_ROWS; ++r) {
            if (r != except) {
                EXPECT_EQ(row(r), defaults_[r]) << "row " << r;
            }
        }
    }
    std::vector<std::string> defaults_ = [] {
        tav_menu_strcfg_defaults();
        std::vector<std::string> d;
        for (int r = 0; r < TAV_MENU_ROWS; ++r)
            d.push_back(row(r));
        return d;
    }();
};

TEST_F(CfgFile, EveryRowKeySetsItsOwnRowOnly) {
    for (int r = 0; r < TAV_MENU_ROWS; ++r) {
        if (kRowKey[r][0] != '\0') {
            load(std::string("Manual_cfg_") + kRowKey[r] + "= {Row " + std::to_string(r) + "}\n");
            EXPECT_EQ(row(r), pad40("Row " + std::to_string(r))) << kRowKey[r];
            expect_other_rows_default(r);
        }
    }
    const char* heads[] = {"switch_video_head_line1", "switch_video_head_line2",
                           "switch_audio_head_line1", "switch_audio_head_line2",
                           "video_io_head_line1",     "video_io_head_line2",
                           "audio_io_head_line1",     "audio_io_head_line2",
                           "video_swall_head_line1",  "audio_swall_head_line1"};
    for (int h = 0; h < TAV_MENU_HEADS; ++h) {
        load(std::string("Manual_cfg_") + heads[h] + "= {" + std::to_string(h) + "ABCDEFGHI}\n");
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(MENU_SPC_HEAD[h]), 7),
                  std::to_string(h) + "ABCDE" + '\0')
            << heads[h];
    }
    // A short value is padded, an unreadable one blanks the head.
    load("Manual_cfg_video_io_head_line2= {IN}\nManual_cfg_audio_swall_head_line1={X}\n");
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(MENU_SPC_HEAD[5]), 6), "IN    ");
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(MENU_SPC_HEAD[9]), 6), "      ");
}

TEST_F(CfgFile, ValueFormOfATextRow) {
    const std::string key = "Manual_cfg_vendor_name=";
    const std::string dflt = "      QUORAL ELECTRONICS Co.,LTD";
    const std::pair<std::string, std::string> cases[] = {
        {key + " {ACME}\n", "ACME"},
        {key + "\"{ACME}\"\n", "ACME"},
        {key + "{ACME}\n", ""}, // the brace right after "="
        {key + " ACME\n", ""},
        {key + " {}\n", ""},
        {key, ""},
        {key + " {ACME CORP\n", "ACME CORP"},
        {key + " {ACME", "ACME"},
        {key + " {   ACME  }\n", "   ACME  "},
        {key + " {" + std::string(45, 'x') + "}\n", std::string(40, 'x')},
        {"xx" + key + "abc{ACME}def\n", "ACME"},
        {key + " {A}{B}\n", "A"},
        {"manual_cfg_vendor_name= {ACME}\n", dflt},
        {"Manual_cfg_vendor_name {ACME}\n", dflt},
        {key + " {ACME}\r\n", "ACME"},
        {key + " {ONE}\n" + key + " {TWO}\n", "TWO"},
        {"", dflt},
        {std::string("junk\0", 5) + key + " {hidden}\n", dflt}, // after a NUL byte
    };
    for (const auto& [file, row1] : cases) {
        load(file);
        EXPECT_EQ(row(1), pad40(row1)) << file;
        expect_other_rows_default(1);
    }
}

TEST_F(CfgFile, KeyOrderLongLinesAndMissingFiles) {
    // Of two keys on a line the earlier one of the reading order applies.
    load("Manual_cfg_matrix_name= {M} Manual_cfg_vendor_name= {V}\n");
    EXPECT_EQ(row(1), pad40("V"));
    EXPECT_EQ(row(2), defaults_[2]);
    // Lines are read in pieces of 127 characters: a key cut by the boundary
    // is not found, a value cut by it ends with the first piece.
    const std::string key = "Manual_cfg_vendor_name=";
    load(std::string(120, '-') + key + " {CUT}\n");
    EXPECT_EQ(row(1), defaults_[1]);
    const std::string first = std::string(100, '-') + key + " {";
    load(first + std::string(30, 'v') + "}\n");
    EXPECT_EQ(row(1), pad40(std::string(127 - first.size(), 'v')));
    tav_menu_strcfg_defaults();
    char missing[] = "/nonexistent/tav_keyboard.cfg";
    tav_cfg_loadfile(missing);
    tav_cfg_loadfile(nullptr);
    expect_other_rows_default(-1);
}

TEST_F(CfgFile, MenuInitReadsTheFileBelowTheRoot) {
    const std::string cfg = root() + "/nandflash/config/tav_keyboard.cfg";
    std::ofstream(cfg) << "Manual_cfg_set_delay_key_9_valid= {1}\n"
                          "Manual_cfg_matrix_name= {MY MATRIX}\n";
    tav_menu_init();
    std::remove(cfg.c_str());
    EXPECT_TRUE(g_tav_shortcut_key9);
    EXPECT_EQ(row(2), pad40("MY MATRIX"));
    tav_menu_init(); // without the file: back to the built-in texts
    EXPECT_FALSE(g_tav_shortcut_key9);
    EXPECT_EQ(row(2), defaults_[2]);
}

// ---------------------------------------------------------------------------
// Line composition: number slots, and the port lines of the pages.

// A line buffer with a guard zone behind its 41 bytes.
struct Line {
    int8_t b[48];
    Line() { memset(b, '#', sizeof b); }
    std::string str(size_t from = 0, size_t n = 40) const {
        return std::string(reinterpret_cast<const char*>(b) + from, n);
    }
    bool guard_intact() const {
        return std::all_of(b + 41, b + sizeof b, [](int8_t c) { return c == '#'; });
    }
};

class PortLines : public MenuTest {
  protected:
    int sw(uint8_t start, uint8_t max_out) {
        return tav_menu_print_sw_outin(1, start, g_tav_outlist, max_out, g_tav_portbuf, out_.b,
                                       in_.b);
    }
    Line out_, in_;
};

TEST_F(PortLines, StatusLinesSkipMissingInputsAndStopAtANonOutput) {
    device({range(1, 20), range(21, 40)}, {});
    for (int p = 21; p <= 40; ++p) {
        g_tav_portbuf[p - 1].in_for_out = static_cast<uint8_t>(p - 20);
    }
    g_tav_portbuf[20].in_for_out = 40; // the device's last port
    g_tav_portbuf[21].in_for_out = 0;  // nothing switched
    g_tav_portbuf[22].in_for_out = 41; // above the device's port count
    EXPECT_EQ(sw(0, 3), 0);
    EXPECT_EQ(out_.str(), pad40("VOSW: 21 22 23"));
    EXPECT_EQ(in_.str(), pad40("VISW: 40"));
    EXPECT_EQ(sw(12, 20), 0);
    EXPECT_EQ(out_.str(), pad40("VOSW: 33 34 35 36 37 38 39 40"));
    EXPECT_EQ(in_.str(), pad40("VISW: 13 14 15 16 17 18 19 20"));
    g_tav_portbuf[22].port_io = em_matrix_in; // port 23, third slot
    EXPECT_EQ(sw(0, 5), em_err_inparam);
    EXPECT_EQ(out_.str(), pad40("VOSW: 21 22"));
    g_tav_outlist[1] = 0; // a number the table cannot hold
    EXPECT_EQ(sw(0, 5), em_err_inparam);
    EXPECT_EQ(out_.str(), pad40("VOSW: 21"));

    uint8_t outs[128] = {9, 10, 11};
    uint8_t ins[128] = {1, 2, 3, 4, 5, 6, 7, 8, 100};
    EXPECT_EQ(tav_menu_print_io_outin(2, 2, outs, 3, ins, 9, 9, out_.b, in_.b), 0);
    EXPECT_EQ(out_.str(), pad40("AOUT: 11"));
    EXPECT_EQ(in_.str(), pad40("AIN : 03 04 05 06 07 08 :0"));
    EXPECT_EQ(tav_menu_print_str_for_switch_all(2, 8, ins, 9, out_.b), 0);
    EXPECT_EQ(out_.str(), pad40("ILIST::0"));
    EXPECT_TRUE(out_.guard_intact());
}

// ---------------------------------------------------------------------------
// LED scenes: the usable keys of each menu.
constexpr uint32_t bit(int n) {
    return 1u << n;
}
constexpr uint32_t L = bit(10), R = bit(11), TAKE = bit(14), M = bit(15), LOCK = bit(16),
                   LCD = bit(31);

uint32_t scene_mask(TAV_ENUM_MENUSTATUS state, bool take) {
    uint8_t leds[TAV_LED_SCENE_MAX];
    const uint8_t n = tav_menu_led_scene(state, take, leds);
    uint32_t mask = 0;
    for (uint8_t i = 0; i < n; ++i)
        mask |= bit(leds[i]);
    return mask;
}

TEST_F(MenuTest, LedScenes) {
    struct Case {
        TAV_ENUM_MENUSTATUS state;
        bool lcd, lock, take;
        uint32_t mask;
    };
    const Case cases[] = {
        {menu_spc, false, false, false, L | R | M},
        {menu_hot_plug, false, false, false, L | R | M | LCD},
        {menu_hot_plug, false, true, false, LCD | LOCK},
        {menu_vid_display, true, false, false, L | R | M | LCD},
        {menu_aud_display, true, true, false, L | R | M | LCD},
        {menu_vid_switch, false, false, true, L | R | M | LCD},
        {menu_shortcut, false, false, false, bit(1) | bit(7) | M | LCD},
        {menu_switch_all, false, false, false, bit(1) | bit(2) | L | M | LCD},
        {menu_switch_aud_all, false, false, true, L | R | M | LCD},
        {menu_eth_select, false, false, false, bit(1) | bit(2) | M | LCD},
        {menu_eth_display, false, false, false, bit(1) | bit(2) | bit(3) | bit(4) | L | M | LCD},
        {menu_eth_mask, false, false, false, L | M | LCD},
        {menu_reset, false, false, false, bit(1) | bit(2) | M | LCD},
        {menu_reset, false, false, true, L | M | LCD},
        {menu_display_version, false, false, false, L | R | M | LCD},
        {menu_update, false, true, false, LCD | LOCK},
        {menu_lock, false, true, false, LOCK},
        {static_cast<TAV_ENUM_MENUSTATUS>(23), true, false, false, 0},
    };
    for (const Case& c : cases) {
        g_tav_lcd = c.lcd;
        g_tav_lock = c.lock;
        EXPECT_EQ(scene_mask(c.state, c.take), c.mask) << c.state << " lock " << c.lock;
    }
    g_tav_lcd = false;
    g_tav_lock = false;
    g_tav_shortcut_key1 = g_tav_shortcut_key7 = false;
    g_tav_shortcut_key3 = g_tav_shortcut_key9 = true;
    EXPECT_EQ(scene_mask(menu_shortcut, false), bit(3) | bit(9) | M | LCD);
}

// ---------------------------------------------------------------------------
// The port tables' rebuild, for each kind.
class PortTables : public MenuTest, public ::testing::WithParamInterface<bool> {
  protected:
    void port(int p, int32_t io, int32_t route = 0) {
        auto& fp = fakematrix::state().ports[static_cast<size_t>(p)];
        (GetParam() ? fp.vio : fp.aio) = io;
        (GetParam() ? fp.vroute : fp.aroute) = route;
    }
    static void rebuild() { GetParam() ? load_main_set_up() : load_main_aud_set_up(); }
    static TAV_PORT_STATE* buf() { return GetParam() ? g_tav_portbuf : g_tav_aud_portbuf; }
    static std::vector<int> ins() {
        const uint8_t* l = GetParam() ? g_tav_inlist : g_tav_aud_inlist;
        return std::vector<int>(l, l + (GetParam() ? g_tav_in_max : g_tav_aud_in_max));
    }
    static std::vector<int> outs() {
        const uint8_t* l = GetParam() ? g_tav_outlist : g_tav_aud_outlist;
        return std::vector<int>(l, l + (GetParam() ? g_tav_out_max : g_tav_aud_out_max));
    }
};

TEST_P(PortTables, ListsInOrderWithRoutesAndOnlyInputsAndOutputs) {
    fakematrix::state().ports = {};
    port(1, em_matrix_in);
    port(2, em_matrix_mix, 7);
    port(3, em_matrix_ioundefine, 7);
    port(4, -5, 7);                // a failure of the library
    port(5, em_matrix_out, 0x101); // only the low 8 bits are kept
    port(6, em_matrix_in);
    port(7, em_matrix_out, 6);
    TAV_DEF_MAX_PORT = 8;
    rebuild();
    EXPECT_EQ(ins(), (std::vector<int>{1, 6}));
    EXPECT_EQ(outs(), (std::vector<int>{5, 7}));
    EXPECT_EQ(buf()[1].port_io, em_matrix_mix);
    EXPECT_EQ(buf()[1].in_for_out, 0xFF);
    EXPECT_EQ(buf()[3].port_io, em_matrix_unknown);
    EXPECT_EQ(buf()[4].in_for_out, 1);
    EXPECT_EQ(buf()[6].in_for_out, 6);
    EXPECT_EQ(buf()[0].in_for_out, 0xFF); // inputs keep their start value
    // A second rebuild with fewer ports shrinks the counts.
    port(6, em_matrix_unknown);
    rebuild();
    EXPECT_EQ(ins(), std::vector<int>{1});
    for (int32_t n : {0, -1}) { // no port count: nothing listed
        TAV_DEF_MAX_PORT = n;
        rebuild();
        EXPECT_TRUE(ins().empty() && outs().empty());
    }
    // More ports than the tables hold: the first 128.
    for (int p = 1; p <= 200; ++p)
        port(p, p <= 100 ? em_matrix_in : em_matrix_out, 1);
    TAV_DEF_MAX_PORT = 255;
    rebuild();
    EXPECT_EQ(ins().size(), 100u);
    EXPECT_EQ(outs(), range(101, 128));
    EXPECT_EQ(buf()[127].in_for_out, 1);
}

INSTANTIATE_TEST_SUITE_P(Kinds, PortTables, ::testing::Bool());

} // namespace
