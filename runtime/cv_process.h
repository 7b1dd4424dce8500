/* Processes and the environment. */
#ifndef CV_PROCESS_H
#define CV_PROCESS_H

#include <stddef.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Runs command through "/bin/sh -c" in a child that is not waited for. */
int cv_process_create(pid_t* pid, const char* command);
/* 22 (EINVAL) when the variable is unset. */
int cv_process_getenv(const char* name, char* buf, size_t size);

#ifdef __cplusplus
}
#endif

#endif
