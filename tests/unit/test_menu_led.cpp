// LED scenes of the menus, the TAKE blink bookkeeping and the self-check.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "panel_capture.h"
#include "tav_menu_led.h"

namespace {

constexpr uint32_t bit(int n) {
    return 1u << n;
}
constexpr uint32_t L = bit(10), R = bit(11), TAKE = bit(14), M = bit(15), LOCK = bit(16),
                   LCD = bit(31);
constexpr uint32_t D(int d) {
    return bit(d);
}

struct SceneCase {
    TAV_ENUM_MENUSTATUS state;
    bool lcd;
    bool lock;
    bool take;
    uint32_t mask;
};

void set_flags(bool k1, bool k3, bool k4, bool k6, bool k7, bool k9) {
    g_tav_shortcut_key1 = k1;
    g_tav_shortcut_key3 = k3;
    g_tav_shortcut_key4 = k4;
    g_tav_shortcut_key6 = k6;
    g_tav_shortcut_key7 = k7;
    g_tav_shortcut_key9 = k9;
}

uint32_t scene_mask(TAV_ENUM_MENUSTATUS state, bool take) {
    uint8_t leds[TAV_LED_SCENE_MAX];
    uint8_t n = tav_menu_led_scene(state, take, leds);
    uint32_t mask = 0;
    for (uint8_t i = 0; i < n; ++i) {
        mask |= bit(leds[i]);
    }
    return mask;
}

class LedScene : public ::testing::TestWithParam<SceneCase> {
  protected:
    void SetUp() override { set_flags(true, false, false, false, true, false); }
    void TearDown() override {
        g_tav_lcd = true;
        g_tav_lock = false;
    }
};

// Every scene is checked with the LCD active and idle, locked and not,
// TAKE blinking and not, unless the case names one of them.
const SceneCase k_scenes[] = {
    {menu_spc, true, false, false, L | R | M | LCD},
    {menu_spc, false, false, false, L | R | M},
    {menu_hot_plug, true, false, false, L | R | M | LCD},
    {menu_hot_plug, false, false, false, L | R | M | LCD},
    {menu_hot_plug, true, true, false, LCD | LOCK},
    {menu_hot_plug, false, true, false, LCD | LOCK},
    {menu_vid_display, true, false, false, L | R | M | LCD},
    {menu_vid_display, false, false, true, L | R | M},
    {meun_vid_io_display, false, false, false, L | R | M},
    {menu_aud_display, true, true, false, L | R | M | LCD},
    {meun_aud_io_display, false, false, false, L | R | M},
    {menu_vid_switch, false, false, true, L | R | M | LCD},
    {menu_aud_switch, false, false, true, L | R | M | LCD},
    {menu_shortcut, false, false, false, D(1) | D(7) | M | LCD},
    {menu_switch_all, false, false, false, D(1) | D(2) | L | M | LCD},
    {menu_switch_vid_all, false, false, false, L | R | M | LCD},
    {menu_switch_vid_all, true, false, true, L | R | M | LCD},
    {menu_switch_aud_all, false, false, true, L | R | M | LCD},
    {menu_edid_switch, false, false, false, L | R | M | LCD},
    {menu_eth_select, false, false, false, D(1) | D(2) | M | LCD},
    {menu_eth_display, false, false, false, D(1) | D(2) | D(3) | D(4) | L | M | LCD},
    {menu_eth_ip, false, false, false, L | M | LCD},
    {menu_eth_mac, false, false, false, L | M | LCD},
    {menu_eth_gate, false, false, false, L | M | LCD},
    {menu_eth_mask, false, false, false, L | M | LCD},
    {menu_reset, false, false, false, D(1) | D(2) | M | LCD},
    {menu_reset, false, false, true, L | M | LCD},
    {menu_display_version, false, false, false, L | R | M | LCD},
    {menu_update, false, true, false, LCD | LOCK},
    {menu_lock, true, true, false, LCD | LOCK},
    {menu_lock, false, true, false, LOCK},
    {static_cast<TAV_ENUM_MENUSTATUS>(23), true, false, false, 0},
    {static_cast<TAV_ENUM_MENUSTATUS>(-1), true, false, false, 0},
};

} // namespace

TEST_P(LedScene, ListsExactlyTheUsableKeys) {
    const SceneCase& c = GetParam();
    g_tav_lcd = c.lcd;
    g_tav_lock = c.lock;
    EXPECT_EQ(scene_mask(c.state, c.take), c.mask);
}

INSTANTIATE_TEST_SUITE_P(States, LedScene, ::testing::ValuesIn(k_scenes));

TEST(LedShortcutScene, OffersTheEnabledShortcutDigits) {
    struct {
        bool k[6];
        uint32_t mask;
    } cases[] = {
        {{true, false, false, false, true, false}, D(1) | D(7)},
        {{false, false, false, false, false, false}, 0},
        {{true, true, true, true, true, true}, D(1) | D(3) | D(4) | D(6) | D(7) | D(9)},
        {{false, true, false, true, false, true}, D(3) | D(6) | D(9)},
    };
    g_tav_lcd = false;
    for (const auto& c : cases) {
        set_flags(c.k[0], c.k[1], c.k[2], c.k[3], c.k[4], c.k[5]);
        EXPECT_EQ(scene_mask(menu_shortcut, false), c.mask | M | LCD);
    }
    set_flags(true, false, false, false, true, false);
    g_tav_lcd = true;
}

