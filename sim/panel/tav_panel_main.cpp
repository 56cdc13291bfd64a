// tav_panel_emu: the emulated front panel for people and shell scripts.
//
//   tav_panel_emu --root DIR | --device PATH [--silent] [--firmware MAIN.MINOR.BUILD]
//                 [--log FILE] [--hold-ms N] [--baud N] [--record FILE]
//                 [--serve | --replay FILE [--speed N] [--expect]]
//
// On a terminal it shows the panel and maps the PC keyboard to the keys.
// Otherwise it reads commands, one a line, from standard input (see usage()).
// --device: the panel on an existing terminal or unix socket (a VM's UART).
// --serve: no interaction at all; serve the program until SIGINT or SIGTERM.
// --baud: the line's rate both ways (default 19200, as the panel's line; 0:
// bytes move at once).
// --record: every byte both ways into FILE (format in tav_panel_decode.h).
// --replay: the key frames of a recording played against the program.
// SIGUSR1 (any mode), the key p (terminal) or drop-port / restore-port
// (script): the line vanishes and comes back.
#include <fcntl.h>
#include <getopt.h>
#include <poll.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>

#include "tav_panel_emu.h"
#include "tav_panel_replay.h"

using namespace tavpanel;
using std::chrono::milliseconds;

namespace {

int g_sig_pipe[2] = {-1, -1};
int g_usr_pipe[2] = {-1, -1}; // SIGUSR1: drop the line or bring it back
termios g_saved_tty{};
bool g_tty_raw = false;

void on_signal(int sig) {
    const char b = static_cast<char>(sig);
    [[maybe_unused]] ssize_t r = write(g_sig_pipe[1], &b, 1);
}

void on_usr1(int) {
    const char b = 'u';
    [[maybe_unused]] ssize_t r = write(g_usr_pipe[1], &b, 1);
}

// Drops the line when it is up, brings it back when it is down.
const char* toggle_port(PanelEmulator& emu) {
    if (emu.port_dropped()) {
        return emu.restore_port() ? "port back" : "port could not come back";
    }
    return emu.drop_port() ? "port dropped" : "port not dropped";
}

void restore_tty() {
    if (g_tty_raw) {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &g_saved_tty);
        // Show the cursor again, reset colours, leave the alternate screen.
        fputs("\033[0m\033[?25h\033[?1049l", stdout);
        fflush(stdout);
        g_tty_raw = false;
    }
}

void usage() {
    fputs("usage: tav_panel_emu --root DIR | --device PATH [--silent] [--firmware MAIN.MINOR.BUILD]\n"
          "                     [--log FILE] [--hold-ms N] [--baud N] [--record FILE]\n"
          "                     [--serve | --replay FILE [--speed N] [--expect]]\n"
          "  --device PATH         the panel on an existing terminal device or unix socket\n"
          "                        (e.g. a virtual machine's UART) instead of a pty of its own\n"
          "  --baud N              bytes move at N baud, 10 bits a byte, both ways (default\n"
          "                        19200, the panel's line; 0: at once)\n"
          "  --record FILE         every byte both ways, with times, into FILE\n"
          "  --replay FILE         play the key frames of a recording with their spacing and\n"
          "                        answer the handshake as the recording did; --speed N: N times\n"
          "                        as fast; --expect: stop at the first screen that differs from\n"
          "                        the recording (exit status 1)\n"
          "Script commands (standard input not a terminal), one a line:\n"
          "  press KEY             KEY: 0-9, LEFT, RIGHT, BREAK, DEFAULT, TAKE, MENU, LOCK\n"
          "  lock-toggle           LOCK twice without a release, then the release\n"
          "  raw HEX...            bytes as they are, e.g. raw EB 5F 21 00\n"
          "  silent on|off         stop or resume answering the handshake\n"
          "  drop-port [break]     the line vanishes: pty closed, link removed (break: left\n"
          "                        pointing nowhere); SIGUSR1 drops and restores in any mode\n"
          "  restore-port          a new pty at the same link, the panel freshly powered\n"
          "  wait-lcd LINE TEXT MS wait until LCD line LINE contains TEXT\n"
          "  wait-leds HEX MS      wait until the steady LED mask is HEX\n"
          "  sleep MS\n"
          "  dump                  print the panel\n"
          "  quit\n",
          stderr);
}

