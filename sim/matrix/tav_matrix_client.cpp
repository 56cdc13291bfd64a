// libtav_matrix.so for the host build: a client of the simulated matrix core.
//
// Each handle has two connections to $TAV_ROOT/var/run/tav_matrix.sock:
// - a request connection: one text line per call, one line back; calls from
//   several threads take turns on a mutex; every wait on it is bounded, and a
//   broken or silent connection is dropped, so the call fails with -1; a
//   connection the core has closed (a new core instance) is replaced before
//   the call is sent;
// - a signal connection, opened by the first registration and read by a
//   thread of the library, which keeps the latest record and calls the
//   registered callback once per signal whose bits meet the registered mask.
//   When the core goes away the thread subscribes anew, after 100 ms at first
//   and then twice as long each time, up to 2 s. Once it is subscribed to a
//   new core instance it delivers one record with the connection and port
//   bits (0x0660) and all other fields 0: the routes and ports may all differ
//   on the new core, and a client that caches them reloads them.
//
// Wire format. The same on every CPU (a big-endian 32-bit client talks to a
// little-endian 64-bit core): lines of ASCII words separated by one blank and
// ended by LF. No C structure crosses the socket: a record is sent as one word
// per field, in the order its declaration gives, so neither byte order nor
// word size nor padding shows. Numbers are decimal; int32 values signed, u32
// values unsigned; the open version is 0x-prefixed hex.
//   request connection, client -> core, then core -> client:
//     "hello PID"                          first line of each new connection
//     "open 0xVERSION PID"             -> "RESULT"
//     "CALL ARG..."                    -> "RESULT"   (CALL: the function name
//                                         without tav_matrix_, int32 arguments;
//                                         the masks of register/unregister u32)
//     "set_port_edid PORT KIND LENGTH HEX"   the bytes as two hex digits each
//     "get_port_edid PORT KIND LENGTH" -> "0 HEX"
//     "get_card_information SLOT"      -> "0 F1 ... F17"   the fields of obj_card
//   signal connection:
//     client -> core  "subscribe PID MASK"         MASK: the registered bits
//     core -> client  "sig SRC THREAD PARAM BITS"  the four u32 fields of sig_flag
//
// Plain C facilities only: no exceptions can cross the C interface, and the
// library builds for the target as well.
#include <errno.h>
#include <inttypes.h>
#include <poll.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include "tav_matrix.h"

namespace {

constexpr uint32_t kMagic = 0x54415648u; // "TAVH"
constexpr int kOpenTimeoutMs = 1000;
constexpr int kDefaultTimeoutMs = 2000;
constexpr int kReconnectFirstMs = 100;
constexpr int kReconnectMaxMs = 2000;
// What may have changed while no core was there.
constexpr uint32_t kNewCoreBits = TAV_MATRIX_SIG_VIDEO_CONNECT | TAV_MATRIX_SIG_AUDIO_CONNECT |
                                  TAV_MATRIX_SIG_VIDEO_PORT | TAV_MATRIX_SIG_AUDIO_PORT;
constexpr size_t kLineMax = 2048;

struct Handle {
    uint32_t magic;
    char path[sizeof(sockaddr_un::sun_path)];
    int timeout_ms;

    pthread_mutex_t req_mu;
    int req_fd;

    pthread_mutex_t sig_mu; // guards the fields below
    TAV_MATRIX_OBJ_SIGNAL_FLAG last;
    int has_last;
    uint32_t mask;
    TAV_MATRIX_SIGNAL_CALLBACK cb;
    int thread_started;

    pthread_mutex_t cb_mu; // recursive; held while the callback runs

    Handle* next; // every handle opened, see tav_matrix_open
};

pthread_mutex_t g_handles_mu = PTHREAD_MUTEX_INITIALIZER;
Handle* g_handles = nullptr;

long now_ms() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec * 1000L + t.tv_nsec / 1000000L;
}

