// LCD text table defaults and the configuration file reader.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

#include "tav_menu_strcfg.h"
#include "tav_menu_var.h"

namespace {

struct RowSpec {
    int row;
    const char* key; // "" = the row has no key
    int blanks;
    const char* text;
};

// The rows of the text table as the product documents them.
const RowSpec k_rows[] = {
    {0, "", 0, ""},
    {1, "Manual_cfg_vendor_name=", 6, "QUORAL ELECTRONICS Co.,LTD"},
    {2, "Manual_cfg_matrix_name=", 11, "TR-90QX MATRIX"},
    {3, "Manual_cfg_load_main=", 9, "Loading Main Setup"},
    {4, "Manual_cfg_please_wait=", 11, "PLEASE WAIT......"},
    {5, "", 12, "ETH  NET DISPLAY"},
    {6, "", 12, "1 ETH0  2 ETH1"},
    {7, "", 7, "1IP 2MAC 3MASK 4GATEWAY"},
    {8, "", 10, "CURRENT SYSTEM ETH  IP"},
    {9, "Manual_cfg_Version_display_first_line=", 4, "Version Information Display"},
    {10, "Manual_cfg_No_InPort_Warning=", 1, "There Is NO INPUT CARD In This MATRIX"},
    {11, "Manual_cfg_No_OutPort_Warning=", 1, "There Is NO OUTPUT CARD In This MATRIX"},
    {12, "Manual_cfg_No_In_Out_Warning=", 8, "PLEASE CHECK YOUR MATRIX"},
    {13, "Manual_cfg_Card_X_insert=", 8, "Slot XX Has a Card Insert"},
    {14, "Manual_cfg_Wait_for_card_init=", 5, "Please wait it for Initialization"},
    {15, "Manual_cfg_Card_X_PullOut=", 11, "Card XX Pull out"},
    {16, "", 8, "The Matrix System Err"},
    {17, "Manual_cfg_Device_update_Start_line1=", 7, "The Device will update"},
    {18, "Manual_cfg_Device_update_Start_line2=", 4, "Please do not handle it anyway"},
    {19, "Manual_cfg_Device_update_complete_line1=", 7, "Device complete updating"},
    {20, "Manual_cfg_LinuxArm_updating_line1=", 9, "Linux ARM is Updating"},
    {21, "Manual_cfg_Device_update_complete_line2=", 11, "Please Wait......"},
    {22, "Manual_cfg_Card_Slot_x_updating_line1=", 4, "Matrix Monitoring Card is Updating"},
    {23, "Manual_cfg_Matrix_Monitoring_Card_updating_line1=", 7, "Slot XX Card is Updating"},
    {24, "Manual_cfg_update_percentage=", 5, "Device Card is Updating  XXX%"},
    {25, "Manual_cfg_update_Err_line1=", 4, "The Update Process Has Err Occur"},
    {26, "Manual_cfg_update_Err_line2=", 8, "Please update card XX again"},
    {27, "Manual_cfg_No_aud_InPort_Warning=", 1, "There Is NO Audio Input In This MATRIX"},
    {28, "Manual_cfg_No_aud_OutPort_Warning=", 1, "There Is NO Audio Output In This MATRIX"},
    {29, "Manual_cfg_EDID_First_line=", 10, "MATRIX EDID OPERATION"},
    {30, "Manual_cfg_EDID_Secend_line=", 17, "SOURCE(__)=>DEST(__)"},
    {31, "Manual_cfg_EDID_Des_output_err_line1=", 0, "You Have select output port as dest port"},
    {32, "Manual_cfg_EDID_Des_output_err_line2=", 8, "PLEASE RESELECT THE PORT"},
    {33, "Manual_cfg_EDID_err_no_con_line1=", 1, "The Port You Select is No Configure"},
    {34, "Manual_cfg_EDID_err_no_con_line2=", 8, "PLEASE RESELECT THE PORT"},
    {35, "Manual_cfg_EDID_err_same_port_line1=", 2, "The Port You Select The Same Port"},
    {36, "Manual_cfg_EDID_err_same_port_line2=", 8, "PLEASE RESELECT THE PORT"},
    {37, "Manual_cfg_EDID_err_copy_line1=", 10, "MATRIX EDID OPERATION"},
    {38, "Manual_cfg_EDID_err_copy_line2=", 11, "EDID COPY ERR Occur"},
    {39, "Manual_cfg_EDID_success_copy_line1=", 10, "MATRIX EDID OPERATION"},
    {40, "Manual_cfg_EDID_success_copy_line2=", 11, "EDID COPY Success"},
    {41, "Manual_cfg_update_Err_Linux_arm_line2=", 8, "Please update Linux Arm again"},
    {42, "Manual_cfg_update_Err_Matrix_Monitor_Card_line2=", 0,
     "Please update Matrix Monitor Card again"},
    {43, "Manual_cfg_Shortcut_line1=", 1, "1:inXX=>ALL"},
    {44, "Manual_cfg_Shortcut_line2=", 1, "7:EDID"},
    {45, "Manual_cfg_select_swall_line1=", 15, "inXX=>ALL"},
    {46, "Manual_cfg_select_swall_line2=", 2, "1:Video inXX=>ALL 2:Audio inXX=>ALL"},
    {47, "Manual_cfg_swall_vid_line2=", 20, "Video in__=>ALL"},
    {48, "Manual_cfg_swall_aud_line2=", 20, "Audio in__=>ALL"},
    {49, "Manual_cfg_swall_vclose_line1=", 2, "Press TAKE or 0 confirm close all out"},
    {50, "Manual_cfg_swall_aclose_line1=", 2, "Press TAKE or 0 confirm close all out"},
    {51, "Manual_cfg_swall_vid_switching_line1=", 8, "Switching Video in__=>ALL"},
    {52, "Manual_cfg_swall_vid_switching_line2=", 13, "Please wait......"},
    {53, "Manual_cfg_swall_aud_switching_line1=", 8, "Switching Audio in__=>ALL"},
    {54, "Manual_cfg_swall_aud_switching_line2=", 13, "Please wait......"},
    {55, "Manual_cfg_swall_vid_Closing_line1=", 8, "Closing all Video outputs"},
    {56, "Manual_cfg_swall_vid_Closing_line2=", 13, "Please wait......"},
    {57, "Manual_cfg_swall_aud_Closing_line1=", 8, "Closing all Audio outputs"},
    {58, "Manual_cfg_swall_aud_Closing_line2=", 13, "Please wait......"},
    {59, "Manual_cfg_restart_line1=", 9, "The device is restarting"},
    {60, "Manual_cfg_restart_line2=", 13, "Please wait......"},
    {61, "Manual_cfg_factory_line1=", 3, "The device is factory resetting"},
    {62, "Manual_cfg_factory_line2=", 13, "Please wait......"},
    {63, "Manual_cfg_restart_update_line1=", 1, "The device is being reset and upgraded"},
    {64, "Manual_cfg_restart_update_line2=", 13, "Please wait......"},
    {65, "Manual_cfg_reset_interface_line1=", 6, "COMPLETELY MATRIX RESET"},
    {66, "Manual_cfg_reset_interface_line2=", 5, "1:Reset     2:Factory Default"},
    {67, "Manual_cfg_reset_con_line1=", 7, "The Device will be reset"},
    {68, "Manual_cfg_reset_con_line2=", 9, "Press TAKE to confirm"},
    {69, "Manual_cfg_factory_con_line1=", 4, "The Device will be factory default"},
    {70, "Manual_cfg_factory_con_line2=", 9, "Press TAKE to confirm"},
    {71, "Manual_cfg_factory_recon_line1=", 4, "RESET Matrix to factory default ?"},
    {72, "Manual_cfg_factory_recon_line2=", 7, "Once more TAKE to confirm"},
    {73, "Manual_cfg_Inner_Net_Switcher_updating_line1=", 1,
     "Internal network switcher is Updating"},
    {74, "", 3, "The Port You Select is Not OUTPUT"},
    {75, "", 3, "The Port You Select is Not INPUT"},
    {76, "", 6, "Please Re-Selected The Port"},
    {77, "", 4, "There Is NO CARDS In This MATRIX"},
};

std::string row(int r) {
    return std::string(reinterpret_cast<const char*>(MENU_ITEM_STR[r]), 40);
}
std::string head(int h) {
    return std::string(reinterpret_cast<const char*>(MENU_SPC_HEAD[h]), 6);
}
std::string pad40(const std::string& s) {
    return s + std::string(40 - s.size(), ' ');
}
std::string default_row(const RowSpec& r) {
    return pad40(std::string(r.blanks, ' ') + r.text);
}

class CfgFile : public ::testing::Test {
  protected:
    void SetUp() override {
        tav_menu_strcfg_defaults();
        g_tav_shortcut_key1 = true;
        g_tav_shortcut_key3 = false;
        g_tav_shortcut_key4 = false;
        g_tav_shortcut_key6 = false;
        g_tav_shortcut_key7 = true;
        g_tav_shortcut_key9 = false;
    }
    void TearDown() override {
        if (!path_.empty()) {
            unlink(path_.c_str());
        }
        tav_menu_strcfg_defaults();
    }
    // Writes `content` to a temporary file and reads it as the configuration,
    // starting from the built-in state.
    void load(const std::string& content) {
        TearDown();
        SetUp();
        char tmpl[] = "/tmp/tav_cfg_XXXXXX";
        int fd = mkstemp(tmpl);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
        close(fd);
        path_ = tmpl;
        tav_cfg_loadfile(path_.data());
    }
    // Every row but `except` still holds its built-in text.
    void expect_other_rows_default(int except) {
        for (const RowSpec& r : k_rows) {
            if (r.row != except) {
                EXPECT_EQ(row(r.row), default_row(r)) << "row " << r.row;
            }
        }
    }
    std::string path_;
};

} // namespace

