// Reset menu: restart after one confirmation, factory reset after two. The
// request goes to the matrix core; a flag file records which reboot it was.
#include "tav_menu_reset.h"

#include <cstdio>
#include <cstring>

#include "tav_basetool.h"
#include "tav_menu_analize_press.h"
#include "tav_menu_control.h"
#include "tav_menu_display_str.h"
#include "tav_menu_led.h"
#include "tav_menu_var.h"
#include "tav_platform.h"

namespace {

// 0 choose, 1 restart chosen, 2 factory reset chosen, 3 factory reset confirmed once.
uint8_t reset_step;

struct ResetPage {
    uint8_t top;
    uint8_t bottom;
    bool take_blink;
};
constexpr ResetPage kPages[] = {
    {65, 66, false},
    {67, 68, true},
    {69, 70, true},
    {71, 72, true},
};
constexpr uint8_t kSteps = sizeof kPages / sizeof kPages[0];

constexpr const char* kFlagFile = "/tmp/tav_z8_reboot.flag";

// Characters that need no quoting in a shell word.
bool shell_plain(const char* s) {
    for (; *s != '\0'; ++s) {
        const char c = *s;
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                        (c >= '0' && c <= '9') || c == '/' || c == '.' || c == '_' || c == '-';
        if (!ok) {
            return false;
        }
    }
    return true;
}

// Writes the reboot kind into the flag file with the shell, as the device's
// reboot script expects: echo "N" > /tmp/tav_z8_reboot.flag
void write_flag_file(EM_MATRIX_IRQ_REBOOT_OPT mode) {
    char path[256];
    tav_platform_path(kFlagFile, path, sizeof path);
    char cmd[300];
    int n;
    if (shell_plain(path)) {
        n = snprintf(cmd, sizeof cmd, "echo \"%d\" > %s", static_cast<int>(mode), path);
    } else if (strchr(path, '\'') == nullptr) {
        n = snprintf(cmd, sizeof cmd, "echo \"%d\" > '%s'", static_cast<int>(mode), path);
    } else {
        n = -1;
    }
    if (n < 0 || static_cast<size_t>(n) >= sizeof cmd) {
        tav_log(TAV_LOG_ERR, "func=[%s]reboot flag path unusable: %s", "tav_menu_reset", path);
        return;
    }
    tav_btool_system(cmd);
}

void request_reboot(EM_MATRIX_IRQ_REBOOT_OPT mode) {
    tav_menu_configure_reset(mode);
    write_flag_file(mode);
}

} // namespace

void tav_menu_reset_init(void) {
    reset_step = 0;
}

void tav_menu_reset_clear(void) {
    reset_step = 0;
}

void tav_menu_configure_reset(EM_MATRIX_IRQ_REBOOT_OPT mode) {
    tav_matrix_set_inner_signal_reboot_opt(pmatrixDllHandle, mode);
}

void tav_menu_reset(void) {
    if (reset_step >= kSteps) {
        reset_step = 0;
    }
    switch (g_tav_button.press) {
    case TAV_PRESS_DIGIT:
        if (reset_step == 0 && (g_tav_button.number == 1 || g_tav_button.number == 2)) {
            reset_step = g_tav_button.number;
        }
        break;
    case TAV_PRESS_TAKE:
        if (reset_step == 1) {
            request_reboot(em_irq_reboot_reset);
        } else if (reset_step == 2) {
            reset_step = 3;
        } else if (reset_step == 3) {
            request_reboot(em_irq_reboot_factory);
        }
        break;
    case TAV_PRESS_LEFT:
        reset_step = 0;
        break;
    default: // RIGHT, DEFAULT
        return;
    }
    tav_menu_update(menu_reset);
}

void tav_menu_reset_display(void) {
    const ResetPage& page = kPages[reset_step < kSteps ? reset_step : 0];
    tav_menu_spc_display(displaybuf, page.top, page.bottom);
    tav_bdl_menu_showleds(menu_reset, page.take_blink);
}

uint8_t tav_menu_reset_get_step(void) {
    return reset_step;
}