// Non-blocking, so a core that has stopped accepting (its backlog full) makes
// the connect fail at once instead of blocking the caller.
int connect_to(const char* path) {
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return -1;
    sockaddr_un a;
    memset(&a, 0, sizeof a);
    a.sun_family = AF_UNIX;
    strncpy(a.sun_path, path, sizeof a.sun_path - 1);
    if (connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// Waits for `ev` on fd until the deadline; true when ready.
bool wait_fd(int fd, short ev, long deadline) {
    for (;;) {
        long left = deadline - now_ms();
        if (left < 0)
            return false;
        pollfd p = {fd, ev, 0};
        int r = poll(&p, 1, static_cast<int>(left));
        if (r > 0)
            return (p.revents & (ev | POLLHUP | POLLERR)) != 0;
        if (r == 0)
            return false;
        if (errno != EINTR)
            return false;
    }
}

bool send_all(int fd, const char* s, size_t n, long deadline) {
    while (n > 0) {
        if (!wait_fd(fd, POLLOUT, deadline))
            return false;
        ssize_t w = send(fd, s, n, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (w < 0) {
            if (errno == EAGAIN || errno == EINTR)
                continue;
            return false;
        }
        s += w;
        n -= static_cast<size_t>(w);
    }
    return true;
}

// Reads one line (without its line end) into out.
bool recv_line(int fd, char* out, size_t cap, long deadline) {
    size_t n = 0;
    for (;;) {
        if (!wait_fd(fd, POLLIN, deadline))
            return false;
        char c;
        ssize_t r = recv(fd, &c, 1, MSG_DONTWAIT);
        if (r == 0)
            return false;
        if (r < 0) {
            if (errno == EAGAIN || errno == EINTR)
                continue;
            return false;
        }
        if (c == '\n') {
            out[n] = 0;
            return true;
        }
        if (n + 1 < cap)
            out[n++] = c;
    }
}

void drop(Handle* h) {
    if (h->req_fd >= 0)
        close(h->req_fd);
    h->req_fd = -1;
}

// True when the core has closed the connection (it ended, a new instance may
// serve the socket now) or sent something nobody asked for.
bool stale(int fd) {
    pollfd p = {fd, POLLIN, 0};
    return poll(&p, 1, 0) != 0;
}

// One call: sends `line` and reads the answer; returns its leading result and
// leaves the payload (after the first blank) in `payload` when given.
int32_t call(Handle* h, const char* line, char* payload = nullptr, size_t cap = 0) {
    if (!h || h->magic != kMagic)
        return -1;
    char reply[kLineMax];
    int32_t rc = -1;
    pthread_mutex_lock(&h->req_mu);
    const long deadline = now_ms() + h->timeout_ms;
    if (h->req_fd >= 0 && stale(h->req_fd))
        drop(h);
    if (h->req_fd < 0) {
        // A new connection first tells the core whose it is.
        h->req_fd = connect_to(h->path);
        char hello[48];
        snprintf(hello, sizeof hello, "hello %ld\n", static_cast<long>(getpid()));
        if (h->req_fd >= 0 && !send_all(h->req_fd, hello, strlen(hello), deadline))
            drop(h);
    }
    if (h->req_fd >= 0 && send_all(h->req_fd, line, strlen(line), deadline) &&
        recv_line(h->req_fd, reply, sizeof reply, deadline)) {
        char* end = nullptr;
        long v = strtol(reply, &end, 10);
        if (end != reply) {
            rc = static_cast<int32_t>(v);
            if (payload && cap) {
                const char* p = *end == ' ' ? end + 1 : end;
                strncpy(payload, p, cap - 1);
                payload[cap - 1] = 0;
            }
        } else {
            drop(h);
        }
    } else {
        drop(h);
    }
    pthread_mutex_unlock(&h->req_mu);
    return rc;
}

int32_t callf(Handle* h, const char* fmt, long a = 0, long b = 0) {
    char line[128];
    snprintf(line, sizeof line, fmt, a, b);
    return call(h, line);
}

int32_t callu(Handle* h, const char* name, uint32_t v) {
    char line[128];
    snprintf(line, sizeof line, "%s %" PRIu32 "\n", name, v);
    return call(h, line);
}

void sleep_ms(int ms) {
    timespec t = {ms / 1000, (ms % 1000) * 1000000L};
    while (nanosleep(&t, &t) != 0 && errno == EINTR) {
    }
}

void deliver(Handle* h, const TAV_MATRIX_OBJ_SIGNAL_FLAG& rec) {
    pthread_mutex_lock(&h->sig_mu);
    TAV_MATRIX_SIGNAL_CALLBACK cb = (rec.sig_bit_map & h->mask) ? h->cb : nullptr;
    if (cb) {
        h->last = rec;
        h->has_last = 1;
    }
    pthread_mutex_unlock(&h->sig_mu);
    if (!cb)
        return;
    pthread_mutex_lock(&h->cb_mu);
    pthread_mutex_lock(&h->sig_mu);
    const bool still = h->cb == cb && (rec.sig_bit_map & h->mask);
    pthread_mutex_unlock(&h->sig_mu);
    if (still)
        cb(static_cast<int>(rec.src_parameter));
    pthread_mutex_unlock(&h->cb_mu);
}

void* signal_thread(void* arg) {
    Handle* h = static_cast<Handle*>(arg);
    char buf[4096];
    size_t have = 0;
    bool lost = false; // a core we were subscribed to went away
    int pause_ms = kReconnectFirstMs;
    for (;;) {
        int fd = connect_to(h->path);
        if (fd >= 0) {
            pthread_mutex_lock(&h->sig_mu);
            const uint32_t mask = h->mask;
            pthread_mutex_unlock(&h->sig_mu);
            char hello[48];
            int n = snprintf(hello, sizeof hello, "subscribe %ld %" PRIu32 "\n",
                             static_cast<long>(getpid()), mask);
            if (send(fd, hello, static_cast<size_t>(n), MSG_NOSIGNAL | MSG_DONTWAIT) != n) {
                close(fd);
                fd = -1;
            }
        }
        have = 0;
        if (fd >= 0) {
            pause_ms = kReconnectFirstMs;
            if (lost) {
                TAV_MATRIX_OBJ_SIGNAL_FLAG rec = {};
                rec.sig_bit_map = kNewCoreBits;
                deliver(h, rec);
            }
            lost = true;
        }
        while (fd >= 0) {
            pollfd p = {fd, POLLIN, 0};
            if (poll(&p, 1, -1) < 0 && errno != EINTR)
                break;
            ssize_t r = recv(fd, buf + have, sizeof buf - 1 - have, MSG_DONTWAIT);
            if (r == 0 || (r < 0 && errno != EAGAIN && errno != EINTR))
                break;
            if (r < 0)
                continue;
            have += static_cast<size_t>(r);
            char* start = buf;
            char* nl;
            while ((nl = static_cast<char*>(
                        memchr(start, '\n', have - static_cast<size_t>(start - buf))))) {
                *nl = 0;
                TAV_MATRIX_OBJ_SIGNAL_FLAG rec;
                if (sscanf(start, "sig %" SCNu32 " %" SCNu32 " %" SCNu32 " %" SCNu32, &rec.src,
                           &rec.thread_id, &rec.src_parameter, &rec.sig_bit_map) == 4)
                    deliver(h, rec);
                start = nl + 1;
            }
            have -= static_cast<size_t>(start - buf);
            memmove(buf, start, have);
            if (have == sizeof buf - 1)
                have = 0; // an overlong line is dropped
        }
        if (fd >= 0)
            close(fd);
        sleep_ms(pause_ms); // the core went away: try again later
        pause_ms = pause_ms * 2 > kReconnectMaxMs ? kReconnectMaxMs : pause_ms * 2;
    }
    return nullptr;
}

Handle* H(void* p) {
    Handle* h = static_cast<Handle*>(p);
    return h && h->magic == kMagic ? h : nullptr;
}

} // namespace

extern "C" {

void* tav_matrix_open(uint32_t version) {
    const char* root = getenv("TAV_ROOT");
    if (!root || !*root)
        root = "/";
    Handle* h = static_cast<Handle*>(calloc(1, sizeof(Handle)));
    if (!h)
        return nullptr;
    size_t rl = strlen(root);
    while (rl > 1 && root[rl - 1] == '/')
        --rl;
    if (snprintf(h->path, sizeof h->path, "%.*s/var/run/tav_matrix.sock", static_cast<int>(rl),
                 root) >= static_cast<int>(sizeof h->path)) {
        free(h);
        return nullptr;
    }
    const char* t = getenv("TAV_MATRIX_TIMEOUT_MS");
    h->timeout_ms = t && atoi(t) > 0 ? atoi(t) : kDefaultTimeoutMs;
    h->magic = kMagic;
    h->req_fd = -1;
    pthread_mutex_init(&h->req_mu, nullptr);
    pthread_mutex_init(&h->sig_mu, nullptr);
    pthread_mutexattr_t ra;
    pthread_mutexattr_init(&ra);
    pthread_mutexattr_settype(&ra, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&h->cb_mu, &ra);
    pthread_mutexattr_destroy(&ra);

    const int keep = h->timeout_ms;
    h->timeout_ms = kOpenTimeoutMs;
    char line[64];
    snprintf(line, sizeof line, "open 0x%08x %ld\n", version, static_cast<long>(getpid()));
    const int32_t rc = call(h, line);
    h->timeout_ms = keep;
    if (rc != 0) {
        drop(h);
        h->magic = 0;
        pthread_mutex_destroy(&h->req_mu);
        pthread_mutex_destroy(&h->sig_mu);
        pthread_mutex_destroy(&h->cb_mu);
        free(h);
        return nullptr;
    }
    // The interface has no close: handles live as long as the process.
    pthread_mutex_lock(&g_handles_mu);
    h->next = g_handles;
    g_handles = h;
    pthread_mutex_unlock(&g_handles_mu);
    return h;
}

int32_t tav_matrix_get_device_type(void* h) {
    return call(H(h), "get_device_type\n");
}
int32_t tav_matrix_get_active_video_pipe_io(void* h, int32_t port) {
    return callf(H(h), "get_active_video_pipe_io %ld\n", port);
}
int32_t tav_matrix_get_active_audio_pipe_io(void* h, int32_t port) {
    return callf(H(h), "get_active_audio_pipe_io %ld\n", port);
}
int32_t tav_matrix_get_video_pipe_io(void* h, int32_t port) {
    return callf(H(h), "get_video_pipe_io %ld\n", port);
}
int32_t tav_matrix_get_audio_pipe_io(void* h, int32_t port) {
    return callf(H(h), "get_audio_pipe_io %ld\n", port);
}
int32_t tav_matrix_get_video_switch_state(void* h, int32_t output) {
    return callf(H(h), "get_video_switch_state %ld\n", output);
}
int32_t tav_matrix_get_audio_switch_state(void* h, int32_t output) {
    return callf(H(h), "get_audio_switch_state %ld\n", output);
}
int32_t tav_matrix_set_video_switch(void* h, int32_t input, int32_t output) {
    return callf(H(h), "set_video_switch %ld %ld\n", input, output);
}
int32_t tav_matrix_set_audio_switch(void* h, int32_t input, int32_t output) {
    return callf(H(h), "set_audio_switch %ld %ld\n", input, output);
}
int32_t tav_matrix_stash_video_switch_data(void* h, int32_t input, int32_t output) {
    return callf(H(h), "stash_video_switch_data %ld %ld\n", input, output);
}
int32_t tav_matrix_stash_audio_switch_data(void* h, int32_t input, int32_t output) {
    return callf(H(h), "stash_audio_switch_data %ld %ld\n", input, output);
}
int32_t tav_matrix_set_video_switch_done(void* h) {
    return call(H(h), "set_video_switch_done\n");
}
int32_t tav_matrix_set_audio_switch_done(void* h) {
    return call(H(h), "set_audio_switch_done\n");
}

int32_t tav_matrix_get_port_edid(void* h, int32_t port, int32_t kind, uint8_t* buffer,
                                 int32_t length) {
    if (!buffer || length <= 0)
        return -2;
    char line[96];
    snprintf(line, sizeof line, "get_port_edid %d %d %d\n", port, kind, length);
    char payload[kLineMax];
    payload[0] = 0;
    const int32_t rc = call(H(h), line, payload, sizeof payload);
    if (rc != 0)
        return rc;
    for (int32_t i = 0; i < length && payload[2 * i] && payload[2 * i + 1]; ++i) {
        unsigned v = 0;
        if (sscanf(payload + 2 * i, "%2x", &v) != 1)
            return -1;
        buffer[i] = static_cast<uint8_t>(v);
    }
    return 0;
}

int32_t tav_matrix_set_port_edid(void* h, int32_t port, int32_t kind, uint8_t* buffer,
                                 int32_t length) {
    if (!buffer || length <= 0)
        return -2;
    const int32_t n = length > 256 ? 256 : length;
    char line[96 + 2 * 256];
    int off = snprintf(line, 96, "set_port_edid %d %d %d ", port, kind, length);
    static const char d[] = "0123456789abcdef";
    for (int32_t i = 0; i < n; ++i) {
        line[off++] = d[buffer[i] >> 4];
        line[off++] = d[buffer[i] & 15];
    }
    line[off++] = '\n';
    line[off] = 0;
    return call(H(h), line);
}

int32_t tav_matrix_register_inner_signal(void* p, uint32_t mask,
                                         TAV_MATRIX_SIGNAL_CALLBACK callback) {
    Handle* h = H(p);
    if (!h || !callback)
        return -1;
    pthread_mutex_lock(&h->sig_mu);
    h->mask = mask;
    h->cb = callback;
    int start = !h->thread_started;
    h->thread_started = 1;
    pthread_mutex_unlock(&h->sig_mu);
    if (start) {
        pthread_attr_t a;
        pthread_attr_init(&a);
        pthread_attr_setdetachstate(&a, PTHREAD_CREATE_DETACHED);
        pthread_t t;
        const int e = pthread_create(&t, &a, signal_thread, h);
        pthread_attr_destroy(&a);
        if (e != 0) {
            pthread_mutex_lock(&h->sig_mu);
            h->thread_started = 0;
            h->cb = nullptr;
            pthread_mutex_unlock(&h->sig_mu);
            return -1;
        }
    }
    return callu(h, "register_inner_signal", mask);
}

int32_t tav_matrix_unregister_inner_signal(void* p, uint32_t mask) {
    Handle* h = H(p);
    if (!h)
        return -1;
    // Waits for a callback in progress, so none runs after this returns.
    pthread_mutex_lock(&h->cb_mu);
    pthread_mutex_lock(&h->sig_mu);
    h->mask &= ~mask;
    if (h->mask == 0)
        h->cb = nullptr;
    pthread_mutex_unlock(&h->sig_mu);
    pthread_mutex_unlock(&h->cb_mu);
    return callu(h, "unregister_inner_signal", mask);
}

int32_t tav_matrix_get_inner_signal_information(void* p, TAV_MATRIX_OBJ_SIGNAL_FLAG* record) {
    Handle* h = H(p);
    if (!h || !record)
        return -1;
    pthread_mutex_lock(&h->sig_mu);
    const int have = h->has_last;
    if (have)
        *record = h->last;
    pthread_mutex_unlock(&h->sig_mu);
    return have ? 0 : -1;
}

int32_t tav_matrix_get_card_information(void* h, int32_t slot, TAV_MATRIX_OBJ_CARD* card) {
    if (!card)
        return -2;
    char line[64], payload[kLineMax];
    snprintf(line, sizeof line, "get_card_information %d\n", slot);
    const int32_t rc = call(H(h), line, payload, sizeof payload);
    if (rc != 0)
        return rc;
    long v[17];
    if (sscanf(payload, "%ld %ld %ld %ld %ld %ld %ld %ld %ld %ld %ld %ld %ld %ld %ld %ld %ld",
               &v[0], &v[1], &v[2], &v[3], &v[4], &v[5], &v[6], &v[7], &v[8], &v[9], &v[10], &v[11],
               &v[12], &v[13], &v[14], &v[15], &v[16]) != 17)
        return -1;
    card->slot_id = static_cast<uint32_t>(v[0]);
    card->card_status = static_cast<int32_t>(v[1]);
    card->type_id = static_cast<int16_t>(v[2]);
    card->ver_major = static_cast<int16_t>(v[3]);
    card->ver_minor = static_cast<int16_t>(v[4]);
    card->ver_build = static_cast<int16_t>(v[5]);
    int32_t* rest[] = {&card->io_dir,
                       &card->link_mode,
                       &card->gens,
                       &card->iap_support,
                       &card->audiomatrix_support,
                       &card->network_support,
                       &card->inner_irq_support,
                       &card->uart_set_support,
                       &card->sync_support,
                       &card->subfun_number,
                       &card->main_cpu_type};
    for (int i = 0; i < 11; ++i)
        *rest[i] = static_cast<int32_t>(v[6 + i]);
    return 0;
}

int32_t tav_matrix_get_iap_process_slotID(void* h) {
    return call(H(h), "get_iap_process_slotID\n");
}
int32_t tav_matrix_get_iap_process_PCT(void* h, int32_t slot) {
    return callf(H(h), "get_iap_process_PCT %ld\n", slot);
}
int32_t tav_matrix_set_inner_signal_reboot_opt(void* h, int32_t option) {
    return callf(H(h), "set_inner_signal_reboot_opt %ld\n", option);
}
int32_t tav_matrix_set_inner_signal_lock_fp_opt(void* h) {
    return callf(H(h), "set_inner_signal_lock_fp_opt %ld\n", static_cast<long>(getpid()));
}

} // extern "C"
