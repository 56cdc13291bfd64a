// The panel link: byte-exact display and LED frames, the frame parser, key
// decoding, the version answer and the replies to the panel.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "panel_capture.h"
#include "tav_baseportcontrol.h"
#include "tav_lcd.h"
#include "tav_led.h"
#include "tav_uart_com.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Hex = std::vector<std::string>;

int8_t* text(const char* s) {
    return reinterpret_cast<int8_t*>(const_cast<char*>(s));
}

class PanelLink : public ::testing::Test {
  protected:
    void SetUp() override {
        tavtest::PanelCapture::get();
        tavtest::reopen_port();
        fresh();
        cap().clear();
    }
    static void fresh() { // no event, no key, the parser idle
        tav_hardkey_init();
        tav_comint();
    }
    static tavtest::PanelCapture& cap() { return tavtest::PanelCapture::get(); }
};

struct FrameCase {
    const char* name;
    std::function<uint8_t()> call;
    std::string wire; // "" = refused, nothing sent
};

class Frames : public PanelLink, public ::testing::WithParamInterface<FrameCase> {};

TEST_P(Frames, SendsExactlyThisFrameOrNothing) {
    const FrameCase& c = GetParam();
    const size_t stray = cap().stray_bytes();
    EXPECT_EQ(c.call(), c.wire.empty() ? 1 : 0);
    EXPECT_EQ(cap().stray_bytes(), stray);
    EXPECT_EQ(cap().take_hex(), c.wire.empty() ? Hex{} : Hex{c.wire});
    if (!c.wire.empty()) { // a valid call is refused on a closed port
        const int saved = uartfid.load();
        uartfid.store(-1);
        EXPECT_EQ(c.call(), 1);
        uartfid.store(saved);
        EXPECT_EQ(cap().take_hex(), Hex{});
    }
}

uint8_t g_14_15[] = {14, 15};
uint8_t g_mixed[] = {0, 8, 16, 24, 200, 7};
const char* LINE40 = "0123456789012345678901234567890123456789";

