// Placeholder: replaced by the module implementation.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "tav_menu_listen_irq.h"

void tav_matrix_irq_open(void) {}
void tav_matrix_irq_close(void) {}
void tav_matrix_irq_callback(int pid_parameter) {}
void* tav_matrix_irq_thread(void* arg) { return {}; }
void tav_matrix_irq_process(int pid_parameter) {}
void tav_matrix_irq_video_connect_change(void) {}
void tav_matrix_irq_audio_connect_change(void) {}
void tav_matrix_irq_slot_change(TAV_MATRIX_OBJ_SIGNAL_FLAG record) {}
void tav_matrix_irq_video_port_change(void) {}
void tav_matrix_irq_audio_port_change(void) {}
void tav_matrix_irq_update_change(TAV_MATRIX_OBJ_SIGNAL_FLAG record) {}
void tav_matrix_irq_reboot(TAV_MATRIX_OBJ_SIGNAL_FLAG record) {}
void tav_matrix_irq_param_change(TAV_MATRIX_OBJ_SIGNAL_FLAG record) {}
