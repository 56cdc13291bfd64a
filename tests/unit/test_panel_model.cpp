// The panel model: what the program's frames leave on the emulated panel,
// and the frames the panel sends.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tav_panel_model.h"

using tavpanel::FrameKind;
using tavpanel::PanelModel;
using Bytes = std::vector<uint8_t>;

namespace {

Bytes text_frame(int line, int col, const std::string& text) {
    Bytes f{0xEB,
            0x5F,
            0x21,
            static_cast<uint8_t>(text.size() + 3),
            0x04,
            static_cast<uint8_t>(line),
            static_cast<uint8_t>(col)};
    f.insert(f.end(), text.begin(), text.end());
    f.push_back(0x0F);
    return f;
}

void feed(PanelModel& m, const Bytes& b) {
    m.feed(b.data(), b.size());
}

struct DecodeCase {
    const char* name;
    Bytes frame;
    FrameKind kind;
    uint32_t steady, blink, enable;
    int cycle, cur_line, cur_col;
};

class PanelModelDecode : public ::testing::TestWithParam<DecodeCase> {};

TEST_P(PanelModelDecode, FrameGivesPicture) {
    const DecodeCase& c = GetParam();
    PanelModel m;
    feed(m, c.frame);
    ASSERT_EQ(m.frames().size(), 1u);
    EXPECT_EQ(m.frames()[0].kind, c.kind) << tavpanel::describe(c.frame);
    EXPECT_EQ(m.frames()[0].bytes, c.frame);
    const auto& st = m.state();
    EXPECT_EQ(st.led_steady, c.steady);
    EXPECT_EQ(st.led_blink, c.blink);
    EXPECT_EQ(st.key_enable, c.enable);
    EXPECT_EQ(st.blink_cycle, c.cycle);
    EXPECT_EQ(st.cursor_line, c.cur_line);
    EXPECT_EQ(st.cursor_col, c.cur_col);
    EXPECT_FALSE(m.in_frame());
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Frames, PanelModelDecode, ::testing::Values(
    DecodeCase{"led31", {0xEB,0x5F,0x21,0x05,0x01,0x80,0x00,0x00,0x00,0x0F}, FrameKind::led_steady, 0x80000000u, 0, 0, 0, 0, 0},
    DecodeCase{"blinkTake", {0xEB,0x5F,0x21,0x05,0x02,0x00,0x00,0x40,0x00,0x0F}, FrameKind::led_blink, 0, 0x4000u, 0, 0, 0, 0},
    DecodeCase{"cycle20", {0xEB,0x5F,0x21,0x03,0x03,0x01,0x14,0x0F}, FrameKind::blink_cycle, 0, 0, 0, 20, 0, 0},
    DecodeCase{"cycle0", {0xEB,0x5F,0x21,0x03,0x03,0x01,0x00,0x0F}, FrameKind::malformed, 0, 0, 0, 0, 0, 0},
    DecodeCase{"cursor", {0xEB,0x5F,0x21,0x03,0x05,0x01,0x27,0x0F}, FrameKind::cursor, 0, 0, 0, 0, 1, 39},
    DecodeCase{"cursorCol40", {0xEB,0x5F,0x21,0x03,0x05,0x01,0x28,0x0F}, FrameKind::malformed, 0, 0, 0, 0, 0, 0},
    DecodeCase{"handshake", {0xEB,0x5F,0x21,0x02,0x00,0x00,0x0F}, FrameKind::handshake, 0, 0, 0, 0, 0, 0},
    DecodeCase{"errorReply", {0xEB,0x5F,0x00,0x01,0xF7,0xA5}, FrameKind::error_reply, 0, 0, 0, 0, 0, 0},
    DecodeCase{"unknownSub", {0xEB,0x5F,0x21,0x02,0x09,0x00,0x0F}, FrameKind::unknown, 0, 0, 0, 0, 0, 0},
    DecodeCase{"shortMask", {0xEB,0x5F,0x21,0x04,0x01,0xFF,0xFF,0xFF,0x0F}, FrameKind::malformed, 0, 0, 0, 0, 0, 0},
    DecodeCase{"badCheck", {0xEB,0x5F,0x21,0x05,0x01,0xFF,0xFF,0xFF,0xFF,0x00}, FrameKind::malformed, 0, 0, 0, 0, 0, 0},
    DecodeCase{"lengthZero", {0xEB,0x5F,0x21,0x00}, FrameKind::malformed, 0, 0, 0, 0, 0, 0}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

struct TextCase {
    int line, col;
    std::string text;
    bool applied;
};

class PanelModelText : public ::testing::TestWithParam<TextCase> {};

TEST_P(PanelModelText, WritesInsideTheLineOnly) {
    const TextCase& c = GetParam();
    PanelModel m;
    feed(m, text_frame(c.line, c.col, c.text));
    ASSERT_EQ(m.frames().size(), 1u);
    EXPECT_EQ(m.frames()[0].kind, c.applied ? FrameKind::lcd_text : FrameKind::malformed);
    std::array<std::string, 2> want{std::string(40, ' '), std::string(40, ' ')};
    if (c.applied) {
        want[c.line].replace(c.col, c.text.size(), c.text);
    }
    EXPECT_EQ(m.state().lcd, want);
}

INSTANTIATE_TEST_SUITE_P(Texts, PanelModelText,
                         ::testing::Values(TextCase{1, 39, "Z", true},
                                           TextCase{0, 30, std::string(10, 'x'), true},
                                           TextCase{0, 39, "ZZ", false}, TextCase{2, 0, "X", false},
                                           TextCase{0, 0, std::string(41, 'B'), false}));

TEST(PanelModel, TextMayHoldHeadByte) {
    // Payload bytes are not escaped: the length decides where a frame ends.
    PanelModel m;
    feed(m, text_frame(0, 0,
                       std::string("a\xEB\x5F"
                                   "b")));
    feed(m, text_frame(1, 2, "ok"));
    ASSERT_EQ(m.frames().size(), 2u);
    EXPECT_EQ(m.state().lcd[0].substr(0, 4), "a\xEB\x5F"
                                             "b");
    EXPECT_EQ(m.state().lcd[1].substr(0, 4), "  ok");
    EXPECT_EQ(m.garbage_bytes(), 0u);
}

TEST(PanelModel, SplitAtEveryPositionEqualsWholeStream) {
    Bytes stream = text_frame(0, 0, "Hello panel");
    for (Bytes f : {Bytes{0xEB, 0x5F, 0x21, 0x05, 0x01, 0x80, 0x00, 0xC0, 0x02, 0x0F},
                    Bytes{0xEB, 0x5F, 0x21, 0x03, 0x05, 0x01, 0x07, 0x0F},
                    Bytes{0xEB, 0x5F, 0x21, 0x02, 0x00, 0x00, 0x0F}}) {
        stream.insert(stream.end(), f.begin(), f.end());
    }
    PanelModel whole;
    feed(whole, stream);
    for (size_t cut = 1; cut < stream.size(); ++cut) {
        PanelModel m;
        m.feed(stream.data(), cut);
        m.feed(stream.data() + cut, stream.size() - cut);
        ASSERT_EQ(m.frames().size(), 4u) << "cut at " << cut;
        EXPECT_EQ(m.state().lcd, whole.state().lcd);
        EXPECT_EQ(m.state().led_steady, 0x8000C002u);
        EXPECT_EQ(m.state().cursor_col, 7);
        EXPECT_EQ(m.handshakes(), 1u);
    }
    PanelModel bytewise;
    for (uint8_t b : stream) {
        bytewise.feed(&b, 1);
    }
    EXPECT_EQ(bytewise.frames().size(), 4u);
    EXPECT_EQ(bytewise.state().lcd, whole.state().lcd);
}

TEST(PanelModel, GarbageAndFalseHeadsAreSkipped) {
    PanelModel m;
    // Garbage, a head without its address byte, then a real frame.
    feed(m, {0x00, 0x41, 0xFF, 0xEB, 0x12, 0xEB, 0x5F, 0x21, 0x05, 0x01, 0x00, 0x00, 0x00, 0x02,
             0x0F, 0x99});
    ASSERT_EQ(m.frames().size(), 1u);
    EXPECT_EQ(m.state().led_steady, 0x2u);
    EXPECT_EQ(m.garbage_bytes(), 6u);
    EXPECT_FALSE(m.in_frame());
}

TEST(PanelModel, CountsEachKindAndKeepsGoing) {
    PanelModel m;
    const Bytes hs{0xEB, 0x5F, 0x21, 0x02, 0x00, 0x00, 0x0F};
    const Bytes err{0xEB, 0x5F, 0x00, 0x01, 0xF7, 0xA5};
    const Bytes unknown{0xEB, 0x5F, 0x21, 0x01, 0x7E, 0x0F};
    const Bytes zero_len{0xEB, 0x5F, 0x21, 0x00};
    for (const Bytes* f : {&hs, &err, &unknown, &hs, &zero_len, &unknown, &hs}) {
        feed(m, *f);
    }
    feed(m, text_frame(0, 0, "still alive"));
    EXPECT_EQ(m.handshakes(), 3u);
    EXPECT_EQ(m.error_replies(), 1u);
    EXPECT_EQ(m.unknown_frames(), 2u);
    EXPECT_EQ(m.malformed_frames(), 1u);
    EXPECT_EQ(m.frames().size(), 8u);
    EXPECT_EQ(m.state().lcd[0].substr(0, 11), "still alive");
    m.clear_frames();
    EXPECT_TRUE(m.frames().empty());
    EXPECT_EQ(m.state().lcd[0].substr(0, 11), "still alive");
}

TEST(PanelModel, FrameLimitDropsOldFramesButNotCounts) {
    PanelModel m;
    m.set_frame_limit(4);
    for (int i = 0; i < 10; ++i) {
        feed(m, {0xEB, 0x5F, 0x21, 0x02, 0x00, 0x00, 0x0F});
    }
    EXPECT_LE(m.frames().size(), 4u);
    EXPECT_EQ(m.frames_total(), 10u);
    EXPECT_EQ(m.handshakes(), 10u);
    EXPECT_LE(m.frames().front().t, m.frames().back().t);
}

} // namespace
