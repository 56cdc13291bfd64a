// Panel port open and close, the event words, the getters and the receive
// thread.
#include "tav_baseportcontrol.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <termios.h>
#include <unistd.h>

#include "tav_basetool.h"
#include "tav_baseuart.h"
#include "tav_uart_com.h"

namespace {

// Posted by the receive thread once it has emptied the port (see the header).
const int m_rx_started_fd = tav_btool_event_new();

// The descriptor that is really open (uartfid is reset to 0 by the link
// reset and may not be trusted for writing); -1 while closed.
std::atomic<int> m_tav_port_fd{-1};
std::atomic<bool> m_tav_port_open{false};

// Line time of the bytes written recently, to let them leave before a close
// that discards pending output. Guarded by the transmit mutex.
constexpr uint64_t TAV_PORT_BAUD = 19200;
constexpr uint64_t TAV_PORT_DRAIN_MARGIN_MS = 100;
constexpr uint64_t TAV_PORT_DRAIN_MAX_MS = 500;
uint64_t m_tav_tx_busy_until_ms = 0;

// Consecutive failed reads (error, end of file, hang-up) after which the
// port counts as gone: the receive thread closes it and reopens it, first
// after 10 ms, then after twice the last pause, at most 640 ms apart.
constexpr int TAV_RX_FAILS_GONE = 3;
constexpr int TAV_RX_REOPEN_FIRST_MS = 10;
constexpr int TAV_RX_REOPEN_MAX_MS = 640;

// How the port was opened, for the reopen: the line number and the parameter
// text (tav_inituart's copy is split in place by the parser). Written by
// tav_inituart under the transmit mutex before the receive thread starts.
uint8_t m_tav_port_line;
char m_tav_port_param[32];

// Set when the receive thread has reopened the port; taken by the controller,
// which then redraws the page.
std::atomic<bool> m_tav_port_reopened{false};

// Posted for every key report and raised event bit, for a wait on them
// (tav_hardkey_event_fd). Made once.
const int m_tav_event_fd = tav_btool_event_new();

// Key reports in arrival order. Single producer (the receive thread), single
// consumer (the main thread); head and tail count reports ever taken and
// appended, so tail - head is the number waiting. The producer writes the
// slot before it publishes the tail (release); the consumer reads the tail
// with acquire before it reads a slot, and publishes the head when done.
TAV_KEY_ENUM m_key_ring[TAV_KEY_QUEUE_LEN];
std::atomic<uint32_t> m_key_head{0};
std::atomic<uint32_t> m_key_tail{0};
std::atomic<uint32_t> m_key_dropped{0};
// Consumer side: the report the last clear of TAV_EVENT_KEY took, and whether
// tav_getkey_val() still returns it (until the event word is read again).
std::atomic<TAV_KEY_ENUM> m_key_taken{TAV_KEY_NULL};
std::atomic<bool> m_key_holding{false};

uint32_t key_waiting(void) {
    return m_key_tail.load(std::memory_order_acquire) - m_key_head.load(std::memory_order_relaxed);
}

// Wakes the receive thread out of its wait on the port: written when its run
// flag is cleared or the port closed. Made once for the life of the process.
const int m_tav_rx_wake_fd = tav_btool_event_new();

// Caller holds the transmit mutex.
void port_close_locked(bool let_output_drain) {
    if (!m_tav_port_open.load()) {
        return;
    }
    int fd = m_tav_port_fd.load();
    if (let_output_drain) {
        tcdrain(fd);
        uint64_t now = tav_btool_mono_ms();
        uint64_t until = m_tav_tx_busy_until_ms + TAV_PORT_DRAIN_MARGIN_MS;
        if (until > now) {
            uint64_t wait = until - now;
            if (wait > TAV_PORT_DRAIN_MAX_MS) {
                wait = TAV_PORT_DRAIN_MAX_MS;
            }
            usleep(static_cast<useconds_t>(wait * 1000u));
        }
    }
    m_tav_port_open.store(false);
    m_tav_port_fd.store(-1);
    tav_buart_close(fd);
    tav_uart_wake();
}

} // namespace

std::mutex& tav_port_tx_mutex(void) {
    static std::mutex m;
    return m;
}

bool tav_port_is_open(void) {
    return m_tav_port_open.load();
}

int tav_port_write_locked(const void* frame, int len) {
    if (!m_tav_port_open.load()) {
        return -1;
    }
    int n = tav_buart_write_bytes(m_tav_port_fd.load(),
                                  static_cast<char*>(const_cast<void*>(frame)), len);
    if (n > 0) {
        uint64_t now = tav_btool_mono_ms();
        uint64_t start = m_tav_tx_busy_until_ms > now ? m_tav_tx_busy_until_ms : now;
        // 10 bits per byte on the line.
        m_tav_tx_busy_until_ms =
            start + (static_cast<uint64_t>(n) * 10u * 1000u + TAV_PORT_BAUD - 1) / TAV_PORT_BAUD;
    }
    return n;
}

