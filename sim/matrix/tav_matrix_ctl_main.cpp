// Control client of the simulated matrix core, for people and tests.
#include <fcntl.h>
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

namespace {

const char* kHelp =
    "usage: tav_matrix_ctl [--root DIR] COMMAND ARGS...   (DIR defaults to $TAV_ROOT)\n"
    "Drives the simulated matrix core serving DIR/var/run/tav_matrix.sock.\n"
    "\n"
    "  state                        print the whole state, one record per line:\n"
    "                                 device ports=N\n"
    "                                 card SLOT kind=in|out ports=A-B media=av|video|audio state=S "
    "type=N ver=A.B.C\n"
    "                                 port N slot=S video=D audio=D active_video=D active_audio=D\n"
    "                                   (D: in, out, mix, none, unknown)\n"
    "                                 route OUT video=IN audio=IN\n"
    "                                 edid PORT kind=in|load|default name=NAME crc=XXXXXXXX (port "
    "0: default)\n"
    "                                 update slot=N pct=P\n"
    "                                 fail CALL rc=N\n"
    "                                 client pid=P mask=0xMMMM   (a registered signal stream)\n"
    "  log [-r] [PREFIX...]         library calls received, in order, e.g. "
    "set_video_switch(3,12);\n"
    "                               -r adds \" = RESULT\"; PREFIXes keep matching lines only\n"
    "  clear-log                    forget the calls logged so far\n"
    "  insert SLOT [--delay MS]     put the slot's card back: online (slot signal 0x0080), then "
    "after\n"
    "                               MS (default: the core's --normal-delay-ms) normal (port "
    "signal\n"
    "                               0x0200/0x0400, then slot signal)\n"
    "  insert SLOT in|out A-B [av|video|audio] [--delay MS]   insert a new card into an empty "
    "slot\n"
    "  pull SLOT                    card offline: port signal, then slot signal (parameter = "
    "slot)\n"
    "  cardstate SLOT STATE         set offline|online|normal|power_down|uart_error|iap, with "
    "signals\n"
    "  update start SLOT            update begins: slot id SLOT (1..20), 0 %, signal 0x0800 with "
    "0x8000|SLOT\n"
    "  update set PCT               progress the library reports, 0..255 (no signal)\n"
    "  update finish                100 %, then the end signal 0x0800 (parameter = slot)\n"
    "  update end                   the end signal at the current percentage\n"
    "  update fail                  0 %, then the end signal\n"
    "  update run SLOT [STEP_MS]    start, +5 % every STEP_MS (default 300), end signal at 100 %\n"
    "  reboot OPTION                reboot signal 0x1000 with OPTION (1 reset, 2 factory, 3 "
    "update, any)\n"
    "  lock 0|1 [PARAM]             write DIR/nandflash/config/.tav_lock_fp and raise 0x2000 with\n"
    "                               PARAM (default: this process's id), as another application "
    "does\n"
    "  raise BITS [PARAM] [--src S] [--thread T] [--count N]   raise any signal record N times\n"
    "  burst N [SEED]               N mixed signals that change nothing (0x20 0x40 0x80 0x200 "
    "0x400,\n"
    "                               0x2000 with high bits set)\n"
    "  route video|audio OUT IN     change a route behind the panel's back (+ connection signal)\n"
    "  fail CALL [RESULT]           make a library call (open, get_port_edid, ...) answer RESULT\n"
    "                               (default -1); fail CALL off: answer normally again\n"
    "  edid PORT in|load|default    print the EDID as hex\n"
    "\n"
    "Exit status 0 on success; 1 with a message on stderr otherwise.\n";

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
    std::vector<std::string> args;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--help" || a == "-h") {
            std::fputs(kHelp, stdout);
            return 0;
        }
        if (a == "--root" && args.empty() && i + 1 < argc) {
            root = argv[++i];
            continue;
        }
        args.push_back(a);
    }
    if (args.empty()) {
        std::fputs(kHelp, stderr);
        return 1;
    }
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
