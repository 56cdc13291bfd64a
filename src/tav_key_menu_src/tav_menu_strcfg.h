// LCD text table, line heads and the configuration file reader.
#pragma once

#include <cstdint>

#define TAV_MENU_ROWS 78
#define TAV_MENU_COLS 40
#define TAV_MENU_HEADS 10
#define TAV_MENU_HEAD_LEN 6

extern uint8_t MENU_ITEM_STR[TAV_MENU_ROWS][TAV_MENU_COLS];
extern uint8_t MENU_SPC_HEAD[TAV_MENU_HEADS][7];

// Restores the built-in texts (called before the file is read). The tables
// also hold them from load time on.
void tav_menu_strcfg_defaults(void);
void tav_cfg_loadfile(char* cfg_file_path);

// One reader per configuration key. Each returns 1 when the line does not
// carry its key; otherwise it applies the value and returns 0.
// X(function suffix, key text, kind, target index), in the order in which
// tav_cfg_loadfile offers a line to them.
#define TAV_CFG_KEYS(X)                                                                            \
    X(shortcut_key1, "Manual_cfg_switch_all_key_1_valid=", TAV_CFG_FLAG, 1)                        \
    X(shortcut_key3, "Manual_cfg_close_out_key_3_valid=", TAV_CFG_FLAG, 3)                         \
    X(shortcut_key4, "Manual_cfg_store_setup_key_4_valid=", TAV_CFG_FLAG, 4)                       \
    X(shortcut_key6, "Manual_cfg_recall_setup_key_6_valid=", TAV_CFG_FLAG, 6)                      \
    X(shortcut_key7, "Manual_cfg_cppy_edid_key_7_valid=", TAV_CFG_FLAG, 7)                         \
    X(shortcut_key9, "Manual_cfg_set_delay_key_9_valid=", TAV_CFG_FLAG, 9)                         \
    X(video_head_line1, "Manual_cfg_switch_video_head_line1=", TAV_CFG_HEAD, 0)                    \
    X(video_head_line2, "Manual_cfg_switch_video_head_line2=", TAV_CFG_HEAD, 1)                    \
    X(audio_head_line1, "Manual_cfg_switch_audio_head_line1=", TAV_CFG_HEAD, 2)                    \
    X(audio_head_line2, "Manual_cfg_switch_audio_head_line2=", TAV_CFG_HEAD, 3)                    \
    X(video_io_head_line1, "Manual_cfg_video_io_head_line1=", TAV_CFG_HEAD, 4)                     \
    X(video_io_head_line2, "Manual_cfg_video_io_head_line2=", TAV_CFG_HEAD, 5)                     \
    X(audio_io_head_line1, "Manual_cfg_audio_io_head_line1=", TAV_CFG_HEAD, 6)                     \
    X(audio_io_head_line2, "Manual_cfg_audio_io_head_line2=", TAV_CFG_HEAD, 7)                     \
    X(video_swall, "Manual_cfg_video_swall_head_line1=", TAV_CFG_HEAD, 8)                          \
    X(audio_swall, "Manual_cfg_audio_swall_head_line1=", TAV_CFG_HEAD, 9)                          \
    X(vendor_name, "Manual_cfg_vendor_name=", TAV_CFG_ROW, 1)                                      \
    X(matrix_name, "Manual_cfg_matrix_name=", TAV_CFG_ROW, 2)                                      \
    X(load_main, "Manual_cfg_load_main=", TAV_CFG_ROW, 3)                                          \
    X(please_wait, "Manual_cfg_please_wait=", TAV_CFG_ROW, 4)                                      \
    X(Version_display_first_line, "Manual_cfg_Version_display_first_line=", TAV_CFG_ROW, 9)        \
    X(No_InPort_Warning, "Manual_cfg_No_InPort_Warning=", TAV_CFG_ROW, 10)                         \
    X(No_OutPort_Warning, "Manual_cfg_No_OutPort_Warning=", TAV_CFG_ROW, 11)                       \
    X(No_In_Out_Warning, "Manual_cfg_No_In_Out_Warning=", TAV_CFG_ROW, 12)                         \
    X(Wait_for_card_init, "Manual_cfg_Wait_for_card_init=", TAV_CFG_ROW, 14)                       \
    X(Device_update_Start_line1, "Manual_cfg_Device_update_Start_line1=", TAV_CFG_ROW, 17)         \
    X(Device_update_Start_line2, "Manual_cfg_Device_update_Start_line2=", TAV_CFG_ROW, 18)         \
    X(Device_update_complete_line1, "Manual_cfg_Device_update_complete_line1=", TAV_CFG_ROW, 19)   \
    X(Device_update_complete_line2, "Manual_cfg_Device_update_complete_line2=", TAV_CFG_ROW, 21)   \
    X(LinuxArm_updating_line1, "Manual_cfg_LinuxArm_updating_line1=", TAV_CFG_ROW, 20)             \
    X(Card_Slot_x_updating_line1, "Manual_cfg_Card_Slot_x_updating_line1=", TAV_CFG_ROW, 22)       \
    X(Matrix_Monitoring_Card_updating_line1,                                                       \
      "Manual_cfg_Matrix_Monitoring_Card_updating_line1=", TAV_CFG_ROW, 23)                        \
    X(update_percentage, "Manual_cfg_update_percentage=", TAV_CFG_ROW, 24)                         \
    X(Card_X_PullOut, "Manual_cfg_Card_X_PullOut=", TAV_CFG_ROW, 15)                               \
    X(Card_X_insert, "Manual_cfg_Card_X_insert=", TAV_CFG_ROW, 13)                                 \
    X(update_err_line1, "Manual_cfg_update_Err_line1=", TAV_CFG_ROW, 25)                           \
    X(update_err_line2, "Manual_cfg_update_Err_line2=", TAV_CFG_ROW, 26)                           \
    X(No_aud_InPort_Warning, "Manual_cfg_No_aud_InPort_Warning=", TAV_CFG_ROW, 27)                 \
    X(No_aud_OutPort_Warning, "Manual_cfg_No_aud_OutPort_Warning=", TAV_CFG_ROW, 28)               \
    X(EDID_First_line, "Manual_cfg_EDID_First_line=", TAV_CFG_ROW, 29)                             \
    X(EDID_Secend_line, "Manual_cfg_EDID_Secend_line=", TAV_CFG_ROW, 30)                           \
    X(EDID_Des_output_err_line1, "Manual_cfg_EDID_Des_output_err_line1=", TAV_CFG_ROW, 31)         \
    X(EDID_Des_output_err_line2, "Manual_cfg_EDID_Des_output_err_line2=", TAV_CFG_ROW, 32)         \
    X(EDID_err_no_con_line1, "Manual_cfg_EDID_err_no_con_line1=", TAV_CFG_ROW, 33)                 \
    X(EDID_err_no_con_line2, "Manual_cfg_EDID_err_no_con_line2=", TAV_CFG_ROW, 34)                 \
    X(EDID_err_same_port_line1, "Manual_cfg_EDID_err_same_port_line1=", TAV_CFG_ROW, 35)           \
    X(EDID_err_same_port_line2, "Manual_cfg_EDID_err_same_port_line2=", TAV_CFG_ROW, 36)           \
    X(EDID_err_copy_line1, "Manual_cfg_EDID_err_copy_line1=", TAV_CFG_ROW, 37)                     \
    X(EDID_err_copy_line2, "Manual_cfg_EDID_err_copy_line2=", TAV_CFG_ROW, 38)                     \
    X(EDID_success_copy_line1, "Manual_cfg_EDID_success_copy_line1=", TAV_CFG_ROW, 39)             \
    X(EDID_success_copy_line2, "Manual_cfg_EDID_success_copy_line2=", TAV_CFG_ROW, 40)             \
    X(update_Err_Linux_arm_line2, "Manual_cfg_update_Err_Linux_arm_line2=", TAV_CFG_ROW, 41)       \
    X(update_Err_Matrix_Monitor_Card_line2,                                                        \
      "Manual_cfg_update_Err_Matrix_Monitor_Card_line2=", TAV_CFG_ROW, 42)                         \
    X(Shortcut_line1, "Manual_cfg_Shortcut_line1=", TAV_CFG_ROW, 43)                               \
    X(Shortcut_line2, "Manual_cfg_Shortcut_line2=", TAV_CFG_ROW, 44)                               \
    X(select_swall_line1, "Manual_cfg_select_swall_line1=", TAV_CFG_ROW, 45)                       \
    X(select_swall_line2, "Manual_cfg_select_swall_line2=", TAV_CFG_ROW, 46)                       \
    X(swall_vclose_line1, "Manual_cfg_swall_vclose_line1=", TAV_CFG_ROW, 49)                       \
    X(swall_aclose_line1, "Manual_cfg_swall_aclose_line1=", TAV_CFG_ROW, 50)                       \
    X(swall_aud_line2, "Manual_cfg_swall_aud_line2=", TAV_CFG_ROW, 48)                             \
    X(swall_vid_line2, "Manual_cfg_swall_vid_line2=", TAV_CFG_ROW, 47)                             \
    X(swall_vid_switching_line1, "Manual_cfg_swall_vid_switching_line1=", TAV_CFG_ROW, 51)         \
    X(swall_vid_switching_line2, "Manual_cfg_swall_vid_switching_line2=", TAV_CFG_ROW, 52)         \
    X(swall_aud_switching_line1, "Manual_cfg_swall_aud_switching_line1=", TAV_CFG_ROW, 53)         \
    X(swall_aud_switching_line2, "Manual_cfg_swall_aud_switching_line2=", TAV_CFG_ROW, 54)         \
    X(swall_vid_Closing_line1, "Manual_cfg_swall_vid_Closing_line1=", TAV_CFG_ROW, 55)             \
    X(swall_vid_Closing_line2, "Manual_cfg_swall_vid_Closing_line2=", TAV_CFG_ROW, 56)             \
    X(swall_aud_Closing_line1, "Manual_cfg_swall_aud_Closing_line1=", TAV_CFG_ROW, 57)             \
    X(swall_aud_Closing_line2, "Manual_cfg_swall_aud_Closing_line2=", TAV_CFG_ROW, 58)             \
    X(restart_line1, "Manual_cfg_restart_line1=", TAV_CFG_ROW, 59)                                 \
    X(restart_line2, "Manual_cfg_restart_line2=", TAV_CFG_ROW, 60)                                 \
    X(factory_line1, "Manual_cfg_factory_line1=", TAV_CFG_ROW, 61)                                 \
    X(factory_line2, "Manual_cfg_factory_line2=", TAV_CFG_ROW, 62)                                 \
    X(restart_update_line1, "Manual_cfg_restart_update_line1=", TAV_CFG_ROW, 63)                   \
    X(restart_update_line2, "Manual_cfg_restart_update_line2=", TAV_CFG_ROW, 64)                   \
    X(reset_interface_line1, "Manual_cfg_reset_interface_line1=", TAV_CFG_ROW, 65)                 \
    X(reset_interface_line2, "Manual_cfg_reset_interface_line2=", TAV_CFG_ROW, 66)                 \
    X(reset_con_line1, "Manual_cfg_reset_con_line1=", TAV_CFG_ROW, 67)                             \
    X(reset_con_line2, "Manual_cfg_reset_con_line2=", TAV_CFG_ROW, 68)                             \
    X(factory_con_line1, "Manual_cfg_factory_con_line1=", TAV_CFG_ROW, 69)                         \
    X(factory_con_line2, "Manual_cfg_factory_con_line2=", TAV_CFG_ROW, 70)                         \
    X(factory_recon_line1, "Manual_cfg_factory_recon_line1=", TAV_CFG_ROW, 71)                     \
    X(factory_recon_line2, "Manual_cfg_factory_recon_line2=", TAV_CFG_ROW, 72)                     \
    X(Inner_Net_Switcher_update_line1,                                                             \
      "Manual_cfg_Inner_Net_Switcher_updating_line1=", TAV_CFG_ROW, 73)

#define TAV_CFG_DECLARE_READER(name, key, kind, index) uint8_t tav_menu_cfg_##name(char* strLine);
TAV_CFG_KEYS(TAV_CFG_DECLARE_READER)
#undef TAV_CFG_DECLARE_READER
