// Key analysis: turns the latest key value into the key record.
#pragma once

// Press codes of g_tav_button.press.
#define TAV_PRESS_DIGIT 1
#define TAV_PRESS_MENU 2
#define TAV_PRESS_LEFT 4
#define TAV_PRESS_RIGHT 8
#define TAV_PRESS_TAKE 16
#define TAV_PRESS_LOCK 32
#define TAV_PRESS_BREAK 64
#define TAV_PRESS_DEFAULT 128

// 0 act on the key, 1 ignore it, 2 LOCK reported a second time (lock toggle).
unsigned char tav_ana_key(void);
