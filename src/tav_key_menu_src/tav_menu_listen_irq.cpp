// Inner-signal listener: follows the matrix core. The library's callback only
// writes a byte into a non-blocking pipe; a thread waits on the pipe and, for
// every byte, fetches the latest signal record at once and runs the handlers
// of its bits in a fixed order. Handlers run only while the listener holds
// the menu engine lock, so their effects fall between two controller passes;
// while a pass holds the lock (a handler's pause included) the fetched
// records wait in a small queue, in the order of their deliveries, and are
// handled as soon as the pass lets the lock go (see tav_menu_control.h).
#include "tav_menu_listen_irq.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include "tav_basetool.h"
#include "tav_common.h"
#include "tav_keyboard.h"
#include "tav_led.h"
#include "tav_menu_audio.h"
#include "tav_menu_card_plug.h"
#include "tav_menu_control.h"
#include "tav_menu_display_str.h"
#include "tav_menu_update.h"
#include "tav_menu_var.h"
#include "tav_menu_video.h"
#include "tav_platform.h"

namespace {

// Read end [0] and write end [1] of the wake-up pipe; -1 while there is
// none. The callback reads the write end from the library's context, so the
// descriptors are lock-free atomics.
std::atomic<int> m_irq_wakeup_fd[2] = {-1, -1};
static_assert(std::atomic<int>::is_always_lock_free, "the callback must not take a lock");

// Whether the listener thread is alive, and its identity.
std::atomic<bool> m_irq_thread_running{false};
thread_local bool t_irq_on_listener = false;
// Written by the thread as it ends, for a close that waits for it (a
// descriptor, unlike a condition variable, has no destructor that could run
// at exit while the thread is still leaving).
const int m_irq_exit_fd = tav_btool_event_new();
constexpr int kExitWaitMs = 500;

// Set (under the engine lock) by tav_matrix_irq_close: from then on nothing
// is fetched or dispatched, and the thread ends. Also ends the handling of a
// signal whose reboot notice has shut the program down.
std::atomic<bool> m_irq_closed{false};
// Wakes the thread to see m_irq_closed. Made once for the life of the process.
const int m_irq_stop_fd = tav_btool_event_new();

// Records fetched while the engine was busy, oldest first. The listener
// thread appends; they are taken under the engine lock, by the listener when
// it gets the lock or by the controller at the top of its next pass. Head and
// tail count records ever taken and appended (tail - head wait). When the
// queue is full the thread stops reading the pipe until the engine is free.
constexpr uint32_t kQueueLen = 64;
TAV_MATRIX_OBJ_SIGNAL_FLAG m_irq_queue[kQueueLen];
std::atomic<uint32_t> m_irq_head{0};
std::atomic<uint32_t> m_irq_tail{0};
// While records wait, the thread tries the engine lock again this often (the
// controller takes them at its next pass anyway).
constexpr int kEngineRetryMs = 10;

uint32_t queued(void) {
    return m_irq_tail.load(std::memory_order_acquire) - m_irq_head.load(std::memory_order_acquire);
}

// Pause after a failed poll, so that a lasting failure cannot spin.
constexpr useconds_t kPollErrorPauseUs = 100000;

constexpr uint32_t kUpdateBegins = 0x8000;

bool set_nonblock(int fd) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0) {
        return false;
    }
    // The shell tools the menus run need not inherit the pipe.
    fcntl(fd, F_SETFD, FD_CLOEXEC);
    return true;
}

bool open_pipe(void) {
    if (m_irq_wakeup_fd[0].load() >= 0) {
        return true;
    }
    int fds[2];
    if (pipe(fds) != 0) {
        const int err = errno;
        tav_log(TAV_LOG_ERR, "func=[%s]pipe open err:%d,%s", "tav_matrix_irq_open", err,
                strerror(err));
        return false;
    }
    set_nonblock(fds[0]);
    set_nonblock(fds[1]);
    m_irq_wakeup_fd[0].store(fds[0]);
    m_irq_wakeup_fd[1].store(fds[1]);
    return true;
}

void start_thread(void) {
    bool expected = false;
    if (!m_irq_thread_running.compare_exchange_strong(expected, true)) {
        return;
    }
    pthread_t thread;
    const int err = tav_btool_start_thread(&thread, tav_matrix_irq_thread, true);
    if (err != 0) {
        m_irq_thread_running.store(false);
        tav_log(TAV_LOG_ERR, "func=[%s]pthread_create: (%d)%s", "tav_matrix_irq_open", err,
                strerror(err));
    }
}

