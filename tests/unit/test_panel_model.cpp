// The panel emulator's model, the oracle of the other tests: what a frame
// leaves on the emulated panel, however the stream is cut. Random input is
// the fuzz target's.
#include <gtest/gtest.h>

#include "tav_panel_model.h"

using tavpanel::FrameKind;
using Bytes = std::vector<uint8_t>;

TEST(PanelModel, FramesGiveThePictureAndKinds) {
    struct Case {
        Bytes frame;
        FrameKind kind;
        uint32_t steady, blink, enable;
        int cycle, col;
    };
    const Case cases[] = {
        {{0xEB, 0x5F, 0x21, 0x05, 0x01, 0x80, 0x00, 0x00, 0x02, 0x0F},
         FrameKind::led_steady,
         0x80000002u,
         0,
         0,
         0,
         0},
        {{0xEB, 0x5F, 0x21, 0x05, 0x02, 0x00, 0x00, 0x40, 0x00, 0x0F},
         FrameKind::led_blink,
         0,
         0x4000u,
         0,
         0,
         0},
        {{0xEB, 0x5F, 0x21, 0x05, 0x06, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F},
         FrameKind::key_enable,
         0,
         0,
         0xFFFFFFFFu,
         0,
         0},
        {{0xEB, 0x5F, 0x21, 0x03, 0x03, 0x01, 0x14, 0x0F}, FrameKind::blink_cycle, 0, 0, 0, 20, 0},
        {{0xEB, 0x5F, 0x21, 0x03, 0x05, 0x01, 0x27, 0x0F}, FrameKind::cursor, 0, 0, 0, 0, 39},
        {{0xEB, 0x5F, 0x21, 0x03, 0x05, 0x01, 0x28, 0x0F}, FrameKind::malformed, 0, 0, 0, 0, 0},
        {{0xEB, 0x5F, 0x21, 0x02, 0x00, 0x00, 0x0F}, FrameKind::handshake, 0, 0, 0, 0, 0},
        {{0xEB, 0x5F, 0x00, 0x01, 0xF7, 0xA5}, FrameKind::error_reply, 0, 0, 0, 0, 0},
        {{0xEB, 0x5F, 0x21, 0x02, 0x09, 0x00, 0x0F}, FrameKind::unknown, 0, 0, 0, 0, 0},
        {{0xEB, 0x5F, 0x21, 0x05, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0x00},
         FrameKind::malformed,
         0,
         0,
         0,
         0,
         0},
        {{0xEB, 0x5F, 0x21, 0x04, 0x04, 0x00, 0x27, 0x5A, 0x0F},
         FrameKind::lcd_text,
         0,
         0,
         0,
         0,
         0},
        {{0xEB, 0x5F, 0x21, 0x05, 0x04, 0x00, 0x27, 0x5A, 0x5A, 0x0F},
         FrameKind::malformed,
         0,
         0,
         0,
         0,
         0},
    };
    for (const Case& c : cases) {
        tavpanel::PanelModel m;
        m.feed(c.frame.data(), c.frame.size());
        ASSERT_EQ(m.frames().size(), 1u) << tavpanel::hex(c.frame);
        EXPECT_EQ(m.frames()[0].kind, c.kind) << tavpanel::hex(c.frame);
        const auto& st = m.state();
        EXPECT_EQ(st.led_steady, c.steady);
        EXPECT_EQ(st.led_blink, c.blink);
        EXPECT_EQ(st.key_enable, c.enable);
        EXPECT_EQ(st.blink_cycle, c.cycle);
        EXPECT_EQ(st.cursor_col, c.col);
        EXPECT_EQ(st.lcd[0][39], c.kind == FrameKind::lcd_text ? 'Z' : ' ');
    }
}

TEST(PanelModel, SplitAtEveryPositionEqualsWholeStreamPastGarbage) {
    // Garbage and a head without its address byte, then text holding the
    // head bytes (payload is not escaped), LEDs and a handshake.
    const Bytes stream = {0x00, 0xEB, 0x12, 0xEB, 0x5F, 0x21, 0x07, 0x04, 0x01, 0x02, 'a',
                          0xEB, 0x5F, 'b',  0x0F, 0xEB, 0x5F, 0x21, 0x05, 0x01, 0x80, 0x00,
                          0xC0, 0x02, 0x0F, 0xEB, 0x5F, 0x21, 0x02, 0x00, 0x00, 0x0F};
    for (size_t cut = 0; cut < stream.size(); ++cut) {
        tavpanel::PanelModel m;
        m.feed(stream.data(), cut);
        m.feed(stream.data() + cut, stream.size() - cut);
        ASSERT_EQ(m.frames().size(), 3u) << "cut at " << cut;
        EXPECT_EQ(m.state().lcd[1].substr(0, 6), "  a\xEB\x5F"
                                                 "b");
        EXPECT_EQ(m.state().led_steady, 0x8000C002u);
        EXPECT_EQ(m.handshakes(), 1u);
        EXPECT_EQ(m.garbage_bytes(), 3u);
    }
    tavpanel::PanelModel m;
    m.set_frame_limit(2);
    for (int i = 0; i < 3; ++i)
        m.feed(stream.data(), stream.size());
    EXPECT_LE(m.frames().size(), 2u);
    EXPECT_EQ(m.frames_total(), 9u);
}
