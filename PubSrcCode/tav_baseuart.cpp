// Stateless wrapper over a Linux serial device: open by line number, line
// parameters from a short text, blocking mode, raw reads and writes.
#include "tav_baseuart.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/serial.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "tav_platform.h"

namespace {

struct speed_map {
    uint32_t speed; // termios speed constant
    uint32_t value; // bits per second
};

const speed_map m_buart_speed_map[NUM_BAUD_SPEEDS] = {
    {B0, 0},           {B50, 50},       {B75, 75},         {B110, 110},       {B134, 134},
    {B150, 150},       {B200, 200},     {B300, 300},       {B600, 600},       {B1200, 1200},
    {B1800, 1800},     {B2400, 2400},   {B4800, 4800},     {B9600, 9600},     {B19200, 19200},
    {B38400, 38400},   {B57600, 57600}, {B115200, 115200}, {B230400, 230400}, {B460800, 460800},
    {B921600, 921600},
};

const uint32_t TAV_BUART_VERSION = 0x10004;

// Reads the attributes, lets `change` edit them, discards pending input and
// output and applies at once. The read result is not checked: a failed read
// leaves zeroed attributes, which the apply then rejects or sets.
template <typename F> int buart_modify(int uartfid, F change) {
    struct termios opt;
    memset(&opt, 0, sizeof opt);
    tcgetattr(uartfid, &opt);
    change(opt);
    tcflush(uartfid, TCIOFLUSH);
    return tcsetattr(uartfid, TCSANOW, &opt) == 0 ? 0 : -3;
}

} // namespace

uint32_t tav_buart_class_get_version(void) {
    return TAV_BUART_VERSION;
}

int tav_buart_open(int icommid, int* puartfid) {
    if (puartfid == nullptr) {
        return -1;
    }
    *puartfid = -1;
    if (icommid < 1) {
        return -1;
    }
    char devname[16];
    // A 16-byte name: line numbers beyond four digits are cut short.
    if (snprintf(devname, sizeof devname, "%s%d", "/dev/ttyPSC", icommid - 1) < 0) {
        return -2;
    }
    char path[256];
    tav_platform_path(devname, path, sizeof path);
    int fd = open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_SYNC | O_CLOEXEC);
    if (fd < 0) {
        return -2;
    }
    *puartfid = fd;
    return 0;
}

int tav_buart_close(int uartfid) {
    if (uartfid < 0) {
        return -1;
    }
    tcflush(uartfid, TCIOFLUSH);
    close(uartfid);
    return 0;
}

int tav_buart_set_speed(int uartfid, long lspeed) {
    if (uartfid < 0) {
        return -1;
    }
    struct termios opt;
    if (tcgetattr(uartfid, &opt) != 0) {
        return -3;
    }
    const uint32_t want = static_cast<uint32_t>(lspeed);
    const speed_map* row = nullptr;
    for (const speed_map& m : m_buart_speed_map) {
        if (m.value == want) {
            row = &m;
            break;
        }
    }
    if (row != nullptr) {
        tcflush(uartfid, TCIOFLUSH);
        cfsetispeed(&opt, row->speed);
        cfsetospeed(&opt, row->speed);
        if (tcsetattr(uartfid, TCSANOW, &opt) != 0) {
            int err = errno;
            tav_log(TAV_LOG_ERR, "func=[%s]set_speed(%d) error: %s(errno = %d) setattr\n", __func__,
                    uartfid, strerror(err), err);
            return -133;
        }
    } else {
        // Not a standard rate: run the line at B38400 and let the driver
        // replace that rate with baud_base / custom_divisor.
        cfsetispeed(&opt, B38400);
        cfsetospeed(&opt, B38400);
        if (tcsetattr(uartfid, TCSANOW, &opt) != 0) {
            int err = errno;
            tav_log(TAV_LOG_ERR, "func=[%s]set 38400 error(%d): %s\n", __func__, err,
                    strerror(err));
            return -142;
        }
        struct serial_struct serial;
        memset(&serial, 0, sizeof serial);
        if (ioctl(uartfid, TIOCGSERIAL, &serial) != 0) {
            int err = errno;
            tav_log(TAV_LOG_ERR, "func=[%s]ioctl  Get configurations  error(%d): %s\n", __func__,
                    err, strerror(err));
            return -150;
        }
        serial.flags = ASYNC_SPD_CUST;
        tav_log(TAV_LOG_INFO, "func=[%s]Serial.baud_base =%d\n", __func__, serial.baud_base);
        serial.custom_divisor = static_cast<int>(serial.baud_base / lspeed);
        tav_log(TAV_LOG_INFO, "func=[%s]divisor is %x\n", __func__,
                static_cast<unsigned>(serial.custom_divisor));
        if (ioctl(uartfid, TIOCSSERIAL, &serial) != 0) {
            int err = errno;
            tav_log(TAV_LOG_ERR, "func=[%s]ioctl  Set configurations  error(%d): %s\n", __func__,
                    err, strerror(err));
            return -163;
        }
    }
    tcflush(uartfid, TCIOFLUSH);
    return 0;
}