int parse_key(const std::string& s) {
    if (s.size() == 1 && s[0] >= '0' && s[0] <= '9') {
        return s[0] - '0';
    }
    for (int k = KEY_LEFT; k < KEY_COUNT; ++k) {
        if (strcasecmp(s.c_str(), key_name(k)) == 0) {
            return k;
        }
    }
    return -1;
}

// --- interactive view -------------------------------------------------------

std::string led_cell(const PanelState& s, int led, const char* label) {
    const bool blink = (s.led_blink >> led) & 1u;
    const bool on = (s.led_steady >> led) & 1u;
    char buf[96];
    if (blink) {
        snprintf(buf, sizeof buf, "\033[5;1;33m{%s}\033[0m", label);
    } else if (on) {
        snprintf(buf, sizeof buf, "\033[1;32m[%s]\033[0m", label);
    } else {
        snprintf(buf, sizeof buf, "\033[2m %s \033[0m", label);
    }
    return buf;
}

void draw(const PanelEmulator& emu, const std::string& info, const std::string& status) {
    const PanelState s = emu.state();
    std::string o = "\033[H\033[2J";
    o += "tav_panel_emu  " + info + "  port " +
         (emu.peer_opens() > 0 && !emu.peer_closed() ? "open" : "closed") + "\r\n\r\n";
    if (emu.port_dropped()) {
        o += "  \033[1;31mline dropped (p brings it back)\033[0m\r\n";
    }
    o += "  +----------------------------------------+\r\n";
    for (int line = 0; line < LCD_LINES; ++line) {
        o += "  |";
        for (int col = 0; col < LCD_COLS; ++col) {
            const unsigned char c = static_cast<unsigned char>(s.lcd[line][col]);
            const char shown = (c >= 0x20 && c < 0x7F) ? static_cast<char>(c) : '?';
            if (line == s.cursor_line && col == s.cursor_col) {
                o += "\033[7m";
                o += shown;
                o += "\033[0m";
            } else {
                o += shown;
            }
        }
        o += "|\r\n";
    }
    o += "  +----------------------------------------+\r\n";
    char buf[160];
    snprintf(buf, sizeof buf, "  cursor %d,%d   blink cycle %d   key enable %08X   LCD LED ",
             s.cursor_line, s.cursor_col, s.blink_cycle, s.key_enable);
    o += buf + led_cell(s, LED_LCD, "*") + "\r\n\r\n  ";
    for (int k = 1; k <= 9; ++k) {
        o += led_cell(s, k, key_name(k)) + " ";
    }
    o += led_cell(s, 0, "0") + "\r\n  ";
    for (int k = KEY_LEFT; k < KEY_COUNT; ++k) {
        o += led_cell(s, k, key_name(k)) + " ";
    }
    o += "\r\n\r\n  keys: 0-9 digits, Left/Right arrows LEFT/RIGHT, t TAKE, m MENU, l LOCK, b "
         "BREAK,\r\n"
         "        d DEFAULT, L lock toggle (LOCK twice), p drop or restore the line,\r\n"
         "        q or Ctrl-C quit\r\n"
         "  [on] {blinking} off\r\n\r\n";
    snprintf(buf, sizeof buf, "  handshakes %zu  error replies %zu  unknown %zu  malformed %zu\r\n",
             emu.handshakes(), emu.error_replies(), emu.unknown_frames(), emu.malformed_frames());
    o += buf;
    const std::string problem = emu.last_problem();
    if (!problem.empty()) {
        o += "  \033[1;31mprogram sent: " + problem + "\033[0m\r\n";
    }
    o += "  " + status + "\033[K\r\n";
    fwrite(o.data(), 1, o.size(), stdout);
    fflush(stdout);
}

