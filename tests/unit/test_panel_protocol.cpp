// Frame parser, key decoding, version answer and the replies to the panel.
#include <gtest/gtest.h>

#include <vector>

#include "foundation_support.h"
#include "tav_baseportcontrol.h"
#include "tav_uart_com.h"

namespace {

using Bytes = std::vector<uint8_t>;

const char* ERROR_REPLY = "EB 5F 00 01 F7 A5";

class PanelProtocol : public ::testing::Test {
  protected:
    void SetUp() override {
        fndtest::ensure_port_open();
        tav_hardkey_init();
        tav_comint();
        fndtest::take_hex(5);
    }
    // Feeds `bytes` to the parser in chunks of the given sizes (the rest at once).
    static void feed(Bytes bytes, const std::vector<size_t>& chunks = {}) {
        size_t pos = 0;
        for (size_t c : chunks) {
            tav_analyze_data(bytes.data() + pos, static_cast<uint8_t>(c));
            pos += c;
        }
        if (pos < bytes.size()) {
            tav_analyze_data(bytes.data() + pos, static_cast<uint8_t>(bytes.size() - pos));
        }
    }
    static Bytes key_frame(uint32_t mask, uint8_t check = 0x0F) {
        return {0xEB,
                0x5F,
                0x21,
                0x05,
                0x07,
                static_cast<uint8_t>(mask >> 24),
                static_cast<uint8_t>(mask >> 16),
                static_cast<uint8_t>(mask >> 8),
                static_cast<uint8_t>(mask),
                check};
    }
    static bool key_event() { return (tav_gethardkey_event() & TAV_EVENT_KEY) != 0; }
    static bool ver_event() { return (tav_gethardkey_event() & TAV_EVENT_HARDVER) != 0; }
};

struct MaskCase {
    uint32_t mask;
    bool decoded;
    TAV_KEY_ENUM key;
};

class KeyMask : public PanelProtocol, public ::testing::WithParamInterface<MaskCase> {};

TEST_P(KeyMask, DecodesExactlyOneKeyOrRelease) {
    const MaskCase& c = GetParam();
    feed(key_frame(c.mask));
    EXPECT_EQ(key_event(), c.decoded);
    EXPECT_EQ(tav_getkey_val(), c.decoded ? c.key : TAV_KEY_NULL);
    EXPECT_EQ(fndtest::take_hex(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Masks, KeyMask,
    ::testing::Values(MaskCase{0x4000, true, TAV_KEY_TAKE}, MaskCase{0x0001, true, TAV_KEY_0},
                      MaskCase{0x0200, true, TAV_KEY_9}, MaskCase{0x0400, true, TAV_KEY_LEFT},
                      MaskCase{0x0800, true, TAV_KEY_RIGHT}, MaskCase{0x1000, true, TAV_KEY_BREAK},
                      MaskCase{0x2000, true, TAV_KEY_DEFAULT}, MaskCase{0x8000, true, TAV_KEY_MENU},
                      MaskCase{0x10000, true, TAV_KEY_LOCK}, MaskCase{0, true, TAV_KEY_NULL},
                      MaskCase{0x4001, false, TAV_KEY_NULL}, MaskCase{0x20000, false, TAV_KEY_NULL},
                      MaskCase{0x80000000u, false, TAV_KEY_NULL},
                      MaskCase{0xFFFFFFFFu, false, TAV_KEY_NULL}));

// The same TAKE frame, however the reads cut it, behind garbage or not.
struct SplitCase {
    Bytes prefix;
    std::vector<size_t> chunks;
};

class SplitFrame : public PanelProtocol, public ::testing::WithParamInterface<SplitCase> {};

TEST_P(SplitFrame, DecodesLikeOneRead) {
    Bytes b = GetParam().prefix;
    Bytes f = key_frame(0x4000);
    b.insert(b.end(), f.begin(), f.end());
    feed(b, GetParam().chunks);
    EXPECT_TRUE(key_event());
    EXPECT_EQ(tav_getkey_val(), TAV_KEY_TAKE);
}

INSTANTIATE_TEST_SUITE_P(Chunks, SplitFrame,
                         ::testing::Values(SplitCase{{}, {}}, SplitCase{{}, {3, 7}},
                                           SplitCase{{}, {1, 1, 1, 1, 1, 1, 1, 1, 1, 1}},
                                           SplitCase{{}, {9, 1}},
                                           SplitCase{{0x00, 0x5F, 0x21, 0x07, 0xFF}, {2, 4}},
                                           SplitCase{{0xEB}, {}},
                                           SplitCase{{0xEB, 0x5F, 0x21}, {}}));

TEST_F(PanelProtocol, HeadInsideAFrameRestartsAtThatByte) {
    // A key frame for digit 1 cut off by the head of a TAKE frame.
    Bytes b = {0xEB, 0x5F, 0x21, 0x05, 0x07, 0x00, 0x00};
    Bytes f = key_frame(0x4000);
    b.insert(b.end(), f.begin(), f.end());
    feed(b);
    EXPECT_EQ(tav_getkey_val(), TAV_KEY_TAKE);
}

TEST_F(PanelProtocol, TwoFramesInOneReadAreHandledInOrder) {
    Bytes b = key_frame(0x0002);
    Bytes v = {0xEB, 0x5F, 0x21, 0x06, 0x00, 0x00, 0x02, 0x05, 0x01, 0x02, 0x33};
    Bytes k = key_frame(0x0008);
    b.insert(b.end(), v.begin(), v.end());
    b.insert(b.end(), k.begin(), k.end());
    feed(b);
    // Events are not queued: the later key replaces the earlier one.
    EXPECT_EQ(tav_getkey_val(), TAV_KEY_3);
    EXPECT_TRUE(key_event());
    EXPECT_TRUE(ver_event());
    EXPECT_EQ(tav_get_hardkey_main_ver(), 2);
    EXPECT_EQ(tav_get_hardkey_minor_ver(), 5);
    EXPECT_EQ(tav_get_hardkey_build_ver(), 3);
}

TEST_F(PanelProtocol, DroppedFramesLeaveNoTrace) {
    const std::vector<Bytes> dropped = {
        {0xEB, 0x60, 0x21, 0x05, 0x07, 0x00, 0x00, 0x40, 0x00, 0x0F}, // wrong address
        {0xEB, 0x5F, 0x22, 0x05, 0x07, 0x00, 0x00, 0x40, 0x00, 0x0F}, // other order
        {0xEB, 0x5F, 0x21, 0x05, 0x08, 0x00, 0x00, 0x40, 0x00, 0x0F}, // other sub-command
        {0xEB, 0x5F, 0x21, 0x05, 0x07, 0x00, 0x00, 0x40},             // unfinished
    };
    for (const Bytes& b : dropped) {
        tav_comint();
        feed(b);
        EXPECT_EQ(tav_gethardkey_event(), 0);
        EXPECT_EQ(tav_getkey_val(), TAV_KEY_NULL);
    }
    EXPECT_EQ(fndtest::take_hex(), "");
}

TEST_F(PanelProtocol, BytesAfterADispatchedFrameAreNotDispatchedAgain) {
    Bytes b = key_frame(0x0002);
    // The same data again without a head: lands behind the frame's data.
    Bytes tail = {0x5F, 0x21, 0x05, 0x07, 0x00, 0x00, 0x40, 0x00, 0x0F};
    b.insert(b.end(), tail.begin(), tail.end());
    feed(b);
    EXPECT_EQ(tav_getkey_val(), TAV_KEY_1);
}

TEST_F(PanelProtocol, CheckByteIsNotVerified) {
    for (uint8_t check : {0x00, 0x0F, 0xA5, 0xFF}) {
        tav_clear_keyevent(TAV_EVENT_KEY);
        feed(key_frame(0x0020, check));
        EXPECT_TRUE(key_event()) << int(check);
        EXPECT_EQ(tav_getkey_val(), TAV_KEY_5);
    }
}

TEST_F(PanelProtocol, ShortKeyFrameReadsMissingMaskBytesAsZero) {
    // Length 1: only the sub-command, so the mask is 0 = all released.
    feed({0xEB, 0x5F, 0x21, 0x01, 0x07, 0x0F});
    EXPECT_TRUE(key_event());
    EXPECT_EQ(tav_getkey_val(), TAV_KEY_NULL);
}

TEST_F(PanelProtocol, VersionAnswerSetsVersionAndEvent) {
    feed({0xEB, 0x5F, 0x21, 0x06, 0x00, 0x00, 0x02, 0x05, 0x01, 0x02, 0x0F});
    EXPECT_TRUE(ver_event());
    EXPECT_FALSE(key_event());
    EXPECT_EQ(tav_get_hardkey_main_ver(), 2);
    EXPECT_EQ(tav_get_hardkey_minor_ver(), 5);
    EXPECT_EQ(tav_get_hardkey_build_ver(), 3);
    EXPECT_EQ(fndtest::take_hex(), "");
}

TEST_F(PanelProtocol, VersionAnswerOfOtherLengthIsAnsweredWithErrorReply) {
    feed({0xEB, 0x5F, 0x21, 0x06, 0x00, 0x00, 0x01, 0x01, 0x00, 0x00, 0x0F});
    tav_clear_keyevent(TAV_EVENT_HARDVER);
    for (uint8_t len : {1, 5, 7}) {
        Bytes b = {0xEB, 0x5F, 0x21, len, 0x00};
        b.resize(4 + len, 0x09);
        b.push_back(0x0F);
        feed(b);
        EXPECT_EQ(fndtest::take_hex(), ERROR_REPLY) << int(len);
    }
    EXPECT_FALSE(ver_event());
    EXPECT_EQ(tav_get_hardkey_main_ver(), 1);
    EXPECT_EQ(tav_get_hardkey_minor_ver(), 1);
}

TEST_F(PanelProtocol, LengthZeroIsAnsweredWithErrorReplyAndDropped) {
    feed({0xEB, 0x5F, 0x21, 0x00, 0x07, 0x00, 0x00, 0x40, 0x00, 0x0F});
    EXPECT_EQ(fndtest::take_hex(), ERROR_REPLY);
    EXPECT_EQ(tav_gethardkey_event(), 0);
}

TEST_F(PanelProtocol, OverlongLengthNeverCompletes) {
    Bytes b = {0xEB, 0x5F, 0x21, 0xFA, 0x07, 0x00, 0x00, 0x40, 0x00};
    b.resize(600, 0x00);
    feed(b, {255, 255});
    EXPECT_EQ(tav_gethardkey_event(), 0);
    // The parser is idle again after the wrap and takes the next frame.
    feed(key_frame(0x4000));
    EXPECT_EQ(tav_getkey_val(), TAV_KEY_TAKE);
}

TEST_F(PanelProtocol, HandshakeFrame) {
    tav_sys_hardmint();
    EXPECT_EQ(fndtest::take_hex(), "EB 5F 21 02 00 00 0F");
    tav_back_err(0x21, 0x01);
    EXPECT_EQ(fndtest::take_hex(), "EB 5F 21 01 01 A5");
}

} // namespace
