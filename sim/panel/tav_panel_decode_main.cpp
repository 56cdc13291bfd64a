// tav_panel_decode: a capture of the panel's serial line in words.
//
//   tav_panel_decode [--format raw|hex|hexdump|record] [--from panel|program]
//                    [--summary] [--quiet] [--hex] [FILE]
//
// Reads FILE or standard input: raw bytes, hex text (xxd -p, od -An -tx1,
// plain bytes), hexdump -C, or a recording of tav_panel_emu --record. Prints
// one line per frame and one per run of bytes that form no frame.
#include <fcntl.h>
#include <getopt.h>
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
    static const option kOptions[] = {{"format", required_argument, nullptr, 'f'},
                                      {"from", required_argument, nullptr, 'F'},
                                      {"summary", no_argument, nullptr, 's'},
                                      {"quiet", no_argument, nullptr, 'q'},
                                      {"hex", no_argument, nullptr, 'x'},
                                      {"help", no_argument, nullptr, 'h'},
                                      {}};
    bool bad = false;
    for (int opt; !bad && (opt = getopt_long(argc, argv, "h", kOptions, nullptr)) != -1;) {
        const std::string v = optarg != nullptr ? optarg : "";
        switch (opt) {
        case 'f':
            o.format = v == "raw"       ? InputFormat::raw
                       : v == "hex"     ? InputFormat::hex
                       : v == "hexdump" ? InputFormat::hexdump
                       : v == "record"  ? InputFormat::record
                                        : InputFormat::detect;
            bad = o.format == InputFormat::detect;
            break;
        case 'F':
            o.from = v == "panel" ? Dir::panel : Dir::program;
            bad = v != "panel" && v != "program";
            break;
        case 's':
            o.summary = true;
            break;
        case 'q':
            o.frames = false;
            break;
        case 'x':
            o.show_hex = true;
            break;
        case 'h':
            usage();
            return 0;
        default:
            bad = true;
        }
    }
    if (bad || argc - optind > 1) {
        usage();
        return DECODE_USAGE;
    }
    const char* path = optind < argc ? argv[optind] : nullptr;
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
