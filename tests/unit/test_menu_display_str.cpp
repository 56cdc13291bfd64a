// Composition of LCD lines: number slots, row copies and port-list lines.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "panel_capture.h"
#include "tav_key_var.h"
#include "tav_menu_display_str.h"
#include "tav_menu_strcfg.h"

namespace {

std::string text(const int8_t* buf, size_t n = 40) {
    return std::string(reinterpret_cast<const char*>(buf), n);
}
std::string pad40(const std::string& s) {
    return s + std::string(40 - s.size(), ' ');
}

// A line buffer with a guard zone behind its 41 bytes.
struct Line {
    int8_t b[48];
    Line() { memset(b, '#', sizeof b); }
    std::string str() const { return text(b); }
    bool guard_intact() const {
        return std::all_of(b + 41, b + sizeof b, [](int8_t c) { return c == '#'; });
    }
};

class PortLines : public ::testing::Test {
  protected:
    void SetUp() override {
        tav_menu_strcfg_defaults();
        saved_max_port_ = TAV_DEF_MAX_PORT;
        TAV_DEF_MAX_PORT = 64;
        for (auto& p : ports_) {
            p.port_io = em_matrix_unknown;
            p.in_for_out = 0xFF;
        }
    }
    void TearDown() override { TAV_DEF_MAX_PORT = saved_max_port_; }
    // Ports first..first+n-1 become outputs, listed in outlist_.
    void outputs(int first, int n) {
        outlist_.clear();
        for (int p = first; p < first + n; ++p) {
            ports_[p - 1].port_io = em_matrix_out;
            ports_[p - 1].in_for_out = 0;
            outlist_.push_back(static_cast<uint8_t>(p));
        }
        outlist_.resize(128, 0xFF);
    }
    int sw(uint8_t av, uint8_t start, uint8_t max_out) {
        return tav_menu_print_sw_outin(av, start, outlist_.data(), max_out, ports_, out_.b, in_.b);
    }
    int32_t saved_max_port_ = 0;
    TAV_PORT_STATE ports_[128];
    std::vector<uint8_t> outlist_ = std::vector<uint8_t>(128, 0xFF);
    Line out_, in_;
};

} // namespace

TEST(MenuDisplayStr, ClearLcdBlanksFromTheStartColumn) {
    struct Case {
        uint8_t start;
        uint8_t result;
        std::string line;
    } cases[] = {
        {0, 0, std::string(40, ' ')},
        {39, 0, std::string(39, '#') + " "},
        {40, 1, std::string(40, '#')},
        {255, 1, std::string(40, '#')},
    };
    for (const Case& c : cases) {
        Line l;
        EXPECT_EQ(tav_menu_clear_lcd(c.start, l.b), c.result) << int(c.start);
        EXPECT_EQ(l.str(), c.line) << int(c.start);
        EXPECT_EQ(l.b[40], '#');
    }
}

TEST(MenuDisplayStr, PrintWritesOneSlot) {
    struct Case {
        uint8_t type;
        uint8_t value;
        std::string cols; // columns 10..14 afterwards
    } cases[] = {
        {1, 7, "07  #"},   {1, 12, "12  #"},  {1, 0, "0 # #"},
        {1, 99, "99  #"},  {1, 100, ":0  #"}, // '0' + 10
        {1, 255, "I5  #"},                    // '0' + 25
        {2, 42, "    #"},  {0, 5, "#####"},   {3, 5, "#####"},
    };
    for (const Case& c : cases) {
        Line l;
        tav_menu_print(l.b, c.type, 10, c.value);
        EXPECT_EQ(text(l.b + 10, 5), c.cols) << int(c.type) << "/" << int(c.value);
        EXPECT_EQ(text(l.b, 10), std::string(10, '#'));
    }
}

TEST(MenuDisplayStr, PrintNeverWritesPastTheLineBuffer) {
    for (uint8_t offset : {36, 37, 38, 39, 40, 41, 200, 255}) {
        Line l;
        tav_menu_print(l.b, 1, offset, 45);
        tav_menu_print(l.b, 2, offset, 0);
        EXPECT_TRUE(l.guard_intact()) << int(offset);
    }
}

TEST(MenuDisplayStr, SpcDisplaySendsBothRowsAndLeavesTheSecondInTheBuffer) {
    tav_menu_strcfg_defaults();
    auto& cap = tavtest::PanelCapture::get();
    cap.clear();
    Line l;
    tav_menu_spc_display(l.b, 16, 12);
    EXPECT_EQ(l.str(), pad40("        PLEASE CHECK YOUR MATRIX"));
    const auto frames = cap.frames();
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0].bytes.size(), 48u); // line 0, column 0, 40 characters
    EXPECT_EQ(frames[0].bytes[5], 0);
    EXPECT_EQ(frames[1].bytes[5], 1);
    EXPECT_EQ(cap.state().lcd[0], pad40("        The Matrix System Err"));
    EXPECT_EQ(cap.state().lcd[1], pad40("        PLEASE CHECK YOUR MATRIX"));
    EXPECT_EQ(l.b[40], '#');
    for (uint8_t bad : {78, 200, 255}) { // rows outside the table are blank
        tav_menu_spc_display(l.b, 1, bad);
        EXPECT_EQ(l.str(), std::string(40, ' ')) << int(bad);
    }
}

