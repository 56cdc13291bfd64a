// Placeholder: replaced by the module implementation.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "tav_uart_com.h"

void tav_comint(void) {}
void tav_analyze_data(uint8_t* buf, uint8_t len) {}
void tav_porg_a_format(TAV_COM_STRUCT* com_data) {}
void tav_a_format_sub21(TAV_COM_STRUCT* com_data) {}
void tav_getkey(int key_val) {}
void tav_setkey(TAV_KEY_ENUM keyval) {}
void tav_back_err(uint8_t order, uint8_t code) {}
void tav_sys_hardmint(void) {}
TAV_COM_STRUCT com;
