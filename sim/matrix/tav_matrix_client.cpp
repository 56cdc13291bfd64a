// Placeholder: replaced by the implementation.
#include "tav_matrix.h"
extern "C" {
void* tav_matrix_open(uint32_t) { return nullptr; }
int32_t tav_matrix_get_device_type(void*) { return -1; }
int32_t tav_matrix_get_active_video_pipe_io(void*, int32_t) { return -1; }
int32_t tav_matrix_get_active_audio_pipe_io(void*, int32_t) { return -1; }
int32_t tav_matrix_get_video_pipe_io(void*, int32_t) { return -1; }
int32_t tav_matrix_get_audio_pipe_io(void*, int32_t) { return -1; }
int32_t tav_matrix_get_video_switch_state(void*, int32_t) { return -1; }
int32_t tav_matrix_get_audio_switch_state(void*, int32_t) { return -1; }
int32_t tav_matrix_set_video_switch(void*, int32_t, int32_t) { return -1; }
int32_t tav_matrix_set_audio_switch(void*, int32_t, int32_t) { return -1; }
int32_t tav_matrix_stash_video_switch_data(void*, int32_t, int32_t) { return -1; }
int32_t tav_matrix_stash_audio_switch_data(void*, int32_t, int32_t) { return -1; }
int32_t tav_matrix_set_video_switch_done(void*) { return -1; }
int32_t tav_matrix_set_audio_switch_done(void*) { return -1; }
int32_t tav_matrix_get_port_edid(void*, int32_t, int32_t, uint8_t*, int32_t) { return -1; }
int32_t tav_matrix_set_port_edid(void*, int32_t, int32_t, uint8_t*, int32_t) { return -1; }
int32_t tav_matrix_register_inner_signal(void*, uint32_t, TAV_MATRIX_SIGNAL_CALLBACK) { return -1; }
int32_t tav_matrix_unregister_inner_signal(void*, uint32_t) { return -1; }
int32_t tav_matrix_get_inner_signal_information(void*, TAV_MATRIX_OBJ_SIGNAL_FLAG*) { return -1; }
int32_t tav_matrix_get_card_information(void*, int32_t, TAV_MATRIX_OBJ_CARD*) { return -1; }
int32_t tav_matrix_get_iap_process_slotID(void*) { return -1; }
int32_t tav_matrix_get_iap_process_PCT(void*, int32_t) { return -1; }
int32_t tav_matrix_set_inner_signal_reboot_opt(void*, int32_t) { return -1; }
int32_t tav_matrix_set_inner_signal_lock_fp_opt(void*) { return -1; }
}