int32_t tav_inituart(int8_t* uartbuf, uint8_t port_id) {
    std::lock_guard<std::mutex> lk(tav_port_tx_mutex());
    port_close_locked(false);
    m_tav_port_line = port_id;
    snprintf(m_tav_port_param, sizeof m_tav_port_param, "%s",
             uartbuf != nullptr ? reinterpret_cast<const char*>(uartbuf) : "");
    int fd = -1;
    int r = tav_buart_open(port_id, &fd);
    uartfid.store(fd);
    if (r < 0) {
        return 1;
    }
    if (tav_buart_set_param_string(fd, reinterpret_cast<char*>(uartbuf)) < 0) {
        tav_buart_close(fd);
        return 2;
    }
    m_tav_tx_busy_until_ms = 0;
    m_tav_port_fd.store(fd);
    m_tav_port_open.store(true);
    return 0;
}

void tav_uartclose(void) {
    std::lock_guard<std::mutex> lk(tav_port_tx_mutex());
    port_close_locked(true);
}

void set_uart_runflag(void) {
    g_tav_uart_runflag.store(1);
}
void clear_uart_runflag(void) {
    g_tav_uart_runflag.store(0);
    tav_uart_wake();
}

void tav_uart_wake(void) {
    tav_btool_event_post(m_tav_rx_wake_fd);
}

void tav_sethardkey_event(int event) {
    g_tav_event.fetch_or(event, std::memory_order_release);
    tav_btool_event_post(m_tav_event_fd);
}

int tav_port_reopen_pause_ms(int previous_ms) {
    if (previous_ms <= 0) {
        return TAV_RX_REOPEN_FIRST_MS;
    }
    return previous_ms >= TAV_RX_REOPEN_MAX_MS / 2 ? TAV_RX_REOPEN_MAX_MS : previous_ms * 2;
}

bool tav_port_take_reopened(void) {
    return m_tav_port_reopened.exchange(false);
}
int32_t tav_gethardkey_event(void) {
    m_key_holding.store(false, std::memory_order_relaxed);
    const int32_t bits = g_tav_event.load(std::memory_order_acquire);
    return key_waiting() != 0 ? bits | TAV_EVENT_KEY : bits;
}
void tav_clear_keyevent(int event) {
    if ((event & TAV_EVENT_KEY) != 0) {
        const uint32_t head = m_key_head.load(std::memory_order_relaxed);
        const bool take = key_waiting() != 0;
        if (take) {
            m_key_taken.store(m_key_ring[head % TAV_KEY_QUEUE_LEN], std::memory_order_relaxed);
            m_key_head.store(head + 1, std::memory_order_release);
        }
        m_key_holding.store(take, std::memory_order_relaxed);
    }
    g_tav_event.fetch_and(~event, std::memory_order_acq_rel);
}