TEST(MenuStrcfgDefaults, EveryRowAndHeadMatchesItsText) {
    tav_menu_strcfg_defaults();
    const char* heads[] = {"VOSW: ", "VISW: ", "AOSW: ", "AISW: ", "VOUT: ",
                           "VIN : ", "AOUT: ", "AIN : ", "ILIST:", "ILIST:"};
    for (int h = 0; h < TAV_MENU_HEADS; ++h) {
        EXPECT_EQ(head(h), heads[h]) << "head " << h;
        EXPECT_EQ(MENU_SPC_HEAD[h][6], 0) << "head " << h;
    }
    ASSERT_EQ(std::size(k_rows), static_cast<size_t>(TAV_MENU_ROWS));
    for (const RowSpec& r : k_rows) {
        EXPECT_EQ(row(r.row), default_row(r)) << "row " << r.row;
    }
}

TEST_F(CfgFile, EveryRowKeySetsItsOwnRowOnly) {
    int keyed = 0;
    for (const RowSpec& r : k_rows) {
        if (r.key[0] == '\0') {
            continue;
        }
        ++keyed;
        load(std::string(r.key) + " {Row " + std::to_string(r.row) + "}\n");
        EXPECT_EQ(row(r.row), pad40("Row " + std::to_string(r.row))) << r.key;
        expect_other_rows_default(r.row);
    }
    EXPECT_EQ(keyed, 68);
}

