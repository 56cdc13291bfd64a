// PID files under /var/run and the start-up wait on another process's lock.
#pragma once

#include <sys/types.h>

int tav_pidf_open(const char* dependproc);
void tav_pidf_close(int fd);
int tav_pidf_lock(int fd, int nbflag);
int tav_pidf_unlock(int fd, int nbflag);
int tav_pidf_get_lock(int fd, pid_t* pid);
int tav_pidf_wait_depend(const char* dependproc);

// Lets a stop end the wait for a dependency: the wait goes on while
// `stopping()` is false, and `stop_fd` becomes readable whenever it may have
// turned true (a wake-up that is never lost, such as an eventfd posted by a
// signal handler). Without it the wait ends only with the dependency's lock.
void tav_pidf_set_stop(int stop_fd, bool (*stopping)(void));
// Called right before the wait blocks (tests deliver a stop there).
void tav_pidf_set_wait_hook(void (*hook)(void));
