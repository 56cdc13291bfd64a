#include "e2e_harness.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

extern char** environ;

namespace tave2e {

namespace fs = std::filesystem;

namespace {

// argv/envp prepared before fork: the child of a threaded process may only
// make async-signal-safe calls.
struct ExecArgs {
    std::vector<std::string> store;
    std::vector<char*> argv, envp;
    ExecArgs(const std::vector<std::string>& args, const std::vector<std::string>& env)
        : store(args) {
        const auto key = [](const std::string& kv) { return kv.substr(0, kv.find('=')); };
        for (char** p = environ; *p != nullptr; ++p) {
            if (std::none_of(env.begin(), env.end(),
                             [&](const auto& o) { return key(o) == key(*p); }))
                store.push_back(*p);
        }
        store.insert(store.end(), env.begin(), env.end());
        for (size_t i = 0; i < store.size(); ++i) {
            (i < args.size() ? argv : envp).push_back(store[i].data());
        }
        argv.push_back(nullptr);
        envp.push_back(nullptr);
    }
};

// Forks and execs in a new process group that dies with this process.
// stdin is in_fd (-1: /dev/null); stdout goes to out_fd, stderr to err_fd
// (-1: inherited).
pid_t fork_exec(const ExecArgs& a, int in_fd, int out_fd, int err_fd) {
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) {
            _exit(127);
        }
        // Signals ignored or blocked here must not be inherited.
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        signal(SIGINT, SIG_DFL);
        signal(SIGTERM, SIG_DFL);
        const int in = in_fd >= 0 ? in_fd : open("/dev/null", O_RDONLY);
        if (in >= 0) {
            dup2(in, 0);
        }
        if (out_fd >= 0) {
            dup2(out_fd, 1);
        }
        if (err_fd >= 0) {
            dup2(err_fd, 2);
        }
        execve(a.argv[0], a.argv.data(), a.envp.data());
        _exit(127);
    }
    if (pid > 0) {
        setpgid(pid, pid);
    }
    return pid;
}

int decode_status(int st) {
    return WIFEXITED(st) ? WEXITSTATUS(st) : WIFSIGNALED(st) ? -WTERMSIG(st) : -1;
}

// Waits for a child with a time-out: short sleeps between non-blocking waits.
std::optional<int> wait_child(pid_t pid, ms timeout) {
    const auto end = std::chrono::steady_clock::now() + timeout;
    for (int st = 0;; std::this_thread::sleep_for(10ms)) {
        const pid_t r = waitpid(pid, &st, WNOHANG);
        if (r == pid) {
            return decode_status(st);
        }
        if (r < 0 || std::chrono::steady_clock::now() >= end) {
            return std::nullopt;
        }
    }
}

} // namespace

CmdResult run_command(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                      ms timeout) {
    CmdResult res;
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        return res;
    }
    const ExecArgs a(argv, env);
    const pid_t pid = fork_exec(a, -1, fds[1], -1);
    close(fds[1]);
    if (pid < 0) {
        close(fds[0]);
        return res;
    }
    const auto end = std::chrono::steady_clock::now() + timeout;
    char buf[4096];
    for (;;) {
        const auto left =
            std::chrono::duration_cast<ms>(end - std::chrono::steady_clock::now()).count();
        pollfd p{fds[0], POLLIN, 0};
        if (left <= 0 || poll(&p, 1, static_cast<int>(left)) <= 0) {
            break;
        }
        const ssize_t n = read(fds[0], buf, sizeof buf);
        if (n <= 0) {
            break;
        }
        res.out.append(buf, static_cast<size_t>(n));
    }
    close(fds[0]);
    const auto left = std::chrono::duration_cast<ms>(end - std::chrono::steady_clock::now());
    auto st = wait_child(pid, std::max(left, ms(0)));
    if (!st) {
        kill(-pid, SIGKILL);
        st = wait_child(pid, 5s);
    }
    res.status = st.value_or(-1);
    return res;
}

Sandbox::Sandbox(SandboxOptions opts) : opts_(std::move(opts)) {
    char tmpl[] = "/tmp/tav_e2e_XXXXXX";
    const char* dir = mkdtemp(tmpl);
    if (dir == nullptr) {
        ADD_FAILURE() << "mkdtemp: " << strerror(errno);
        return;
    }
    root_ = dir;
    for (const char* sub : {"dev", "nandflash/config", "var/run", "tmp"}) {
        fs::create_directories(fs::path(root_) / sub);
    }
    if (opts_.start_panel) {
        tavpanel::EmulatorOptions eo;
        eo.root = root_;
        eo.answer_handshake = !opts_.silent_panel;
        eo.baud = opts_.baud;
        eo.log_path = root_ + "/panel.log";
        panel_ = std::make_unique<tavpanel::PanelEmulator>(eo);
        if (!panel_->start()) {
            ADD_FAILURE() << "panel emulator did not start below " << root_;
        }
    }
}

Sandbox::~Sandbox() {
    kill_group(program_);
    kill_group(core_);
    if (panel_) {
        panel_->stop();
    }
    if (root_.empty()) {
        return;
    }
    if (::testing::Test::HasFailure()) {
        std::fprintf(stderr, "[ sandbox  ] kept %s\n", root_.c_str());
        return;
    }
    std::error_code ec;
    fs::remove_all(root_, ec);
}

void Sandbox::kill_group(pid_t& pid) {
    if (pid <= 0) {
        return;
    }
    kill(-pid, SIGKILL);
    kill(pid, SIGKILL);
    wait_child(pid, 5s);
    pid = -1;
}

void Sandbox::write_file(const std::string& rel, const std::string& content) const {
    const fs::path p = fs::path(root_) / rel;
    fs::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << content;
}