int tav_buart_set_parity(int uartfid, TAV_ENUM_UART_PARAM_PARITY emparity) {
    if (uartfid < 0) {
        return -1;
    }
    if (emparity < em_uart_param_parity_N || emparity > em_uart_param_parity_S) {
        return -2;
    }
    return buart_modify(uartfid, [emparity](struct termios& opt) {
        switch (emparity) {
        case em_uart_param_parity_N:
            opt.c_cflag &= ~PARENB;
            opt.c_iflag &= ~INPCK;
            break;
        case em_uart_param_parity_O:
            opt.c_cflag |= (PARENB | PARODD);
            opt.c_iflag |= INPCK;
            break;
        case em_uart_param_parity_E:
            opt.c_cflag |= PARENB;
            opt.c_cflag &= ~PARODD;
            opt.c_iflag |= INPCK;
            break;
        case em_uart_param_parity_S:
            opt.c_cflag &= ~(PARENB | CSTOPB);
            opt.c_iflag |= INPCK;
            break;
        }
    });
}

int tav_buart_set_databits(int uartfid, TAV_ENUM_UART_PARAM_DATABITS emdatabits) {
    if (uartfid < 0) {
        return -1;
    }
    if (emdatabits != em_uart_param_databits_7 && emdatabits != em_uart_param_databits_8) {
        return -2;
    }
    return buart_modify(uartfid, [emdatabits](struct termios& opt) {
        opt.c_cflag &= ~CSIZE;
        opt.c_cflag |= (emdatabits == em_uart_param_databits_7) ? CS7 : CS8;
    });
}

int tav_buart_set_stopbits(int uartfid, TAV_ENUM_UART_PARAM_STOPBITS emstopbits) {
    if (uartfid < 0) {
        return -1;
    }
    if (emstopbits != em_uart_param_stopbits_1 && emstopbits != em_uart_param_stopbits_2) {
        return -2;
    }
    return buart_modify(uartfid, [emstopbits](struct termios& opt) {
        if (emstopbits == em_uart_param_stopbits_1) {
            opt.c_cflag &= ~CSTOPB;
        } else {
            opt.c_cflag |= CSTOPB;
        }
    });
}

int tav_buart_set_other(int uartfid) {
    if (uartfid < 0) {
        return -1;
    }
    return buart_modify(uartfid, [](struct termios& opt) {
        opt.c_cflag |= (CLOCAL | CREAD);
        opt.c_iflag &= ~(BRKINT | INPCK | ICRNL | IXON | IXOFF | IXANY);
        opt.c_lflag &= ~(ICANON | ECHO | ECHOE | ISIG | IEXTEN);
        opt.c_oflag &= ~OPOST;
    });
}

int tav_buart_set_param(int uartfid, TAV_STRUCT_UART_PARAM stuparam) {
    if (tav_buart_set_speed(uartfid, stuparam.speed) != 0) {
        return -1;
    }
    if (tav_buart_set_databits(uartfid, stuparam.em_databits) != 0) {
        return -2;
    }
    if (tav_buart_set_stopbits(uartfid, stuparam.em_stopbits) != 0) {
        return -3;
    }
    if (tav_buart_set_parity(uartfid, stuparam.em_parity) != 0) {
        return -4;
    }
    if (tav_buart_set_other(uartfid) != 0) {
        return -5;
    }
    return 0;
}

