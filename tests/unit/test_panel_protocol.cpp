// Frame parser, key decoding, version answer and the replies to the panel.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "foundation_support.h"
#include "tav_baseportcontrol.h"
#include "tav_uart_com.h"

namespace {

using Bytes = std::vector<uint8_t>;

const char* ERROR_REPLY = "EB 5F 00 01 F7 A5";

Bytes key_frame(uint32_t mask, uint8_t check = 0x0F) {
    Bytes f{0xEB, 0x5F, 0x21, 0x05, 0x07};
    for (int shift = 24; shift >= 0; shift -= 8) {
        f.push_back(static_cast<uint8_t>(mask >> shift));
    }
    f.push_back(check);
    return f;
}
Bytes cat(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

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

// clang-format off
INSTANTIATE_TEST_SUITE_P(Masks, KeyMask, ::testing::Values(
    MaskCase{0x4000, true, TAV_KEY_TAKE}, MaskCase{0x0001, true, TAV_KEY_0}, MaskCase{0x0200, true, TAV_KEY_9},
    MaskCase{0x0400, true, TAV_KEY_LEFT}, MaskCase{0x0800, true, TAV_KEY_RIGHT}, MaskCase{0x1000, true, TAV_KEY_BREAK},
    MaskCase{0x2000, true, TAV_KEY_DEFAULT}, MaskCase{0x8000, true, TAV_KEY_MENU}, MaskCase{0x10000, true, TAV_KEY_LOCK},
    MaskCase{0, true, TAV_KEY_NULL}, MaskCase{0x4001, false, TAV_KEY_NULL}, MaskCase{0x20000, false, TAV_KEY_NULL},
    MaskCase{0x80000000u, false, TAV_KEY_NULL}, MaskCase{0xFFFFFFFFu, false, TAV_KEY_NULL}));
// clang-format on

// Byte streams, however the reads cut them, and the key they leave.
struct StreamCase {
    const char* name;
    Bytes bytes;
    std::vector<size_t> chunks;
    TAV_KEY_ENUM key;
};

class Streams : public PanelProtocol, public ::testing::WithParamInterface<StreamCase> {};

TEST_P(Streams, DecodeTheKey) {
    feed(GetParam().bytes, GetParam().chunks);
    EXPECT_TRUE(key_event());
    EXPECT_EQ(tav_getkey_val(), GetParam().key);
}

const Bytes kTake = key_frame(0x4000);
// clang-format off
INSTANTIATE_TEST_SUITE_P(Cases, Streams, ::testing::Values(
    StreamCase{"OneRead", kTake, {}, TAV_KEY_TAKE},
    StreamCase{"TwoReads", kTake, {3, 7}, TAV_KEY_TAKE},
    StreamCase{"ByteByByte", kTake, {1, 1, 1, 1, 1, 1, 1, 1, 1, 1}, TAV_KEY_TAKE},
    StreamCase{"CheckByteAlone", kTake, {9, 1}, TAV_KEY_TAKE},
    StreamCase{"BehindGarbage", cat({0x00, 0x5F, 0x21, 0x07, 0xFF}, kTake), {2, 4}, TAV_KEY_TAKE},
    StreamCase{"BehindLoneHead", cat({0xEB}, kTake), {}, TAV_KEY_TAKE},
    StreamCase{"BehindHeadAndAddress", cat({0xEB, 0x5F, 0x21}, kTake), {}, TAV_KEY_TAKE},
    // A digit-1 frame cut off by the head of the TAKE frame: restart there.
    StreamCase{"HeadInsideAFrame", cat({0xEB, 0x5F, 0x21, 0x05, 0x07, 0x00, 0x00}, kTake), {}, TAV_KEY_TAKE},
    // The same data again without a head lands behind the frame's data.
    StreamCase{"BytesAfterAFrameNotDispatchedAgain", cat(key_frame(0x0002), {0x5F, 0x21, 0x05, 0x07, 0x00, 0x00, 0x40, 0x00, 0x0F}), {}, TAV_KEY_1},
    StreamCase{"CheckByteNotVerified00", key_frame(0x0020, 0x00), {}, TAV_KEY_5},
    StreamCase{"CheckByteNotVerifiedFF", key_frame(0x0020, 0xFF), {}, TAV_KEY_5},
    StreamCase{"ShortFrameMissingMaskIsRelease", {0xEB, 0x5F, 0x21, 0x01, 0x07, 0x0F}, {}, TAV_KEY_NULL}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

TEST_F(PanelProtocol, TwoFramesInOneReadAreHandledInOrder) {
    feed(cat(
        cat(key_frame(0x0002), {0xEB, 0x5F, 0x21, 0x06, 0x00, 0x00, 0x02, 0x05, 0x01, 0x02, 0x33}),
        key_frame(0x0008)));
    // Events are not queued: the later key replaces the earlier one.
    EXPECT_EQ(tav_getkey_val(), TAV_KEY_3);
    EXPECT_TRUE(key_event());
    EXPECT_TRUE(ver_event());
    EXPECT_EQ(tav_get_hardkey_main_ver(), 2);
    EXPECT_EQ(tav_get_hardkey_minor_ver(), 5);
    EXPECT_EQ(tav_get_hardkey_build_ver(), 3);
    EXPECT_EQ(fndtest::take_hex(), "");
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
