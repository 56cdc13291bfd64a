// Placeholder: replaced by the module implementation.
#include "tav_keyboard.h"

void tav_dev_init(void) {}
int tav_base_port_open(void) { return 1; }
uint8_t tav_create_thread(void) { return 1; }
void tav_dev_destory(void) {}
void signal_handle(int isignum) { (void)isignum; }

#ifndef TAV_NO_MAIN
int main() { return 1; }
#endif
