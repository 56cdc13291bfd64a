// Menu-state start values and the port tables' rebuild from the library.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <string>

#include "fake_matrix.h"
#include "panel_capture.h"
#include "tav_key_var.h"
#include "tav_menu_strcfg.h"
#include "tav_menu_var.h"

namespace {

int g_handle_token;

// One medium's tables and how the fake describes that medium.
struct Medium {
    const char* name;
    void (*rebuild)();
    TAV_PORT_STATE* portbuf;
    uint8_t* inlist;
    uint8_t* outlist;
    uint8_t* in_max;
    uint8_t* out_max;
    int32_t fakematrix::Port::*io;
    int32_t fakematrix::Port::*route;
};

const Medium k_media[] = {
    {"video", load_main_set_up, g_tav_portbuf, g_tav_inlist, g_tav_outlist, &g_tav_in_max,
     &g_tav_out_max, &fakematrix::Port::vio, &fakematrix::Port::vroute},
    {"audio", load_main_aud_set_up, g_tav_aud_portbuf, g_tav_aud_inlist, g_tav_aud_outlist,
     &g_tav_aud_in_max, &g_tav_aud_out_max, &fakematrix::Port::aio, &fakematrix::Port::aroute},
};

class PortTables : public ::testing::TestWithParam<Medium> {
  protected:
    void SetUp() override {
        fakematrix::reset();
        tav_menu_init();
        saved_max_port_ = TAV_DEF_MAX_PORT;
        pmatrixDllHandle = &g_handle_token;
    }
    void TearDown() override {
        TAV_DEF_MAX_PORT = saved_max_port_;
        pmatrixDllHandle = nullptr;
    }
    // Sets the medium's direction and routed input of port p in the fake.
    void port(int p, int32_t io, int32_t route = 0) {
        fakematrix::state().ports[static_cast<size_t>(p)].*(GetParam().io) = io;
        fakematrix::state().ports[static_cast<size_t>(p)].*(GetParam().route) = route;
    }
    std::vector<int> list(const uint8_t* l, int n) { return std::vector<int>(l, l + n); }
    int32_t saved_max_port_ = 0;
};

std::vector<int> range(int first, int last) {
    std::vector<int> v;
    for (int i = first; i <= last; ++i) {
        v.push_back(i);
    }
    return v;
}

} // namespace

TEST_P(PortTables, InputsAndOutputsAreListedInOrderWithTheirRoutes) {
    const Medium& m = GetParam();
    for (int p = 1; p <= 8; ++p) {
        port(p, em_matrix_in);
        port(p + 8, em_matrix_out, 9 - p);
    }
    TAV_DEF_MAX_PORT = 16;
    m.rebuild();
    EXPECT_EQ(*m.in_max, 8);
    EXPECT_EQ(*m.out_max, 8);
    EXPECT_EQ(list(m.inlist, 8), range(1, 8));
    EXPECT_EQ(list(m.outlist, 8), range(9, 16));
    for (int p = 9; p <= 16; ++p) {
        EXPECT_EQ(m.portbuf[p - 1].port_io, em_matrix_out);
        EXPECT_EQ(m.portbuf[p - 1].in_for_out, 17 - p) << p;
    }
    for (int p = 1; p <= 8; ++p) {
        EXPECT_EQ(m.portbuf[p - 1].in_for_out, 0xFF) << "inputs keep their start value";
    }
    EXPECT_EQ(m.inlist[8], 0xFF);
    EXPECT_EQ(m.outlist[8], 0xFF);
}

TEST_P(PortTables, OtherDirectionsAreInNeitherListAndKeepTheirRoute) {
    const Medium& m = GetParam();
    port(1, em_matrix_in);
    port(2, em_matrix_mix, 7);
    port(3, em_matrix_ioundefine, 7);
    port(4, -5, 7);                // a failure of the library
    port(5, em_matrix_out, 0x101); // only the low 8 bits are kept
    TAV_DEF_MAX_PORT = 6;
    m.rebuild();
    EXPECT_EQ(list(m.inlist, *m.in_max), std::vector<int>{1});
    EXPECT_EQ(list(m.outlist, *m.out_max), std::vector<int>{5});
    EXPECT_EQ(m.portbuf[1].port_io, em_matrix_mix);
    EXPECT_EQ(m.portbuf[1].in_for_out, 0xFF);
    EXPECT_EQ(m.portbuf[3].port_io, em_matrix_unknown);
    EXPECT_EQ(m.portbuf[4].in_for_out, 1);
    EXPECT_EQ(m.portbuf[5].port_io, em_matrix_unknown);
}

TEST_P(PortTables, ASecondRebuildWithFewerPortsShrinksTheCountsOnly) {
    const Medium& m = GetParam();
    for (int p = 1; p <= 8; ++p) {
        port(p, em_matrix_in);
        port(p + 8, em_matrix_out, p);
    }
    TAV_DEF_MAX_PORT = 16;
    m.rebuild();
    for (int p = 3; p <= 8; p += 2) {
        port(p, em_matrix_unknown);
    }
    port(16, em_matrix_unknown, 0);
    m.rebuild();
    EXPECT_EQ(list(m.inlist, *m.in_max), (std::vector<int>{1, 2, 4, 6, 8}));
    EXPECT_EQ(list(m.outlist, *m.out_max), range(9, 15));
    EXPECT_EQ(m.portbuf[15].in_for_out, 8);
}

