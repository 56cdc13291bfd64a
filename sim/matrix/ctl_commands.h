// The control commands of the simulated core as tav_matrix_ctl --help lists
// them. The core's command table is checked against this list when it is
// compiled, so a command cannot be added, renamed or dropped on one side only.
#pragma once

#include <string>
#include <string_view>

namespace tavsim {

struct CtlCommandHelp {
    std::string_view synopsis; // the keyword, then its arguments
    std::string_view text;     // one or more lines
    bool client_side = false;  // carried out by tav_matrix_ctl itself
};

inline constexpr CtlCommandHelp kCtlCommandHelp[] = {
    {"state", "print the whole state, one record per line:\n"
              "  device ports=N\n"
              "  card SLOT kind=in|out ports=A-B media=av|video|audio state=S type=N ver=A.B.C\n"
              "  port N slot=S video=D audio=D active_video=D active_audio=D\n"
              "    (D: in, out, mix, none, unknown)\n"
              "  route OUT video=IN audio=IN\n"
              "  edid PORT kind=in|load|default name=NAME crc=XXXXXXXX (port 0: default)\n"
              "  update slot=N pct=P\n"
              "  fail CALL rc=N\n"
              "  client pid=P mask=0xMMMM   (a registered signal stream)"},
    {"log [-r] [PREFIX...]", "library calls received, in order, e.g. set_video_switch(3,12);\n"
                             "-r adds \" = RESULT\"; PREFIXes keep matching lines only"},
    {"clear-log", "forget the calls logged so far"},
    {"insert SLOT [--delay MS]",
     "put the slot's card back: online (slot signal 0x0080), then after\n"
     "MS (default: the core's --normal-delay-ms) normal (port signal\n"
     "0x0200/0x0400, then slot signal)"},
    {"insert SLOT in|out A-B [av|video|audio] [--delay MS]",
     "insert a new card into an empty slot"},
    {"pull SLOT", "card offline: port signal, then slot signal (parameter = slot)"},
    {"cardstate SLOT STATE", "set offline|online|normal|power_down|uart_error|iap, with signals"},
    {"update start SLOT",
     "update begins: slot id SLOT (1..20), 0 %, signal 0x0800 with 0x8000|SLOT"},
    {"update set PCT", "progress the library reports, 0..255 (no signal)"},
    {"update finish", "100 %, then the end signal 0x0800 (parameter = slot)"},
    {"update end", "the end signal at the current percentage"},
    {"update fail", "0 %, then the end signal"},
    {"update run SLOT [STEP_MS]", "start, +5 % every STEP_MS (default 300), end signal at 100 %"},
    {"reboot OPTION", "reboot signal 0x1000 with OPTION (1 reset, 2 factory, 3 update, any)"},
    {"lock 0|1 [PARAM]",
     "write DIR/nandflash/config/.tav_lock_fp and raise 0x2000 with\n"
     "PARAM (default: this process's id), as another application does",
     true},
    {"raise BITS [PARAM] [--src S] [--thread T] [--count N]", "raise any signal record N times"},
    {"burst N [SEED]", "N mixed signals that change nothing (0x20 0x40 0x80 0x200 0x400,\n"
                       "0x2000 with high bits set)"},
    {"route video|audio OUT IN", "change a route behind the panel's back (+ connection signal)"},
    {"fail CALL [RESULT]", "make a library call (open, get_port_edid, ...) answer RESULT\n"
                           "(default -1); fail CALL off: answer normally again"},
    {"edid PORT in|load|default", "print the EDID as hex"},
};

constexpr std::string_view ctl_keyword(std::string_view synopsis) {
    return synopsis.substr(0, synopsis.find(' '));
}

// The command list of --help: synopses in a column of 28, their text beside
// and below them.
inline std::string ctl_command_help() {
    constexpr size_t kColumn = 28;
    std::string out;
    for (const auto& c : kCtlCommandHelp) {
        out += "  ";
        out += c.synopsis;
        out.append(c.synopsis.size() < kColumn ? kColumn - c.synopsis.size() + 1 : 3, ' ');
        for (std::string_view t = c.text; !t.empty();) {
            const size_t nl = t.find('\n');
            out += t.substr(0, nl);
            out += '\n';
            t = nl == t.npos ? std::string_view{} : t.substr(nl + 1);
            if (!t.empty())
                out.append(kColumn + 3, ' ');
        }
    }
    return out;
}

} // namespace tavsim
