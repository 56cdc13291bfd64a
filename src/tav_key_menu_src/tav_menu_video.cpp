// Video switching menu (the home page) over the shared switching engine
// (tav_menu_av_switch.cpp), and the front-panel lock.
#include "tav_menu_video.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tav_key_var.h"
#include "tav_matrix.h"
#include "tav_menu_control.h"
#include "tav_menu_led.h"
#include "tav_platform.h"

static TAV_AV_MENU m_tav_video = {&tav_av_kind_video, {}, {}};

TAV_AV_MENU_FUNCTIONS(video, m_tav_video)

// ---------------------------------------------------------------------------
// Front-panel lock. The state is one byte at offset 0 of a file shared with
// the device's other applications: '1' locked, anything else unlocked.

static int tav_lock_open(void) {
    char path[256];
    tav_platform_path("/nandflash/config/.tav_lock_fp", path, sizeof(path));
    return open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
}

void tav_poweron_resetlock(void) {
    int fd = tav_lock_open();
    if (fd < 0)
        return;
    // Written in place: other applications may keep more in the file.
    if (pwrite(fd, "0", 1, 0) != 1) {
        // Nothing to do: the panel starts unlocked whatever the file says.
    }
    close(fd);
}

// The lock file could not keep the state asked for by LOCK: logged once per
// key, with the reason; the panel stays as it is.
static void tav_lock_file_failed(const char* what, int err) {
    tav_log(TAV_LOG_ERR, "func=[%s]lock file %s err:%s", "tav_update_to_lock", what, strerror(err));
}

void tav_update_to_lock(uint8_t update_or_press) {
    int fd = tav_lock_open();
    if (fd < 0) {
        if (update_or_press == 1)
            tav_lock_file_failed("open", errno);
        return;
    }
    if (update_or_press == 2) {
        // Another application changed the lock: follow the file.
        char c = '0';
        if (pread(fd, &c, 1, 0) != 1)
            c = '0';
        const bool file_locked = c == '1';
        if (file_locked == (g_tav_lock ? true : false)) {
            close(fd);
            return;
        }
        g_tav_lock = file_locked;
    } else if (update_or_press == 1) {
        // The file first, then the announcement: a peer that reads the file
        // on the signal sees the new state. A file that cannot keep it
        // changes nothing, as one that cannot be opened.
        const bool locked = !g_tav_lock;
        if (pwrite(fd, locked ? "1" : "0", 1, 0) != 1) {
            tav_lock_file_failed("write", errno == 0 ? EIO : errno);
            close(fd);
            return;
        }
        g_tav_lock = locked;
        tav_matrix_set_inner_signal_lock_fp_opt(pmatrixDllHandle);
    }
    close(fd);

    tav_av_draw_status(m_tav_video, false);
    if (g_tav_lock) {
        g_tav_menu = menu_lock;
        tav_bdl_menu_showleds(menu_lock, false);
    } else {
        tav_menu_update(menu_vid_display);
    }
}
