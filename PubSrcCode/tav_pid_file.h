// PID files under /var/run and the start-up wait on another process's lock.
#pragma once

#include <sys/types.h>

int tav_pidf_open(const char* dependproc);
void tav_pidf_close(int fd);
int tav_pidf_lock(int fd, int nbflag);
int tav_pidf_unlock(int fd, int nbflag);
int tav_pidf_get_lock(int fd, pid_t* pid);
int tav_pidf_wait_depend(const char* dependproc);
