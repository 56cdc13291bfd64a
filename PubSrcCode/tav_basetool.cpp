// Placeholder: replaced by the module implementation.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "tav_basetool.h"

uint32_t tav_btool_get_runtime(void) { return {}; }
int tav_btool_system(const char* shcmd) { return {}; }