TEST_F(PortLines, NoOutputsGiveTheConfiguredHeadsAndBlanks) {
    EXPECT_EQ(sw(1, 0, 0), 0);
    EXPECT_EQ(out_.str(), pad40("VOSW: "));
    EXPECT_EQ(in_.str(), pad40("VISW: "));
    memcpy(MENU_SPC_HEAD[2], "Out>  ", 6);
    EXPECT_EQ(sw(2, 0, 0), 0);
    EXPECT_EQ(out_.str(), pad40("Out>  "));
    EXPECT_EQ(in_.str(), pad40("AISW: "));
}

TEST_F(PortLines, ThreeOutputsWithNoneAndOutOfRangeInputs) {
    outputs(9, 3);
    ports_[8].in_for_out = 3;
    ports_[9].in_for_out = 0;   // nothing switched
    ports_[10].in_for_out = 65; // above the device's port count
    EXPECT_EQ(sw(1, 0, 3), 0);
    EXPECT_EQ(out_.str(), pad40("VOSW: 09 10 11"));
    EXPECT_EQ(in_.str(), pad40("VISW: 03"));
    ports_[10].in_for_out = 64;
    EXPECT_EQ(sw(1, 0, 3), 0);
    EXPECT_EQ(in_.str(), pad40("VISW: 03    64"));
}

TEST_F(PortLines, TwentyOutputsPagedAtNineAndTwelve) {
    outputs(21, 20);
    for (int p = 21; p <= 40; ++p) {
        ports_[p - 1].in_for_out = static_cast<uint8_t>(p - 20);
    }
    EXPECT_EQ(sw(1, 9, 20), 0);
    EXPECT_EQ(out_.str(), pad40("VOSW: 30 31 32 33 34 35 36 37 38 39 40"));
    EXPECT_EQ(in_.str(), pad40("VISW: 10 11 12 13 14 15 16 17 18 19 20"));
    EXPECT_EQ(sw(1, 12, 20), 0);
    EXPECT_EQ(out_.str(), pad40("VOSW: 33 34 35 36 37 38 39 40"));
    EXPECT_EQ(in_.str(), pad40("VISW: 13 14 15 16 17 18 19 20"));
}

TEST_F(PortLines, AListedPortThatIsNoOutputStopsTheLine) {
    outputs(9, 5);
    ports_[10].port_io = em_matrix_in; // port 11, third slot
    EXPECT_EQ(sw(1, 0, 5), em_err_inparam);
    EXPECT_EQ(out_.str(), pad40("VOSW: 09 10"));
    EXPECT_EQ(in_.str(), pad40("VISW: "));
    // Port numbers the table cannot hold are refused the same way.
    for (uint8_t bad : {0, 129, 255}) {
        outputs(9, 5);
        outlist_[1] = bad;
        EXPECT_EQ(sw(1, 0, 5), em_err_inparam) << int(bad);
        EXPECT_EQ(out_.str(), pad40("VOSW: 09")) << int(bad);
    }
}

TEST_F(PortLines, InputOutputListsAreIndependentColumns) {
    uint8_t outs[128] = {9, 10, 11};
    uint8_t ins[128] = {1, 2, 3, 4, 5, 6, 7, 8, 100};
    EXPECT_EQ(tav_menu_print_io_outin(1, 0, outs, 3, ins, 9, 9, out_.b, in_.b), 0);
    EXPECT_EQ(out_.str(), pad40("VOUT: 09 10 11"));
    EXPECT_EQ(in_.str(), pad40("VIN : 01 02 03 04 05 06 07 08 :0"));
    EXPECT_EQ(tav_menu_print_io_outin(2, 2, outs, 3, ins, 9, 9, out_.b, in_.b), 0);
    EXPECT_EQ(out_.str(), pad40("AOUT: 11"));
    EXPECT_EQ(in_.str(), pad40("AIN : 03 04 05 06 07 08 :0"));
}

TEST_F(PortLines, SwitchAllInputLine) {
    uint8_t ins[128];
    for (int i = 0; i < 128; ++i) {
        ins[i] = static_cast<uint8_t>(i + 1);
    }
    EXPECT_EQ(tav_menu_print_str_for_switch_all(1, 0, ins, 12, out_.b), 0);
    EXPECT_EQ(out_.str(), pad40("ILIST:01 02 03 04 05 06 07 08 09 10 11"));
    EXPECT_EQ(tav_menu_print_str_for_switch_all(2, 8, ins, 12, out_.b), 0);
    EXPECT_EQ(out_.str(), pad40("ILIST:09 10 11 12"));
    EXPECT_EQ(tav_menu_print_str_for_switch_all(1, 0, ins, 0, out_.b), 0);
    EXPECT_EQ(out_.str(), pad40("ILIST:"));
    EXPECT_TRUE(out_.guard_intact());
}
