// Control client of the simulated matrix core, for people and tests.
#include <fcntl.h>
#include <getopt.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ctl_commands.h"

namespace {

const char* kHelpHead =
    "usage: tav_matrix_ctl [--root DIR] COMMAND ARGS...   (DIR defaults to $TAV_ROOT)\n"
    "Drives the simulated matrix core serving DIR/var/run/tav_matrix.sock.\n"
    "\n";
const char* kHelpTail = "\n"
                        "Exit status 0 on success; 1 with a message on stderr otherwise.\n";

int help(FILE* to, int rc) {
    std::fputs(kHelpHead, to);
    std::fputs(tavsim::ctl_command_help().c_str(), to);
    std::fputs(kHelpTail, to);
    return rc;
}

int connect_core(const std::string& root) {
    const std::string path = root + "/var/run/tav_matrix.sock";
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    if (path.size() >= sizeof a.sun_path)
        return -1;
    std::strcpy(a.sun_path, path.c_str());
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
        close(fd);
        fd = -1;
    }
    return fd;
}

bool write_lock_file(const std::string& root, const std::string& v) {
    const std::string dir = root + "/nandflash/config";
    for (size_t i = 1; i <= dir.size(); ++i)
        if (i == dir.size() || dir[i] == '/')
            mkdir(dir.substr(0, i).c_str(), 0755);
    int fd = open((dir + "/.tav_lock_fp").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    const bool ok = pwrite(fd, v.c_str(), 1, 0) == 1;
    close(fd);
    return ok;
}

} // namespace

int main(int argc, char** argv) {
    std::string root = std::getenv("TAV_ROOT") ? std::getenv("TAV_ROOT") : "";
    // Options end at the command: its own arguments may start with "--".
    static const option kOptions[] = {
        {"root", required_argument, nullptr, 'r'}, {"help", no_argument, nullptr, 'h'}, {}};
    int opt;
    while ((opt = getopt_long(argc, argv, "+h", kOptions, nullptr)) != -1) {
        if (opt == 'r')
            root = optarg;
        else if (opt == 'h')
            return help(stdout, 0);
        else
            return help(stderr, 1);
    }
    std::vector<std::string> args(argv + optind, argv + argc);
    if (args.empty())
        return help(stderr, 1);
    if (root.empty())
        root = "/";
    if (args[0] == "lock") {
        if (args.size() < 2 || (args[1] != "0" && args[1] != "1")) {
            std::fprintf(stderr, "tav_matrix_ctl: usage: lock 0|1 [PARAM]\n");
            return 1;
        }
        if (!write_lock_file(root, args[1])) {
            std::fprintf(stderr, "tav_matrix_ctl: cannot write the lock file below %s\n",
                         root.c_str());
            return 1;
        }
        const std::string pid = std::to_string(getpid());
        const std::string param = args.size() > 2 ? args[2] : std::to_string(getpid() & 0xFFFF);
        args = {"raise", "0x2000", param, "--src", "2", "--thread", pid};
    }
    std::string line = "ctl";
    for (const auto& a : args)
        line += " " + a;
    line += "\n";
    const int fd = connect_core(root);
    if (fd < 0) {
        std::fprintf(stderr, "tav_matrix_ctl: no core answers at %s/var/run/tav_matrix.sock\n",
                     root.c_str());
        return 1;
    }
    if (send(fd, line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size())) {
        std::fprintf(stderr, "tav_matrix_ctl: cannot send to the core\n");
        return 1;
    }
    std::string in;
    for (;;) {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 10000) <= 0) {
            std::fprintf(stderr, "tav_matrix_ctl: the core does not answer\n");
            return 1;
        }
        char buf[8192];
        const ssize_t r = read(fd, buf, sizeof buf);
        if (r <= 0) {
            std::fprintf(stderr, "tav_matrix_ctl: the core closed the connection\n");
            return 1;
        }
        in.append(buf, static_cast<size_t>(r));
        size_t nl;
        while ((nl = in.find('\n')) != std::string::npos) {
            const std::string l = in.substr(0, nl);
            in.erase(0, nl + 1);
            if (l.rfind("| ", 0) == 0) {
                std::fwrite(l.data() + 2, 1, l.size() - 2, stdout);
                std::fputc('\n', stdout);
            } else if (l == "ok") {
                return 0;
            } else {
                std::fprintf(stderr, "tav_matrix_ctl: %s\n",
                             l.rfind("err ", 0) == 0 ? l.c_str() + 4 : l.c_str());
                return 1;
            }
        }
    }
}
