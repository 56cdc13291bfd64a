// The capture decoder on each input format and on damaged captures.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "e2e_harness.h"

using namespace tave2e;
using namespace tavpanel;

namespace {

// TAKE pressed, then the cursor to line 1, column 7.
using namespace std::string_literals; // the bytes hold NULs
const std::string kTwoFrames = "\xEB\x5F\x21\x05\x07\x00\x00\x40\x00\x0F"
                               "\xEB\x5F\x21\x03\x05\x01\x07\x0F"s;

struct DecodeCase {
    const char* name;
    std::string input; // file content; "@name" is a recording from tests/data/panel
    const char* args;
    int status;
    std::vector<std::string> want; // lines (or parts of lines) of the output
    friend void PrintTo(const DecodeCase& c, std::ostream* os) { *os << c.name; }
};

class PanelDecode : public ::testing::TestWithParam<DecodeCase> {};

TEST_P(PanelDecode, Decodes) {
    const DecodeCase& c = GetParam();
    Sandbox sb({.start_panel = false});
    std::string file = TAV_SOURCE_DIR "/tests/data/panel/" + c.input.substr(1);
    if (c.input[0] != '@') {
        file = sb.path("capture");
        sb.write_file("capture", c.input);
    }
    const CmdResult r =
        run_command({"/bin/sh", "-c",
                     std::string(TAV_BIN_DIR "/tav_panel_decode ") + c.args + " " + file + " 2>&1"},
                    {}, 10s);
    EXPECT_EQ(r.status, c.status) << r.out;
    for (const auto& w : c.want) {
        EXPECT_NE(r.out.find(w), std::string::npos) << "missing: " << w << "\nin:\n" << r.out;
    }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Inputs, PanelDecode,
    ::testing::Values(
        DecodeCase{"raw", kTwoFrames, "", 0, {"00000000  key press TAKE\n0000000a  cursor line 1 col 7\n"}},
        DecodeCase{"displayFrames",
                   "EB 5F 21 06 04 01 02 4F 4B 21 0F EB 5F 21 05 01 80 00 C0 00 0F\n"
                   "EB 5F 21 05 02 00 00 40 00 0F EB 5F 21 05 06 FF FF FF FF 0F\n"
                   "EB 5F 21 02 00 00 0F EB 5F 21 06 00 00 02 05 01 02 0F EB 5F 00 01 F7 A5\n"
                   "EB 5F 21 03 03 01 05 0F EB 5F 21 05 07 00 00 40 01 0F EB 5F 21 03 03 01 15 0F\n",
                   "--summary", 0,
                   {"lcd line 1 col 2 \"OK!\"", "leds on: TAKE MENU LCD", "leds blinking: TAKE",
                    "keys enabled: all", "handshake", "firmware version 2.5 build 3",
                    "error reply order 00 code F7", "lcd line 1        |  OK!", "blink cycle 5\n",
                    "key mask 00004001 (not one key", "malformed frame (blink cycle): "}},
        DecodeCase{"lineNoise",
                   "00 41 EB 12 EB 5F 21 05 07 00 EB 5F 21 05 07 00 00 00 00 0F 99 "
                   "EB 5F 21 00 EB 5F 21 05 07 00 00 80 00 0F\n", "", 1,
                   {"00000000  malformed 2 bytes (bytes outside any frame): 00 41",
                    "00000002  malformed 2 bytes (no address byte after the head): EB 12",
                    "00000004  malformed 6 bytes (frame cut short by a new head byte)",
                    "0000000a  key release", "00000014  malformed 1 byte",
                    "00000015  malformed frame (length 0", "00000019  key press MENU"}},
        DecodeCase{"recording", "@switch_session.rec", "--summary", 0,
                   {"program handshake", "panel   firmware version", "panel   key press 1", "summary: "}},
        DecodeCase{"badRecording", "# tav_panel_emu recording 1\n1.5 panel EB 5F\n2.0 keyboard EB\n", "", 3,
                   {"line 3 has 'keyboard' where panel or program was expected"}}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

} // namespace
