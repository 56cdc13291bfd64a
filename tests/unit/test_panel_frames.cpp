// Byte-exact display and LED frames, and the calls that must send nothing.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "foundation_support.h"
#include "tav_lcd.h"
#include "tav_led.h"

namespace {

struct FrameCase {
    const char* name;
    std::function<uint8_t()> call;
    std::string wire; // "" = refused, nothing sent
};

int8_t* text(const char* s) {
    return reinterpret_cast<int8_t*>(const_cast<char*>(s));
}

uint8_t g_list_31[] = {31};
uint8_t g_list_14_15[] = {14, 15};
uint8_t g_list_40[] = {40};
uint8_t g_list_mixed[] = {0, 8, 16, 24, 200, 7};

const char* LINE40 = "0123456789012345678901234567890123456789";

std::string line40_frame() {
    std::string s = "EB 5F 21 2B 04 01 00";
    for (int i = 0; i < 40; ++i) {
        char h[4];
        snprintf(h, sizeof h, " %02X", LINE40[i]);
        s += h;
    }
    return s + " 0F";
}

std::vector<FrameCase> cases() {
    // clang-format off
    return {
        {"text_40_chars", [] { return tav_display_string(1, 0, text(LINE40), 40); }, line40_frame()},
        {"text_col39_one", [] { return tav_display_string(0, 39, text("A"), 1); }, "EB 5F 21 04 04 00 27 41 0F"},
        {"text_col39_two", [] { return tav_display_string(0, 39, text("AB"), 2); }, ""},
        {"text_col40", [] { return tav_display_string(0, 40, text("A"), 1); }, ""},
        {"text_line2", [] { return tav_display_string(2, 0, text("A"), 1); }, ""},
        {"text_len41", [] { return tav_display_string(0, 0, text(LINE40), 41); }, ""},
        {"text_len0", [] { return tav_display_string(0, 0, text("A"), 0); }, ""},
        {"text_null", [] { return tav_display_string(0, 0, nullptr, 1); }, ""},
        {"text_holds_head_byte", [] { return tav_display_string(0, 2, text("\xEB"), 1); }, "EB 5F 21 04 04 00 02 EB 0F"},
        {"cursor", [] { return tav_display_move_cursor(1, 39); }, "EB 5F 21 03 05 01 27 0F"},
        {"cursor_col40", [] { return tav_display_move_cursor(1, 40); }, ""},
        {"cursor_line2", [] { return tav_display_move_cursor(2, 0); }, ""},
        {"led_list_31", [] { return tav_display_led_mutil_on(g_list_31, 1); }, "EB 5F 21 05 01 80 00 00 00 0F"},
        {"led_list_14_15", [] { return tav_display_led_mutil_on(g_list_14_15, 2); }, "EB 5F 21 05 01 00 00 C0 00 0F"},
        {"led_list_40", [] { return tav_display_led_mutil_on(g_list_40, 1); }, "EB 5F 21 05 01 00 00 00 00 0F"},
        {"led_list_null", [] { return tav_display_led_mutil_on(nullptr, 1); }, ""},
        {"led_list_empty", [] { return tav_display_led_mutil_on(g_list_31, 0); }, ""},
        {"led_single_0", [] { return tav_display_led_sigle_on(0); }, "EB 5F 21 05 01 00 00 00 01 0F"},
        {"led_single_16", [] { return tav_display_led_sigle_on(16); }, "EB 5F 21 05 01 00 01 00 00 0F"},
        {"led_single_32", [] { return tav_display_led_sigle_on(32); }, ""},
        {"led_single_neg", [] { return tav_display_led_sigle_on(-1); }, ""},
        {"led_all_on", [] { return tav_display_led_all_on(); }, "EB 5F 21 05 01 FF FF FF FF 0F"},
        {"led_all_off", [] { return tav_display_led_all_off(); }, "EB 5F 21 05 01 00 00 00 00 0F"},
        {"blink_list", [] { return tav_display_led_blink_mutil_on(g_list_mixed, 6); }, "EB 5F 21 05 02 01 01 01 81 0F"},
        {"blink_list_null", [] { return tav_display_led_blink_mutil_on(nullptr, 3); }, ""},
        {"blink_single_31", [] { return tav_display_led_blink_sigle_on(31); }, "EB 5F 21 05 02 80 00 00 00 0F"},
        {"blink_single_32", [] { return tav_display_led_blink_sigle_on(32); }, ""},
        {"blink_all_on", [] { return tav_display_led_blink_all_on(); }, "EB 5F 21 05 02 FF FF FF FF 0F"},
        {"blink_all_off", [] { return tav_display_led_blink_all_off(); }, "EB 5F 21 05 02 00 00 00 00 0F"},
        {"blink_cycle_1", [] { return tav_display_led_blink_cycle(1); }, "EB 5F 21 03 03 01 01 0F"},
        {"blink_cycle_20", [] { return tav_display_led_blink_cycle(20); }, "EB 5F 21 03 03 01 14 0F"},
        {"blink_cycle_0", [] { return tav_display_led_blink_cycle(0); }, ""},
        {"blink_cycle_21", [] { return tav_display_led_blink_cycle(21); }, ""},
        {"key_list", [] { return tav_display_key_mutil_enbale(g_list_14_15, 2); }, "EB 5F 21 05 06 00 00 C0 00 0F"},
        {"key_list_empty", [] { return tav_display_key_mutil_enbale(g_list_14_15, 0); }, ""},
        {"key_single_9", [] { return tav_display_key_sigle_enable(9); }, "EB 5F 21 05 06 00 00 02 00 0F"},
        {"key_single_neg", [] { return tav_display_key_sigle_enable(-5); }, ""},
        {"key_all_enable", [] { return tav_display_key_all_enable(); }, "EB 5F 21 05 06 FF FF FF FF 0F"},
        {"key_all_disable", [] { return tav_display_key_all_disable(); }, "EB 5F 21 05 06 00 00 00 00 0F"},
    };
    // clang-format on
}

class PanelFrames : public ::testing::TestWithParam<FrameCase> {
  protected:
    void SetUp() override {
        fndtest::ensure_port_open();
        fndtest::take_hex(5);
    }
};

TEST_P(PanelFrames, SendsExactlyThisFrameOrNothing) {
    const FrameCase& c = GetParam();
    EXPECT_EQ(c.call(), c.wire.empty() ? 1 : 0);
    EXPECT_EQ(fndtest::take_hex(), c.wire);
}

TEST_P(PanelFrames, RefusedWhileTheDescriptorIsNegative) {
    int saved = uartfid.load();
    uartfid.store(-1);
    EXPECT_EQ(GetParam().call(), 1);
    uartfid.store(saved);
    EXPECT_EQ(fndtest::take_hex(), "");
}

INSTANTIATE_TEST_SUITE_P(All, PanelFrames, ::testing::ValuesIn(cases()),
                         [](const auto& info) { return std::string(info.param.name); });

} // namespace
