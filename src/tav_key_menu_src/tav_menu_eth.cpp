// Ethernet settings display: choice of the interface, choice of the value,
// and one page per value. Values are read from the tav_ifcfg tool when their
// page is opened and kept as text in g_tav_eth.
#include "tav_menu_eth.h"

#include <cstdio>
#include <cstring>

#include "tav_basetool.h"
#include "tav_lcd.h"
#include "tav_menu_analize_press.h"
#include "tav_menu_control.h"
#include "tav_menu_display_str.h"
#include "tav_menu_led.h"
#include "tav_menu_strcfg.h"
#include "tav_menu_var.h"

namespace {

uint8_t m_eth_sec;

constexpr uint8_t kRowTitle = 5;
constexpr uint8_t kRowInterfaces = 6;
constexpr uint8_t kRowValues = 7;
constexpr uint8_t kRowValueTitle = 8;
constexpr int kTitleDigitCol = 15;
constexpr int kValueTitleDigitCol = 28;
constexpr int kValueNameCol = 30;
constexpr int kValueCol = 14;
constexpr int kFieldLen = static_cast<int>(sizeof(TAV_ETH_STATUS{}.IP));

// One value page, in the order of the value menu's digits 1 to 4.
struct EthValue {
    TAV_ENUM_MENUSTATUS menu;
    const char* name; // the tool's argument and the page title's word
    char (TAV_ETH_STATUS::*field)[kFieldLen];
    int blank_from; // columns from here on are blanked after the value
};
constexpr EthValue kValues[] = {
    {menu_eth_ip, "IP", &TAV_ETH_STATUS::IP, 29},
    {menu_eth_mac, "MAC", &TAV_ETH_STATUS::MAC, 31},
    {menu_eth_mask, "MASK", &TAV_ETH_STATUS::MASK, 29},
    {menu_eth_gate, "GATEWAY", &TAV_ETH_STATUS::GATEWAY, 29},
};

uint8_t sec(void) {
    return m_eth_sec < 2 ? m_eth_sec : 0;
}

char* value_field(const EthValue& v) {
    return g_tav_eth[sec()].*(v.field);
}

void open_value_page(const EthValue& v) {
    tav_menu_update(v.menu);
    char cmd[32];
    snprintf(cmd, sizeof cmd, "tav_ifcfg eth%u %s", static_cast<unsigned>(sec()), v.name);
    char* field = value_field(v);
    mytav_btool_system(cmd, field, kFieldLen);
    AddIP_GATE_MASK_0(field);
}

void value_page_display(const EthValue& v) {
    tav_menu_get_spcstr(displaybuf, kRowValueTitle);
    tav_menu_put_digits(displaybuf, kValueTitleDigitCol, sec(), 1);
    const size_t name_len = strlen(v.name);
    memcpy(&displaybuf[kValueNameCol], v.name, name_len);
    tav_display_string(0, 0, displaybuf, TAV_MENU_COLS);

    memset(displaybuf, ' ', TAV_MENU_COLS);
    tav_menu_put_text(displaybuf, kValueCol, v.blank_from, value_field(v), kFieldLen);
    tav_display_string(1, 0, displaybuf, TAV_MENU_COLS);
    tav_bdl_menu_showleds(v.menu, false);
}

} // namespace

void tav_menu_put_text(int8_t* line, int col, int limit, const char* text, int maxlen) {
    if (line == nullptr || text == nullptr) {
        return;
    }
    if (limit > TAV_MENU_COLS) {
        limit = TAV_MENU_COLS;
    }
    int i = 0;
    for (; col + i < limit && i < maxlen && text[i] != '\0'; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        line[col + i] = static_cast<int8_t>(c >= 0x20 && c < 0x7F ? c : ' ');
    }
    for (; col + i < limit; ++i) {
        line[col + i] = ' ';
    }
}

uint8_t tav_eth_get_sec(void) {
    return m_eth_sec;
}

void tav_eth_init(void) {
    m_eth_sec = 0;
}

void tav_eth_clear(void) {
    m_eth_sec = 0;
}

int mytav_btool_system(const char* cmdstring, char* buf, int len) {
    // A tool that hangs must not freeze the panel: its wait is bounded.
    return tav_btool_run(cmdstring, buf, len, TAV_BTOOL_TIMEOUT_MS);
}

void AddIP_GATE_MASK_0(char* buf) {
    if (buf == nullptr) {
        return;
    }
    // Pads each dotted group to three digits; works on positions 0 to 16.
    for (int p = 0; p < 16; ++p) {
        if ((buf[p] == '.' && p % 4 != 3) || buf[p] == '\0') {
            const int start = p - p % 4;
            memmove(&buf[start + 1], &buf[start], static_cast<size_t>(16 - start));
            buf[start] = '0';
        }
    }
}

void tav_eth_sec(void) {
    if (g_tav_button.press == TAV_PRESS_DIGIT &&
        (g_tav_button.number == 1 || g_tav_button.number == 2)) {
        m_eth_sec = static_cast<uint8_t>(g_tav_button.number - 1);
        tav_menu_update(menu_eth_display);
    }
}

void tav_eth_dis(void) {
    if (g_tav_button.press == TAV_PRESS_DIGIT && g_tav_button.number >= 1 &&
        g_tav_button.number <= 4) {
        open_value_page(kValues[g_tav_button.number - 1]);
    }
}

// A value page's keys all lead elsewhere (the menu table's leave keys).
void tav_eth_ip(void) {}
void tav_eth_mac(void) {}
void tav_eth_gate(void) {}
void tav_eth_mask(void) {}

void tav_eth_sec_display(void) {
    tav_menu_spc_display(displaybuf, kRowTitle, kRowInterfaces);
    tav_bdl_menu_showleds(menu_eth_select, false);
}

void tav_eth_dis_display(void) {
    tav_menu_get_spcstr(displaybuf, kRowTitle);
    tav_menu_put_digits(displaybuf, kTitleDigitCol, sec(), 1);
    tav_display_string(0, 0, displaybuf, TAV_MENU_COLS);
    tav_menu_get_spcstr(displaybuf, kRowValues);
    tav_display_string(1, 0, displaybuf, TAV_MENU_COLS);
    tav_bdl_menu_showleds(menu_eth_display, false);
}

void tav_eth_ip_display(void) {
    value_page_display(kValues[0]);
}
void tav_eth_mac_display(void) {
    value_page_display(kValues[1]);
}
void tav_eth_mask_display(void) {
    value_page_display(kValues[2]);
}
void tav_eth_gate_display(void) {
    value_page_display(kValues[3]);
}