TEST_P(PortTables, APortCountAbove128FillsTheTablesWithTheFirst128Ports) {
    const Medium& m = GetParam();
    for (int p = 1; p <= 100; ++p) {
        port(p, em_matrix_in);
        port(p + 100, em_matrix_out, p);
    }
    fakematrix::state().device_type = 200;
    TAV_DEF_MAX_PORT = 200;
    m.rebuild();
    EXPECT_EQ(*m.in_max, 100);
    EXPECT_EQ(*m.out_max, 28);
    EXPECT_EQ(list(m.outlist, 28), range(101, 128));
    EXPECT_EQ(m.portbuf[127].in_for_out, 28);
    // The port count never reaches the tables' size in uint8_t counts.
    for (int p = 1; p <= 200; ++p) {
        port(p, em_matrix_out, 1);
    }
    TAV_DEF_MAX_PORT = 255;
    m.rebuild();
    EXPECT_EQ(*m.in_max, 0);
    EXPECT_EQ(*m.out_max, 128);
    EXPECT_EQ(m.outlist[127], 128);
}

TEST_P(PortTables, NoOutputOrANonPositivePortCountGivesZeroCounts) {
    const Medium& m = GetParam();
    port(1, em_matrix_in);
    TAV_DEF_MAX_PORT = 16;
    m.rebuild();
    EXPECT_EQ(*m.in_max, 1);
    EXPECT_EQ(*m.out_max, 0);
    for (int32_t n : {0, -1}) {
        TAV_DEF_MAX_PORT = n;
        m.rebuild();
        EXPECT_EQ(*m.in_max, 0);
        EXPECT_EQ(*m.out_max, 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Media, PortTables, ::testing::ValuesIn(k_media),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(MenuVarInit, StartValues) {
    tavtest::PanelCapture::get(); // a temporary TAV_ROOT without a configuration file
    g_tav_menu = menu_lock;       // spoil a sample of everything first
    memset(displaybuf, 'x', sizeof displaybuf);
    g_tav_lcd = false;
    g_tav_button.number = 3;
    g_tav_button.press = 9;
    memset(g_tav_eth, 'x', sizeof g_tav_eth);
    memset(g_tav_portbuf, 3, sizeof g_tav_portbuf);
    memset(g_tav_aud_inlist, 3, sizeof g_tav_aud_inlist);
    g_tav_in_max = g_tav_aud_out_max = 5;
    pmatrixDllHandle = &g_tav_lcd;
    g_tav_shortcut_key9 = g_tav_lock = true;
    memset(MENU_ITEM_STR[1], 'x', 40);

    tav_menu_init();

    EXPECT_EQ(g_tav_menu_event, EVENT_MITT);
    EXPECT_EQ(g_tav_menu, menu_eth_select);
    EXPECT_EQ(std::count(std::begin(displaybuf), std::end(displaybuf), 0),
              static_cast<long>(sizeof displaybuf));
    EXPECT_TRUE(g_tav_lcd);
    EXPECT_EQ(g_tav_button.number, 0xFF);
    EXPECT_EQ(g_tav_button.press, 0);
    EXPECT_EQ(g_tav_eth[0].IP[0] | g_tav_eth[1].GATEWAY[17], 0);
    for (int i = 0; i < TAV_PORT_TABLE_SIZE; ++i) {
        ASSERT_EQ(g_tav_portbuf[i].port_io, em_matrix_unknown);
        ASSERT_EQ(g_tav_portbuf[i].in_for_out, 0xFF);
        ASSERT_EQ(g_tav_inlist[i] & g_tav_aud_inlist[i], 0xFF);
    }
    EXPECT_EQ(g_tav_in_max | g_tav_aud_out_max, 0);
    EXPECT_EQ(pmatrixDllHandle, nullptr);
    EXPECT_FALSE(g_tav_shortcut_key9 || g_tav_lock);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(MENU_ITEM_STR[1]), 12), "      QUORAL");
}

TEST(MenuVarInit, ReadsTheConfigurationFileBelowTheRoot) {
    const std::string cfg =
        tavtest::PanelCapture::get().root() + "/nandflash/config/tav_keyboard.cfg";
    {
        std::ofstream f(cfg);
        f << "Manual_cfg_switch_all_key_1_valid= {0}\n"
             "Manual_cfg_set_delay_key_9_valid= {1}\n"
             "Manual_cfg_matrix_name= {MY MATRIX}\n";
    }
    tav_menu_init();
    std::remove(cfg.c_str());
    EXPECT_FALSE(g_tav_shortcut_key1);
    EXPECT_TRUE(g_tav_shortcut_key9);
    EXPECT_TRUE(g_tav_shortcut_key7);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(MENU_ITEM_STR[2]), 10), "MY MATRIX ");
    // Without the file the next set-up is back to the built-in texts.
    tav_menu_init();
    EXPECT_TRUE(g_tav_shortcut_key1);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(MENU_ITEM_STR[2]), 14), "           TR-");
}
