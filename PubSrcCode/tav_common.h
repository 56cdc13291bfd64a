// Types shared by every module of the program and the base modules.
#pragma once

#include <cstdint>

// The system's two-valued type.
typedef bool bool_t;

// Result codes of the base modules (-7 to -21 belong to the inner protocol codec).
typedef enum TAV_ERROR {
    em_success = 0,
    em_err_unknow = -1,
    em_err_inparam = -2,
    em_err_obj_invalid = -3,
    em_err_open = -4,
    em_err_write = -5,
    em_err_read = -6,
} TAV_ENUM_ERROR_CODE;

// syslog priorities used by the program: user facility plus level.
enum : int {
    TAV_LOG_ERR = 11,
    TAV_LOG_WARNING = 12,
    TAV_LOG_NOTICE = 13,
    TAV_LOG_INFO = 14,
    TAV_LOG_DEBUG = 15,
};

// Stack of the program's own threads (receive thread, inner-signal listener):
// they need a few kilobytes; the default of several megabytes only costs
// address space and page tables.
constexpr unsigned long TAV_THREAD_STACK_BYTES = 64ul * 1024ul;
