// Audio switching menu: the audio twin of the video menu over the shared
// switching engine (tav_menu_av_switch.cpp).
#include "tav_menu_audio.h"

static TAV_AV_MENU m_tav_audio = {&tav_av_kind_audio, {}, {}};

TAV_AV_MENU_FUNCTIONS(audio, m_tav_audio)
