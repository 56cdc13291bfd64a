// tav_panel_decode: a capture of the panel's serial line in words.
//
//   tav_panel_decode [--format raw|hex|hexdump|record] [--from panel|program]
//                    [--summary] [--quiet] [--hex] [FILE]
//
// Reads FILE or standard input: raw bytes, hex text (xxd -p, od -An -tx1,
// plain bytes), hexdump -C, or a recording of tav_panel_emu --record. Prints
// one line per frame and one per run of bytes that form no frame.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "tav_panel_decode.h"

using namespace tavpanel;

namespace {

void usage() {
    std::fputs(
        "usage: tav_panel_decode [--format raw|hex|hexdump|record] [--from panel|program]\n"
        "                        [--summary] [--quiet] [--hex] [FILE]\n"
        "  FILE        a capture (default: standard input); the format is guessed unless given\n"
        "  --from      who sent a raw or hex capture: panel (default: cut as the program\n"
        "              cuts it) or program (cut as the panel reads it)\n"
        "  --summary   frame counts, malformed bytes and the LCD's last two lines\n"
        "  --quiet     no line per frame (with --summary: the summary alone)\n"
        "  --hex       the frame's bytes after its meaning\n"
        "exit status: 0 every byte formed a frame, 1 malformed bytes or a capture cut inside a\n"
        "frame, 2 bad arguments or unreadable file, 3 input not in the format (not hex, ...)\n",
        stderr);
}

} // namespace

int main(int argc, char** argv) {
    DecodeOptions o;
    const char* path = nullptr;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        const char* v = i + 1 < argc ? argv[i + 1] : "";
        if (a == "--format" && i + 1 < argc) {
            const std::string f = argv[++i];
            o.format = f == "raw"       ? InputFormat::raw
                       : f == "hex"     ? InputFormat::hex
                       : f == "hexdump" ? InputFormat::hexdump
                       : f == "record"  ? InputFormat::record
                                        : InputFormat::detect;
            if (o.format == InputFormat::detect) {
                usage();
                return DECODE_USAGE;
            }
        } else if (a == "--from" &&
                   (std::strcmp(v, "panel") == 0 || std::strcmp(v, "program") == 0)) {
            o.from = std::strcmp(argv[++i], "panel") == 0 ? Dir::panel : Dir::program;
        } else if (a == "--summary") {
            o.summary = true;
        } else if (a == "--quiet") {
            o.frames = false;
        } else if (a == "--hex") {
            o.show_hex = true;
        } else if (a == "-h" || a == "--help") {
            usage();
            return 0;
        } else if (path == nullptr && (a == "-" || a[0] != '-')) {
            path = argv[i];
        } else {
            usage();
            return DECODE_USAGE;
        }
    }
    int fd = STDIN_FILENO;
    if (path != nullptr && std::strcmp(path, "-") != 0) {
        fd = open(path, O_RDONLY | O_CLOEXEC);
        if (fd < 0) {
            std::fprintf(stderr, "tav_panel_decode: %s: %s\n", path, std::strerror(errno));
            return DECODE_USAGE;
        }
    }
    const int rc = decode_capture(
        [fd](uint8_t* buf, size_t n) -> long {
            for (;;) {
                const ssize_t r = read(fd, buf, n);
                if (r >= 0 || errno != EINTR) {
                    return static_cast<long>(r);
                }
            }
        },
        o, stdout, stderr);
    std::fflush(stdout);
    return rc;
}
