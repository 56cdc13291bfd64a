// Ethernet settings display.
#pragma once

#include <cstdint>

void tav_eth_init(void);
void tav_eth_clear(void);
void tav_eth_sec(void);
void tav_eth_dis(void);
void tav_eth_ip(void);
void tav_eth_mac(void);
void tav_eth_gate(void);
void tav_eth_mask(void);
void tav_eth_sec_display(void);
void tav_eth_dis_display(void);
void tav_eth_ip_display(void);
void tav_eth_mac_display(void);
void tav_eth_gate_display(void);
void tav_eth_mask_display(void);
int mytav_btool_system(const char* cmdstring, char* buf, int len);
void AddIP_GATE_MASK_0(char* buf);

// The interface shown (0 eth0, 1 eth1).
uint8_t tav_eth_get_sec(void);

// Copies `text` (at most `maxlen` bytes, up to its terminator) into
// `line[col..limit-1]`; characters an LCD cannot show become blanks.
void tav_menu_put_text(int8_t* line, int col, int limit, const char* text, int maxlen);
