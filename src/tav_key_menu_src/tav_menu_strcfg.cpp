// LCD text table, line heads and the configuration file reader.
//
// The texts live in fixed tables filled with the built-in defaults at load
// time. The configuration file may replace any keyed row, any head and the
// shortcut flags; every key is one entry of one table (TAV_CFG_KEYS) and is
// applied by one reader, so the named per-key functions are thin wrappers.
#include "tav_menu_strcfg.h"

#include <cstdio>
#include <cstring>

#include "tav_menu_var.h"

uint8_t MENU_ITEM_STR[TAV_MENU_ROWS][TAV_MENU_COLS];
uint8_t MENU_SPC_HEAD[TAV_MENU_HEADS][7];

// Value buffer of the file reader; a line read from the file is at most 127
// characters, so any value taken from it fits with its terminator.
static char tempbuf[128];

namespace {

struct RowDefault {
    uint8_t blanks;
    const char* text;
};

// Built-in rows: leading blanks and text; the rest of the row is blank.
constexpr RowDefault kRowDefaults[TAV_MENU_ROWS] = {
    {0, ""},
    {6, "QUORAL ELECTRONICS Co.,LTD"},
    {11, "TR-90QX MATRIX"},
    {9, "Loading Main Setup"},
    {11, "PLEASE WAIT......"},
    {12, "ETH  NET DISPLAY"},
    {12, "1 ETH0  2 ETH1"},
    {7, "1IP 2MAC 3MASK 4GATEWAY"},
    {10, "CURRENT SYSTEM ETH  IP"},
    {4, "Version Information Display"},
    {1, "There Is NO INPUT CARD In This MATRIX"},
    {1, "There Is NO OUTPUT CARD In This MATRIX"},
    {8, "PLEASE CHECK YOUR MATRIX"},
    {8, "Slot XX Has a Card Insert"},
    {5, "Please wait it for Initialization"},
    {11, "Card XX Pull out"},
    {8, "The Matrix System Err"},
    {7, "The Device will update"},
    {4, "Please do not handle it anyway"},
    {7, "Device complete updating"},
    {9, "Linux ARM is Updating"},
    {11, "Please Wait......"},
    {4, "Matrix Monitoring Card is Updating"},
    {7, "Slot XX Card is Updating"},
    {5, "Device Card is Updating  XXX%"},
    {4, "The Update Process Has Err Occur"},
    {8, "Please update card XX again"},
    {1, "There Is NO Audio Input In This MATRIX"},
    {1, "There Is NO Audio Output In This MATRIX"},
    {10, "MATRIX EDID OPERATION"},
    {17, "SOURCE(__)=>DEST(__)"},
    {0, "You Have select output port as dest port"},
    {8, "PLEASE RESELECT THE PORT"},
    {1, "The Port You Select is No Configure"},
    {8, "PLEASE RESELECT THE PORT"},
    {2, "The Port You Select The Same Port"},
    {8, "PLEASE RESELECT THE PORT"},
    {10, "MATRIX EDID OPERATION"},
    {11, "EDID COPY ERR Occur"},
    {10, "MATRIX EDID OPERATION"},
    {11, "EDID COPY Success"},
    {8, "Please update Linux Arm again"},
    {0, "Please update Matrix Monitor Card again"},
    {1, "1:inXX=>ALL"},
    {1, "7:EDID"},
    {15, "inXX=>ALL"},
    {2, "1:Video inXX=>ALL 2:Audio inXX=>ALL"},
    {20, "Video in__=>ALL"},
    {20, "Audio in__=>ALL"},
    {2, "Press TAKE or 0 confirm close all out"},
    {2, "Press TAKE or 0 confirm close all out"},
    {8, "Switching Video in__=>ALL"},
    {13, "Please wait......"},
    {8, "Switching Audio in__=>ALL"},
    {13, "Please wait......"},
    {8, "Closing all Video outputs"},
    {13, "Please wait......"},
    {8, "Closing all Audio outputs"},
    {13, "Please wait......"},
    {9, "The device is restarting"},
    {13, "Please wait......"},
    {3, "The device is factory resetting"},
    {13, "Please wait......"},
    {1, "The device is being reset and upgraded"},
    {13, "Please wait......"},
    {6, "COMPLETELY MATRIX RESET"},
    {5, "1:Reset     2:Factory Default"},
    {7, "The Device will be reset"},
    {9, "Press TAKE to confirm"},
    {4, "The Device will be factory default"},
    {9, "Press TAKE to confirm"},
    {4, "RESET Matrix to factory default ?"},
    {7, "Once more TAKE to confirm"},
    {1, "Internal network switcher is Updating"},
    {3, "The Port You Select is Not OUTPUT"},
    {3, "The Port You Select is Not INPUT"},
    {6, "Please Re-Selected The Port"},
    {4, "There Is NO CARDS In This MATRIX"},
};

constexpr const char* kHeadDefaults[TAV_MENU_HEADS] = {
    "VOSW: ", "VISW: ", "AOSW: ", "AISW: ", "VOUT: ",
    "VIN : ", "AOUT: ", "AIN : ", "ILIST:", "ILIST:",
};

constexpr bool rows_fit() {
    for (const RowDefault& r : kRowDefaults) {
        size_t n = 0;
        while (r.text[n] != '\0') {
            ++n;
        }
        if (r.blanks + n > TAV_MENU_COLS) {
            return false;
        }
    }
    return true;
}
static_assert(rows_fit(), "a built-in row is longer than the LCD line");

enum TAV_CFG_KIND : uint8_t { TAV_CFG_ROW, TAV_CFG_HEAD, TAV_CFG_FLAG };

struct CfgKey {
    const char* key;
    TAV_CFG_KIND kind;
    uint8_t index;
};

#define TAV_CFG_TABLE_ENTRY(name, key, kind, index) {key, kind, index},
constexpr CfgKey kCfgKeys[] = {TAV_CFG_KEYS(TAV_CFG_TABLE_ENTRY)};
#undef TAV_CFG_TABLE_ENTRY

#define TAV_CFG_ENUM_ENTRY(name, key, kind, index) TAV_CFG_KEY_##name,
enum TAV_CFG_KEY_ID : uint8_t { TAV_CFG_KEYS(TAV_CFG_ENUM_ENTRY) TAV_CFG_KEY_COUNT };
#undef TAV_CFG_ENUM_ENTRY

static_assert(TAV_CFG_KEY_COUNT == 84, "68 row keys, 10 head keys and 6 flag keys");

bool_t* shortcut_flag(uint8_t key_digit) {
    switch (key_digit) {
    case 1:
        return &g_tav_shortcut_key1;
    case 3:
        return &g_tav_shortcut_key3;
    case 4:
        return &g_tav_shortcut_key4;
    case 6:
        return &g_tav_shortcut_key6;
    case 7:
        return &g_tav_shortcut_key7;
    case 9:
        return &g_tav_shortcut_key9;
    default:
        return nullptr;
    }
}

// Takes the value that follows the key's "=": at least one character other
// than "{", then "{", then at least one character up to "}" or the end of
// the line. Anything else leaves the value empty.
void scan_value(const char* p, char* out, size_t outlen) {
    memset(out, 0, outlen);
    if (*p == '\0' || *p == '{') {
        return;
    }
    while (*p != '\0' && *p != '{') {
        ++p;
    }
    if (*p != '{') {
        return;
    }
    ++p;
    size_t n = 0;
    while (p[n] != '\0' && p[n] != '}' && n + 1 < outlen) {
        out[n] = p[n];
        ++n;
    }
}

// Copies the value into `dst` up to the first zero byte or newline, cut to
// `len` characters and padded with blanks.
void fill_text(uint8_t* dst, size_t len, const char* value) {
    bool ended = false;
    for (size_t i = 0; i < len; ++i) {
        if (!ended && (value[i] == '\0' || value[i] == '\n')) {
            ended = true;
        }
        dst[i] = ended ? ' ' : static_cast<uint8_t>(value[i]);
    }
}

uint8_t apply_key(TAV_CFG_KEY_ID id, char* strLine) {
    if (strLine == nullptr) {
        return 1;
    }
    const CfgKey& k = kCfgKeys[id];
    const char* at = strstr(strLine, k.key);
    if (at == nullptr) {
        return 1;
    }
    scan_value(at + strlen(k.key), tempbuf, sizeof tempbuf);
    switch (k.kind) {
    case TAV_CFG_ROW:
        fill_text(MENU_ITEM_STR[k.index], TAV_MENU_COLS, tempbuf);
        break;
    case TAV_CFG_HEAD:
        fill_text(MENU_SPC_HEAD[k.index], TAV_MENU_HEAD_LEN, tempbuf);
        break;
    case TAV_CFG_FLAG:
        if (bool_t* flag = shortcut_flag(k.index)) {
            *flag = tempbuf[0] == '1';
        }
        break;
    }
    return 0;
}

// The built-in texts are in place before any code of the program runs.
[[maybe_unused]] const bool kDefaultsLoaded = (tav_menu_strcfg_defaults(), true);

} // namespace