int run_interactive(PanelEmulator& emu, const std::string& info) {
    if (tcgetattr(STDIN_FILENO, &g_saved_tty) != 0) {
        perror("tcgetattr");
        return 1;
    }
    termios raw = g_saved_tty;
    cfmakeraw(&raw);
    g_tty_raw = true;
    atexit(restore_tty);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &raw);
    fputs("\033[?1049h\033[?25l", stdout);

    std::string status = "ready";
    uint64_t shown = ~uint64_t{0};
    bool dirty = true;
    std::string esc; // pending escape sequence from the keyboard
    for (;;) {
        const uint64_t gen = emu.generation();
        if (dirty || gen != shown) {
            draw(emu, info, status);
            shown = gen;
            dirty = false;
        }
        pollfd fds[3] = {
            {STDIN_FILENO, POLLIN, 0}, {emu.notify_fd(), POLLIN, 0}, {g_sig_pipe[0], POLLIN, 0}};
        if (poll(fds, 3, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            break;
        }
        if (fds[2].revents) {
            break;
        }
        if (fds[1].revents) {
            emu.drain_notify();
        }
        if (fds[0].revents & (POLLHUP | POLLERR)) {
            break;
        }
        if ((fds[0].revents & POLLIN) == 0) {
            continue;
        }
        char in[64];
        const ssize_t n = read(STDIN_FILENO, in, sizeof in);
        if (n <= 0) {
            break;
        }
        bool quit = false;
        for (ssize_t i = 0; i < n && !quit; ++i) {
            const char c = in[i];
            int key = -1;
            if (!esc.empty() || c == '\033') {
                // Escape sequences: ESC [ or ESC O, parameters, one final byte.
                esc += c;
                if (esc.size() == 1 || (esc.size() == 2 && (c == '[' || c == 'O'))) {
                    continue;
                }
                if (esc.size() > 2 && (c < 0x40 || c > 0x7E) && esc.size() < 16) {
                    continue;
                }
                if (esc == "\033[D" || esc == "\033OD") {
                    key = KEY_LEFT;
                } else if (esc == "\033[C" || esc == "\033OC") {
                    key = KEY_RIGHT;
                }
                esc.clear();
                if (key < 0) {
                    continue;
                }
            } else if (c >= '0' && c <= '9') {
                key = c - '0';
            } else {
                switch (c) {
                case 't':
                    key = KEY_TAKE;
                    break;
                case 'm':
                    key = KEY_MENU;
                    break;
                case 'l':
                    key = KEY_LOCK;
                    break;
                case 'b':
                    key = KEY_BREAK;
                    break;
                case 'd':
                    key = KEY_DEFAULT;
                    break;
                case 'p':
                    status = toggle_port(emu);
                    dirty = true;
                    continue;
                case 'L':
                    emu.lock_toggle(false);
                    status = "sent LOCK, LOCK, release";
                    dirty = true;
                    continue;
                case 'q':
                case 3:
                    quit = true;
                    continue;
                default:
                    continue;
                }
            }
            emu.press_async(key);
            status = std::string("pressed ") + key_name(key);
            dirty = true;
        }
        if (quit) {
            break;
        }
    }
    restore_tty();
    return 0;
}

// --- scripted use -----------------------------------------------------------

void dump(const PanelEmulator& emu) {
    const PanelState s = emu.state();
    printf("lcd0 |%s|\nlcd1 |%s|\ncursor %d %d\nleds %08X\nblink %08X\nenable %08X\ncycle %d\n"
           "handshakes %zu\nerrors %zu\nunknown %zu\nmalformed %zu\nport %s\n",
           s.lcd[0].c_str(), s.lcd[1].c_str(), s.cursor_line, s.cursor_col, s.led_steady,
           s.led_blink, s.key_enable, s.blink_cycle, emu.handshakes(), emu.error_replies(),
           emu.unknown_frames(), emu.malformed_frames(),
           emu.port_dropped()                           ? "dropped"
           : emu.peer_opens() > 0 && !emu.peer_closed() ? "open"
                                                        : "closed");
    fflush(stdout);
}

