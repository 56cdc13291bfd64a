// Menu state of the engine: start values and the port tables' rebuild.
#include "tav_menu_var.h"

#include <cstring>
#include <mutex>

#include "tav_key_var.h"
#include "tav_menu_control.h"
#include "tav_menu_strcfg.h"
#include "tav_platform.h"

TAV_ENUM_EVENT g_tav_menu_event = EVENT_MITT;
TAV_ENUM_MENUSTATUS g_tav_menu = menu_eth_select;
int8_t displaybuf[41];
bool_t g_tav_lcd = true;
TAV_STRUCT_KB_BUTTON g_tav_button;
TAV_ETH_STATUS g_tav_eth[2];
TAV_VERSION_STATUS g_tav_version;

TAV_PORT_STATE g_tav_portbuf[TAV_PORT_TABLE_SIZE];
uint8_t g_tav_inlist[TAV_PORT_TABLE_SIZE];
uint8_t g_tav_outlist[TAV_PORT_TABLE_SIZE];
uint8_t g_tav_in_max;
uint8_t g_tav_out_max;
TAV_PORT_STATE g_tav_aud_portbuf[TAV_PORT_TABLE_SIZE];
uint8_t g_tav_aud_inlist[TAV_PORT_TABLE_SIZE];
uint8_t g_tav_aud_outlist[TAV_PORT_TABLE_SIZE];
uint8_t g_tav_aud_in_max;
uint8_t g_tav_aud_out_max;

void* pmatrixDllHandle;

bool_t g_tav_shortcut_key1 = true;
bool_t g_tav_shortcut_key3 = false;
bool_t g_tav_shortcut_key4 = false;
bool_t g_tav_shortcut_key6 = false;
bool_t g_tav_shortcut_key7 = true;
bool_t g_tav_shortcut_key9 = false;
bool_t g_tav_lock = false;

namespace {

// One medium's tables and the library calls that fill them.
struct PortTables {
    TAV_PORT_STATE* portbuf;
    uint8_t* inlist;
    uint8_t* outlist;
    uint8_t* in_max;
    uint8_t* out_max;
    int32_t (*get_io)(void* handle, int32_t port);
    int32_t (*get_switch_state)(void* handle, int32_t output);
};

const PortTables kVideoTables = {g_tav_portbuf,
                                 g_tav_inlist,
                                 g_tav_outlist,
                                 &g_tav_in_max,
                                 &g_tav_out_max,
                                 tav_matrix_get_active_video_pipe_io,
                                 tav_matrix_get_video_switch_state};
const PortTables kAudioTables = {g_tav_aud_portbuf,
                                 g_tav_aud_inlist,
                                 g_tav_aud_outlist,
                                 &g_tav_aud_in_max,
                                 &g_tav_aud_out_max,
                                 tav_matrix_get_active_audio_pipe_io,
                                 tav_matrix_get_audio_switch_state};

// The tables hold 128 ports: a device that reports more is shown with its
// first 128 ports, the others are never asked for.
int32_t table_port_count(const char* func) {
    int32_t n = TAV_DEF_MAX_PORT;
    if (n > TAV_PORT_TABLE_SIZE) {
        static bool reported = false;
        if (!reported) {
            reported = true;
            tav_log(TAV_LOG_WARNING, "func=[%s]device reports %d ports, only %d are shown", func,
                    static_cast<int>(n), TAV_PORT_TABLE_SIZE);
        }
        n = TAV_PORT_TABLE_SIZE;
    }
    return n;
}

// The library's answer as a direction; a value outside the enumeration (a
// failure) counts as unknown.
EM_MATRIX_IO_TYPE io_type(int32_t io) {
    return io >= em_matrix_unknown && io <= em_matrix_ioundefine
               ? static_cast<EM_MATRIX_IO_TYPE>(io)
               : em_matrix_unknown;
}

// Asks the library for the direction of every port and for the input of every
// output. List entries behind the new counts are left as they were.
void rebuild_port_tables(const PortTables& t, const char* func) {
    const int32_t ports = table_port_count(func);
    uint8_t in_count = 0;
    uint8_t out_count = 0;
    for (int32_t p = 1; p <= ports; ++p) {
        TAV_PORT_STATE& st = t.portbuf[p - 1];
        st.port_io = io_type(t.get_io(pmatrixDllHandle, p));
        if (st.port_io == em_matrix_in) {
            t.inlist[in_count++] = static_cast<uint8_t>(p);
        } else if (st.port_io == em_matrix_out) {
            t.outlist[out_count++] = static_cast<uint8_t>(p);
            st.in_for_out = static_cast<uint8_t>(t.get_switch_state(pmatrixDllHandle, p));
        }
    }
    *t.in_max = in_count;
    *t.out_max = out_count;
}

} // namespace

void tav_button_clear(void) {
    g_tav_button.number = 0xFF;
    g_tav_button.lock = 0;
    g_tav_button.menu = 0;
    g_tav_button.dft = 0;
    g_tav_button.brk = 0;
    g_tav_button.take = 0;
    g_tav_button.left = 0;
    g_tav_button.right = 0;
    g_tav_button.press = 0;
    g_tav_button.longpress = false;
}

std::mutex& tav_menu_engine_mutex(void) {
    static std::mutex m;
    return m;
}

void tav_menu_init(void) {
    g_tav_menu_event = EVENT_MITT;
    memset(displaybuf, 0, sizeof displaybuf);
    g_tav_menu = menu_eth_select;
    g_tav_lcd = true;
    tav_button_clear();
    for (TAV_ETH_STATUS& eth : g_tav_eth) {
        memset(eth.IP, 0, sizeof eth.IP);
        memset(eth.MAC, 0, sizeof eth.MAC);
        memset(eth.MASK, 0, sizeof eth.MASK);
        memset(eth.GATEWAY, 0, sizeof eth.GATEWAY);
    }
    memset(g_tav_version.main_ver, 0, 10);
    memset(g_tav_version.soft_key_ver, 0, 10);
    memset(g_tav_version.hard_key_ver, 0, 10);
    for (size_t i = 0; i < TAV_PORT_TABLE_SIZE; ++i) {
        g_tav_inlist[i] = 0xFF;
        g_tav_outlist[i] = 0xFF;
        g_tav_aud_inlist[i] = 0xFF;
        g_tav_aud_outlist[i] = 0xFF;
        g_tav_portbuf[i].port_io = em_matrix_unknown;
        g_tav_portbuf[i].in_for_out = 0xFF;
        g_tav_aud_portbuf[i].port_io = em_matrix_unknown;
        g_tav_aud_portbuf[i].in_for_out = 0xFF;
    }
    g_tav_in_max = 0;
    g_tav_out_max = 0;
    g_tav_aud_in_max = 0;
    g_tav_aud_out_max = 0;
    pmatrixDllHandle = nullptr;
    g_tav_shortcut_key1 = true;
    g_tav_shortcut_key3 = false;
    g_tav_shortcut_key4 = false;
    g_tav_shortcut_key6 = false;
    g_tav_shortcut_key7 = true;
    g_tav_shortcut_key9 = false;
    // The file is applied over the built-in texts, also when the engine is
    // set up again in the same process.
    tav_menu_strcfg_defaults();
    char path[256];
    tav_cfg_loadfile(tav_platform_path("/nandflash/config/tav_keyboard.cfg", path, sizeof path));
    g_tav_lock = false;
}

void load_main_set_up(void) {
    rebuild_port_tables(kVideoTables, "load_main_set_up");
}

void load_main_aud_set_up(void) {
    rebuild_port_tables(kAudioTables, "load_main_aud_set_up");
}