#define TAV_CFG_DEFINE_READER(name, key, kind, index)                                              \
    uint8_t tav_menu_cfg_##name(char* strLine) {                                                   \
        return apply_key(TAV_CFG_KEY_##name, strLine);                                             \
    }
TAV_CFG_KEYS(TAV_CFG_DEFINE_READER)
#undef TAV_CFG_DEFINE_READER

void tav_menu_strcfg_defaults(void) {
    for (size_t r = 0; r < TAV_MENU_ROWS; ++r) {
        uint8_t* row = MENU_ITEM_STR[r];
        memset(row, ' ', TAV_MENU_COLS);
        const RowDefault& d = kRowDefaults[r];
        memcpy(row + d.blanks, d.text, strlen(d.text));
    }
    for (size_t h = 0; h < TAV_MENU_HEADS; ++h) {
        memcpy(MENU_SPC_HEAD[h], kHeadDefaults[h], TAV_MENU_HEAD_LEN);
        MENU_SPC_HEAD[h][TAV_MENU_HEAD_LEN] = 0;
    }
}

void tav_cfg_loadfile(char* cfg_file_path) {
    if (cfg_file_path == nullptr) {
        return;
    }
    FILE* f = fopen(cfg_file_path, "re");
    if (f == nullptr) {
        return;
    }
    // Lines longer than the buffer arrive in pieces of 127 characters, each
    // handled as a line of its own.
    char line[128];
    for (;;) {
        memset(line, 0, sizeof line);
        if (fgets(line, sizeof line, f) == nullptr) {
            break;
        }
        for (uint8_t id = 0; id < TAV_CFG_KEY_COUNT; ++id) {
            if (apply_key(static_cast<TAV_CFG_KEY_ID>(id), line) == 0) {
                break;
            }
        }
    }
    fclose(f);
}