// Returns false when a wait timed out or a line was not understood.
bool run_line(PanelEmulator& emu, const std::string& line, bool& quit) {
    std::istringstream in(line);
    std::string cmd;
    if (!(in >> cmd) || cmd[0] == '#') {
        return true;
    }
    auto answer = [](bool ok, const char* what) {
        printf("%s %s\n", ok ? "ok" : "fail", what);
        fflush(stdout);
        return ok;
    };
    if (cmd == "press") {
        std::string k;
        in >> k;
        const int key = parse_key(k);
        if (key < 0) {
            return answer(false, "unknown key");
        }
        emu.press(key);
        return true;
    }
    if (cmd == "lock-toggle") {
        emu.lock_toggle(true);
        return true;
    }
    if (cmd == "raw") {
        std::vector<uint8_t> bytes;
        for (std::string h; in >> h;) {
            bytes.push_back(static_cast<uint8_t>(strtoul(h.c_str(), nullptr, 16)));
        }
        emu.send_raw(bytes);
        return true;
    }
    if (cmd == "silent") {
        std::string v;
        in >> v;
        emu.set_answer_handshake(v == "off");
        return true;
    }
    if (cmd == "drop-port") {
        std::string how;
        in >> how;
        return answer(emu.drop_port(how == "break"), "drop-port");
    }
    if (cmd == "restore-port") {
        return answer(emu.restore_port(), "restore-port");
    }
    if (cmd == "sleep") {
        long ms = 0;
        in >> ms;
        usleep(static_cast<useconds_t>(ms > 0 ? ms : 0) * 1000);
        return true;
    }
    if (cmd == "wait-lcd") {
        // wait-lcd LINE TEXT MS: the text is everything between the line and the time-out.
        int ln = -1;
        in >> ln;
        std::string rest;
        std::getline(in, rest);
        const size_t sp = rest.find_last_of(' ');
        if (sp == std::string::npos) {
            return answer(false, "usage: wait-lcd LINE TEXT MS");
        }
        const long ms = strtol(rest.c_str() + sp + 1, nullptr, 10);
        const std::string text = rest.substr(1, sp > 0 ? sp - 1 : 0);
        return answer(emu.wait_lcd_contains(ln, text, milliseconds(ms)), "wait-lcd");
    }
    if (cmd == "wait-leds") {
        std::string h;
        long ms = 0;
        in >> h >> ms;
        return answer(
            emu.wait_leds(static_cast<uint32_t>(strtoul(h.c_str(), nullptr, 16)), milliseconds(ms)),
            "wait-leds");
    }
    if (cmd == "dump") {
        dump(emu);
        return true;
    }
    if (cmd == "quit") {
        quit = true;
        return true;
    }
    return answer(false, "unknown command");
}

int run_script(PanelEmulator& emu) {
    bool all_ok = true;
    bool quit = false;
    std::string line;
    while (!quit && std::getline(std::cin, line)) {
        all_ok = run_line(emu, line, quit) && all_ok;
        char b;
        if (read(g_sig_pipe[0], &b, 1) > 0) {
            break;
        }
    }
    return all_ok ? 0 : 1;
}

