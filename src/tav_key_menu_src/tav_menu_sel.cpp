// Shortcut menu and the video/audio choice of the switch-all function.
#include "tav_menu_sel.h"

#include "tav_lcd.h"
#include "tav_menu_analize_press.h"
#include "tav_menu_control.h"
#include "tav_menu_display_str.h"
#include "tav_menu_led.h"
#include "tav_menu_switch_all.h"
#include "tav_menu_var.h"

namespace {

// Both menus draw two rows and ask for no cursor (column 40 is refused).
void draw_page(uint8_t row0, uint8_t row1, TAV_ENUM_MENUSTATUS scene) {
    tav_menu_spc_display(displaybuf, row0, row1);
    tav_display_move_cursor(1, 40);
    tav_bdl_menu_showleds(scene, false);
}

// Digits of the shortcut menu that lead somewhere when their flag is set.
struct Shortcut {
    uint8_t digit;
    const bool_t* enabled;
    TAV_ENUM_MENUSTATUS target;
};
const Shortcut kShortcuts[] = {
    {1, &g_tav_shortcut_key1, menu_switch_all},
    {7, &g_tav_shortcut_key7, menu_edid_switch},
};

// Digits of the switch-all choice: the menu and the mode they select.
struct SwitchAllChoice {
    uint8_t digit;
    TAV_ENUM_MENUSTATUS target;
    uint8_t mode;
};
const SwitchAllChoice kSwitchAllChoices[] = {
    {1, menu_switch_vid_all, 1},
    {2, menu_switch_aud_all, 2},
};

} // namespace

bool_t tav_get_menu_sel_valid(void) {
    return g_tav_shortcut_key1 || g_tav_shortcut_key3 || g_tav_shortcut_key4 ||
           g_tav_shortcut_key6 || g_tav_shortcut_key7 || g_tav_shortcut_key9;
}

void tav_menu_sel(void) {
    if (!tav_get_menu_sel_valid()) {
        tav_menu_update(menu_eth_select);
        return;
    }
    if (g_tav_button.press == TAV_PRESS_DIGIT) {
        for (const Shortcut& s : kShortcuts) {
            if (g_tav_button.number == s.digit && *s.enabled) {
                tav_menu_update(s.target);
                return;
            }
        }
        // Any other digit only redisplays the menu.
        tav_menu_update(menu_shortcut);
    }
}

void tav_menu_sel_display(void) {
    if (!tav_get_menu_sel_valid()) {
        tav_menu_update(menu_eth_select);
        return;
    }
    draw_page(43, 44, menu_shortcut);
}

void tav_menu_sel_av_swall(void) {
    if (g_tav_button.press != TAV_PRESS_DIGIT) {
        return;
    }
    for (const SwitchAllChoice& c : kSwitchAllChoices) {
        if (g_tav_button.number == c.digit) {
            tav_menu_update(c.target);
            tav_menu_set_switch_all_mode(c.mode);
            return;
        }
    }
}

void tav_menu_sel_av_swall_display(void) {
    draw_page(45, 46, menu_switch_all);
}

void tav_menu_sel_init(void) {}

void tav_menu_sel_clear(void) {}
