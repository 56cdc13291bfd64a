// Program entry: start-up, the main loop and the shutdown.
#include "tav_keyboard.h"

#include <atomic>
#include <cerrno>
#include <ctime>
#include <malloc.h>
#include <csignal>
#include <cstring>
#include <mutex>
#include <pthread.h>
#include <unistd.h>

#include "tav_baseportcontrol.h"
#include "tav_basetool.h"
#include "tav_common.h"
#include "tav_key_var.h"
#include "tav_menu_control.h"
#include "tav_platform.h"

namespace {

// Parameters of the panel line; tav_inituart splits the text in place.
const char TAV_PANEL_UART_PARAM[] = "19200;N;8;1;";
constexpr uint8_t TAV_PANEL_UART_LINE = 4;

// Set by the signal handler and never cleared: a signal that arrives before
// the run flags are raised must still stop the program.
std::atomic<uint8_t> m_tav_stop_requested{0};
// Whether the receive thread exists and has not been waited for yet.
std::atomic<uint8_t> m_tav_rx_thread_live{0};
// The main thread: a stop signal that another thread took is passed on to
// it, so that a blocking wait of the main thread is interrupted.
pthread_t m_tav_main_thread;
std::atomic<uint8_t> m_tav_main_thread_known{0};

// How long main waits for the receive thread at the end; it normally ends at
// once, since its wait also watches a wake-up descriptor.
constexpr int TAV_RX_JOIN_MS = 1000;

static_assert(std::atomic<uint8_t>::is_always_lock_free, "used from the signal handler");

} // namespace

// Without SA_RESTART, so that a blocking wait in progress (the start-up's
// wait on the matrix core's lock) returns and the main loop can end.
void tav_install_signal_handlers(void) {
    struct sigaction sa;
    memset(&sa, 0, sizeof sa);
    sa.sa_handler = signal_handle;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = 0;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
}

void tav_dev_init(void) {
    tav_hardkey_init();
    set_uart_runflag();
    tav_key_var_init();
    std::lock_guard<std::mutex> lk(tav_menu_engine_mutex());
    tav_menu_ctl_init();
}

int tav_base_port_open(void) {
    int8_t param[128];
    memset(param, 0, sizeof param);
    memcpy(param, TAV_PANEL_UART_PARAM, sizeof TAV_PANEL_UART_PARAM - 1);
    if (tav_inituart(param, TAV_PANEL_UART_LINE) != 0) {
        tav_log(TAV_LOG_DEBUG, "func=[%s]Front panel Err .Start Uart Err.\r\n", __func__);
        tav_uartclose();
        return 1;
    }
    return 0;
}

uint8_t tav_create_thread(void) {
    tav_uart_started_clear();
    const int r = tav_btool_start_thread(&g_uart_pthread_id, tav_uart_pthread, false);
    if (r != 0) {
        tav_log(TAV_LOG_DEBUG, "func=[%s]Creat thread Err.\r\n", __func__);
        return 1;
    }
    // Bounded: a thread that never gets going must not hold the start-up.
    tav_uart_wait_started(1000);
    m_tav_rx_thread_live.store(1);
    return 0;
}

// The caller holds the engine lock (main's tear-down, or the listener's
// dispatch of a reboot notice).
void tav_dev_destory(void) {
    tav_uartclose();
    tav_hardkey_init();
    clear_uart_runflag();
    tav_key_var_destory();
    tav_menu_ctl_distory();
}

// Waits (bounded) for the receive thread that the shutdown has woken.
void tav_join_rx_thread(void) {
    if (m_tav_rx_thread_live.exchange(0) == 0) {
        return;
    }
    struct timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += TAV_RX_JOIN_MS / 1000;
    if (pthread_timedjoin_np(g_uart_pthread_id, nullptr, &until) != 0) {
        pthread_detach(g_uart_pthread_id);
    }
}

// Only clears the run flags (async-signal-safe); main runs the shutdown once
// the loop has ended.
void signal_handle(int isignum) {
    const int saved_errno = errno;
    m_tav_stop_requested.store(1);
    g_tav_uart_runflag.store(0);
    g_tav_key_runflag.store(0);
    tav_uart_wake();
    tav_menu_wake();
    if (m_tav_main_thread_known.load() != 0 && !pthread_equal(pthread_self(), m_tav_main_thread)) {
        pthread_kill(m_tav_main_thread, isignum);
    }
    errno = saved_errno;
}

#ifndef TAV_NO_MAIN
// The program's tear-down, under the engine lock.
static void tear_down(void) {
    std::lock_guard<std::mutex> lk(tav_menu_engine_mutex());
    tav_dev_destory();
}

int main() {
    // One malloc arena for all threads: the few allocations of the threads
    // (log messages, the library's calls) need no arena of their own.
    mallopt(M_ARENA_MAX, 1);
    m_tav_main_thread = pthread_self();
    m_tav_main_thread_known.store(1);
    tav_install_signal_handlers();
    sleep(1);
    if (m_tav_stop_requested.load() != 0) {
        return 1;
    }
    tav_dev_init();
    if (m_tav_stop_requested.load() != 0) {
        tear_down();
        return 1;
    }
    if (tav_base_port_open() != 0) {
        return 1;
    }
    if (tav_create_thread() != 0) {
        return 1;
    }
    while (g_tav_key_runflag.load() != 0) {
        tav_menu_control();
    }
    tear_down();
    tav_join_rx_thread();
    return 1;
}
#endif
