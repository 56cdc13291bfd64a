// The capture decoder on each input format and on damaged captures, and a
// recorded session replayed against a fresh program.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "e2e_harness.h"
#include "tav_panel_replay.h"

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
        DecodeCase{"hexdumpRepeats",
                   "00000000  eb 5f 21 0b 04 00 00 41  41 41 41 41 41 41 41 0f  |._!....AAAAAAAA.|\n*\n"
                   "00000020  eb 5f 21 05 07 00 00 00  01 0f                    |._!.......|\n0000002a\n",
                   "", 0, {"00000010  lcd line 0 col 0 \"AAAAAAAA\"", "00000020  key press 0"}},
        DecodeCase{"displayFrames",
                   "EB 5F 21 06 04 01 02 4F 4B 21 0F EB 5F 21 05 01 80 00 C0 00 0F\n"
                   "EB 5F 21 05 02 00 00 40 00 0F EB 5F 21 05 06 FF FF FF FF 0F\n"
                   "EB 5F 21 02 00 00 0F EB 5F 21 06 00 00 02 05 01 02 0F EB 5F 00 01 F7 A5\n",
                   "--summary", 0,
                   {"lcd line 1 col 2 \"OK!\"", "leds on: TAKE MENU LCD", "leds blinking: TAKE",
                    "keys enabled: all", "handshake", "firmware version 2.5 build 3",
                    "error reply order 00 code F7", "lcd line 1        |  OK!"}},
        DecodeCase{"cutMidFrame", kTwoFrames + "\xEB\x5F\x21\x05\x07\x00"s, "", 1,
                   {"cursor line 1 col 7", "00000012  capture ends inside a frame: 6 bytes: EB 5F 21 05 07 00"}},
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

// Replays `text` against a fresh program; the replay's report in *report.
int replay_against_fresh_program(const std::string& text, std::string* report) {
    Sandbox sb({.start_panel = false});
    sb.write_file("session.rec", text);
    std::vector<RecordLine> lines;
    std::string err;
    EXPECT_TRUE(load_recording(sb.path("session.rec"), lines, err)) << err;
    const ReplayPlan plan = plan_replay(lines);
    EmulatorOptions eo;
    eo.root = sb.root();
    eo.handshake_answers = plan.handshake_answers;
    PanelEmulator emu(eo);
    EXPECT_TRUE(emu.start() && sb.start_core() && sb.start_program());
    char* buf = nullptr;
    size_t len = 0;
    FILE* out = open_memstream(&buf, &len);
    ReplayOptions ro;
    ro.expect = true;
    ro.speed = 2;
    const int rc = replay(emu, plan, ro, out);
    std::fclose(out);
    *report = std::string(buf, len);
    std::free(buf);
    return rc;
}

TEST(PanelReplay, RecordedSessionReplaysAndAnEditedOneFailsAtItsKey) {
    std::string text;
    {
        Sandbox sb({.start_panel = false});
        EmulatorOptions eo;
        eo.root = sb.root();
        eo.record_path = sb.path("session.rec");
        PanelEmulator emu(eo);
        ASSERT_TRUE(emu.start() && sb.start_core() && sb.start_program());
        ASSERT_TRUE(emu.wait_lcd_contains(0, "VOSW: ", 40s));
        for (int key : {1, 7, int{KEY_RIGHT}, 3, int{KEY_RIGHT}}) {
            emu.press(key);
        }
        ASSERT_TRUE(emu.wait_lcd_contains(1, "VISW: 03 ", 10s)); // input 3 now feeds output 17
        emu.stop();
        text = sb.read_file("session.rec");
    }
    std::string report;
    EXPECT_EQ(replay_against_fresh_program(text, &report), 0) << report;

    // The recording now expects another first character after the press of 3
    // (key frame 7): until the next key, every text frame the program sent.
    std::istringstream in(text);
    std::string edited, line;
    int keys = 0;
    while (std::getline(in, line)) {
        RecordLine r;
        std::string err;
        if (parse_record_line(line, r, err)) {
            keys += r.dir == Dir::panel && r.bytes.size() == 10 && r.bytes[4] == 0x07;
            if (keys == 7 && r.dir == Dir::program && r.bytes.size() > 8 && r.bytes[4] == 0x04) {
                r.bytes[7] = '#';
                line = format_record_line(r.t, r.dir, r.bytes.data(), r.bytes.size());
            }
        }
        edited += line + "\n";
    }
    ASSERT_NE(edited, text);
    EXPECT_EQ(replay_against_fresh_program(edited, &report), 1) << report;
    EXPECT_NE(report.find("differs after key press 3 (key frame 7 of 10"), std::string::npos)
        << report;
    EXPECT_NE(report.find("recording |#"), std::string::npos) << report;
}

} // namespace
