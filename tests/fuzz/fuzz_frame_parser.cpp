// Arbitrary bytes from the panel into the frame parser twice: once in reads
// as large as the parser takes (255 bytes), once cut into arbitrary reads
// chosen by the first byte. Where the reads are cut must not matter: both
// give the same key, events, panel version and error replies (read back from
// a pipe put in place of the panel's line once the port is open).
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tav_baseportcontrol.h"
#include "tav_hardboard_var.h"
#include "tav_keyboard.h"
#include "tav_uart_com.h"

namespace {

int g_panel = -1; // the pipe's read end: what the program sent

std::string drain() {
    std::string out;
    char b[512];
    for (ssize_t n; (n = read(g_panel, b, sizeof b)) > 0;)
        out.append(b, static_cast<size_t>(n));
    return out;
}

struct Outcome {
    TAV_KEY_ENUM key;
    int events;
    int version; // main, minor and build in one number
    std::string replies;
};

// Feeds `data` in reads of the sizes `next` gives; what came of it.
template <class Next> Outcome run(const uint8_t* data, size_t size, Next next) {
    static uint8_t chunk[255];
    tav_comint();
    g_tav_event.store(0);
    g_tav_keyval.store(TAV_KEY_NULL);
    key_hard_ver.store(TAV_HARD_KEY_VER{0, 0, 0});
    Outcome o{};
    drain();
    for (size_t pos = 0; pos < size;) {
        size_t n = next();
        if (n > size - pos)
            n = size - pos;
        memcpy(chunk, data + pos, n);
        tav_analyze_data(chunk, static_cast<uint8_t>(n));
        o.replies += drain(); // before the line's buffer could fill
        pos += n;
    }
    o.key = tav_getkey_val();
    o.events = tav_gethardkey_event();
    const TAV_HARD_KEY_VER v = key_hard_ver.load();
    o.version = v.key_main_ver << 16 | v.key_minor_ver << 8 | v.key_build_ver;
    return o;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    char dir[] = "/tmp/tav_fuzz_frames.XXXXXX";
    if (mkdtemp(dir) == nullptr)
        abort();
    const std::string root = dir;
    mkdir((root + "/dev").c_str(), 0755);
    const int pty = posix_openpt(O_RDWR | O_NOCTTY);
    if (pty < 0 || grantpt(pty) != 0 || unlockpt(pty) != 0 ||
        symlink(ptsname(pty), (root + "/dev/ttyPSC3").c_str()) != 0)
        abort();
    setenv("TAV_ROOT", root.c_str(), 1);
    tav_hardkey_init();
    // A pipe instead of the line: a write is there to read at once.
    int p[2];
    if (tav_base_port_open() != 0 || pipe2(p, O_NONBLOCK) != 0 || dup2(p[1], uartfid.load()) < 0)
        abort();
    g_panel = p[0];
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    const Outcome whole = run(data + 1, size - 1, [] { return size_t{255}; });
    uint32_t seed = data[0];
    const Outcome cut = run(data + 1, size - 1, [&seed] {
        seed = seed * 1103515245u + 12345u;
        return size_t{1} + (seed >> 16) % 255;
    });
    if (whole.key != cut.key || whole.events != cut.events || whole.version != cut.version ||
        whole.replies != cut.replies)
        __builtin_trap();
    if (cut.key > TAV_KEY_LOCK && cut.key != TAV_KEY_NULL)
        __builtin_trap();
    if ((cut.events & ~(TAV_EVENT_KEY | TAV_EVENT_HARDVER)) != 0)
        __builtin_trap();
    return 0;
}
