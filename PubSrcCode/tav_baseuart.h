// Stateless wrapper over a Linux serial device (termios).
#pragma once

#include <cstdint>

#include "tav_common.h"

// A fixed underlying type: a value outside the enumeration is well-defined and
// rejected by the setters.
typedef enum UART_SET_PARAM_PARITY : int {
    em_uart_param_parity_N = 0,
    em_uart_param_parity_O = 1,
    em_uart_param_parity_E = 2,
    em_uart_param_parity_S = 3,
} TAV_ENUM_UART_PARAM_PARITY;

typedef enum UART_SET_PARAM_DATABITS : int {
    em_uart_param_databits_7 = 7,
    em_uart_param_databits_8 = 8,
} TAV_ENUM_UART_PARAM_DATABITS;

typedef enum UART_SET_PARAM_STOPBITS : int {
    em_uart_param_stopbits_1 = 1,
    em_uart_param_stopbits_2 = 2,
} TAV_ENUM_UART_PARAM_STOPBITS;

typedef struct UART_PARAM {
    int32_t speed;
    TAV_ENUM_UART_PARAM_PARITY em_parity;
    TAV_ENUM_UART_PARAM_DATABITS em_databits;
    TAV_ENUM_UART_PARAM_STOPBITS em_stopbits;
} TAV_STRUCT_UART_PARAM;

#define NUM_BAUD_SPEEDS 21

uint32_t tav_buart_class_get_version(void);
int tav_buart_open(int icommid, int* puartfid);
int tav_buart_close(int uartfid);
int tav_buart_set_speed(int uartfid, long lspeed);
int tav_buart_set_parity(int uartfid, TAV_ENUM_UART_PARAM_PARITY emparity);
int tav_buart_set_databits(int uartfid, TAV_ENUM_UART_PARAM_DATABITS emdatabits);
int tav_buart_set_stopbits(int uartfid, TAV_ENUM_UART_PARAM_STOPBITS emstopbits);
int tav_buart_set_other(int uartfid);
int tav_buart_set_param(int uartfid, TAV_STRUCT_UART_PARAM stuparam);
int tav_buart_set_param_string(int uartfid, char* strparam);
int tav_buart_set_block(int uartfid, bool_t block);
int tav_buart_blockread_bytes(int uartfid, char* pbuffer, int ibuflen, int timeout_ms);
int tav_buart_blockwrite_bytes(int uartfid, char* pbuffer, int ibuflen, int timeout_ms);
int tav_buart_read_bytes(int uartfid, char* pbuffer, int ibuflen);
int tav_buart_write_bytes(int uartfid, char* pbuffer, int ibuflen);
void tav_buart_empty_read(int uartfid);
void tav_buart_empty_write(int uartfid);
void tav_buart_empty_wr(int uartfid);
