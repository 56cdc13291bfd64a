// End-to-end sandbox: a temporary TAV_ROOT, the panel emulator in-process,
// and optionally the simulated matrix core, the program and the control
// client as child processes. Everything started here is killed in the
// destructor, even when a test fails half-way (and dies with this process).
//
// The program under test is $TAV_E2E_KEYBOARD (default: this build's
// tav_keyboard), started behind the words of $TAV_E2E_LAUNCHER (e.g.
// "qemu-ppc -L /usr/powerpc-linux-gnu"), with $TAV_E2E_LIBDIR first on its
// LD_LIBRARY_PATH (e.g. a directory with another build's libtav_matrix.so).
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tav_panel_emu.h"

namespace tave2e {

using namespace std::chrono_literals;
using ms = std::chrono::milliseconds;

struct SandboxOptions {
    bool start_panel = true;   // no panel: no dev/ttyPSC3 at all
    bool silent_panel = false; // the panel never answers the handshake
    int baud = 19200;          // the panel line's pace (0: bytes move at once)
};

// The program's command line and extra environment as the TAV_E2E_*
// variables above make them.
std::vector<std::string> program_argv();
std::vector<std::string> program_env();

struct CmdResult {
    int status = -1; // exit status, or -signal when killed, -1 when it could not run
    std::string out; // standard output
};

class Sandbox {
  public:
    explicit Sandbox(SandboxOptions opts = {});
    ~Sandbox();
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    const std::string& root() const { return root_; }
    std::string path(const std::string& rel) const { return root_ + "/" + rel; }
    void write_file(const std::string& rel, const std::string& content) const;
    std::string read_file(const std::string& rel) const;
    tavpanel::PanelEmulator& panel() { return *panel_; }

    // The simulated core; waits until it serves (its socket exists), at most
    // `timeout`. False when it did not come up. A socket left by a core that
    // was killed is removed first, so only the new instance's counts.
    bool start_core(ms timeout = 10s);
    // Ends the core with `sig` (SIGKILL: as a crash, leaving its socket).
    void stop_core(int sig = SIGTERM);

    // The program under test, in its own process group, output in
    // <root>/program.out. Extra "NAME=VALUE" entries go into its environment;
    // `stdin_fd` (default /dev/null) is its standard input.
    bool start_program(const std::vector<std::string>& extra_env = {}, int stdin_fd = -1);
    pid_t program_pid() const { return program_; }
    bool signal_program(int sig) const;
    // Exit status (or -signal) once it ended within `timeout`.
    std::optional<int> wait_program_exit(ms timeout);
    bool program_running();

    // tav_matrix_ctl --root <root> args...; waits at most `timeout`.
    CmdResult ctl(const std::vector<std::string>& args, ms timeout = 10s) const;

    // The program's log lines ("PRIORITY\tmessage") so far.
    std::vector<std::string> syslog_lines() const;
    // Wait for a log line containing `text`; the line (if found) in *line.
    bool wait_syslog(const std::string& text, ms timeout, std::string* line = nullptr) const;
    // Wait until the program shows its home page: the video status page (or
    // its missing-card notice) with the status page's LED scene.
    bool wait_home_page(ms timeout = 30s) const;

  private:
    pid_t spawn(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                const std::string& out_file, int in_fd = -1) const;
    static void kill_group(pid_t& pid);

    SandboxOptions opts_;
    std::string root_;
    std::unique_ptr<tavpanel::PanelEmulator> panel_;
    pid_t core_ = -1;
    pid_t program_ = -1;
};

// Runs a command (argv) with `env` added, returning status and stdout.
CmdResult run_command(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                      ms timeout);

} // namespace tave2e
