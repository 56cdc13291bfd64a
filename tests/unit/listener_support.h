// Support for the tests of the inner-signal listener, the card notices and
// the update display: a small device in the fake library with its port
// tables loaded, the panel capture, and helpers to read what was drawn.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "fake_matrix.h"
#include "panel_capture.h"
#include "tav_key_var.h"
#include "tav_menu_audio.h"
#include "tav_menu_card_plug.h"
#include "tav_menu_control.h"
#include "tav_menu_listen_irq.h"
#include "tav_menu_strcfg.h"
#include "tav_menu_update.h"
#include "tav_menu_var.h"
#include "tav_menu_video.h"

namespace irqtest {

inline uint32_t fake_now() {
    return 5000;
}
inline void fake_sleep(uint32_t) {}

inline std::string row(int r) {
    return std::string(reinterpret_cast<const char*>(MENU_ITEM_STR[r]), 40);
}

// Replaces a row of the text table (padded with blanks to 40 columns).
inline void set_row(int r, const std::string& text) {
    std::string t = text;
    t.resize(40, ' ');
    memcpy(MENU_ITEM_STR[r], t.data(), 40);
}

// The row with `patch` written at `col`.
inline std::string row_with(int r, int col, const std::string& patch) {
    std::string s = row(r);
    s.replace(static_cast<size_t>(col), patch.size(), patch);
    return s;
}

class ListenerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        tavtest::PanelCapture::get();
        syslog_file_ = tavtest::PanelCapture::get().root() + "/syslog.txt";
        std::remove(syslog_file_.c_str());
        setenv("TAV_SYSLOG_FILE", syslog_file_.c_str(), 1);
        std::lock_guard<std::recursive_mutex> lk(tav_menu_engine_mutex());
        tav_menu_ctl_set_time_source(fake_now, fake_sleep);
        fakematrix::reset();
        fakematrix::make_device(4, 4);
        tav_key_var_init();
        tav_menu_init();
        tav_menu_strcfg_defaults();
        tav_video_init();
        tav_audio_init();
        tav_menu_card_plug_init();
        tav_menu_updating_init();
        pmatrixDllHandle = tav_matrix_open(TAV_MATRIX_OPEN_VERSION);
        TAV_DEF_MAX_PORT = 8;
        load_main_set_up();
        load_main_aud_set_up();
        g_tav_lcd = false;
        g_tav_menu = menu_vid_display;
        g_tav_menu_event = EVENT_NOMAL;
        {
            std::lock_guard<std::mutex> g(fakematrix::mutex());
            fakematrix::state().calls.clear();
            fakematrix::state().table_trace.clear();
        }
        tavtest::PanelCapture::get().clear();
    }
    void TearDown() override {
        std::lock_guard<std::recursive_mutex> lk(tav_menu_engine_mutex());
        tav_menu_strcfg_defaults();
        tav_menu_ctl_set_time_source(nullptr, nullptr);
        unsetenv("TAV_SYSLOG_FILE");
    }

    // Puts a signal record into the fake library and dispatches it as the
    // listener thread does for one wake-up byte.
    static void dispatch(uint32_t bits, uint32_t param) {
        {
            std::lock_guard<std::mutex> g(fakematrix::mutex());
            fakematrix::state().signal = TAV_MATRIX_OBJ_SIGNAL_FLAG{};
            fakematrix::state().signal.sig_bit_map = bits;
            fakematrix::state().signal.src_parameter = param;
        }
        tav_matrix_irq_process(0);
    }
    static void set_card(int slot, int32_t status) {
        std::lock_guard<std::mutex> g(fakematrix::mutex());
        TAV_MATRIX_OBJ_CARD c{};
        c.slot_id = static_cast<uint32_t>(slot);
        c.card_status = status;
        fakematrix::state().cards[slot] = c;
    }
    static std::vector<std::string> trace() {
        std::lock_guard<std::mutex> g(fakematrix::mutex());
        return fakematrix::state().table_trace;
    }
    // Whether a redisplay was requested since the flag was last reset.
    static bool redraw_requested() { return g_tav_menu_event == EVENT_UPDATE; }
    static std::string lcd(int line) { return tavtest::PanelCapture::get().state().lcd[line]; }
    std::vector<std::string> log_lines() const {
        std::vector<std::string> out;
        std::ifstream in(syslog_file_);
        for (std::string l; std::getline(in, l);) {
            out.push_back(l);
        }
        return out;
    }

    std::string syslog_file_;
};

} // namespace irqtest