int tav_buart_set_param_string(int uartfid, char* strparam) {
    if (strparam == nullptr || uartfid < 0) {
        return 1;
    }
    TAV_STRUCT_UART_PARAM param;
    char* rest = strparam;
    const char* field = strsep(&rest, ";");
    param.speed = static_cast<int32_t>(atol(field));
    if (rest == nullptr) {
        return 3;
    }
    field = strsep(&rest, ";");
    switch (field[0]) {
    case 'O':
    case 'o':
        param.em_parity = em_uart_param_parity_O;
        break;
    case 'E':
    case 'e':
        param.em_parity = em_uart_param_parity_E;
        break;
    case 'S':
    case 's':
        param.em_parity = em_uart_param_parity_S;
        break;
    default:
        param.em_parity = em_uart_param_parity_N;
        break;
    }
    if (rest == nullptr) {
        return 4;
    }
    field = strsep(&rest, ";");
    param.em_databits = (field[0] == '8') ? em_uart_param_databits_8 : em_uart_param_databits_7;
    if (rest == nullptr) {
        return 5;
    }
    field = strsep(&rest, ";");
    param.em_stopbits = (field[0] == '1') ? em_uart_param_stopbits_1 : em_uart_param_stopbits_2;
    return tav_buart_set_param(uartfid, param);
}

int tav_buart_set_block(int uartfid, bool_t block) {
    int flags = fcntl(uartfid, F_GETFL);
    if (flags >= 0) {
        fcntl(uartfid, F_SETFL, block ? (flags & ~O_NONBLOCK) : (flags | O_NONBLOCK));
    }
    return buart_modify(uartfid,
                        [block](struct termios& opt) {
                            opt.c_cc[VMIN] = block ? 1 : 0;
                            opt.c_cc[VTIME] = 0;
                        }) == 0
               ? 0
               : -1;
}

int tav_buart_blockread_bytes(int uartfid, char* pbuffer, int ibuflen, int timeout_ms) {
    struct pollfd pfd;
    pfd.fd = uartfid;
    pfd.events = POLLIN;
    pfd.revents = 0;
    int r = poll(&pfd, 1, timeout_ms);
    if (r == 0) {
        return 0;
    }
    if (r < 0) {
        if (errno == EINTR) {
            tav_log(TAV_LOG_WARNING, "func=[%s]poll break by signal\n", __func__);
        } else {
            tav_log(TAV_LOG_WARNING, "func=[%s]poll error\n", __func__);
        }
        return -1;
    }
    return tav_buart_read_bytes(uartfid, pbuffer, ibuflen);
}

int tav_buart_blockwrite_bytes(int uartfid, char* pbuffer, int ibuflen, int timeout_ms) {
    (void)timeout_ms;
    return tav_buart_write_bytes(uartfid, pbuffer, ibuflen);
}

int tav_buart_read_bytes(int uartfid, char* pbuffer, int ibuflen) {
    if (uartfid < 0 || pbuffer == nullptr || ibuflen < 0) {
        return -1;
    }
    ssize_t n = read(uartfid, pbuffer, static_cast<size_t>(ibuflen));
    if (n < 0) {
        return (errno == EAGAIN || errno == EWOULDBLOCK) ? 0 : -1;
    }
    return static_cast<int>(n);
}

int tav_buart_write_bytes(int uartfid, char* pbuffer, int ibuflen) {
    if (uartfid < 0 || pbuffer == nullptr || ibuflen < 0) {
        return -1;
    }
    return static_cast<int>(write(uartfid, pbuffer, static_cast<size_t>(ibuflen)));
}

void tav_buart_empty_read(int uartfid) {
    if (uartfid >= 0) {
        tcflush(uartfid, TCIFLUSH);
    }
}

void tav_buart_empty_write(int uartfid) {
    if (uartfid >= 0) {
        tcflush(uartfid, TCOFLUSH);
    }
}

void tav_buart_empty_wr(int uartfid) {
    if (uartfid >= 0) {
        tcflush(uartfid, TCIOFLUSH);
    }
}
