// LED scenes of the menus and the start-up self-check pattern.
//
// A scene names exactly the LEDs that are on; it goes to the panel as one
// steady-mask frame. The TAKE key blinks only in the switch-all and reset
// menus; every other scene first stops all blinking.
#include "tav_menu_led.h"

#include <mutex>

#include "tav_led.h"
#include "tav_menu_control.h"

namespace {

// The LED numbers the scenes name; END closes a list.
enum : uint8_t {
    LEFT = TAV_KEY_LEFT,
    RIGHT = TAV_KEY_RIGHT,
    BREAK = TAV_KEY_BREAK,
    DEFAULT = TAV_KEY_DEFAULT,
    TAKE = TAV_KEY_TAKE,
    MENU = TAV_KEY_MENU,
    LOCK = TAV_KEY_LOCK,
    LCD = TAV_LED_LCD,
    END = 0xFF,
};

// The self-check lights one key after another, each with LED 31.
constexpr uint8_t kSelfcheckKeys[] = {1,    2, 3,     4,    5,    6,    7,     8,      9,
                                      LEFT, 0, RIGHT, TAKE, MENU, LOCK, BREAK, DEFAULT};
constexpr uint8_t kSelfcheckSteps = sizeof kSelfcheckKeys + 1;

enum SceneFlag : uint8_t {
    SCENE_NONE = 0,
    SCENE_LCD = 1 << 0,        // LED 31 only while the LCD is active
    SCENE_SHORTCUT = 1 << 1,   // led by the enabled shortcut digits
    SCENE_ALT_LOCKED = 1 << 2, // the second list while the panel is locked
    SCENE_ALT_TAKE = 1 << 3,   // the second list while TAKE blinks
    SCENE_BLINK_BEFORE = 1 << 4,
    SCENE_BLINK_AFTER = 1 << 5,
    SCENE_TAKE_BLINK = SCENE_BLINK_BEFORE | SCENE_BLINK_AFTER,
};

struct Scene {
    TAV_ENUM_MENUSTATUS state;
    uint8_t flags;
    uint8_t leds[8];
    uint8_t alt[8];
};

// One scene per menu state, indexed by TAV_ENUM_MENUSTATUS.
constexpr Scene kScenes[] = {
    {menu_spc, SCENE_LCD, {LEFT, RIGHT, MENU, LCD, END}, {END}},
    {menu_hot_plug, SCENE_ALT_LOCKED, {LEFT, RIGHT, MENU, LCD, END}, {LCD, LOCK, END}},
    {menu_vid_display, SCENE_LCD, {LEFT, RIGHT, MENU, LCD, END}, {END}},
    {meun_vid_io_display, SCENE_LCD, {LEFT, RIGHT, MENU, LCD, END}, {END}},
    {menu_vid_switch, SCENE_NONE, {LEFT, RIGHT, LCD, MENU, END}, {END}},
    {menu_aud_display, SCENE_LCD, {LEFT, RIGHT, MENU, LCD, END}, {END}},
    {meun_aud_io_display, SCENE_LCD, {LEFT, RIGHT, MENU, LCD, END}, {END}},
    {menu_aud_switch, SCENE_NONE, {LEFT, RIGHT, LCD, MENU, END}, {END}},
    {menu_shortcut, SCENE_SHORTCUT, {LCD, MENU, END}, {END}},
    {menu_switch_all, SCENE_NONE, {1, 2, LEFT, LCD, MENU, END}, {END}},
    {menu_switch_vid_all, SCENE_BLINK_AFTER, {LEFT, RIGHT, MENU, LCD, END}, {END}},
    {menu_switch_aud_all, SCENE_BLINK_AFTER, {LEFT, RIGHT, MENU, LCD, END}, {END}},
    {menu_edid_switch, SCENE_NONE, {LEFT, RIGHT, LCD, MENU, END}, {END}},
    {menu_eth_select, SCENE_NONE, {1, 2, LCD, MENU, END}, {END}},
    {menu_eth_display, SCENE_NONE, {1, 2, 3, 4, LEFT, LCD, MENU, END}, {END}},
    {menu_eth_ip, SCENE_NONE, {LEFT, LCD, MENU, END}, {END}},
    {menu_eth_mac, SCENE_NONE, {LEFT, LCD, MENU, END}, {END}},
    {menu_eth_gate, SCENE_NONE, {LEFT, LCD, MENU, END}, {END}},
    {menu_eth_mask, SCENE_NONE, {LEFT, LCD, MENU, END}, {END}},
    {menu_reset,
     SCENE_ALT_TAKE | SCENE_BLINK_BEFORE,
     {1, 2, MENU, LCD, END},
     {LEFT, MENU, LCD, END}},
    {menu_display_version, SCENE_NONE, {LEFT, RIGHT, LCD, MENU, END}, {END}},
    {menu_update, SCENE_NONE, {LCD, LOCK, END}, {END}},
    {menu_lock, SCENE_LCD, {LCD, LOCK, END}, {END}},
};

constexpr bool scenes_in_state_order() {
    for (size_t i = 0; i < sizeof kScenes / sizeof kScenes[0]; ++i) {
        if (kScenes[i].state != static_cast<TAV_ENUM_MENUSTATUS>(i)) {
            return false;
        }
    }
    return sizeof kScenes / sizeof kScenes[0] == menu_lock + 1;
}
static_assert(scenes_in_state_order(), "one scene per menu state, in state order");

const Scene* scene_of(TAV_ENUM_MENUSTATUS state) {
    if (state < menu_spc || state > menu_lock) {
        return nullptr;
    }
    return &kScenes[state];
}

// Whether the TAKE key is blinking: switched on and not yet off.
bool_t current_take = false;

// Brings the TAKE blink in line with the request of a blinking scene.
void sync_take_blink(bool_t take_blink) {
    if (take_blink && !current_take) {
        tav_display_led_blink_sigle_on(TAKE);
    } else if (!take_blink && current_take) {
        tav_display_led_blink_all_off();
    }
    current_take = take_blink;
}

} // namespace

