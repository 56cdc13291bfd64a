// Key analysis, port number entry, the shortcut menu and the switch-all choice.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fake_matrix.h"
#include "tav_baseportcontrol.h"
#include "tav_menu_analize_press.h"
#include "tav_menu_control.h"
#include "tav_menu_event_analy.h"
#include "tav_menu_sel.h"
#include "tav_menu_var.h"

namespace {

constexpr TAV_KEY_ENUM K_NULL = TAV_KEY_NULL;

uint32_t no_clock() {
    return 0;
}
void no_sleep(uint32_t) {}

unsigned char report(TAV_KEY_ENUM k) {
    g_tav_keyval.store(k);
    return tav_ana_key();
}

// ---------------------------------------------------------------------------
// tav_ana_key: a sequence of reports, the result of each, the record after
// the last one.

struct AnaCase {
    const char* name;
    bool locked;
    std::vector<TAV_KEY_ENUM> keys;
    std::vector<int> results;
    uint16_t press; // press code after the last report
    uint8_t number; // number field after the last report
};

class KeyAnalysis : public ::testing::TestWithParam<AnaCase> {
  protected:
    void SetUp() override {
        tav_button_clear();
        g_tav_lock = false;
    }
    void TearDown() override { g_tav_lock = false; }
};

TEST_P(KeyAnalysis, SequenceGivesResultsAndRecord) {
    const AnaCase& c = GetParam();
    g_tav_lock = c.locked;
    std::vector<int> got;
    for (TAV_KEY_ENUM k : c.keys) {
        got.push_back(report(k));
    }
    EXPECT_EQ(got, c.results);
    EXPECT_EQ(g_tav_button.press, c.press);
    EXPECT_EQ(g_tav_button.number, c.number);
    EXPECT_FALSE(g_tav_button.longpress);
}

// clang-format off
const AnaCase kAnaCases[] = {
    {"DigitActedOn", false, {TAV_KEY_3}, {0}, TAV_PRESS_DIGIT, 3},
    {"ZeroIsADigit", false, {TAV_KEY_0}, {0}, TAV_PRESS_DIGIT, 0},
    {"RepeatWithoutReleaseIgnoredThenActed", false, {TAV_KEY_3, TAV_KEY_3, TAV_KEY_3}, {0, 1, 0}, TAV_PRESS_DIGIT, 3},
    {"ReleaseBetweenActsTwice", false, {TAV_KEY_3, K_NULL, TAV_KEY_3}, {0, 1, 0}, TAV_PRESS_DIGIT, 3},
    {"ReleaseClearsRecord", false, {TAV_KEY_5, K_NULL}, {0, 1}, 0, 0xFF},
    {"OtherDigitActedOn", false, {TAV_KEY_3, TAV_KEY_4}, {0, 0}, TAV_PRESS_DIGIT, 4},
    {"MenuTwiceIgnoredSecond", false, {TAV_KEY_MENU, TAV_KEY_MENU}, {0, 1}, 0, 0xFF},
    {"LeftAfterRight", false, {TAV_KEY_RIGHT, TAV_KEY_LEFT}, {0, 0}, TAV_PRESS_LEFT, 0xFF},
    {"LockTwiceIsToggle", false, {TAV_KEY_LOCK, TAV_KEY_LOCK}, {0, 2}, 0, 0xFF},
    {"LockThirdActedOn", false, {TAV_KEY_LOCK, TAV_KEY_LOCK, TAV_KEY_LOCK}, {0, 2, 0}, TAV_PRESS_LOCK, 0xFF},
    {"UnknownValueIgnored", false, {static_cast<TAV_KEY_ENUM>(17)}, {1}, 0, 0xFF},
    {"LockedDigitIgnored", true, {TAV_KEY_3}, {1}, 0, 0xFF},
    {"LockedMenuIgnored", true, {TAV_KEY_MENU, TAV_KEY_TAKE, TAV_KEY_BREAK}, {1, 1, 1}, 0, 0xFF},
    {"LockedLockFirstActedSecondToggles", true, {TAV_KEY_LOCK, TAV_KEY_LOCK}, {0, 2}, 0, 0xFF},
    {"LockedDigitBetweenLocksClears", true, {TAV_KEY_LOCK, TAV_KEY_1, TAV_KEY_LOCK}, {0, 1, 0}, TAV_PRESS_LOCK, 0xFF},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Sequences, KeyAnalysis, ::testing::ValuesIn(kAnaCases),
                         [](const auto& info) { return std::string(info.param.name); });

// Each non-digit key: its field and press code, and a repeat clears it.
struct KeyFieldCase {
    TAV_KEY_ENUM key;
    uint8_t KB_BUTTON::*field;
    uint16_t press;
};

class KeyAnalysisFields : public ::testing::TestWithParam<KeyFieldCase> {
  protected:
    void SetUp() override { tav_button_clear(); }
};

TEST_P(KeyAnalysisFields, SetsOnlyItsFieldAndCode) {
    const KeyFieldCase& c = GetParam();
    EXPECT_EQ(report(c.key), 0);
    EXPECT_EQ(g_tav_button.press, c.press);
    EXPECT_EQ(g_tav_button.*c.field, 1);
    const int set = g_tav_button.lock + g_tav_button.menu + g_tav_button.dft + g_tav_button.brk +
                    g_tav_button.take + g_tav_button.left + g_tav_button.right;
    EXPECT_EQ(set, 1);
    EXPECT_EQ(g_tav_button.number, 0xFF);
    EXPECT_EQ(report(c.key), c.key == TAV_KEY_LOCK ? 2 : 1);
    EXPECT_EQ(g_tav_button.*c.field, 0);
    EXPECT_EQ(g_tav_button.press, 0);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Keys, KeyAnalysisFields, ::testing::Values(
    KeyFieldCase{TAV_KEY_LEFT, &KB_BUTTON::left, 4}, KeyFieldCase{TAV_KEY_RIGHT, &KB_BUTTON::right, 8},
    KeyFieldCase{TAV_KEY_BREAK, &KB_BUTTON::brk, 64}, KeyFieldCase{TAV_KEY_DEFAULT, &KB_BUTTON::dft, 128},
    KeyFieldCase{TAV_KEY_TAKE, &KB_BUTTON::take, 16}, KeyFieldCase{TAV_KEY_MENU, &KB_BUTTON::menu, 2},
    KeyFieldCase{TAV_KEY_LOCK, &KB_BUTTON::lock, 32}));
// clang-format on

// ---------------------------------------------------------------------------
// Number entry: keys fed from state 1, expected state, port and view start.

struct EntryCase {
    const char* name;
    std::vector<uint8_t> ports; // the list
    uint8_t sel_step;
    std::vector<TAV_KEY_ENUM> keys;
    uint8_t state;
    uint8_t port;
    uint8_t start; // view start (7 = untouched start value)
};

std::vector<uint8_t> range(int from, int to) {
    std::vector<uint8_t> v;
    for (int i = from; i <= to; ++i) {
        v.push_back(static_cast<uint8_t>(i));
    }
    return v;
}

class NumberEntry : public ::testing::TestWithParam<EntryCase> {};

TEST_P(NumberEntry, KeysGiveState) {
    const EntryCase& c = GetParam();
    std::vector<uint8_t> list = c.ports;
    list.resize(128, 0xFF);
    uint8_t state = 1;
    uint8_t start = 7;
    uint8_t port = 0;
    g_tav_lock = false;
    for (TAV_KEY_ENUM k : c.keys) {
        report(K_NULL); // a release first: the key is acted on and its record kept
        ASSERT_EQ(report(k), 0);
        TAV_STRUCT_KB_BUTTON key = g_tav_button;
        tav_analy_keypress(&key, &state, &start, static_cast<uint8_t>(c.ports.size()), list.data(),
                           &port, c.sel_step);
    }
    EXPECT_EQ(state, c.state);
    EXPECT_EQ(port, c.port);
    EXPECT_EQ(start, c.start);
}

// clang-format off
const EntryCase kEntryCases[] = {
    {"TwoDigitsFound", range(9, 16), 0, {TAV_KEY_1, TAV_KEY_2}, 3, 12, 0},
    {"NotInList", range(9, 16), 0, {TAV_KEY_0, TAV_KEY_5}, 4, 0, 7},
    {"ZeroZeroStaysForOutput", range(9, 16), 0, {TAV_KEY_0, TAV_KEY_0}, 2, 0, 7},
    {"DigitThenRight", range(9, 16), 0, {TAV_KEY_9, TAV_KEY_RIGHT}, 3, 9, 0},
    {"ZeroRightIsNoInput", range(1, 8), 1, {TAV_KEY_0, TAV_KEY_RIGHT}, 3, 0, 7},
    {"ZeroZeroIsNoInput", range(1, 8), 1, {TAV_KEY_0, TAV_KEY_0}, 3, 0, 7},
    {"ZeroRightRefusedForOutput", range(1, 8), 0, {TAV_KEY_0, TAV_KEY_RIGHT}, 2, 0, 7},
    {"InputKeepsViewStart", range(1, 40), 1, {TAV_KEY_3, TAV_KEY_0}, 3, 30, 7},
    {"ViewStartCentres", range(1, 40), 0, {TAV_KEY_3, TAV_KEY_0}, 3, 30, 24},
    {"ViewStartAtPositionFive", range(1, 40), 0, {TAV_KEY_6, TAV_KEY_RIGHT}, 3, 6, 0},
    {"ViewStartAtPositionSix", range(1, 40), 0, {TAV_KEY_7, TAV_KEY_RIGHT}, 3, 7, 1},
    {"OtherKeysIgnored", range(1, 40), 0, {TAV_KEY_LEFT, TAV_KEY_2, TAV_KEY_TAKE, TAV_KEY_3}, 3, 23, 17},
    {"RightFirstIgnored", range(1, 40), 0, {TAV_KEY_RIGHT}, 1, 0, 7},
    {"StateThreeIgnoresKeys", range(1, 40), 0, {TAV_KEY_1, TAV_KEY_RIGHT, TAV_KEY_2}, 3, 1, 0},
    {"StateFourIgnoresKeys", range(9, 16), 0, {TAV_KEY_2, TAV_KEY_RIGHT, TAV_KEY_1, TAV_KEY_2}, 4, 0, 7},
    {"NinetyNine", {99}, 0, {TAV_KEY_9, TAV_KEY_9}, 3, 99, 0},
    {"EmptyListRefusesAll", {}, 0, {TAV_KEY_1, TAV_KEY_RIGHT}, 4, 0, 7},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Sequences, NumberEntry, ::testing::ValuesIn(kEntryCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(NumberEntryLookup, FirstPositionOrNone) {
    uint8_t list[] = {5, 9, 9, 12};
    EXPECT_EQ(tav_analy_key_check_port(9, 4, list), 1);
    EXPECT_EQ(tav_analy_key_check_port(12, 4, list), 3);
    EXPECT_EQ(tav_analy_key_check_port(12, 3, list), 255); // beyond the count
    EXPECT_EQ(tav_analy_key_check_port(7, 4, list), 255);
    EXPECT_EQ(tav_analy_key_check_port(7, 4, nullptr), 255);
}

// ---------------------------------------------------------------------------
// View start of the switching pages after a switch.

struct StartCase {
    uint8_t maxport;
    uint8_t port;
    uint8_t start;
};

class StartPort : public ::testing::TestWithParam<StartCase> {};

TEST_P(StartPort, ViewStart) {
    std::vector<uint8_t> list = range(101, 228); // 128 ports numbered 101..228
    const StartCase& c = GetParam();
    EXPECT_EQ(tav_menu_ctl_get_startport(list.data(), c.maxport, c.port), c.start);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Table, StartPort, ::testing::Values(
    StartCase{10, 101, 0}, StartCase{10, 110, 0}, StartCase{10, 1, 0}, StartCase{0, 1, 0},
    StartCase{20, 116, 9}, StartCase{20, 101, 0}, StartCase{20, 109, 8}, StartCase{20, 110, 9},
    StartCase{20, 1, 9}, StartCase{11, 101, 0}, StartCase{11, 5, 0}, StartCase{12, 102, 1},
    StartCase{128, 150, 49}, StartCase{128, 228, 117}, StartCase{128, 1, 117}));
// clang-format on

// ---------------------------------------------------------------------------
// Shortcut menu and switch-all choice: the menu each key leads to.

struct SelCase {
    const char* name;
    TAV_ENUM_MENUSTATUS menu; // menu_shortcut or menu_switch_all
    bool all_flags_off;
    TAV_KEY_ENUM key;
    TAV_ENUM_MENUSTATUS expect; // menu after the key
    bool redraw;                // a redraw was requested
};

class SelectionKeys : public ::testing::TestWithParam<SelCase> {
  protected:
    void SetUp() override {
        fakematrix::reset();
        tav_menu_ctl_set_time_source(no_clock, no_sleep);
        tav_menu_ctl_init();
        g_tav_shortcut_key1 = true;
        g_tav_shortcut_key3 = false;
        g_tav_shortcut_key4 = false;
        g_tav_shortcut_key6 = false;
        g_tav_shortcut_key7 = true;
        g_tav_shortcut_key9 = false;
    }
    void TearDown() override { tav_menu_ctl_set_time_source(nullptr, nullptr); }
};

TEST_P(SelectionKeys, KeyLeadsTo) {
    const SelCase& c = GetParam();
    if (c.all_flags_off) {
        g_tav_shortcut_key1 = g_tav_shortcut_key7 = false;
    }
    g_tav_menu = c.menu;
    g_tav_menu_event = EVENT_NOMAL;
    tav_button_clear();
    g_tav_lock = false;
    ASSERT_EQ(report(c.key), 0);
    tav_nomal_work();
    EXPECT_EQ(g_tav_menu, c.expect);
    EXPECT_EQ(g_tav_menu_event, c.redraw ? EVENT_UPDATE : EVENT_NOMAL);
}

const SelCase kSelCases[] = {
    {"Sc1ToSwitchAll", menu_shortcut, false, TAV_KEY_1, menu_switch_all, true},
    {"Sc7ToEdid", menu_shortcut, false, TAV_KEY_7, menu_edid_switch, true},
    {"Sc3Redisplays", menu_shortcut, false, TAV_KEY_3, menu_shortcut, true},
    {"Sc0Redisplays", menu_shortcut, false, TAV_KEY_0, menu_shortcut, true},
    {"ScMenuToEth", menu_shortcut, false, TAV_KEY_MENU, menu_eth_select, true},
    {"ScLockHome", menu_shortcut, false, TAV_KEY_LOCK, menu_vid_display, true},
    {"ScBreakHome", menu_shortcut, false, TAV_KEY_BREAK, menu_vid_display, true},
    {"ScDefaultToReset", menu_shortcut, false, TAV_KEY_DEFAULT, menu_reset, true},
    {"ScLeftNothing", menu_shortcut, false, TAV_KEY_LEFT, menu_shortcut, false},
    {"ScRightNothing", menu_shortcut, false, TAV_KEY_RIGHT, menu_shortcut, false},
    {"ScTakeNothing", menu_shortcut, false, TAV_KEY_TAKE, menu_shortcut, false},
    {"ScNoFlagsAnyKeyToEth", menu_shortcut, true, TAV_KEY_1, menu_eth_select, true},
    {"ScNoFlagsLeftToEth", menu_shortcut, true, TAV_KEY_LEFT, menu_eth_select, true},
    {"Sa1Video", menu_switch_all, false, TAV_KEY_1, menu_switch_vid_all, true},
    {"Sa2Audio", menu_switch_all, false, TAV_KEY_2, menu_switch_aud_all, true},
    {"Sa3Nothing", menu_switch_all, false, TAV_KEY_3, menu_switch_all, false},
    {"SaLeftBack", menu_switch_all, false, TAV_KEY_LEFT, menu_shortcut, true},
    {"SaMenuToEth", menu_switch_all, false, TAV_KEY_MENU, menu_eth_select, true},
    {"SaLockHome", menu_switch_all, false, TAV_KEY_LOCK, menu_vid_display, true},
    {"SaBreakHome", menu_switch_all, false, TAV_KEY_BREAK, menu_vid_display, true},
    {"SaDefaultToReset", menu_switch_all, false, TAV_KEY_DEFAULT, menu_reset, true},
    {"SaRightNothing", menu_switch_all, false, TAV_KEY_RIGHT, menu_switch_all, false},
    {"SaTakeNothing", menu_switch_all, false, TAV_KEY_TAKE, menu_switch_all, false},
};

INSTANTIATE_TEST_SUITE_P(Keys, SelectionKeys, ::testing::ValuesIn(kSelCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(SelectionKeys, ShortcutDigitFollowsItsFlag) {
    g_tav_shortcut_key1 = false;
    g_tav_shortcut_key9 = true; // keeps the menu valid; 9 has no target
    for (TAV_KEY_ENUM k : {TAV_KEY_1, TAV_KEY_9}) {
        g_tav_menu = menu_shortcut;
        tav_button_clear();
        ASSERT_EQ(report(k), 0);
        tav_nomal_work();
        EXPECT_EQ(g_tav_menu, menu_shortcut) << k;
    }
}

TEST_F(SelectionKeys, ShortcutValidWithAnyOneFlagAndSkippedWithout) {
    bool_t* flags[] = {&g_tav_shortcut_key1, &g_tav_shortcut_key3, &g_tav_shortcut_key4,
                       &g_tav_shortcut_key6, &g_tav_shortcut_key7, &g_tav_shortcut_key9};
    for (bool_t* f : flags) {
        *f = false;
    }
    EXPECT_FALSE(tav_get_menu_sel_valid());
    for (bool_t* f : flags) {
        *f = true;
        EXPECT_TRUE(tav_get_menu_sel_valid());
        *f = false;
    }
    // Without any, the shortcut menu's display passes on to the network menu.
    g_tav_menu = menu_shortcut;
    g_tav_menu_event = EVENT_NOMAL;
    tav_nomal_display();
    EXPECT_EQ(g_tav_menu, menu_eth_select);
    EXPECT_EQ(g_tav_menu_event, EVENT_UPDATE);
}

} // namespace
