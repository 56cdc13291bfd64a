// Switch-all: one input to every output of a kind, or every output closed.
#include "menu_switch_fixture.h"
#include "tav_panel_model.h"

using namespace switchtest;

namespace {

class SwitchAll : public MenuFixture {
  protected:
    // Video inputs 1-12, outputs 13-16; audio inputs 20-21, outputs 22-23.
    void standard(uint8_t mode) {
        device({range(1, 12), range(13, 16)}, {range(20, 21), range(22, 23)});
        enter(mode);
    }
    void enter(uint8_t mode) {
        g_tav_menu = mode == 1 ? menu_switch_vid_all : menu_switch_aud_all;
        tav_menu_set_switch_all_mode(mode);
        draw();
    }
    TAV_SWALL_STATE s() { return tav_menu_switch_all_get_state(); }
};

// The library calls that switch `in` to each of `outs`, then the commit.
std::vector<std::string> switch_calls(const std::string& kind, int in, std::vector<int> outs) {
    std::vector<std::string> v;
    for (int n : outs) {
        const std::string args = "(" + std::to_string(in) + "," + std::to_string(n) + ")";
        v.push_back("set_" + kind + "_switch" + args);
        v.push_back("stash_" + kind + "_switch_data" + args);
    }
    v.push_back("set_" + kind + "_switch_done()");
    return v;
}

struct EntryCase {
    std::vector<Key> keys;
    int step, port;
};

class SwitchAllEntry : public SwitchAll, public ::testing::WithParamInterface<EntryCase> {};

TEST_P(SwitchAllEntry, StepAndPort) {
    standard(1);
    for (Key k : GetParam().keys)
        key(k);
    EXPECT_EQ(s().step, GetParam().step);
    EXPECT_EQ(s().port, GetParam().port);
    EXPECT_EQ(g_tav_menu, menu_switch_vid_all);
    EXPECT_TRUE(calls().empty());
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    SwitchAll, SwitchAllEntry,
    ::testing::Values(EntryCase{{K5}, 2, 5}, EntryCase{{K5, RIGHT}, 3, 5},
                      EntryCase{{K0, K5}, 3, 5}, EntryCase{{K1, K2}, 3, 12},
                      EntryCase{{K0, RIGHT}, 3, 0}, EntryCase{{K0, K0}, 3, 0}, // close all
                      EntryCase{{K1, K3}, 4, 0},          // an output
                      EntryCase{{K2, K0}, 4, 0},          // an audio input only
                      EntryCase{{K5, RIGHT, K7}, 3, 5},   // digits ignored in step 3
                      EntryCase{{K5, RIGHT, LEFT}, 1, 0}, // LEFT clears the number
                      EntryCase{{K5, LEFT}, 1, 0}, EntryCase{{TAKE}, 1, 0},
                      EntryCase{{K5, TAKE}, 2, 5},
                      EntryCase{{K1, K3, TAKE}, 1, 0}, // the key clears the refusal first
                      EntryCase{{K1, K3, K4}, 2, 4}));
// clang-format on

TEST_F(SwitchAll, RefusalClearsAfterThreeSeconds) {
    standard(1);
    keys({K1, K3});
    ASSERT_EQ(s().step, 4);
    EXPECT_EQ(panel().lcd[0], row(75));
    EXPECT_EQ(panel().lcd[1], row(76));
    g_tav_menu_event = EVENT_NOMAL;
    tav_menu_swall_handle_3s();
    EXPECT_EQ(s().step, 1);
    EXPECT_EQ(g_tav_menu, menu_switch_vid_all);
    EXPECT_EQ(g_tav_menu_event, EVENT_UPDATE);
    // Nothing pending in the other steps.
    keys({K5, RIGHT});
    g_tav_menu_event = EVENT_NOMAL;
    tav_menu_swall_handle_3s();
    EXPECT_EQ(s().step, 3);
    EXPECT_EQ(g_tav_menu_event, EVENT_NOMAL);
}

TEST_F(SwitchAll, PagingOverTheInputList) {
    struct Case {
        int inputs;
        std::vector<Key> keys;
        std::vector<int> starts; // -1: back at the selection menu
    };
    const Case cases[] = {{12, {RIGHT, RIGHT, LEFT, LEFT}, {1, 1, 0, -1}},
                          {20, {RIGHT, RIGHT, LEFT, LEFT}, {8, 9, 1, 0}},
                          {10, {RIGHT, LEFT}, {0, -1}}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.inputs);
        device({range(1, c.inputs), range(c.inputs + 1, c.inputs + 2)}, {});
        enter(1);
        for (size_t i = 0; i < c.keys.size(); i++) {
            key(c.keys[i]);
            if (c.starts[i] < 0) {
                EXPECT_EQ(g_tav_menu, menu_switch_all);
            } else {
                EXPECT_EQ(s().press_start, c.starts[i]) << i;
                EXPECT_EQ(g_tav_menu, menu_switch_vid_all);
            }
        }
    }
    // In step 2, RIGHT takes the digit instead of paging.
    device({range(1, 20), range(21, 22)}, {});
    enter(1);
    keys({K7, RIGHT});
    EXPECT_EQ(s().step, 3);
    EXPECT_EQ(s().press_start, 0);
}

