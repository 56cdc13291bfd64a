// Inner-signal listener: follows the matrix core.
#pragma once

#include "tav_matrix.h"

void tav_matrix_irq_open(void);
void tav_matrix_irq_close(void);
void tav_matrix_irq_callback(int pid_parameter);
void* tav_matrix_irq_thread(void* arg);
void tav_matrix_irq_process(int pid_parameter);
// Handles the records fetched while the engine was busy, oldest first. The
// caller holds the engine lock (the controller, at the top of every pass).
void tav_matrix_irq_dispatch_queued(void);
void tav_matrix_irq_video_connect_change(void);
void tav_matrix_irq_audio_connect_change(void);
void tav_matrix_irq_slot_change(TAV_MATRIX_OBJ_SIGNAL_FLAG record);
void tav_matrix_irq_video_port_change(void);
void tav_matrix_irq_audio_port_change(void);
void tav_matrix_irq_update_change(TAV_MATRIX_OBJ_SIGNAL_FLAG record);
void tav_matrix_irq_reboot(TAV_MATRIX_OBJ_SIGNAL_FLAG record);
void tav_matrix_irq_param_change(TAV_MATRIX_OBJ_SIGNAL_FLAG record);
