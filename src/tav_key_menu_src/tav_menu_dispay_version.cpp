// Version display: the main application's version (read from the
// tav_version tool), the panel program's own version and the panel
// firmware's version, one per page. The two panel versions are also handed
// to tav_version so that the rest of the system can show them.
#include "tav_menu_dispay_version.h"

#include <cstdio>
#include <cstring>

#include "tav_basetool.h"
#include "tav_baseportcontrol.h"
#include "tav_lcd.h"
#include "tav_menu_analize_press.h"
#include "tav_menu_control.h"
#include "tav_menu_display_str.h"
#include "tav_menu_eth.h"
#include "tav_menu_led.h"
#include "tav_menu_strcfg.h"
#include "tav_menu_var.h"

namespace {

uint8_t m_version_sec;

constexpr int kLabelLen = 26;
constexpr int kVersionLen = 10;
constexpr uint8_t kPages = 3;
constexpr uint8_t kRowTitle = 9;
// At most this many characters of the tool's first line are read.
constexpr int kMainVersionRead = 29;

// Labels of the three pages, exactly 26 characters each.
const char buf_version[kPages][kLabelLen + 1] = {
    "      MAIN APP VERSION  : ",
    "<<    SOFT KEY VERSION  : ",
    "<<    HARD KEY VERSION  : ",
};
// Read the main version; publish the soft and hard key versions.
const char* const buf_Version[kPages] = {
    "tav_version quoral_version   ",
    "tav_version tav_keyboard_soft ",
    "tav_version tav_keyboard_hard ",
};

// Shown when the tool gives no version at all.
constexpr const char* kUnknownVersion = "00.00.0000";
constexpr const char* kSoftKeyVersion = "01.01.0001";

// The main and minor firmware numbers have two digits on the page: larger
// values are shown as 99 so that the text keeps its NN.NN.NNNN form.
int clamp_to(int value, int max) {
    return value > max ? max : value;
}

void read_versions(void) {
    char line[64];
    memset(line, 0, sizeof line);
    if (my_version_tav_btool_system(buf_Version[0], line, kMainVersionRead + 1) != 0) {
        snprintf(g_tav_version.main_ver, sizeof g_tav_version.main_ver, "%s", kUnknownVersion);
    } else {
        tav_version_add_0(line, g_tav_version.main_ver);
    }
    const TAV_HARD_KEY_VER hard = tav_get_hardkey_ver();
    snprintf(g_tav_version.hard_key_ver, sizeof g_tav_version.hard_key_ver, "%02d.%02d.%04d",
             clamp_to(hard.key_main_ver, 99), clamp_to(hard.key_minor_ver, 99), hard.key_build_ver);
    snprintf(g_tav_version.soft_key_ver, sizeof g_tav_version.soft_key_ver, "%s", kSoftKeyVersion);
}

void publish(const char* head, const char* version) {
    char cmd[64];
    memset(cmd, 0, sizeof cmd);
    snprintf(cmd, sizeof cmd, "%s%.*s", head, kVersionLen, version);
    tav_btool_system(cmd);
}

} // namespace

uint8_t tav_version_get_sec(void) {
    return m_version_sec;
}

void tav_version_init(void) {
    m_version_sec = 0;
    tav_version_handle();
}

void tav_version_clear(void) {
    m_version_sec = 0;
}

void tav_version_handle(void) {
    read_versions();
    tav_version_set_get();
}

void tav_version_refreash(void) {
    read_versions();
}

int my_version_tav_btool_system(const char* cmdstring, char* buf, int len) {
    // Same first-line reader as the network values.
    return mytav_btool_system(cmdstring, buf, len);
}

void tav_version_add_0(char* srcbuf, char* destbuf) {
    if (destbuf == nullptr) {
        return;
    }
    // Only the first ten characters can reach the result; the padding
    // shifts them right by at most two places.
    char work[kVersionLen + 2];
    memset(work, 0, sizeof work);
    if (srcbuf != nullptr) {
        for (int i = 0; i < kVersionLen && srcbuf[i] != '\0'; ++i) {
            work[i] = srcbuf[i];
        }
    }
    for (int p = 0; p < kVersionLen; ++p) {
        if (p <= 6) {
            // A dot where a digit of the first or second group belongs.
            if (work[p] == '.' && p % 3 != 2) {
                const int start = p - p % 3;
                memmove(&work[start + 1], &work[start], static_cast<size_t>(kVersionLen - start));
                work[start] = '0';
            }
        } else if (work[p] < '0' || work[p] > '9') {
            // The third group is short: pad it from the left.
            memmove(&work[7], &work[6], 5);
            work[6] = '0';
        }
    }
    memcpy(destbuf, work, kVersionLen);
    destbuf[kVersionLen] = '\0';
}

void tav_version_set_get(void) {
    publish(buf_Version[1], g_tav_version.soft_key_ver);
    tav_menu_sleep_ms(1000);
    publish(buf_Version[2], g_tav_version.hard_key_ver);
}

void tav_version_sec(void) {
    if (m_version_sec >= kPages) {
        m_version_sec = 0;
    }
    switch (g_tav_button.press) {
    case TAV_PRESS_RIGHT:
        if (m_version_sec < kPages - 1) {
            ++m_version_sec;
        }
        tav_menu_update(menu_display_version);
        break;
    case TAV_PRESS_LEFT:
        if (m_version_sec > 0) {
            --m_version_sec;
        }
        tav_menu_update(menu_display_version);
        break;
    default: // digits, TAKE
        break;
    }
}

void tav_version_display(void) {
    const uint8_t page = m_version_sec < kPages ? m_version_sec : 0;
    const char* const texts[kPages] = {g_tav_version.main_ver, g_tav_version.soft_key_ver,
                                       g_tav_version.hard_key_ver};

    tav_menu_get_spcstr(displaybuf, kRowTitle);
    tav_display_string(0, 0, displaybuf, TAV_MENU_COLS);

    memset(displaybuf, ' ', TAV_MENU_COLS);
    memcpy(displaybuf, buf_version[page], kLabelLen);
    tav_menu_put_text(displaybuf, kLabelLen, kLabelLen + kVersionLen, texts[page], kVersionLen);
    if (page < kPages - 1) {
        displaybuf[38] = '>';
        displaybuf[39] = '>';
    }
    tav_display_string(1, 0, displaybuf, TAV_MENU_COLS);
    tav_bdl_menu_showleds(menu_display_version, false);
}