std::string Sandbox::read_file(const std::string& rel) const {
    std::ifstream in(fs::path(root_) / rel, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

pid_t Sandbox::spawn(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                     const std::string& out_file, int in_fd) const {
    const int fd = open(out_file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    const ExecArgs a(argv, env);
    const pid_t pid = fork_exec(a, in_fd, fd, fd);
    if (fd >= 0) {
        close(fd);
    }
    return pid;
}

bool Sandbox::start_core(ms timeout) {
    const std::vector<std::string> argv{TAV_BIN_DIR "/tav_matrix_core", "--root", root_};
    const fs::path sock = fs::path(root_) / "var/run/tav_matrix.sock";
    fs::remove(sock);
    core_ = spawn(argv, {"TAV_ROOT=" + root_}, root_ + "/core.out");
    if (core_ < 0) {
        return false;
    }
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < end) {
        int st = 0;
        if (waitpid(core_, &st, WNOHANG) == core_) {
            core_ = -1;
            return false; // ended before serving
        }
        if (fs::is_socket(sock)) {
            return true;
        }
        std::this_thread::sleep_for(20ms);
    }
    return false;
}

void Sandbox::stop_core(int sig) {
    if (core_ > 0) {
        kill(core_, sig);
        if (!wait_child(core_, 3s)) {
            kill_group(core_);
        }
        core_ = -1;
    }
}

std::vector<std::string> program_argv() {
    std::vector<std::string> argv;
    std::istringstream launcher(getenv("TAV_E2E_LAUNCHER") ? getenv("TAV_E2E_LAUNCHER") : "");
    for (std::string w; launcher >> w;) {
        argv.push_back(w);
    }
    const char* prog = getenv("TAV_E2E_KEYBOARD");
    argv.push_back(prog && *prog ? prog : TAV_BIN_DIR "/tav_keyboard");
    if (argv.size() > 1 && argv[0].find('/') == std::string::npos) { // a launcher from PATH
        const char* path = getenv("PATH");
        std::istringstream dirs(path ? path : "/usr/bin:/bin");
        for (std::string d; std::getline(dirs, d, ':');) {
            if (access((d + "/" + argv[0]).c_str(), X_OK) == 0) {
                argv[0] = d + "/" + argv[0];
                break;
            }
        }
    }
    return argv;
}

std::vector<std::string> program_env() {
    const char* path = getenv("PATH");
    std::vector<std::string> env{std::string("PATH=") + TAV_TOOLS_DIR + ":" +
                                 (path ? path : "/usr/bin:/bin")};
    if (const char* lib = getenv("TAV_E2E_LIBDIR"); lib && *lib) {
        const char* old = getenv("LD_LIBRARY_PATH");
        env.push_back(std::string("LD_LIBRARY_PATH=") + lib + (old ? std::string(":") + old : ""));
    }
    return env;
}

bool Sandbox::start_program(const std::vector<std::string>& extra_env, int stdin_fd) {
    std::vector<std::string> env = program_env();
    env.insert(env.end(), {"TAV_ROOT=" + root_, "TAV_SYSLOG_FILE=" + root_ + "/syslog.txt"});
    env.insert(env.end(), extra_env.begin(), extra_env.end());
    program_ = spawn(program_argv(), env, root_ + "/program.out", stdin_fd);
    return program_ > 0;
}

bool Sandbox::signal_program(int sig) const {
    return program_ > 0 && kill(program_, sig) == 0;
}

std::optional<int> Sandbox::wait_program_exit(ms timeout) {
    if (program_ <= 0) {
        return std::nullopt;
    }
    auto st = wait_child(program_, timeout);
    if (st) {
        program_ = -1;
    }
    return st;
}

bool Sandbox::program_running() {
    return program_ > 0 && !wait_program_exit(ms(0)).has_value();
}

CmdResult Sandbox::ctl(const std::vector<std::string>& args, ms timeout) const {
    std::vector<std::string> argv{TAV_BIN_DIR "/tav_matrix_ctl", "--root", root_};
    argv.insert(argv.end(), args.begin(), args.end());
    return run_command(argv, {"TAV_ROOT=" + root_}, timeout);
}

std::vector<std::string> Sandbox::syslog_lines() const {
    std::vector<std::string> lines;
    std::ifstream in(root_ + "/syslog.txt");
    for (std::string l; std::getline(in, l);) {
        lines.push_back(l);
    }
    return lines;
}

bool Sandbox::wait_syslog(const std::string& text, ms timeout, std::string* line) const {
    const auto end = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        for (const auto& l : syslog_lines()) {
            if (l.find(text) != std::string::npos) {
                if (line != nullptr) {
                    *line = l;
                }
                return true;
            }
        }
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(50ms);
    }
}

bool Sandbox::wait_home_page(ms timeout) const {
    if (!panel_) {
        return false;
    }
    // LEFT, RIGHT and MENU lit (LED 31 with the LCD), nothing else, and the
    // video switch status lines on the LCD (both: the paced line brings the
    // second a few milliseconds after the first).
    constexpr uint32_t scene =
        (1u << tavpanel::KEY_LEFT) | (1u << tavpanel::KEY_RIGHT) | (1u << tavpanel::KEY_MENU);
    return panel_->wait_for(
        [&](const tavpanel::PanelState& s) {
            const bool leds = (s.led_steady & ~(1u << tavpanel::LED_LCD)) == scene;
            return leds && s.lcd[0].rfind("VOSW: ", 0) == 0 && s.lcd[1].rfind("VISW: ", 0) == 0;
        },
        timeout);
}

} // namespace tave2e