// Video and audio twins of the connection and port handlers.
struct AvSide {
    TAV_ENUM_MENUSTATUS switch_all_menu; // rebuilds the tables itself when it ends
    void (*reload)(void);
    TAV_ENUM_MENUSTATUS status_menu;
    TAV_ENUM_MENUSTATUS list_menu;
    void (*reinit)(void);
    bool lock_page_shows_it; // the lock page is the video status page
};
constexpr AvSide kVideo = {menu_switch_vid_all, load_main_set_up, menu_vid_display,
                           meun_vid_io_display, tav_video_reinit, true};
constexpr AvSide kAudio = {menu_switch_aud_all, load_main_aud_set_up, menu_aud_display,
                           meun_aud_io_display, tav_audio_reinit,     false};

void reload_unless_switching_all(const AvSide& side) {
    if (g_tav_menu != side.switch_all_menu) {
        side.reload();
    }
}

void redraw_lock_page(const AvSide& side) {
    if (side.lock_page_shows_it && g_tav_menu == menu_lock) {
        tav_menu_update(menu_lock);
    }
}

void connect_change(const AvSide& side) {
    reload_unless_switching_all(side);
    if (g_tav_menu == side.status_menu) {
        tav_menu_update(side.status_menu);
    }
    redraw_lock_page(side);
}

void port_change(const AvSide& side) {
    reload_unless_switching_all(side);
    if (g_tav_menu == side.status_menu) {
        tav_menu_update(side.status_menu);
    }
    if (g_tav_menu == side.list_menu) {
        tav_menu_update(side.list_menu);
        side.reinit();
    }
    redraw_lock_page(side);
}

bool notices_allowed(void) {
    return g_tav_menu != menu_update && g_tav_menu != menu_reset;
}

struct RebootNotice {
    uint32_t option;
    uint8_t top;
    uint8_t bottom;
};
constexpr RebootNotice kRebootNotices[] = {
    {em_irq_reboot_reset, 59, 60},
    {em_irq_reboot_factory, 61, 62},
    {em_irq_reboot_update, 63, 64},
};

struct SignalHandler {
    uint32_t bit;
    void (*handle)(TAV_MATRIX_OBJ_SIGNAL_FLAG record);
};
// In the order in which the bits of one signal are handled.
constexpr SignalHandler kHandlers[] = {
    {TAV_MATRIX_SIG_VIDEO_CONNECT,
     [](TAV_MATRIX_OBJ_SIGNAL_FLAG) { tav_matrix_irq_video_connect_change(); }},
    {TAV_MATRIX_SIG_AUDIO_CONNECT,
     [](TAV_MATRIX_OBJ_SIGNAL_FLAG) { tav_matrix_irq_audio_connect_change(); }},
    {TAV_MATRIX_SIG_SLOT, tav_matrix_irq_slot_change},
    {TAV_MATRIX_SIG_VIDEO_PORT,
     [](TAV_MATRIX_OBJ_SIGNAL_FLAG) { tav_matrix_irq_video_port_change(); }},
    {TAV_MATRIX_SIG_AUDIO_PORT,
     [](TAV_MATRIX_OBJ_SIGNAL_FLAG) { tav_matrix_irq_audio_port_change(); }},
    {TAV_MATRIX_SIG_UPDATE, tav_matrix_irq_update_change},
    {TAV_MATRIX_SIG_REBOOT, tav_matrix_irq_reboot},
    {TAV_MATRIX_SIG_PARAM, tav_matrix_irq_param_change},
};

// Caller holds the engine lock.
void dispatch_record(const TAV_MATRIX_OBJ_SIGNAL_FLAG& record) {
    if (m_irq_closed.load()) {
        return;
    }
    if (g_tav_menu == menu_update) {
        // Only the update's own signals count while its display is on.
        if ((record.sig_bit_map & TAV_MATRIX_SIG_UPDATE) != 0) {
            tav_matrix_irq_update_change(record);
        }
        return;
    }
    for (const SignalHandler& h : kHandlers) {
        if ((record.sig_bit_map & h.bit) != 0) {
            h.handle(record);
            if (m_irq_closed.load()) {
                return; // a reboot notice has shut the program down
            }
        }
    }
}

bool fetch(TAV_MATRIX_OBJ_SIGNAL_FLAG* record) {
    *record = TAV_MATRIX_OBJ_SIGNAL_FLAG{};
    return !m_irq_closed.load() && pmatrixDllHandle != nullptr &&
           tav_matrix_get_inner_signal_information(pmatrixDllHandle, record) == 0;
}

// The listener's only take of the engine lock, never a wait: with the lock
// free, the queued records and then `record` (if any) are handled.
bool try_dispatch(const TAV_MATRIX_OBJ_SIGNAL_FLAG* record) {
    std::unique_lock<std::mutex> engine(tav_menu_engine_mutex(), std::try_to_lock);
    if (!engine.owns_lock()) {
        return false;
    }
    tav_matrix_irq_dispatch_queued();
    if (record != nullptr) {
        dispatch_record(*record);
    }
    return true;
}

