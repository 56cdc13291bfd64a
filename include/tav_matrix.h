/* Matrix control library: the only road to the matrix core.
 * C ABI shared by the program, the host stand-in and a real board's library.
 * Every enumeration is a 32-bit signed value in the ABI. */
#ifndef TAV_MATRIX_H
#define TAV_MATRIX_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The ABI is kept in its published layout. */
/* clang-format off */
typedef enum { em_matrix_unknown = -1, em_matrix_in = 0, em_matrix_out = 1, em_matrix_mix = 2, em_matrix_ioundefine = 3 } EM_MATRIX_IO_TYPE;
typedef enum { em_matrix_edid_unknow = -1, em_matrix_edid_in = 0, em_matrix_edid_load = 1, em_matrix_edid_default = 2 } EM_MATRIX_EDID_TYPE;
typedef enum { em_matrix_card_dllbusy = -2, em_matrix_card_unknown = -1, em_matrix_card_offline = 0,
               em_matrix_card_online = 1, em_matrix_card_init = 1, em_matrix_card_normal = 2,
               em_matrix_card_power_down = 3, em_matrix_card_uart_error = 4, em_matrix_card_iap = 5 } EM_MATRIX_CARD_STATE;
typedef enum { em_irq_reboot_none = 0, em_irq_reboot_reset = 1, em_irq_reboot_factory = 2, em_irq_reboot_update = 3 } EM_MATRIX_IRQ_REBOOT_OPT;
typedef enum { em_matrix_sig_src_subboard = 0, em_matrix_sig_src_core = 1, em_matrix_sig_app = 2 } EM_MATRIX_SIGNAL_SRC;
typedef uint32_t matrix_sig_t;

typedef struct sig_flag {
    uint32_t src;                 /* EM_MATRIX_SIGNAL_SRC */
    uint32_t thread_id;
    uint32_t src_parameter;
    matrix_sig_t sig_bit_map;
} TAV_MATRIX_OBJ_SIGNAL_FLAG;

typedef struct obj_card {
    uint32_t slot_id;
    int32_t  card_status;         /* EM_MATRIX_CARD_STATE */
    int16_t  type_id, ver_major, ver_minor, ver_build;
    int32_t  io_dir, link_mode, gens, iap_support, audiomatrix_support,
             network_support, inner_irq_support, uart_set_support, sync_support;
    int32_t  subfun_number;
    int32_t  main_cpu_type;
} TAV_MATRIX_OBJ_CARD;

typedef void (*TAV_MATRIX_SIGNAL_CALLBACK)(int pid_parameter);

/* Inner-signal bits of sig_bit_map. */
#define TAV_MATRIX_SIG_VIDEO_CONNECT 0x0020u
#define TAV_MATRIX_SIG_AUDIO_CONNECT 0x0040u
#define TAV_MATRIX_SIG_SLOT          0x0080u
#define TAV_MATRIX_SIG_VIDEO_PORT    0x0200u
#define TAV_MATRIX_SIG_AUDIO_PORT    0x0400u
#define TAV_MATRIX_SIG_UPDATE        0x0800u
#define TAV_MATRIX_SIG_REBOOT        0x1000u
#define TAV_MATRIX_SIG_PARAM         0x2000u
#define TAV_MATRIX_SIG_MASK          0x3EF7u

#define TAV_MATRIX_OPEN_VERSION 0x0100000Au

void*   tav_matrix_open(uint32_t version);                               /* 0x0100000A; NULL on failure */
int32_t tav_matrix_get_device_type(void* handle);                        /* highest port number */
int32_t tav_matrix_get_active_video_pipe_io(void* handle, int32_t port); /* EM_MATRIX_IO_TYPE */
int32_t tav_matrix_get_active_audio_pipe_io(void* handle, int32_t port);
int32_t tav_matrix_get_video_pipe_io(void* handle, int32_t port);
int32_t tav_matrix_get_audio_pipe_io(void* handle, int32_t port);
int32_t tav_matrix_get_video_switch_state(void* handle, int32_t output);
int32_t tav_matrix_get_audio_switch_state(void* handle, int32_t output);
int32_t tav_matrix_set_video_switch(void* handle, int32_t input, int32_t output);
int32_t tav_matrix_set_audio_switch(void* handle, int32_t input, int32_t output);
int32_t tav_matrix_stash_video_switch_data(void* handle, int32_t input, int32_t output);
int32_t tav_matrix_stash_audio_switch_data(void* handle, int32_t input, int32_t output);
int32_t tav_matrix_set_video_switch_done(void* handle);
int32_t tav_matrix_set_audio_switch_done(void* handle);
int32_t tav_matrix_get_port_edid(void* handle, int32_t port, int32_t kind, uint8_t* buffer, int32_t length);
int32_t tav_matrix_set_port_edid(void* handle, int32_t port, int32_t kind, uint8_t* buffer, int32_t length);
int32_t tav_matrix_register_inner_signal(void* handle, uint32_t mask, TAV_MATRIX_SIGNAL_CALLBACK callback);
int32_t tav_matrix_unregister_inner_signal(void* handle, uint32_t mask);
int32_t tav_matrix_get_inner_signal_information(void* handle, TAV_MATRIX_OBJ_SIGNAL_FLAG* record);
int32_t tav_matrix_get_card_information(void* handle, int32_t slot, TAV_MATRIX_OBJ_CARD* card);
int32_t tav_matrix_get_iap_process_slotID(void* handle);
int32_t tav_matrix_get_iap_process_PCT(void* handle, int32_t slot);
int32_t tav_matrix_set_inner_signal_reboot_opt(void* handle, int32_t option); /* EM_MATRIX_IRQ_REBOOT_OPT */
int32_t tav_matrix_set_inner_signal_lock_fp_opt(void* handle);

/* clang-format on */

#ifdef __cplusplus
}
#endif

#endif /* TAV_MATRIX_H */