TEST_F(SwitchAll, OtherKeysLeaveTheMenu) {
    // clang-format off
    const std::pair<Key, TAV_ENUM_MENUSTATUS> cases[] = {
        {MENU, menu_eth_select}, {LOCK, menu_vid_display}, {BREAK, menu_vid_display},
        {DEFAULT, menu_reset}};
    // clang-format on
    for (auto [k, to] : cases) {
        standard(2);
        key(K5);
        key(k);
        EXPECT_EQ(g_tav_menu, to);
    }
}

TEST_F(SwitchAll, DisplayPerStep) {
    for (uint8_t mode : {1, 2}) {
        SCOPED_TRACE(mode);
        device({range(1, 12), range(13, 14)}, {range(1, 12), range(13, 14)});
        enter(mode);
        const int entry_row = mode == 1 ? 47 : 48;
        ASSERT_EQ(row(entry_row).substr(20, 15), mode == 1 ? "Video in__=>ALL" : "Audio in__=>ALL");
        std::string bottom = row(entry_row);
        EXPECT_EQ(panel().lcd[0].substr(0, 12), "ILIST:01 02 ");
        EXPECT_EQ(panel().lcd[1], bottom);
        EXPECT_EQ(panel().cursor_line, 1);
        EXPECT_EQ(panel().cursor_col, 28);
        EXPECT_EQ(panel().led_blink, 0u);

        key(K0);
        bottom[28] = '0';
        EXPECT_EQ(panel().lcd[1], bottom);
        EXPECT_EQ(panel().cursor_col, 29);
        EXPECT_EQ(panel().led_blink, 0u);

        key(K7);
        bottom[29] = '7';
        EXPECT_EQ(panel().lcd[1], bottom);
        EXPECT_EQ(panel().cursor_col, 29); // column 40 is no cursor command
        EXPECT_EQ(panel().led_blink, 1u << TAV_KEY_TAKE);

        key(LEFT); // back to step 1 stops the blink
        EXPECT_EQ(panel().lcd[1], row(entry_row));
        EXPECT_EQ(panel().led_blink, 0u);
    }
}

TEST_F(SwitchAll, TakeSwitchesEveryOutputTheLibraryReports) {
    device({range(1, 4), range(5, 8)}, {});
    // Port 9 is of neither direction; port 10 is an output the panel's list
    // does not know yet: the library's answer counts.
    fakematrix::state().ports[9].vio = em_matrix_mix;
    fakematrix::state().ports[10].vio = em_matrix_out;
    TAV_DEF_MAX_PORT = 12;
    enter(1);
    keys({K3, RIGHT, TAKE});
    EXPECT_EQ(calls(), switch_calls("video", 3, {5, 6, 7, 8, 10}));
    ASSERT_EQ(pauses().size(), 1u);
    EXPECT_EQ(pauses()[0].ms, 3000u);
    EXPECT_EQ(pauses()[0].top, row(51).replace(26, 2, "03"));
    EXPECT_EQ(pauses()[0].bottom, row(52));
    EXPECT_EQ(g_tav_menu, menu_vid_display);
    EXPECT_EQ(s().step, 5);
    EXPECT_EQ(panel().led_blink, 0u);
}

TEST_F(SwitchAll, InputZeroClosesEveryAudioOutput) {
    device({range(1, 2), range(3, 4)}, {range(1, 2), range(3, 5)});
    TAV_DEF_MAX_PORT = 6;
    enter(2);
    keys({K0, K0, TAKE});
    EXPECT_EQ(calls(), switch_calls("audio", 0, {3, 4, 5}));
    ASSERT_EQ(pauses().size(), 1u);
    EXPECT_EQ(pauses()[0].top, row(57));
    EXPECT_EQ(pauses()[0].bottom, row(58));
    EXPECT_EQ(g_tav_menu, menu_aud_display);
}

TEST_F(SwitchAll, InputBeyondTheDevicesPortsClosesInstead) {
    device({{2, 12}, {3, 4}}, {});
    TAV_DEF_MAX_PORT = 10; // the list names a port the device does not have
    enter(1);
    keys({K1, K2, TAKE});
    EXPECT_EQ(fakematrix::calls_starting("set_video_switch("),
              (std::vector<std::string>{"set_video_switch(0,3)", "set_video_switch(0,4)"}));
}

} // namespace