// One wake-up byte: the record is fetched now. With the engine free it is
// handled at once (after any that wait); otherwise it joins the queue and
// wakes the controller, whose next pass takes it.
void on_wake_up(void) {
    TAV_MATRIX_OBJ_SIGNAL_FLAG record;
    if (!fetch(&record)) {
        try_dispatch(nullptr);
    } else if (!try_dispatch(&record)) {
        const uint32_t tail = m_irq_tail.load(std::memory_order_relaxed);
        m_irq_queue[tail % kQueueLen] = record;
        m_irq_tail.store(tail + 1, std::memory_order_release);
        tav_menu_wake();
    }
}

// Reads the pending wake-up bytes while the queue has room. False when the
// pipe failed and the thread must end.
bool drain_pipe(int fd) {
    while (queued() < kQueueLen && !m_irq_closed.load()) {
        uint8_t wake;
        const ssize_t n = read(fd, &wake, 1);
        if (n == 1) {
            on_wake_up();
            continue;
        }
        if (n == 0 || errno == EAGAIN || errno == EWOULDBLOCK) {
            return true;
        }
        if (errno == EINTR) {
            continue;
        }
        const int err = errno;
        tav_log(TAV_LOG_ERR, "func=[%s]read from %d error: (%d)%s", "tav_matrix_irq_thread", fd,
                err, strerror(err));
        return false;
    }
    return true;
}

// Empties the wake-up pipe: bytes written for an earlier listener.
void drain_stale_bytes(void) {
    const int fd = m_irq_wakeup_fd[0].load();
    uint8_t stale[64];
    while (fd >= 0 && read(fd, stale, sizeof stale) > 0) {
    }
}

} // namespace

void tav_matrix_irq_dispatch_queued(void) {
    for (uint32_t head = m_irq_head.load(std::memory_order_relaxed);
         head != m_irq_tail.load(std::memory_order_acquire);
         head = m_irq_head.load(std::memory_order_relaxed)) {
        const TAV_MATRIX_OBJ_SIGNAL_FLAG record = m_irq_queue[head % kQueueLen];
        m_irq_head.store(head + 1, std::memory_order_release);
        dispatch_record(record);
    }
}

void tav_matrix_irq_open(void) {
    // Without a pipe no wake-up could reach the thread: neither register
    // the callback nor start the thread.
    if (!open_pipe()) {
        return;
    }
    if (m_irq_thread_running.load() && m_irq_closed.load()) {
        // An earlier listener is still ending: it must be gone before its
        // records and bytes are dropped, or it could handle them.
        tav_btool_event_wait(m_irq_exit_fd, kExitWaitMs);
        if (m_irq_thread_running.load()) {
            tav_log(TAV_LOG_ERR, "func=[%s]earlier listener still running", "tav_matrix_irq_open");
            return;
        }
    }
    if (!m_irq_thread_running.load()) {
        // Forget the stop and end of an earlier listener, the wake-up bytes
        // written for it and the records it fetched but never handled.
        tav_btool_event_take(m_irq_stop_fd);
        tav_btool_event_take(m_irq_exit_fd);
        drain_stale_bytes();
        m_irq_head.store(m_irq_tail.load());
        m_irq_closed.store(false);
    }
    if (pmatrixDllHandle != nullptr) {
        tav_matrix_register_inner_signal(pmatrixDllHandle, TAV_MATRIX_SIG_MASK,
                                         tav_matrix_irq_callback);
    }
    start_thread();
}

void tav_matrix_irq_close(void) {
    m_irq_closed.store(true);
    // Before the library is open (or when it never opened) there is nothing
    // to unregister, and the library must never see a null handle.
    if (pmatrixDllHandle != nullptr) {
        tav_matrix_unregister_inner_signal(pmatrixDllHandle, TAV_MATRIX_SIG_MASK);
        usleep(1000);
    }
    tav_btool_event_post(m_irq_stop_fd);
    // The thread never waits for the engine lock held here, so it ends at
    // its next look; unless this is the thread itself (a reboot notice).
    if (m_irq_thread_running.load() && !t_irq_on_listener) {
        tav_btool_event_wait(m_irq_exit_fd, kExitWaitMs);
    }
}

void tav_matrix_irq_callback(int pid_parameter) {
    (void)pid_parameter;
    const int fd = m_irq_wakeup_fd[1].load(std::memory_order_relaxed);
    if (fd < 0) {
        return;
    }
    const int saved_errno = errno;
    const uint8_t wake = 1;
    // A full pipe loses the byte; a pending byte will fetch the latest record.
    if (write(fd, &wake, 1) < 0) {
    }
    errno = saved_errno;
}

