// Keys: the key analysis, port number entry, the view start after a switch,
// and one navigation table of every menu's keys.
#include "menu_fixture.h"
#include "tav_menu_analize_press.h"
#include "tav_menu_event_analy.h"
#include "tav_menu_sel.h"

using namespace mtest;

namespace {

unsigned char report(TAV_KEY_ENUM k) {
    g_tav_keyval.store(k);
    return tav_ana_key();
}

// tav_ana_key: the result of each report, the record after the last one.
struct AnaCase {
    bool locked;
    std::vector<TAV_KEY_ENUM> keys;
    std::vector<int> results;
    uint16_t press;
    uint8_t number;
};

TEST(KeyAnalysis, SequenceGivesResultsAndRecord) {
    constexpr TAV_KEY_ENUM N = TAV_KEY_NULL, K3 = TAV_KEY_3, LK = TAV_KEY_LOCK;
    // clang-format off
    const AnaCase cases[] = {
        {false, {K3}, {0}, TAV_PRESS_DIGIT, 3},
        {false, {TAV_KEY_0}, {0}, TAV_PRESS_DIGIT, 0},
        {false, {K3, K3, K3}, {0, 1, 0}, TAV_PRESS_DIGIT, 3}, // a repeat is ignored, then acted on
        {false, {K3, N, K3}, {0, 1, 0}, TAV_PRESS_DIGIT, 3},
        {false, {TAV_KEY_5, N}, {0, 1}, 0, 0xFF},              // a release clears the record
        {false, {K3, TAV_KEY_4}, {0, 0}, TAV_PRESS_DIGIT, 4},
        {false, {TAV_KEY_RIGHT, TAV_KEY_LEFT}, {0, 0}, TAV_PRESS_LEFT, 0xFF},
        {false, {LK, LK}, {0, 2}, 0, 0xFF},                    // the lock toggle
        {false, {LK, LK, LK}, {0, 2, 0}, TAV_PRESS_LOCK, 0xFF},
        {false, {static_cast<TAV_KEY_ENUM>(17)}, {1}, 0, 0xFF},
        {true, {K3}, {1}, 0, 0xFF},
        {true, {TAV_KEY_MENU, TAV_KEY_TAKE, TAV_KEY_BREAK}, {1, 1, 1}, 0, 0xFF},
        {true, {LK, LK}, {0, 2}, 0, 0xFF},
        {true, {LK, TAV_KEY_1, LK}, {0, 1, 0}, TAV_PRESS_LOCK, 0xFF},
    };
    // clang-format on
    for (const AnaCase& c : cases) {
        tav_button_clear();
        g_tav_lock = c.locked;
        std::vector<int> got;
        for (TAV_KEY_ENUM k : c.keys)
            got.push_back(report(k));
        EXPECT_EQ(got, c.results) << c.keys[0] << " locked " << c.locked;
        EXPECT_EQ(g_tav_button.press, c.press) << c.keys[0];
        EXPECT_EQ(g_tav_button.number, c.number) << c.keys[0];
    }
    g_tav_lock = false;
}

// Number entry from state 1: the state, port and view start it leaves.
struct EntryCase {
    std::vector<int> ports;
    uint8_t sel_step;
    const char* keys;
    uint8_t state, port, start; // start 7: untouched
};

TEST(NumberEntry, KeysGiveState) {
    const std::vector<int> r9 = range(9, 16), r1 = range(1, 8), r40 = range(1, 40);
    // clang-format off
    const EntryCase cases[] = {
        {r9, 0, "12", 3, 12, 0}, {r9, 0, "05", 4, 0, 7}, {r9, 0, "00", 2, 0, 7}, {r9, 0, "9R", 3, 9, 0},
        {r1, 1, "0R", 3, 0, 7}, {r1, 1, "00", 3, 0, 7},  // input 0: no input
        {r1, 0, "0R", 2, 0, 7},                          // output 0 refused
        {r40, 1, "30", 3, 30, 7}, {r40, 0, "30", 3, 30, 24}, {r40, 0, "6R", 3, 6, 0},
        {r40, 0, "7R", 3, 7, 1}, {r40, 0, "L2T3", 3, 23, 17}, {r40, 0, "R", 1, 0, 7},
        {r40, 0, "1R2", 3, 1, 0}, {r9, 0, "2R12", 4, 0, 7}, {{99}, 0, "99", 3, 99, 0},
        {{}, 0, "1R", 4, 0, 7},
    };
    // clang-format on
    for (const EntryCase& c : cases) {
        std::vector<uint8_t> list(c.ports.begin(), c.ports.end());
        list.resize(128, 0xFF);
        uint8_t state = 1, start = 7, port = 0;
        for (const char* k = c.keys; *k != '\0'; ++k) {
            set_button(*k);
            TAV_STRUCT_KB_BUTTON key = g_tav_button;
            tav_analy_keypress(&key, &state, &start, static_cast<uint8_t>(c.ports.size()),
                               list.data(), &port, c.sel_step);
        }
        EXPECT_EQ(state, c.state) << c.keys << " of " << c.ports.size();
        EXPECT_EQ(port, c.port) << c.keys;
        EXPECT_EQ(start, c.start) << c.keys;
    }
    uint8_t list[] = {5, 9, 9, 12};
    EXPECT_EQ(tav_analy_key_check_port(9, 4, list), 1);
    EXPECT_EQ(tav_analy_key_check_port(12, 3, list), 255); // beyond the count
    EXPECT_EQ(tav_analy_key_check_port(7, 4, nullptr), 255);
}

TEST(StartPort, ViewStartAfterASwitch) {
    std::vector<uint8_t> list;
    for (int p = 101; p <= 228; ++p)
        list.push_back(static_cast<uint8_t>(p)); // 128 ports numbered 101..228
    struct Case {
        uint8_t maxport, port, start;
    };
    for (const Case& c : {Case{10, 110, 0}, Case{10, 1, 0}, Case{0, 1, 0}, Case{20, 116, 9},
                          Case{20, 109, 8}, Case{20, 110, 9}, Case{20, 1, 9}, Case{11, 5, 0},
                          Case{12, 102, 1}, Case{128, 150, 49}, Case{128, 228, 117}}) {
        EXPECT_EQ(tav_menu_ctl_get_startport(list.data(), c.maxport, c.port), c.start)
            << int(c.maxport) << " " << int(c.port);
    }
}

// The leave keys MENU, LEFT, BREAK, LOCK and DEFAULT of every menu, from the
// menus' rules: MENU walks the main pages, and a page not on the walk goes on
// as the page it belongs to; LEFT leaves only the sub-pages, one level up;
// LOCK goes home, BREAK too but on the home page; DEFAULT opens the reset
// menu but in it; a menu without a key handler has none. OWN: the menu's own
// key. Each move is also taken through the dispatch.
constexpr TAV_ENUM_MENUSTATUS OWN = TAV_MENU_STAY;
using Pair = std::pair<TAV_ENUM_MENUSTATUS, TAV_ENUM_MENUSTATUS>;

TAV_ENUM_MENUSTATUS second_of(const std::vector<Pair>& pairs, TAV_ENUM_MENUSTATUS m) {
    for (const Pair& p : pairs)
        if (p.first == m)
            return p.second;
    return OWN;
}

TEST_F(MenuTest, LeaveKeysOfEveryMenu) {
    device({range(1, 8), range(9, 20)}, {range(1, 8), range(9, 20)});
    constexpr auto VD = menu_vid_display, SC = menu_shortcut, ES = menu_eth_select,
                   ED = menu_eth_display, RS = menu_reset, VIO = meun_vid_io_display,
                   AIO = meun_aud_io_display;
    // clang-format off
    const std::vector<Pair> walk = {{VD, VIO}, {VIO, menu_aud_display}, {menu_aud_display, AIO},
        {AIO, SC}, {SC, ES}, {ES, RS}, {RS, menu_display_version}, {menu_display_version, VD}};
    const std::vector<Pair> part_of = {{menu_vid_switch, VIO}, {menu_aud_switch, AIO},
        {menu_switch_all, SC}, {menu_switch_vid_all, SC}, {menu_switch_aud_all, SC},
        {menu_edid_switch, SC}, {ED, ES}, {menu_eth_ip, ES}, {menu_eth_mac, ES},
        {menu_eth_gate, ES}, {menu_eth_mask, ES}};
    const std::vector<Pair> up = {{menu_switch_all, SC}, {ED, ES}, {menu_eth_ip, ED},
        {menu_eth_mac, ED}, {menu_eth_gate, ED}, {menu_eth_mask, ED}};
    // clang-format on
    const uint16_t press[] = {TAV_PRESS_MENU, TAV_PRESS_LEFT, TAV_PRESS_BREAK, TAV_PRESS_LOCK,
                              TAV_PRESS_DEFAULT};
    for (int i = 0; i <= menu_lock; ++i) {
        const auto m = static_cast<TAV_ENUM_MENUSTATUS>(i);
        const TAV_ENUM_MENUSTATUS owner = second_of(part_of, m);
        const TAV_ENUM_MENUSTATUS next = second_of(walk, owner == OWN ? m : owner);
        const bool keys_read = next != OWN; // every menu with a key handler is on the walk
        const TAV_ENUM_MENUSTATUS to[5] = {next, second_of(up, m), m == VD || !keys_read ? OWN : VD,
                                           keys_read ? VD : OWN, m == RS || !keys_read ? OWN : RS};
        for (int k = 0; k < 5; ++k) {
            EXPECT_EQ(tav_menu_ctl_leave_target(m, press[k]), to[k]) << m << " " << k;
            if (to[k] == OWN)
                continue;
            g_tav_menu = m;
            g_tav_menu_event = EVENT_NOMAL;
            keys(std::string(1, "MLBKD"[k]).c_str());
            EXPECT_EQ(g_tav_menu, to[k]) << m << " " << k;
            EXPECT_TRUE(redraw_requested());
        }
    }
    // MENU, LOCK and BREAK leave the EDID entry and the reset steps cleared,
    // DEFAULT keeps the entry; the reset menu always opens at its first step.
    for (const char* k : {"M", "K", "B", "D"}) {
        g_tav_menu = menu_edid_switch;
        keys("1");
        keys(k);
        EXPECT_EQ(tav_menu_edid_get_state().src, *k == 'D' ? 1 : 0) << k;
        g_tav_menu = RS;
        keys("1");
        keys(k);
        EXPECT_EQ(tav_menu_reset_get_step(), *k == 'D' ? 1 : 0) << k;
    }
    g_tav_menu = VD;
    keys("D");
    EXPECT_EQ(tav_menu_reset_get_step(), 0);
}

TEST_F(MenuTest, ShortcutMenuFollowsItsFlags) {
    bool_t* flags[] = {&g_tav_shortcut_key1, &g_tav_shortcut_key3, &g_tav_shortcut_key4,
                       &g_tav_shortcut_key6, &g_tav_shortcut_key7, &g_tav_shortcut_key9};
    for (bool_t* f : flags)
        *f = false;
    EXPECT_FALSE(tav_get_menu_sel_valid());
    for (bool_t* f : flags) {
        *f = true;
        EXPECT_TRUE(tav_get_menu_sel_valid());
        *f = false;
    }
    // Without any, the shortcut menu passes on to the network menu.
    g_tav_menu = menu_shortcut;
    draw();
    EXPECT_EQ(g_tav_menu, menu_eth_select);
    EXPECT_TRUE(redraw_requested());
    g_tav_menu = menu_shortcut;
    keys("L");
    EXPECT_EQ(g_tav_menu, menu_eth_select);
    // A digit whose flag is off leads nowhere.
    g_tav_shortcut_key9 = true;
    g_tav_menu = menu_shortcut;
    keys("19");
    EXPECT_EQ(g_tav_menu, menu_shortcut);
}

} // namespace