uint8_t tav_menu_led_scene(TAV_ENUM_MENUSTATUS state, bool_t Take_blink, uint8_t* leds) {
    const Scene* scene = scene_of(state);
    if (scene == nullptr || leds == nullptr) {
        return 0;
    }
    uint8_t n = 0;
    if (scene->flags & SCENE_SHORTCUT) {
        const struct {
            uint8_t digit;
            bool_t on;
        } digits[] = {{1, g_tav_shortcut_key1}, {3, g_tav_shortcut_key3}, {4, g_tav_shortcut_key4},
                      {6, g_tav_shortcut_key6}, {7, g_tav_shortcut_key7}, {9, g_tav_shortcut_key9}};
        for (const auto& d : digits) {
            if (d.on) {
                leds[n++] = d.digit;
            }
        }
    }
    const bool alt = ((scene->flags & SCENE_ALT_LOCKED) && g_tav_lock) ||
                     ((scene->flags & SCENE_ALT_TAKE) && Take_blink);
    const uint8_t* list = alt ? scene->alt : scene->leds;
    for (size_t i = 0; i < sizeof scene->leds && list[i] != END; ++i) {
        if (list[i] == LCD && (scene->flags & SCENE_LCD) && !g_tav_lcd) {
            continue;
        }
        leds[n++] = list[i];
    }
    return n;
}

uint8_t tav_menuselfcheck_leds(uint8_t showwhichled) {
    if (showwhichled >= kSelfcheckSteps) {
        return 1;
    }
    uint8_t leds[2];
    uint8_t n = 0;
    if (showwhichled < sizeof kSelfcheckKeys) {
        leds[n++] = kSelfcheckKeys[showwhichled];
    }
    leds[n++] = LCD;
    tav_display_led_mutil_on(leds, n);
    return 0;
}

unsigned char tav_bdl_menu_showleds(TAV_ENUM_MENUSTATUS state, bool_t Take_blink) {
    const Scene* scene = scene_of(state);
    const uint8_t blink = scene != nullptr ? (scene->flags & SCENE_TAKE_BLINK) : 0;
    if (blink == 0) {
        tav_display_led_blink_all_off();
        current_take = false;
    }
    if (scene == nullptr) {
        return 0;
    }
    if (blink & SCENE_BLINK_BEFORE) {
        sync_take_blink(Take_blink);
    }
    uint8_t leds[TAV_LED_SCENE_MAX];
    const uint8_t n = tav_menu_led_scene(state, Take_blink, leds);
    tav_display_led_mutil_on(leds, n);
    if (blink & SCENE_BLINK_AFTER) {
        sync_take_blink(Take_blink);
    }
    return 0;
}
