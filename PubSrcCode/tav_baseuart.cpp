// Placeholder: replaced by the module implementation.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "tav_baseuart.h"

uint32_t tav_buart_class_get_version(void) { return {}; }
int tav_buart_open(int icommid, int* puartfid) { return {}; }
int tav_buart_close(int uartfid) { return {}; }
int tav_buart_set_speed(int uartfid, long lspeed) { return {}; }
int tav_buart_set_parity(int uartfid, TAV_ENUM_UART_PARAM_PARITY emparity) { return {}; }
int tav_buart_set_databits(int uartfid, TAV_ENUM_UART_PARAM_DATABITS emdatabits) { return {}; }
int tav_buart_set_stopbits(int uartfid, TAV_ENUM_UART_PARAM_STOPBITS emstopbits) { return {}; }
int tav_buart_set_other(int uartfid) { return {}; }
int tav_buart_set_param(int uartfid, TAV_STRUCT_UART_PARAM stuparam) { return {}; }
int tav_buart_set_param_string(int uartfid, char* strparam) { return {}; }
int tav_buart_set_block(int uartfid, bool_t block) { return {}; }
int tav_buart_blockread_bytes(int uartfid, char* pbuffer, int ibuflen, int timeout_ms) { return {}; }
int tav_buart_blockwrite_bytes(int uartfid, char* pbuffer, int ibuflen, int timeout_ms) { return {}; }
int tav_buart_read_bytes(int uartfid, char* pbuffer, int ibuflen) { return {}; }
int tav_buart_write_bytes(int uartfid, char* pbuffer, int ibuflen) { return {}; }
void tav_buart_empty_read(int uartfid) {}
void tav_buart_empty_write(int uartfid) {}
void tav_buart_empty_wr(int uartfid) {}
