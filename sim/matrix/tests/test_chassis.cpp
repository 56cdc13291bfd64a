// The chassis reader: the shipped chassis, and the refusals that name the line.
#include <gtest/gtest.h>

#include "sim_model.h"

using namespace tavsim;

namespace {

int count_dir(const Chassis& c, bool audio, int32_t dir) {
    int n = 0;
    for (int p = 1; p <= c.ports; ++p)
        n += port_dir(c, p, audio, true) == dir;
    return n;
}

} // namespace

TEST(SimChassis, DefaultChassisIsABelievableSwitcher) {
    Chassis c;
    std::string err;
    ASSERT_TRUE(parse_chassis(default_chassis_text(), c, err)) << err;
    EXPECT_EQ(c.ports, 32);
    EXPECT_EQ(count_dir(c, false, em_matrix_in), 16);
    EXPECT_EQ(count_dir(c, false, em_matrix_out), 16);
    EXPECT_EQ(count_dir(c, true, em_matrix_in), 15); // port 16 has no audio
    EXPECT_EQ(port_dir(c, 16, true, true), em_matrix_ioundefine);
    EXPECT_EQ(edid_name(c.port[1].own), "CAMERA-1");
    EXPECT_EQ(edid_name(c.port[5].own), "SRC-05");
    EXPECT_EQ(c.port[17].vroute, 1);
    EXPECT_EQ(c.port[32].vroute, 0);
    EXPECT_TRUE(c.cards[12].defined);
    EXPECT_FALSE(c.cards[5].defined);
}

struct Refusal {
    const char* name;
    const char* text;
    int line;
    const char* says;
};

class SimChassisRefusal : public ::testing::TestWithParam<Refusal> {};

TEST_P(SimChassisRefusal, NamesTheLine) {
    const Refusal& r = GetParam();
    Chassis c;
    std::string err;
    ASSERT_FALSE(parse_chassis(r.text, c, err));
    EXPECT_EQ(err.rfind("line " + std::to_string(r.line) + ": ", 0), 0u) << err;
    EXPECT_NE(err.find(r.says), std::string::npos) << err;
}

INSTANTIATE_TEST_SUITE_P(
    Files, SimChassisRefusal,
    ::testing::Values(
        Refusal{"UnknownKeyword", "ports 8\n# comment\n\nslot 1 in 1-4\n", 4,
                "unknown keyword slot"},
        Refusal{"CardPortOutOfRange", "ports 8\ncard 1 in 1-4\ncard 2 out 5-9\n", 3,
                "port out of range"},
        Refusal{"RouteFromAnOutput", "ports 8\ncard 1 in 1-4\ncard 2 out 5-8\nroute video 5 6\n", 4,
                "port 6 is not a video input"},
        Refusal{"RouteBeforeItsCards", "ports 8\nroute video 5 7\ncard 1 in 1-4\ncard 2 out 5-8\n",
                2, "port 7 is not a video input"},
        Refusal{"OverlappingCards", "ports 8\ncard 1 in 1-4\ncard 2 out 4-8\n", 3,
                "port 4 already on the card"},
        Refusal{"SlotOutOfRange", "ports 8\ncard 18 in 1-4\n", 2, "slot 18 out of range"},
        Refusal{"BadDirection", "ports 8\nport 3 video sideways\n", 2, "usage: port"},
        Refusal{"UpdateOver100", "ports 8\nupdate 5 101\n", 2, "usage: update"}),
    [](const ::testing::TestParamInfo<Refusal>& i) { return std::string(i.param.name); });

TEST(SimChassis, CardStateDecidesTheActiveDirection) {
    Chassis c;
    std::string err;
    ASSERT_TRUE(parse_chassis("ports 8\ncard 1 in 1-4 state=online\ncard 2 out 5-8 state=offline\n",
                              c, err))
        << err;
    EXPECT_EQ(port_dir(c, 1, false, false), em_matrix_in);      // present
    EXPECT_EQ(port_dir(c, 1, false, true), em_matrix_unknown);  // not yet normal
    EXPECT_EQ(port_dir(c, 5, false, false), em_matrix_unknown); // slot empty
    std::vector<Signal> sigs;
    set_card_state(c, 1, em_matrix_card_normal, sigs);
    ASSERT_EQ(sigs.size(), 2u);
    EXPECT_EQ(sigs[0].bits, TAV_MATRIX_SIG_VIDEO_PORT | TAV_MATRIX_SIG_AUDIO_PORT);
    EXPECT_EQ(sigs[1].bits, TAV_MATRIX_SIG_SLOT);
    EXPECT_EQ(sigs[1].param, 1u);
    EXPECT_EQ(port_dir(c, 1, false, true), em_matrix_in);
}