void tav_key_push(TAV_KEY_ENUM keyval) {
    g_tav_keyval.store(keyval, std::memory_order_release);
    const uint32_t tail = m_key_tail.load(std::memory_order_relaxed);
    if (tail - m_key_head.load(std::memory_order_acquire) >= TAV_KEY_QUEUE_LEN) {
        m_key_dropped.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    m_key_ring[tail % TAV_KEY_QUEUE_LEN] = keyval;
    m_key_tail.store(tail + 1, std::memory_order_release);
    tav_btool_event_post(m_tav_event_fd);
}

void tav_key_keep_last(void) {
    const uint32_t tail = m_key_tail.load(std::memory_order_acquire);
    if (tail - m_key_head.load(std::memory_order_relaxed) > 1) {
        m_key_head.store(tail - 1, std::memory_order_release);
    }
}

uint32_t tav_key_dropped(void) {
    return m_key_dropped.load(std::memory_order_relaxed);
}

int tav_hardkey_event_fd(void) {
    return m_tav_event_fd;
}

void tav_key_queue_reset(void) {
    m_key_head.store(m_key_tail.load(std::memory_order_acquire), std::memory_order_release);
    m_key_holding.store(false, std::memory_order_relaxed);
    m_key_taken.store(TAV_KEY_NULL, std::memory_order_relaxed);
}

void tav_sethardsend_event(int event) {
    g_tav_send_event.fetch_or(event, std::memory_order_release);
}
int32_t tav_gethardsend_event(void) {
    return g_tav_send_event.load(std::memory_order_acquire);
}
void tav_clear_sendevent(int event) {
    g_tav_send_event.fetch_and(~event, std::memory_order_acq_rel);
}

TAV_KEY_ENUM tav_getkey_val(void) {
    if (m_key_holding.load(std::memory_order_relaxed)) {
        return m_key_taken.load(std::memory_order_relaxed);
    }
    if (key_waiting() != 0) {
        return m_key_ring[m_key_head.load(std::memory_order_relaxed) % TAV_KEY_QUEUE_LEN];
    }
    return g_tav_keyval.load(std::memory_order_acquire);
}
TAV_HARD_KEY_VER tav_get_hardkey_ver(void) {
    return key_hard_ver.load();
}
uint8_t tav_get_hardkey_main_ver(void) {
    return key_hard_ver.load().key_main_ver;
}
uint8_t tav_get_hardkey_minor_ver(void) {
    return key_hard_ver.load().key_minor_ver;
}
uint8_t tav_get_hardkey_build_ver(void) {
    return key_hard_ver.load().key_build_ver;
}

namespace {

bool rx_running(void) {
    return g_tav_uart_runflag.load() != 0 && m_tav_port_open.load();
}

// Opens and configures the port again on a descriptor of its own; only a
// ready descriptor is handed to the writers, under the transmit mutex. False
// when the device is not back yet (or the port was closed meanwhile).
bool rx_reopen(int* fd) {
    int nfd = -1;
    char param[sizeof m_tav_port_param];
    memcpy(param, m_tav_port_param, sizeof param);
    if (tav_buart_open(m_tav_port_line, &nfd) < 0) {
        return false;
    }
    if (tav_buart_set_param_string(nfd, param) < 0 || tav_buart_set_block(nfd, true) != 0) {
        tav_buart_close(nfd);
        return false;
    }
    std::lock_guard<std::mutex> lk(tav_port_tx_mutex());
    if (!m_tav_port_open.load()) {
        tav_buart_close(nfd);
        return false;
    }
    m_tav_tx_busy_until_ms = 0;
    m_tav_port_reopened.store(true);
    m_tav_port_fd.store(nfd);
    uartfid.store(nfd);
    *fd = nfd;
    return true;
}

// The port keeps failing: its descriptor is closed (writers find -1 and drop
// their frames) and reopened with a growing pause until the device is back.
// Returns false when the thread must end.
bool rx_recover(int* fd) {
    {
        std::lock_guard<std::mutex> lk(tav_port_tx_mutex());
        if (!m_tav_port_open.load() || m_tav_port_fd.load() != *fd) {
            return false;
        }
        m_tav_port_fd.store(-1);
        tav_buart_close(*fd);
    }
    *fd = -1;
    for (int pause = tav_port_reopen_pause_ms(0);; pause = tav_port_reopen_pause_ms(pause)) {
        tav_btool_event_wait(m_tav_rx_wake_fd, pause);
        if (!rx_running()) {
            return false;
        }
        if (rx_reopen(fd)) {
            return true;
        }
    }
}

} // namespace

// Reads the panel port until the run flag is cleared or the port is closed.
// The thread waits on the port and on its wake-up descriptor together, so a
// shutdown ends it at once, without cancellation (unwinding a thread out of a
// blocked read is not reliable under user-mode emulation). It reads only
// while holding the transmit mutex and after checking that the descriptor is
// still the open port, so a close by another thread can never leave it
// reading a descriptor number that has been freed or reused; the reads never
// block, since they follow a wait that saw data (or a hang-up) on the port.
// A port that keeps failing is closed and reopened (rx_recover); nothing of
// this goes to the system log.
void* tav_uart_pthread(void* param) {
    (void)param;
    int fd = -1;
    {
        std::lock_guard<std::mutex> lk(tav_port_tx_mutex());
        if (m_tav_port_open.load()) {
            fd = m_tav_port_fd.load();
            tav_buart_set_block(fd, true);
            tav_buart_empty_read(fd);
        }
    }
    tav_btool_event_post(m_rx_started_fd);
    char rx[256];
    int fails = 0;
    while (fd >= 0 && rx_running()) {
        if (fails >= TAV_RX_FAILS_GONE) {
            fails = 0;
            if (!rx_recover(&fd)) {
                break;
            }
        }
        pollfd p[2] = {{m_tav_rx_wake_fd, POLLIN, 0}, {fd, POLLIN, 0}};
        const int r = poll(p, 2, -1);
        if ((p[0].revents & POLLIN) != 0) {
            tav_btool_event_take(m_tav_rx_wake_fd);
            continue;
        }
        if (r <= 0) {
            continue;
        }
        int n;
        {
            std::lock_guard<std::mutex> lk(tav_port_tx_mutex());
            if (!m_tav_port_open.load() || m_tav_port_fd.load() != fd) {
                break;
            }
            n = tav_buart_read_bytes(fd, rx, 255);
        }
        if (n > 0) {
            fails = 0;
            tav_analyze_data(reinterpret_cast<uint8_t*>(rx), static_cast<uint8_t>(n));
        } else {
            ++fails;
        }
    }
    return nullptr;
}

void tav_uart_started_clear(void) {
    tav_btool_event_take(m_rx_started_fd);
}

bool tav_uart_wait_started(uint32_t timeout_ms) {
    return tav_btool_event_wait(m_rx_started_fd, static_cast<int>(timeout_ms));
}