TEST_F(CfgFile, HeadKeysTakeTheFirstSixCharacters) {
    const char* keys[] = {
        "Manual_cfg_switch_video_head_line1=", "Manual_cfg_switch_video_head_line2=",
        "Manual_cfg_switch_audio_head_line1=", "Manual_cfg_switch_audio_head_line2=",
        "Manual_cfg_video_io_head_line1=",     "Manual_cfg_video_io_head_line2=",
        "Manual_cfg_audio_io_head_line1=",     "Manual_cfg_audio_io_head_line2=",
        "Manual_cfg_video_swall_head_line1=",  "Manual_cfg_audio_swall_head_line1="};
    for (int h = 0; h < TAV_MENU_HEADS; ++h) {
        load(std::string(keys[h]) + " {" + std::to_string(h) + "ABCDEFGHI}\n");
        EXPECT_EQ(head(h), std::to_string(h) + "ABCDE") << keys[h];
        EXPECT_EQ(MENU_SPC_HEAD[h][6], 0);
        EXPECT_EQ(head(h == 0 ? 1 : 0), h == 0 ? "VISW: " : "VOSW: ");
    }
    // A short value is padded, an unreadable one blanks the head.
    load("Manual_cfg_video_io_head_line2= {IN}\nManual_cfg_audio_swall_head_line1={X}\n");
    EXPECT_EQ(head(5), "IN    ");
    EXPECT_EQ(head(9), "      ");
    EXPECT_EQ(MENU_SPC_HEAD[9][6], 0);
}

