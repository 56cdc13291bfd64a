// Placeholder: replaced by the module implementation.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "tav_pid_file.h"

int tav_pidf_open(const char* dependproc) { return {}; }
void tav_pidf_close(int fd) {}
int tav_pidf_lock(int fd, int nbflag) { return {}; }
int tav_pidf_unlock(int fd, int nbflag) { return {}; }
int tav_pidf_get_lock(int fd, pid_t* pid) { return {}; }
int tav_pidf_wait_depend(const char* dependproc) { return {}; }