// What the panel receives: the scenes and blink frames as decoded masks.
class LedFrames : public ::testing::Test {
  protected:
    void SetUp() override {
        g_tav_lcd = true;
        g_tav_lock = false;
        set_flags(true, false, false, false, true, false);
        // Any scene outside the blinking menus stops the TAKE blink.
        tav_bdl_menu_showleds(menu_vid_display, false);
        cap().clear();
    }
    static tavtest::PanelCapture& cap() { return tavtest::PanelCapture::get(); }
    static std::string fmt(char kind, uint32_t m) {
        char s[16];
        snprintf(s, sizeof s, "%c%08X", kind, m);
        return s;
    }
    static std::string S(uint32_t m) { return fmt('S', m); }
    static std::string B(uint32_t m) { return fmt('B', m); }
    // The frames since the last call, as "S<hex mask>" (steady) / "B<hex mask>" (blink).
    std::vector<std::string> sent() {
        std::vector<std::string> out;
        for (const auto& f : cap().frames()) {
            const bool steady = f.kind == tavpanel::FrameKind::led_steady;
            const bool blink = f.kind == tavpanel::FrameKind::led_blink;
            out.push_back(fmt(steady  ? 'S'
                              : blink ? 'B'
                                      : '?',
                              tavpanel::mask_of(f.bytes.data() + 5)));
        }
        cap().clear();
        return out;
    }
};

using Seq = std::vector<std::string>;

TEST_F(LedFrames, OrdinaryScenesStopTheBlinkFirst) {
    EXPECT_EQ(tav_bdl_menu_showleds(menu_eth_ip, true), 0);
    EXPECT_EQ(sent(), (Seq{B(0), S(L | M | LCD)}));
    tav_bdl_menu_showleds(static_cast<TAV_ENUM_MENUSTATUS>(23), true);
    EXPECT_EQ(sent(), (Seq{B(0)}));
}

TEST_F(LedFrames, SwitchAllBlinksTakeAfterTheSceneAndOnlyOnChange) {
    const uint32_t scene = L | R | M | LCD;
    tav_bdl_menu_showleds(menu_switch_vid_all, true);
    EXPECT_EQ(sent(), (Seq{S(scene), B(TAKE)}));
    tav_bdl_menu_showleds(menu_switch_vid_all, true);
    EXPECT_EQ(sent(), (Seq{S(scene)}));
    tav_bdl_menu_showleds(menu_switch_aud_all, false);
    EXPECT_EQ(sent(), (Seq{S(scene), B(0)}));
    tav_bdl_menu_showleds(menu_switch_aud_all, false);
    EXPECT_EQ(sent(), (Seq{S(scene)}));
}

TEST_F(LedFrames, ResetSyncsTheBlinkBeforeTheScene) {
    tav_bdl_menu_showleds(menu_reset, false);
    EXPECT_EQ(sent(), (Seq{S(D(1) | D(2) | M | LCD)}));
    tav_bdl_menu_showleds(menu_reset, true);
    EXPECT_EQ(sent(), (Seq{B(TAKE), S(L | M | LCD)}));
    tav_bdl_menu_showleds(menu_reset, true);
    EXPECT_EQ(sent(), (Seq{S(L | M | LCD)}));
    // Back to the first page of the reset menu.
    tav_bdl_menu_showleds(menu_reset, false);
    EXPECT_EQ(sent(), (Seq{B(0), S(D(1) | D(2) | M | LCD)}));
}

TEST_F(LedFrames, LeavingABlinkingMenuClearsTheBookkeeping) {
    tav_bdl_menu_showleds(menu_switch_vid_all, true);
    tav_bdl_menu_showleds(menu_vid_display, false);
    sent();
    // Coming back blinks again: the blink is known to be off.
    tav_bdl_menu_showleds(menu_reset, true);
    EXPECT_EQ(sent(), (Seq{B(TAKE), S(L | M | LCD)}));
    // A switch-all page without blink after the reset blink stops it.
    tav_bdl_menu_showleds(menu_switch_vid_all, false);
    EXPECT_EQ(sent(), (Seq{S(L | R | M | LCD), B(0)}));
}

// The step sequence itself is checked through the controller's self-check.
TEST_F(LedFrames, SelfCheckStepBeyondTheLastSendsNothing) {
    EXPECT_EQ(tav_menuselfcheck_leds(17), 0);
    EXPECT_EQ(sent(), Seq{S(LCD)});
    EXPECT_EQ(tav_menuselfcheck_leds(18), 1);
    EXPECT_EQ(tav_menuselfcheck_leds(255), 1);
    EXPECT_EQ(sent(), Seq{});
}