struct FlagCase {
    const char* line;
    bool_t* flag;
    bool_t expected;
};

TEST_F(CfgFile, ShortcutFlagsAreTrueOnlyForALeadingOne) {
    const FlagCase cases[] = {
        {"Manual_cfg_cppy_edid_key_7_valid= {0}", &g_tav_shortcut_key7, false},
        {"Manual_cfg_cppy_edid_key_7_valid= {yes}", &g_tav_shortcut_key7, false},
        {"Manual_cfg_cppy_edid_key_7_valid= {}", &g_tav_shortcut_key7, false},
        {"Manual_cfg_cppy_edid_key_7_valid={1}", &g_tav_shortcut_key7, false},
        {"Manual_cfg_cppy_edid_key_7_valid= { 1}", &g_tav_shortcut_key7, false},
        {"Manual_cfg_switch_all_key_1_valid= {0}", &g_tav_shortcut_key1, false},
        {"Manual_cfg_switch_all_key_1_valid = {0}", &g_tav_shortcut_key1, true}, // not the key
        {"Manual_cfg_close_out_key_3_valid= {1}", &g_tav_shortcut_key3, true},
        {"Manual_cfg_store_setup_key_4_valid= {10}", &g_tav_shortcut_key4, true},
        {"Manual_cfg_recall_setup_key_6_valid= \"{1\"}", &g_tav_shortcut_key6, true},
        {"Manual_cfg_set_delay_key_9_valid= {1", &g_tav_shortcut_key9, true},
    };
    for (const FlagCase& c : cases) {
        load(std::string(c.line) + "\n");
        EXPECT_EQ(*c.flag, c.expected) << c.line;
    }
}

struct ValueCase {
    const char* name;
    std::string file;
    std::string row1; // expected row 1, before padding
};

TEST_F(CfgFile, ValueFormOfATextRow) {
    const std::string key = "Manual_cfg_vendor_name=";
    const std::string dflt = "      QUORAL ELECTRONICS Co.,LTD";
    const ValueCase cases[] = {
        {"blank before brace", key + " {ACME}\n", "ACME"},
        {"quote before brace", key + "\"{ACME}\"\n", "ACME"},
        {"brace right after =", key + "{ACME}\n", ""},
        {"no brace", key + " ACME\n", ""},
        {"empty braces", key + " {}\n", ""},
        {"key alone", key + "\n", ""},
        {"key alone at end of file", key, ""},
        {"missing closing brace", key + " {ACME CORP\n", "ACME CORP"},
        {"missing closing brace at end of file", key + " {ACME", "ACME"},
        {"blanks inside braces kept", key + " {   ACME  }\n", "   ACME  "},
        {"overlong value cut to 40", key + " {" + std::string(45, 'x') + "}\n",
         std::string(40, 'x')},
        {"text before the key", "# " + key + " {ACME}\n", "ACME"},
        {"text around key and value", "xx" + key + "abc{ACME}def\n", "ACME"},
        {"second brace pair ignored", key + " {A}{B}\n", "A"},
        {"key text is case-sensitive", "manual_cfg_vendor_name= {ACME}\n", dflt},
        {"key needs its =", "Manual_cfg_vendor_name {ACME}\n", dflt},
        {"CRLF line", key + " {ACME}\r\n", "ACME"},
        {"later line wins", key + " {ONE}\n" + key + " {TWO}\n", "TWO"},
        {"empty file", "", dflt},
    };
    for (const ValueCase& c : cases) {
        load(c.file);
        EXPECT_EQ(row(1), pad40(c.row1)) << c.name;
        expect_other_rows_default(1);
    }
}

