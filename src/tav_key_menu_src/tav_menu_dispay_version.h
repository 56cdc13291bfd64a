// Version display and publishing of the panel versions.
#pragma once

void tav_version_init(void);
void tav_version_clear(void);
void tav_version_handle(void);
void tav_version_refreash(void);
void tav_version_sec(void);
void tav_version_display(void);
int my_version_tav_btool_system(const char* cmdstring, char* buf, int len);
void tav_version_add_0(char* srcbuf, char* destbuf);
void tav_version_set_get(void);

#include <cstdint>

// The page shown: 0 main application, 1 soft key, 2 hard key.
uint8_t tav_version_get_sec(void);
