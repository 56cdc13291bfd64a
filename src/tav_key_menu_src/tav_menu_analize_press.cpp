// Key analysis: decides whether the latest key report is acted on and records
// it in the key record g_tav_button, which the menu handlers read.
#include "tav_menu_analize_press.h"

#include "tav_baseportcontrol.h"
#include "tav_menu_var.h"

namespace {

// The keys other than digits: their field in the key record and press code.
struct KeyField {
    TAV_KEY_ENUM key;
    uint8_t KB_BUTTON::*field;
    uint16_t press;
};

const KeyField kKeyFields[] = {
    {TAV_KEY_LEFT, &KB_BUTTON::left, TAV_PRESS_LEFT},
    {TAV_KEY_RIGHT, &KB_BUTTON::right, TAV_PRESS_RIGHT},
    {TAV_KEY_BREAK, &KB_BUTTON::brk, TAV_PRESS_BREAK},
    {TAV_KEY_DEFAULT, &KB_BUTTON::dft, TAV_PRESS_DEFAULT},
    {TAV_KEY_TAKE, &KB_BUTTON::take, TAV_PRESS_TAKE},
    {TAV_KEY_MENU, &KB_BUTTON::menu, TAV_PRESS_MENU},
    {TAV_KEY_LOCK, &KB_BUTTON::lock, TAV_PRESS_LOCK},
};

} // namespace

unsigned char tav_ana_key(void) {
    const TAV_KEY_ENUM k = tav_getkey_val();
    // A locked panel reacts to LOCK only.
    if (g_tav_lock && k != TAV_KEY_LOCK) {
        tav_button_clear();
        return 1;
    }
    if (k <= TAV_KEY_9) {
        // The same digit again without a release between: not acted on.
        const bool repeated = g_tav_button.number == static_cast<uint8_t>(k);
        tav_button_clear();
        if (repeated) {
            return 1;
        }
        g_tav_button.number = static_cast<uint8_t>(k);
        g_tav_button.press = TAV_PRESS_DIGIT;
        return 0;
    }
    for (const KeyField& f : kKeyFields) {
        if (f.key != k) {
            continue;
        }
        const bool repeated = g_tav_button.*f.field == 1;
        tav_button_clear();
        if (repeated) {
            // LOCK reported twice in a row is the lock toggle.
            return k == TAV_KEY_LOCK ? 2 : 1;
        }
        g_tav_button.*f.field = 1;
        g_tav_button.press = f.press;
        return 0;
    }
    // A release (TAV_KEY_NULL) or an unknown value.
    tav_button_clear();
    return 1;
}