TEST_F(CfgFile, ALineWithTwoKeysAppliesTheEarlierKeyOfTheReadingOrder) {
    // Row 1's key comes before row 2's, whatever their place in the line.
    load("Manual_cfg_matrix_name= {M} Manual_cfg_vendor_name= {V}\n");
    EXPECT_EQ(row(1), pad40("V"));
    EXPECT_EQ(row(2), pad40(std::string(11, ' ') + "TR-90QX MATRIX"));

    // Row 21's key is read before row 20's.
    load("Manual_cfg_LinuxArm_updating_line1= {L} Manual_cfg_Device_update_complete_line2= {D}\n");
    EXPECT_EQ(row(21), pad40("D"));
    EXPECT_EQ(row(20), pad40(std::string(9, ' ') + "Linux ARM is Updating"));

    // Shortcut keys come before every text key; the value follows the shortcut key.
    load("Manual_cfg_vendor_name= {1} Manual_cfg_close_out_key_3_valid= {1}\n");
    EXPECT_TRUE(g_tav_shortcut_key3);
    expect_other_rows_default(-1);
}

TEST_F(CfgFile, LongLinesAreReadInPiecesOf127Characters) {
    const std::string key = "Manual_cfg_vendor_name=";
    // A key that starts the second piece is found.
    load(std::string(127, '-') + key + " {SECOND}\n");
    EXPECT_EQ(row(1), pad40("SECOND"));

    // A key cut by the piece boundary is found in neither piece.
    load(std::string(120, '-') + key + " {CUT}\n");
    EXPECT_EQ(row(1), pad40("      QUORAL ELECTRONICS Co.,LTD"));

    // A value cut by the boundary ends with the first piece.
    const std::string first = std::string(100, '-') + key + " {";
    load(first + std::string(30, 'v') + "}\n");
    EXPECT_EQ(row(1), pad40(std::string(127 - first.size(), 'v')));

    // A line of 400 characters with keys in its third and fourth pieces.
    std::string line(400, '.');
    const std::string k2 = "Manual_cfg_matrix_name= {P3}";
    const std::string k3 = "Manual_cfg_load_main= {P4}";
    line.replace(254, k2.size(), k2);
    line.replace(381, k3.size(), k3);
    load(line + "\n");
    EXPECT_EQ(row(2), pad40("P3"));
    EXPECT_EQ(row(3), pad40("P4"));
}

TEST_F(CfgFile, MissingFileOrNullPathKeepsTheDefaults) {
    tav_cfg_loadfile(nullptr);
    char missing[] = "/tmp/tav_cfg_does_not_exist/tav_keyboard.cfg";
    tav_cfg_loadfile(missing);
    char dir[] = "/tmp";
    tav_cfg_loadfile(dir); // a directory opens but reads nothing
    expect_other_rows_default(-1);
    EXPECT_TRUE(g_tav_shortcut_key1);
    EXPECT_FALSE(g_tav_shortcut_key3);
    EXPECT_TRUE(g_tav_shortcut_key7);
}

TEST_F(CfgFile, ARealisticFileWithCommentsAndBinaryNoise) {
    std::string file = "# panel texts\n"
                       "\n"
                       "Manual_cfg_vendor_name = {not applied: no = right after the key}\n"
                       "Manual_cfg_matrix_name= \"{   OUR MATRIX}\"\n"
                       "Manual_cfg_switch_video_head_line1= {OUT:  }\n"
                       "Manual_cfg_cppy_edid_key_7_valid= {0}\n";
    file += std::string("junk\0Manual_cfg_load_main= {hidden}\n", 36);
    file += "\xff\xfe Manual_cfg_please_wait= {WAIT\xe9}\n";
    load(file);
    EXPECT_EQ(row(1), pad40("      QUORAL ELECTRONICS Co.,LTD"));
    EXPECT_EQ(row(2), pad40("   OUR MATRIX"));
    EXPECT_EQ(head(0), "OUT:  ");
    EXPECT_FALSE(g_tav_shortcut_key7);
    EXPECT_EQ(row(3), pad40(std::string(9, ' ') + "Loading Main Setup"));
    EXPECT_EQ(row(4), pad40("WAIT\xe9"));
}
