// EDID copy menu: field entry and judgement, clearing of outcomes, the page
// and the copy's calls.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "service_menu_support.h"
#include "tav_menu_edid.h"
#include "tav_menu_strcfg.h"

namespace {

using svc::FakeTools;

// Ports 1..8 inputs, 9..16 outputs, 17 mixed, everything else unknown.
void make_ports() {
    for (int i = 0; i < TAV_PORT_TABLE_SIZE; ++i) {
        g_tav_portbuf[i].port_io = i < 8     ? em_matrix_in
                                   : i < 16  ? em_matrix_out
                                   : i == 16 ? em_matrix_mix
                                             : em_matrix_unknown;
    }
}

void keys(const char* seq) {
    svc::keys(seq, tav_edid);
}

class EdidTest : public svc::ServiceMenuTest {
  protected:
    void SetUp() override {
        ServiceMenuTest::SetUp();
        make_ports();
        tav_menu_edid_init();
        g_tav_menu = menu_edid_switch;
        memcpy(saved_row30_, MENU_ITEM_STR[30], sizeof saved_row30_);
    }
    void TearDown() override {
        memcpy(MENU_ITEM_STR[30], saved_row30_, sizeof saved_row30_);
        ServiceMenuTest::TearDown();
    }
    uint8_t saved_row30_[TAV_MENU_COLS];
};

struct JudgeCase {
    const char* name;
    const char* keys;
    uint8_t err;
    uint8_t sel_port_step;
    uint8_t src;
    uint8_t dest;
};

class EdidJudgeTest : public EdidTest, public ::testing::WithParamInterface<JudgeCase> {};

TEST_P(EdidJudgeTest, OutcomeOfTheLastField) {
    const JudgeCase& c = GetParam();
    keys(c.keys);
    const TAV_EDID_STATE s = tav_menu_edid_get_state();
    EXPECT_EQ(s.err, c.err);
    EXPECT_EQ(s.sel_port_step, c.sel_port_step);
    EXPECT_EQ(s.src, c.src);
    if (c.sel_port_step == 1 && c.err != TAV_EDID_ENTRY) {
        EXPECT_EQ(s.dest, c.dest);
    }
    EXPECT_EQ(s.step, 0);
}

INSTANTIATE_TEST_SUITE_P(Fields, EdidJudgeTest,
                         ::testing::Values(
                             // Source alone.
                             JudgeCase{"SrcInput", "03", TAV_EDID_ENTRY, 1, 3, 0},
                             JudgeCase{"SrcOutput", "12", TAV_EDID_ENTRY, 1, 12, 0},
                             JudgeCase{"SrcDefaultTwoZeros", "00", TAV_EDID_ENTRY, 1, 0, 0},
                             JudgeCase{"SrcDefaultZeroRight", "0R", TAV_EDID_ENTRY, 1, 0, 0},
                             JudgeCase{"SrcOneDigitRight", "3R", TAV_EDID_ENTRY, 1, 3, 0},
                             JudgeCase{"SrcMixed", "17", TAV_EDID_ERR_SRC_NOCFG, 0, 17, 0},
                             JudgeCase{"SrcUnconfigured", "99", TAV_EDID_ERR_SRC_NOCFG, 0, 99, 0},
                             // Destination after a valid source.
                             JudgeCase{"InputToInput", "0305", TAV_EDID_COPY_REQUESTED, 1, 3, 5},
                             JudgeCase{"DefaultToInput", "0005", TAV_EDID_COPY_REQUESTED, 1, 0, 5},
                             JudgeCase{"OutputToInput", "0905", TAV_EDID_COPY_REQUESTED, 1, 9, 5},
                             JudgeCase{"OneDigitRights", "3R5R", TAV_EDID_COPY_REQUESTED, 1, 3, 5},
                             JudgeCase{"SamePort", "0303", TAV_EDID_ERR_SAME_PORT, 1, 3, 3},
                             JudgeCase{"SameOutput", "0909", TAV_EDID_ERR_SAME_PORT, 1, 9, 9},
                             JudgeCase{"DestOutput", "0310", TAV_EDID_ERR_DEST_OUTPUT, 1, 3, 10},
                             JudgeCase{"DestZero", "0300", TAV_EDID_ERR_DEST_NOCFG, 1, 3, 0},
                             JudgeCase{"DestZeroRight", "030R", TAV_EDID_ERR_DEST_NOCFG, 1, 3, 0},
                             JudgeCase{"DestMixed", "0317", TAV_EDID_ERR_DEST_NOCFG, 1, 3, 17},
                             JudgeCase{"DestUnconfigured", "0340", TAV_EDID_ERR_DEST_NOCFG, 1, 3,
                                       40},
                             // Source 0 and destination 0 are the same port: checked before "0".
                             JudgeCase{"DefaultToZero", "0000", TAV_EDID_ERR_SAME_PORT, 1, 0, 0}),
                         [](const auto& info) { return std::string(info.param.name); });

// The refusal page, then the clearing: refused destinations return to the
// destination with the source kept; a refused source and a finished copy
// start over.
TEST_F(EdidTest, RefusalPageAndOutcomeClearing) {
    struct Case {
        const char* keys;
        uint8_t sel_port_step; // after the clearing
        uint8_t src;
        const char* top; // nullptr: the copy runs
        int top_col;
    };
    const Case cases[] = {{"17", 0, 0, "The Port You Select is No Configure", 1},
                          {"0300", 1, 3, "The Port You Select is No Configure", 1},
                          {"0310", 1, 3, "You Have select output port as dest port", 0},
                          {"0303", 1, 3, "The Port You Select The Same Port", 2},
                          {"0305", 0, 0, nullptr, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.keys);
        tav_menu_edid_init();
        keys(c.keys);
        tav_edid_display();
        if (c.top == nullptr) {
            ASSERT_EQ(tav_menu_edid_get_state().err, TAV_EDID_COPY_DONE);
        } else {
            EXPECT_EQ(lcd(0).substr(c.top_col, strlen(c.top)), c.top);
            EXPECT_EQ(lcd(1).substr(8, 24), "PLEASE RESELECT THE PORT");
        }
        tav_edid_handle_err();
        const TAV_EDID_STATE s = tav_menu_edid_get_state();
        EXPECT_EQ(s.err, TAV_EDID_ENTRY);
        EXPECT_EQ(s.step, 0);
        EXPECT_EQ(s.dest, 0);
        EXPECT_EQ(s.sel_port_step, c.sel_port_step);
        EXPECT_EQ(s.src, c.src);
        EXPECT_EQ(g_tav_menu, menu_edid_switch);
    }
}

TEST_F(EdidTest, LeftRightAndRetyping) {
    keys("R"); // RIGHT with nothing typed
    EXPECT_EQ(tav_menu_edid_get_state().sel_port_step, 0);
    EXPECT_EQ(tav_menu_edid_get_state().step, 0);

    keys("03L"); // back from the destination to the source
    EXPECT_EQ(tav_menu_edid_get_state().sel_port_step, 0);
    keys("0705"); // the source is typed anew
    EXPECT_EQ(tav_menu_edid_get_state().src, 7);
    EXPECT_EQ(tav_menu_edid_get_state().err, TAV_EDID_COPY_REQUESTED);

    tav_menu_edid_init();
    keys("0L"); // drops the typed digit, stays in the menu
    EXPECT_EQ(tav_menu_edid_get_state().step, 0);
    EXPECT_EQ(g_tav_menu, menu_edid_switch);
    keys("L"); // nothing typed in the source: back to the shortcut menu
    EXPECT_EQ(g_tav_menu, menu_shortcut);

    tav_menu_edid_init();
    g_tav_menu = menu_edid_switch;
    keys("0303"); // same port
    keys("05");   // the first key clears the refusal and is then handled
    EXPECT_EQ(tav_menu_edid_get_state().err, TAV_EDID_COPY_REQUESTED);
    EXPECT_EQ(tav_menu_edid_get_state().src, 3);
    EXPECT_EQ(tav_menu_edid_get_state().dest, 5);
}

TEST_F(EdidTest, LeavingKeys) {
    struct Case {
        const char* key;
        TAV_ENUM_MENUSTATUS to;
        bool cleared;
    };
    const Case cases[] = {{"M", menu_eth_select, true},
                          {"B", menu_vid_display, true},
                          {"K", menu_vid_display, true},
                          {"D", menu_reset, false},
                          {"T", menu_edid_switch, false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.key);
        tav_menu_edid_init();
        g_tav_menu = menu_edid_switch;
        keys("03");
        keys(c.key);
        EXPECT_EQ(g_tav_menu, c.to);
        EXPECT_EQ(tav_menu_edid_get_state().src, c.cleared ? 0 : 3);
    }
}

TEST_F(EdidTest, FieldColumnsFoundInTheRow) {
    struct Case {
        const char* row;
        int src_col;
        int dest_col;
    };
    const Case cases[] = {
        {"                 SOURCE(__)=>DEST(__)   ", 24, 34},
        {"(__)(__)", 1, 5},
        {"IN(__) OUT(__", 3, -1},
        {"no fields here", -1, -1},
        {"                                     (__)", -1, -1}, // ")" would be column 40
        {"((__))  (__)", 2, 9},
    };
    for (const Case& c : cases) {
        uint8_t row[TAV_MENU_COLS];
        memset(row, ' ', sizeof row);
        memcpy(row, c.row, std::min(strlen(c.row), sizeof row));
        EXPECT_EQ(tav_edid_field_column(row, 0), c.src_col) << c.row;
        EXPECT_EQ(tav_edid_field_column(row, 1), c.dest_col) << c.row;
    }
}

TEST_F(EdidTest, EntryPageFillsFieldsAndPlacesCursor) {
    struct Step {
        const char* keys;
        const char* bottom; // columns 17 to 36
        int cursor_col;
    };
    const Step steps[] = {
        {"", "SOURCE(__)=>DEST(__)", 24},  {"0", "SOURCE(0_)=>DEST(__)", 25},
        {"3", "SOURCE(03)=>DEST(__)", 34}, {"0", "SOURCE(03)=>DEST(0_)", 35},
        {"L", "SOURCE(__)=>DEST(__)", 24},
    };
    for (const Step& s : steps) {
        SCOPED_TRACE(s.keys);
        keys(s.keys);
        tav_edid_display();
        EXPECT_EQ(lcd(0).substr(10, 21), "MATRIX EDID OPERATION");
        EXPECT_EQ(lcd(1).substr(17, 20), s.bottom);
        const auto& st = tavtest::PanelCapture::get().state();
        EXPECT_EQ(st.cursor_line, 1);
        EXPECT_EQ(st.cursor_col, s.cursor_col);
    }
}

TEST_F(EdidTest, CopyShowsBothFieldsThenTheResult) {
    keys("0305");
    tav_edid_display();
    EXPECT_EQ(lcd(1).substr(17, 20), "SOURCE(03)=>DEST(05)");
    EXPECT_EQ(tav_menu_edid_get_state().err, TAV_EDID_COPY_DONE);
    tav_edid_display();
    EXPECT_EQ(lcd(1).substr(11, 17), "EDID COPY Success");

    tav_menu_edid_init();
    fakematrix::state().set_edid_result = -1;
    keys("0305");
    tav_edid_display();
    EXPECT_EQ(tav_menu_edid_get_state().err, TAV_EDID_COPY_FAILED);
    tav_edid_display();
    EXPECT_EQ(lcd(1).substr(11, 19), "EDID COPY ERR Occur");
}

// A configured row 30 without fields: entry still works, nothing is written
// outside the line.
TEST_F(EdidTest, RowWithoutFields) {
    memset(MENU_ITEM_STR[30], ' ', TAV_MENU_COLS);
    memcpy(MENU_ITEM_STR[30], "COPY EDID", 9);
    displaybuf[40] = 0x11;
    keys("0");
    tav_edid_display();
    EXPECT_EQ(lcd(1), "COPY EDID" + std::string(31, ' '));
    EXPECT_EQ(displaybuf[40], 0x11);
    keys("305");
    EXPECT_EQ(tav_menu_edid_get_state().err, TAV_EDID_COPY_REQUESTED);
    tav_edid_display();
    EXPECT_EQ(tav_menu_edid_get_state().err, TAV_EDID_COPY_DONE);
}

struct CopyCase {
    const char* name;
    uint8_t src;
    uint8_t dest;
    int32_t get_result;
    int32_t set_result;
    int32_t expected;
    std::vector<std::string> lib_calls;
    std::vector<std::string> tool_calls;
};

class EdidCopyTest : public EdidTest, public ::testing::WithParamInterface<CopyCase> {};

TEST_P(EdidCopyTest, CallsInOrder) {
    const CopyCase& c = GetParam();
    fakematrix::state().get_edid_result = c.get_result;
    fakematrix::state().set_edid_result = c.set_result;
    EXPECT_EQ(edid_copy_down(c.src, c.dest), c.expected);
    EXPECT_EQ(fakematrix::state().calls, c.lib_calls);
    EXPECT_EQ(FakeTools::get().calls(), c.tool_calls);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Copies, EdidCopyTest,
    ::testing::Values(
        CopyCase{"FromInput", 3, 5, 0, 0, 0, {"get_port_edid(3,0,300)", "set_port_edid(5,0,256)"},
                 {"tav_echo_cpedid 0 3 5 0"}},
        CopyCase{"FromDefault", 0, 5, 0, 0, 0, {"get_port_edid(5,2,300)", "set_port_edid(5,0,256)"},
                 {"tav_echo_cpedid 2 0 5 0"}},
        CopyCase{"FromOutputSink", 12, 5, 0, 0, 0,
                 {"get_port_edid(12,1,300)", "set_port_edid(5,0,256)"},
                 {"tav_echo_cpedid 1 12 5 0"}},
        CopyCase{"ReadFails", 3, 5, -6, 0, -6, {"get_port_edid(3,0,300)"}, {}},
        CopyCase{"DestIsOutput", 3, 10, 0, 0, -2, {"get_port_edid(3,0,300)"}, {}},
        CopyCase{"WriteFails", 3, 5, 0, 4, 4, {"get_port_edid(3,0,300)", "set_port_edid(5,0,256)"},
                 {"tav_echo_cpedid 0 3 5 0", "tav_echo_clean_edid"}}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

TEST_F(EdidTest, CopiedBytes) {
    std::vector<uint8_t> src(300);
    for (size_t i = 0; i < src.size(); ++i) {
        src[i] = static_cast<uint8_t>(i * 7);
    }
    auto& edid = fakematrix::state().edid;
    edid[std::make_pair(3, int32_t{em_matrix_edid_in})] = src;
    ASSERT_EQ(edid_copy_down(3, 5), 0);
    EXPECT_EQ(edid[std::make_pair(5, int32_t{em_matrix_edid_in})],
              std::vector<uint8_t>(src.begin(), src.begin() + 256));

    // Nothing read: the buffer's own start (0xFF, then zeros) is written.
    ASSERT_EQ(edid_copy_down(0, 6), 0);
    std::vector<uint8_t> blank(256, 0);
    blank[0] = 0xFF;
    EXPECT_EQ(edid[std::make_pair(6, int32_t{em_matrix_edid_in})], blank);
}

} // namespace
