// Reset and factory-reset menu.
#pragma once

#include "tav_matrix.h"

void tav_menu_reset_init(void);
void tav_menu_reset_clear(void);
void tav_menu_reset(void);
void tav_menu_reset_display(void);
void tav_menu_configure_reset(EM_MATRIX_IRQ_REBOOT_OPT mode);

#include <cstdint>

// The step shown: 0 choose, 1 restart chosen, 2 factory reset chosen,
// 3 factory reset confirmed once.
uint8_t tav_menu_reset_get_step(void);
