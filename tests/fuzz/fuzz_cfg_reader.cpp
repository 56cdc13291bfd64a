// Feeds arbitrary files to the configuration reader and checks that the text
// tables keep their shape: rows of printable-or-not bytes without a zero byte
// or newline, heads of six characters with their terminator.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

#include "tav_menu_strcfg.h"

namespace {

int memfd() {
    static int fd = memfd_create("tav_cfg", 0);
    return fd;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const int fd = memfd();
    if (fd < 0 || ftruncate(fd, 0) != 0 ||
        pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) {
        abort();
    }
    char path[64];
    snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
    tav_menu_strcfg_defaults();
    tav_cfg_loadfile(path);
    for (const auto& row : MENU_ITEM_STR) {
        for (uint8_t c : row) {
            if (c == 0 || c == '\n') {
                abort();
            }
        }
    }
    for (const auto& head : MENU_SPC_HEAD) {
        for (size_t i = 0; i < TAV_MENU_HEAD_LEN; ++i) {
            if (head[i] == 0 || head[i] == '\n') {
                abort();
            }
        }
        if (head[TAV_MENU_HEAD_LEN] != 0) {
            abort();
        }
    }
    return 0;
}
