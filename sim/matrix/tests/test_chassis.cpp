// The chassis reader's refusals name the line (the shipped chassis and card
// states are exercised by the end-to-end tests).
#include <gtest/gtest.h>

#include "sim_model.h"

using namespace tavsim;

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