void* tav_matrix_irq_thread(void* arg) {
    (void)arg;
    t_irq_on_listener = true;
    const int fd = m_irq_wakeup_fd[0].load();
    bool pipe_ok = true;
    while (pipe_ok && !m_irq_closed.load()) {
        // A full queue leaves the bytes in the pipe until the engine is free.
        const uint32_t waiting = queued();
        pollfd p[2] = {{m_irq_stop_fd, POLLIN, 0}, {waiting == kQueueLen ? -1 : fd, POLLIN, 0}};
        if (poll(p, 2, waiting > 0 ? kEngineRetryMs : -1) < 0) {
            if (errno == EINTR) {
                tav_log(TAV_LOG_WARNING, "func=[%s]poll break by signal\n",
                        "tav_matrix_irq_thread");
            } else {
                tav_log(TAV_LOG_WARNING, "func=[%s]poll error\n", "tav_matrix_irq_thread");
                usleep(kPollErrorPauseUs);
            }
        }
        pipe_ok = drain_pipe(fd);
        if (queued() > 0) {
            try_dispatch(nullptr);
        }
    }
    m_irq_thread_running.store(false);
    tav_btool_event_post(m_irq_exit_fd);
    return nullptr;
}

void tav_matrix_irq_process(int pid_parameter) {
    (void)pid_parameter;
    // As for a wake-up byte: never waits for the engine.
    on_wake_up();
}

void tav_matrix_irq_video_connect_change(void) {
    connect_change(kVideo);
}

void tav_matrix_irq_audio_connect_change(void) {
    connect_change(kAudio);
}

void tav_matrix_irq_video_port_change(void) {
    port_change(kVideo);
}

void tav_matrix_irq_audio_port_change(void) {
    port_change(kAudio);
}

void tav_matrix_irq_slot_change(TAV_MATRIX_OBJ_SIGNAL_FLAG record) {
    const uint8_t slot = static_cast<uint8_t>(record.src_parameter);
    TAV_MATRIX_OBJ_CARD card = {};
    card.card_status = em_matrix_card_unknown;
    const int32_t rc = tav_matrix_get_card_information(
        pmatrixDllHandle, static_cast<int32_t>(record.src_parameter), &card);
    load_main_set_up();
    // Without the card's record its state is unknown: no notice.
    if (rc != 0) {
        return;
    }
    switch (card.card_status) {
    case em_matrix_card_online:
        if (notices_allowed()) {
            tav_menu_clear_timer_counter();
            tav_menu_card_plug_set_status(slot, 1);
        }
        break;
    case em_matrix_card_normal:
        if (g_tav_menu == menu_hot_plug) {
            tav_menu_clear_timer_counter();
            tav_menu_card_plug_clear();
        }
        break;
    case em_matrix_card_offline:
        if (notices_allowed()) {
            tav_menu_clear_timer_counter();
            tav_menu_card_plug_set_status(slot, 2);
            load_main_set_up();
            load_main_aud_set_up();
        }
        break;
    default:
        break;
    }
}

void tav_matrix_irq_update_change(TAV_MATRIX_OBJ_SIGNAL_FLAG record) {
    tav_menu_clear_timer_counter();
    if ((record.src_parameter & kUpdateBegins) != 0) {
        tav_menu_updating_set();
    } else if (g_tav_menu == menu_update) {
        tav_menu_updating_down();
    }
}

void tav_matrix_irq_reboot(TAV_MATRIX_OBJ_SIGNAL_FLAG record) {
    for (const RebootNotice& notice : kRebootNotices) {
        if (notice.option == record.src_parameter) {
            tav_menu_spc_display(displaybuf, notice.top, notice.bottom);
            tav_display_led_all_off();
            tav_display_led_blink_all_off();
            tav_dev_destory();
            return;
        }
    }
}

void tav_matrix_irq_param_change(TAV_MATRIX_OBJ_SIGNAL_FLAG record) {
    const int gps_pid = static_cast<int>(getpid());
    const uint32_t pid = record.src_parameter & 0xFFFFu;
    tav_log(TAV_LOG_DEBUG, "func=[%s]pid=%d,gps_pid=%d,param=%d\n", "tav_matrix_irq_param_change",
            static_cast<int>(pid), gps_pid, static_cast<int>(record.src_parameter));
    const bool from_other_process = (static_cast<uint32_t>(gps_pid) & 0xFFFFu) != pid;
    const bool about_panel_lock = (record.src_parameter >> 16) == 0;
    if (from_other_process && about_panel_lock) {
        tav_update_to_lock(2);
    }
}