// clang-format off
INSTANTIATE_TEST_SUITE_P(All, Frames, ::testing::Values(
    FrameCase{"text_40", [] { return tav_display_string(1, 0, text(LINE40), 40); },
              "EB 5F 21 2B 04 01 00 30 31 32 33 34 35 36 37 38 39 30 31 32 33 34 35 36 37 38 39 30 31 32 33 34 35 36 37 38 39 30 31 32 33 34 35 36 37 38 39 0F"},
    FrameCase{"text_col39", [] { return tav_display_string(0, 39, text("A"), 1); }, "EB 5F 21 04 04 00 27 41 0F"},
    FrameCase{"text_past_39", [] { return tav_display_string(0, 39, text("AB"), 2); }, ""},
    FrameCase{"text_line2", [] { return tav_display_string(2, 0, text("A"), 1); }, ""},
    FrameCase{"text_len41", [] { return tav_display_string(0, 0, text(LINE40), 41); }, ""},
    FrameCase{"text_head_byte", [] { return tav_display_string(0, 2, text("\xEB"), 1); }, "EB 5F 21 04 04 00 02 EB 0F"},
    FrameCase{"cursor", [] { return tav_display_move_cursor(1, 39); }, "EB 5F 21 03 05 01 27 0F"},
    FrameCase{"cursor_col40", [] { return tav_display_move_cursor(1, 40); }, ""},
    FrameCase{"led_list", [] { return tav_display_led_mutil_on(g_14_15, 2); }, "EB 5F 21 05 01 00 00 C0 00 0F"},
    FrameCase{"led_0", [] { return tav_display_led_sigle_on(0); }, "EB 5F 21 05 01 00 00 00 01 0F"},
    FrameCase{"led_31", [] { return tav_display_led_sigle_on(31); }, "EB 5F 21 05 01 80 00 00 00 0F"},
    FrameCase{"led_32", [] { return tav_display_led_sigle_on(32); }, ""},
    FrameCase{"led_all_on", [] { return tav_display_led_all_on(); }, "EB 5F 21 05 01 FF FF FF FF 0F"},
    FrameCase{"led_all_off", [] { return tav_display_led_all_off(); }, "EB 5F 21 05 01 00 00 00 00 0F"},
    FrameCase{"blink_list", [] { return tav_display_led_blink_mutil_on(g_mixed, 6); }, "EB 5F 21 05 02 01 01 01 81 0F"},
    FrameCase{"blink_16", [] { return tav_display_led_blink_sigle_on(16); }, "EB 5F 21 05 02 00 01 00 00 0F"},
    FrameCase{"blink_all_on", [] { return tav_display_led_blink_all_on(); }, "EB 5F 21 05 02 FF FF FF FF 0F"},
    FrameCase{"cycle_1", [] { return tav_display_led_blink_cycle(1); }, "EB 5F 21 03 03 01 01 0F"},
    FrameCase{"cycle_20", [] { return tav_display_led_blink_cycle(20); }, "EB 5F 21 03 03 01 14 0F"},
    FrameCase{"cycle_21", [] { return tav_display_led_blink_cycle(21); }, ""},
    FrameCase{"key_list", [] { return tav_display_key_mutil_enbale(g_14_15, 2); }, "EB 5F 21 05 06 00 00 C0 00 0F"},
    FrameCase{"key_9", [] { return tav_display_key_sigle_enable(9); }, "EB 5F 21 05 06 00 00 02 00 0F"},
    FrameCase{"key_all_enable", [] { return tav_display_key_all_enable(); }, "EB 5F 21 05 06 FF FF FF FF 0F"}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

Bytes key_frame(uint32_t mask, uint8_t check = 0x0F) {
    Bytes f{0xEB, 0x5F, 0x21, 0x05, 0x07, 0, 0, 0, 0, check};
    for (int i = 0; i < 4; ++i) {
        f[5 + i] = static_cast<uint8_t>(mask >> (24 - 8 * i));
    }
    return f;
}
Bytes cat(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
// Feeds `bytes` to the parser in chunks of the given sizes (the rest at once).
void feed(const Bytes& bytes, const std::vector<size_t>& chunks = {}) {
    size_t pos = 0;
    for (size_t c : chunks) {
        tav_analyze_data(const_cast<uint8_t*>(bytes.data()) + pos, static_cast<uint8_t>(c));
        pos += c;
    }
    if (pos < bytes.size())
        tav_analyze_data(const_cast<uint8_t*>(bytes.data()) + pos,
                         static_cast<uint8_t>(bytes.size() - pos));
}
bool event(int bit) {
    return (tav_gethardkey_event() & bit) != 0;
}

// Key masks decode exactly one key or a release; byte streams, however the
// reads cut them, and the key they leave.
TEST_F(PanelLink, StreamsDecodeTheKeyWhereverTheReadsCut) {
    const Bytes take = key_frame(0x4000);
    struct Case {
        Bytes bytes;
        std::vector<size_t> chunks;
        TAV_KEY_ENUM key; // NONE: nothing decoded
    };
    constexpr auto NONE = static_cast<TAV_KEY_ENUM>(254);
    // clang-format off
    const Case cases[] = {
        {take, {}, TAV_KEY_TAKE}, {key_frame(0x0001), {}, TAV_KEY_0}, {key_frame(0x0200), {}, TAV_KEY_9},
        {key_frame(0x0400), {}, TAV_KEY_LEFT}, {key_frame(0x0800), {}, TAV_KEY_RIGHT},
        {key_frame(0x1000), {}, TAV_KEY_BREAK}, {key_frame(0x2000), {}, TAV_KEY_DEFAULT},
        {key_frame(0x8000), {}, TAV_KEY_MENU}, {key_frame(0x10000), {}, TAV_KEY_LOCK},
        {key_frame(0), {}, TAV_KEY_NULL}, {key_frame(0x4001), {}, NONE},
        {key_frame(0x20000), {}, NONE}, {key_frame(0xFFFFFFFFu), {}, NONE},
        {take, {3, 7}, TAV_KEY_TAKE},
        {take, {1, 1, 1, 1, 1, 1, 1, 1, 1, 1}, TAV_KEY_TAKE},
        {cat({0x00, 0x5F, 0x21, 0x07, 0xFF}, take), {2, 4}, TAV_KEY_TAKE},
        {cat({0xEB}, take), {}, TAV_KEY_TAKE},
        {cat({0xEB, 0x5F, 0x21}, take), {}, TAV_KEY_TAKE},
        // A digit-1 frame cut off by the head of the TAKE frame: restart there.
        {cat({0xEB, 0x5F, 0x21, 0x05, 0x07, 0x00, 0x00}, take), {}, TAV_KEY_TAKE},
        // The same data again without a head is not dispatched again.
        {cat(key_frame(0x0002), Bytes(take.begin() + 1, take.end())), {}, TAV_KEY_1},
        {key_frame(0x0020, 0x00), {}, TAV_KEY_5},                 // the check byte is not verified
        {{0xEB, 0x5F, 0x21, 0x01, 0x07, 0x0F}, {}, TAV_KEY_NULL}, // no mask: a release
    };
    // clang-format on
    for (const Case& c : cases) {
        fresh();
        feed(c.bytes, c.chunks);
        EXPECT_EQ(event(TAV_EVENT_KEY), c.key != NONE) << tavpanel::hex(c.bytes);
        EXPECT_EQ(tav_getkey_val(), c.key == NONE ? TAV_KEY_NULL : c.key) << tavpanel::hex(c.bytes);
    }
    // Dropped frames leave no trace.
    for (const Bytes& b : {Bytes{0xEB, 0x60, 0x21, 0x05, 0x07, 0x00, 0x00, 0x40, 0x00, 0x0F},
                           Bytes{0xEB, 0x5F, 0x22, 0x05, 0x07, 0x00, 0x00, 0x40, 0x00, 0x0F},
                           Bytes{0xEB, 0x5F, 0x21, 0x05, 0x08, 0x00, 0x00, 0x40, 0x00, 0x0F},
                           Bytes{0xEB, 0x5F, 0x21, 0x05, 0x07, 0x00, 0x00, 0x40}}) {
        fresh();
        feed(b);
        EXPECT_EQ(tav_gethardkey_event(), 0) << tavpanel::hex(b);
    }
    // An overlong length never completes; the parser is idle after the wrap.
    fresh();
    Bytes big = {0xEB, 0x5F, 0x21, 0xFA, 0x07, 0x00, 0x00, 0x40, 0x00};
    big.resize(600, 0x00);
    feed(big, {255, 255});
    EXPECT_EQ(tav_gethardkey_event(), 0);
    feed(take);
    EXPECT_EQ(tav_getkey_val(), TAV_KEY_TAKE);
    EXPECT_EQ(cap().take_hex(), Hex{});
}

TEST_F(PanelLink, VersionAnswerAndErrorReplies) {
    // Three frames in one read, handled in order.
    feed(cat(
        cat(key_frame(0x0002), {0xEB, 0x5F, 0x21, 0x06, 0x00, 0x00, 0x02, 0x05, 0x01, 0x02, 0x33}),
        key_frame(0x0008)));
    EXPECT_EQ(tav_getkey_val(), TAV_KEY_1);
    tav_clear_keyevent(TAV_EVENT_KEY);
    EXPECT_TRUE(event(TAV_EVENT_KEY));
    EXPECT_EQ(tav_getkey_val(), TAV_KEY_3);
    EXPECT_TRUE(event(TAV_EVENT_HARDVER));
    EXPECT_EQ(tav_get_hardkey_main_ver(), 2);
    EXPECT_EQ(tav_get_hardkey_minor_ver(), 5);
    EXPECT_EQ(tav_get_hardkey_build_ver(), 3);
    tav_clear_keyevent(TAV_EVENT_HARDVER);
    tav_clear_keyevent(TAV_EVENT_KEY);
    // A version answer of another length, or length 0: the error reply.
    for (uint8_t len : {1, 5, 7}) {
        Bytes b = {0xEB, 0x5F, 0x21, len, 0x00};
        b.resize(4 + len, 0x09);
        b.push_back(0x0F);
        feed(b);
        EXPECT_EQ(cap().take_hex(), Hex{"EB 5F 00 01 F7 A5"}) << int(len);
    }
    feed({0xEB, 0x5F, 0x21, 0x00, 0x07, 0x00, 0x00, 0x40, 0x00, 0x0F});
    EXPECT_EQ(cap().take_hex(), Hex{"EB 5F 00 01 F7 A5"});
    EXPECT_FALSE(event(TAV_EVENT_HARDVER) || event(TAV_EVENT_KEY));
    EXPECT_EQ(tav_get_hardkey_main_ver(), 2);
    tav_sys_hardmint();
    tav_back_err(0x21, 0x01);
    EXPECT_EQ(cap().take_hex(), (Hex{"EB 5F 21 02 00 00 0F", "EB 5F 21 01 01 A5"}));
}

} // namespace