int run_serve() {
    pollfd p{g_sig_pipe[0], POLLIN, 0};
    while (poll(&p, 1, -1) < 0 && errno == EINTR) {
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    EmulatorOptions o;
    o.frame_limit = 20000;
    bool serve = false;
    std::string replay_path;
    ReplayOptions ro;
    static const option kOptions[] = {{"root", required_argument, nullptr, 'r'},
                                      {"device", required_argument, nullptr, 'd'},
                                      {"silent", no_argument, nullptr, 's'},
                                      {"firmware", required_argument, nullptr, 'f'},
                                      {"log", required_argument, nullptr, 'l'},
                                      {"hold-ms", required_argument, nullptr, 'H'},
                                      {"baud", required_argument, nullptr, 'b'},
                                      {"serve", no_argument, nullptr, 'S'},
                                      {"record", required_argument, nullptr, 'R'},
                                      {"replay", required_argument, nullptr, 'p'},
                                      {"speed", required_argument, nullptr, 'x'},
                                      {"expect", no_argument, nullptr, 'e'},
                                      {}};
    unsigned mj = 0, mn = 0, bd = 0;
    bool bad = false;
    for (int opt; !bad && (opt = getopt_long(argc, argv, "", kOptions, nullptr)) != -1;) {
        switch (opt) {
        case 'r':
            o.root = optarg;
            break;
        case 'd':
            o.device = optarg;
            break;
        case 's':
            o.answer_handshake = false;
            break;
        case 'f':
            bad = sscanf(optarg, "%u.%u.%u", &mj, &mn, &bd) != 3 || mj > 255 || mn > 255 ||
                  bd > 65535;
            o.fw_main = static_cast<uint8_t>(mj);
            o.fw_minor = static_cast<uint8_t>(mn);
            o.fw_build_hi = static_cast<uint8_t>(bd >> 8);
            o.fw_build_lo = static_cast<uint8_t>(bd & 0xFF);
            break;
        case 'l':
            o.log_path = optarg;
            break;
        case 'H':
            o.hold_ms = atoi(optarg);
            break;
        case 'b':
            o.baud = atoi(optarg);
            bad = o.baud < 0 || o.baud > 4000000;
            break;
        case 'S':
            serve = true;
            break;
        case 'R':
            o.record_path = optarg;
            break;
        case 'p':
            replay_path = optarg;
            break;
        case 'x':
            ro.speed = atof(optarg);
            bad = !(ro.speed > 0 && ro.speed <= 1000);
            break;
        case 'e':
            ro.expect = true;
            break;
        default:
            bad = true;
        }
    }
    if (bad || optind < argc) {
        usage();
        return 2;
    }
    if ((o.root.empty() && o.device.empty()) || (serve && !replay_path.empty())) {
        usage();
        return 2;
    }
    ReplayPlan plan;
    if (!replay_path.empty()) {
        std::vector<RecordLine> lines;
        std::string err;
        if (!load_recording(replay_path, lines, err)) {
            fprintf(stderr, "tav_panel_emu: %s\n", err.c_str());
            return 2;
        }
        plan = plan_replay(lines);
        if (plan.steps.empty()) {
            fprintf(stderr, "tav_panel_emu: %s holds no key frames\n", replay_path.c_str());
            return 2;
        }
        o.handshake_answers = plan.handshake_answers;
    }
    if (pipe(g_sig_pipe) != 0) {
        perror("pipe");
        return 1;
    }
    fcntl(g_sig_pipe[0], F_SETFL, O_NONBLOCK);
    struct sigaction sa {};
    sa.sa_handler = on_signal;
    sigemptyset(&sa.sa_mask);
    for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        sigaction(sig, &sa, nullptr);
    }
    signal(SIGPIPE, SIG_IGN);
    if (pipe(g_usr_pipe) != 0) {
        perror("pipe");
        return 1;
    }
    sa.sa_handler = on_usr1;
    sigaction(SIGUSR1, &sa, nullptr);

    char info[160];
    snprintf(info, sizeof info, "%s  fw %u.%u.%u  %s  %d baud", o.root.c_str(), o.fw_main,
             o.fw_minor, (o.fw_build_hi << 8) | o.fw_build_lo,
             o.answer_handshake ? "answering" : "silent", o.baud);
    PanelEmulator emu(o);
    if (!emu.start()) {
        fprintf(stderr, "tav_panel_emu: cannot create the panel below %s: %s\n", o.root.c_str(),
                strerror(errno));
        return 1;
    }
    // SIGUSR1 toggles the line from its own thread, whatever the mode.
    std::thread usr([&emu] {
        char b = 0;
        while (read(g_usr_pipe[0], &b, 1) == 1 && b == 'u') {
            fprintf(stderr, "tav_panel_emu: %s\n", toggle_port(emu));
        }
    });
    int rc = 0;
    if (!replay_path.empty()) {
        ro.stop_fd = g_sig_pipe[0];
        rc = replay(emu, plan, ro, stdout);
    } else if (serve) {
        rc = run_serve();
    } else if (isatty(STDIN_FILENO) && isatty(STDOUT_FILENO)) {
        rc = run_interactive(emu, info);
    } else {
        rc = run_script(emu);
    }
    const char quit = 'q';
    [[maybe_unused]] ssize_t r = write(g_usr_pipe[1], &quit, 1);
    usr.join();
    emu.stop();
    return rc;
}
