// The text table and its configuration file, the composition of LCD lines,
// the LED scenes and the port tables' rebuild from the library.
#include <algorithm>
#include <map>
#include <set>
#include <unistd.h>

#include "menu_fixture.h"
#include "tav_menu_display_str.h"
#include "tav_menu_led.h"

using namespace mtest;

namespace {

std::string pad40(const std::string& s) {
    return s + std::string(40 - s.size(), ' ');
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

std::string head(int h) {
    return std::string(reinterpret_cast<const char*>(MENU_SPC_HEAD[h]), 7);
}

// Every key of the list in tests/data sets its own row (40 characters), head
// (6 characters, its zero byte kept) or shortcut flag ("1" on, anything else
// off), and nothing else.
TEST_F(CfgFile, EveryKeyReachesItsRowHeadOrFlag) {
    bool_t* const flags[10] = {nullptr,          &g_tav_shortcut_key1, nullptr, &g_tav_shortcut_key3,
                               &g_tav_shortcut_key4, nullptr, &g_tav_shortcut_key6,
                               &g_tav_shortcut_key7, nullptr, &g_tav_shortcut_key9};
    const auto flag_values = [&] {
        std::string v;
        for (bool_t* f : flags)
            v += f == nullptr ? '-' : *f ? '1' : '0';
        return v;
    };
    load("");
    const std::string builtin_flags = flag_values();
    std::vector<std::string> heads;
    for (int h = 0; h < TAV_MENU_HEADS; ++h)
        heads.push_back(head(h));
    std::ifstream list(TAV_TEST_DATA_DIR "/cfg_keys.txt");
    int keys = 0;
    for (std::string kind, key; list >> kind;) {
        if (kind[0] == '#') {
            std::getline(list, kind);
            continue;
        }
        int n = 0;
        list >> n >> key;
        ++keys;
        SCOPED_TRACE(key);
        if (kind == "row") {
            load("# " + key + " {Key row}\n");
            EXPECT_EQ(row(n), pad40("Key row"));
            expect_other_rows_default(n);
        } else if (kind == "head") {
            load(key + " {123456789}\n");
            for (int h = 0; h < TAV_MENU_HEADS; ++h)
                EXPECT_EQ(head(h), h == n ? std::string("123456", 7) : heads[h]) << h;
        } else {
            ASSERT_EQ(kind, "flag");
            for (auto [value, on] : {std::pair{"1", '1'}, {"0", '0'}, {"yes", '0'}, {"10", '1'}}) {
                load(key + " {" + value + "}\n");
                std::string want = builtin_flags;
                want[static_cast<size_t>(n)] = on;
                EXPECT_EQ(flag_values(), want) << value;
            }
        }
    }
    EXPECT_EQ(keys, 84);
    load("Manual_cfg_video_io_head_line2= {IN}\nManual_cfg_audio_swall_head_line1={X}\n");
    EXPECT_EQ(head(5), std::string("IN    ", 7));
    EXPECT_EQ(head(9), std::string(6, ' ') + '\0');
}

// The built-in rows, from the list in tests/data.
TEST_F(CfgFile, BuiltInRowsAsListed) {
    std::ifstream list(TAV_TEST_DATA_DIR "/lcd_rows.txt");
    int rows = 0;
    for (std::string l; std::getline(list, l);) {
        if (l.empty() || l[0] == '#')
            continue;
        const size_t a = l.find('|'), b = l.find('|', a + 1);
        const int n = std::stoi(l.substr(0, a));
        const std::string blanks(std::stoul(l.substr(a + 1, b - a - 1)), ' ');
        EXPECT_EQ(defaults_.at(static_cast<size_t>(n)), pad40(blanks + l.substr(b + 1))) << n;
        ++rows;
    }
    EXPECT_EQ(rows, TAV_MENU_ROWS);
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

// The slot writers on a line of 'x': what they change, and only that.
TEST(LineSlots, ClearAndPrintWriteTheirColumnsOnly) {
    struct Case {
        int type, col, value; // type -1: tav_menu_clear_lcd(col)
        std::string cols_8_to_15;
        uint8_t result; // of the clear
        char last;      // column 39
    };
    // clang-format off
    const Case cases[] = {
        {-1, 39, 0, "xxxxxxxx", 0, ' '}, {-1, 40, 0, "xxxxxxxx", 1, 'x'},
        {-1, 12, 0, "xxxx    ", 0, ' '}, {2, 10, 0, "xx    xx", 0, 'x'},
        {1, 10, 0, "xx0 x xx", 0, 'x'},  {1, 10, 7, "xx07  xx", 0, 'x'},
        {1, 10, 12, "xx12  xx", 0, 'x'}, {1, 10, 123, "xx<3  xx", 0, 'x'},
        {3, 10, 5, "xxxxxxxx", 0, 'x'},  {2, 36, 0, "xxxxxxxx", 0, ' '},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.type << " at " << c.col);
        Line l;
        memset(l.b, 'x', 40);
        l.b[40] = 0;
        if (c.type < 0) {
            EXPECT_EQ(tav_menu_clear_lcd(static_cast<uint8_t>(c.col), l.b), c.result);
        } else {
            tav_menu_print(l.b, static_cast<uint8_t>(c.type), static_cast<uint8_t>(c.col),
                           static_cast<uint8_t>(c.value));
        }
        EXPECT_EQ(l.str(8, 8), c.cols_8_to_15);
        EXPECT_EQ(l.b[39], c.last);
        EXPECT_EQ(l.b[40], 0);
        EXPECT_TRUE(l.guard_intact());
    }
}

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

// The TAKE blink of the confirming menus goes out when it starts and when it
// stops, not on every redraw; every other menu sends "nothing blinks" on each.
TEST_F(MenuTest, TakeBlinkSentOnChangesOnly) {
    auto& cap = tavtest::PanelCapture::get();
    tav_bdl_menu_showleds(menu_vid_display, false);
    for (TAV_ENUM_MENUSTATUS state : {menu_switch_vid_all, menu_switch_aud_all, menu_reset}) {
        std::string sent;
        for (bool take : {true, true, false, false, true, false}) {
            cap.clear();
            tav_bdl_menu_showleds(state, take);
            int n = 0;
            for (const auto& f : cap.frames())
                n += f.kind == TAV_COM_KIND_LED_BLINK;
            sent += std::to_string(n);
            EXPECT_EQ(panel().led_blink, take ? TAKE : 0u);
        }
        EXPECT_EQ(sent, "101011") << state;
    }
    for (int i = 0; i < 2; ++i) {
        cap.clear();
        tav_bdl_menu_showleds(menu_vid_switch, true);
        EXPECT_EQ(cap.frames().size(), 2u); // the scene and "nothing blinks"
        EXPECT_EQ(panel().led_blink, 0u);
    }
}

// ---------------------------------------------------------------------------
// The port tables' rebuild, for each kind.
class PortTables : public MenuTest, public ::testing::WithParamInterface<bool> {
  protected:
    void port(int p, int32_t io, int32_t route = 0) {
        auto& fp = fakematrix::state().port[static_cast<size_t>(p)];
        (GetParam() ? fp.vdir : fp.adir) = io;
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
    fakematrix::state().port = {};
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
    // As many ports as the tables hold: all, and no warning.
    for (int p = 1; p <= 128; ++p)
        port(p, p <= 100 ? em_matrix_in : em_matrix_out, 1);
    TAV_DEF_MAX_PORT = 128;
    rebuild();
    EXPECT_EQ(outs(), range(101, 128));
    EXPECT_TRUE(log_lines().empty());
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
