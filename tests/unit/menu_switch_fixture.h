// Test fixture shared by the switching-menu tests: a device described by its
// port lists (in the fake library and in the panel's port tables), keys fed to
// the menu handlers as the controller would, a fake clock whose pauses are
// recorded together with what the panel showed during them.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "fake_matrix.h"
#include "panel_capture.h"
#include "tav_key_var.h"
#include "tav_menu_audio.h"
#include "tav_menu_control.h"
#include "tav_menu_event_analy.h"
#include "tav_menu_strcfg.h"
#include "tav_menu_switch_all.h"
#include "tav_menu_var.h"
#include "tav_menu_video.h"

namespace switchtest {

// Keys as the key analysis records them.
// clang-format off
enum Key { K0 = 0, K1, K2, K3, K4, K5, K6, K7, K8, K9, LEFT, RIGHT, BREAK, DEFAULT, TAKE, MENU, LOCK };
// clang-format on

inline void set_button(Key k) {
    // Press code and record field of LEFT .. LOCK.
    static const struct {
        uint16_t press;
        uint8_t KB_BUTTON::*field;
    } other[] = {{4, &KB_BUTTON::left},  {8, &KB_BUTTON::right}, {64, &KB_BUTTON::brk},
                 {128, &KB_BUTTON::dft}, {16, &KB_BUTTON::take}, {2, &KB_BUTTON::menu},
                 {32, &KB_BUTTON::lock}};
    memset(&g_tav_button, 0, sizeof(g_tav_button));
    g_tav_button.number = 0xFF;
    if (k <= K9) {
        g_tav_button.number = static_cast<uint8_t>(k);
        g_tav_button.press = 1;
    } else {
        g_tav_button.press = other[k - LEFT].press;
        g_tav_button.*other[k - LEFT].field = 1;
    }
}

struct Pause {
    uint32_t ms;
    std::string top, bottom; // the LCD during the pause
};

inline std::vector<Pause>& pauses() {
    static std::vector<Pause> p;
    return p;
}
inline uint32_t& fake_now() {
    static uint32_t t = 0;
    return t;
}
inline uint32_t fake_clock() {
    return fake_now();
}
inline void fake_sleep(uint32_t ms) {
    fake_now() += ms;
    const auto& st = tavtest::PanelCapture::get().state();
    pauses().push_back({ms, st.lcd[0], st.lcd[1]});
}

inline std::string row(int r) {
    return std::string(reinterpret_cast<const char*>(MENU_ITEM_STR[r]), 40);
}

// Ports as numbers; every other port of the device is of neither direction.
struct Ports {
    std::vector<int> in, out;
};

inline void fill_kind(const Ports& p, bool video) {
    TAV_PORT_STATE* pb = video ? g_tav_portbuf : g_tav_aud_portbuf;
    uint8_t* il = video ? g_tav_inlist : g_tav_aud_inlist;
    uint8_t* ol = video ? g_tav_outlist : g_tav_aud_outlist;
    for (int i = 0; i < TAV_PORT_TABLE_SIZE; i++) {
        pb[i].port_io = em_matrix_unknown;
        pb[i].in_for_out = 0xFF;
        il[i] = ol[i] = 0xFF;
    }
    for (bool in : {true, false}) {
        const std::vector<int>& list = in ? p.in : p.out;
        for (size_t i = 0; i < list.size(); i++) {
            (in ? il : ol)[i] = static_cast<uint8_t>(list[i]);
            const auto dir = in ? em_matrix_in : em_matrix_out;
            pb[list[i] - 1].port_io = dir;
            pb[list[i] - 1].in_for_out = in ? 0xFF : 0;
            auto& fp = fakematrix::state().ports[list[i]];
            (video ? fp.vio : fp.aio) = dir;
        }
    }
    (video ? g_tav_in_max : g_tav_aud_in_max) = static_cast<uint8_t>(p.in.size());
    (video ? g_tav_out_max : g_tav_aud_out_max) = static_cast<uint8_t>(p.out.size());
}

inline std::vector<int> range(int first, int last) {
    std::vector<int> v;
    for (int i = first; i <= last; i++)
        v.push_back(i);
    return v;
}

class MenuFixture : public ::testing::Test {
  protected:
    void SetUp() override {
        tavtest::PanelCapture::get();
        fakematrix::reset();
        tav_menu_ctl_set_time_source(fake_clock, fake_sleep);
        tav_menu_init();
        pmatrixDllHandle = &fakematrix::state();
        TAV_DEF_MAX_PORT = 64;
        fakematrix::state().device_type = 64;
        pauses().clear();
        g_tav_lock = false;
        g_tav_lcd = true;
    }
    void TearDown() override { tav_menu_ctl_set_time_source(nullptr, nullptr); }

    // Video and audio ports, then the modules' start state, the home page.
    void device(const Ports& video, const Ports& audio) {
        fakematrix::state().ports = {};
        fill_kind(video, true);
        fill_kind(audio, false);
        tav_video_init();
        tav_audio_init();
        g_tav_menu = menu_vid_display;
        g_tav_menu_event = EVENT_NOMAL;
    }

    // One key through the current menu's handler, then the redraw the
    // controller makes after every key (of this module's menus only).
    void key(Key k) {
        set_button(k);
        tav_nomal_work();
        const TAV_ENUM_MENUSTATUS m = g_tav_menu;
        if ((m >= menu_vid_display && m <= menu_aud_switch) || m == menu_switch_vid_all ||
            m == menu_switch_aud_all)
            draw();
    }
    void keys(std::initializer_list<Key> ks) {
        for (Key k : ks)
            key(k);
    }
    void draw() { tav_nomal_display(); }
    const tavpanel::PanelState& panel() { return tavtest::PanelCapture::get().state(); }
    std::vector<std::string> calls() { return fakematrix::state().calls; }
};

} // namespace switchtest
