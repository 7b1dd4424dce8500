/* Sockets. */
#ifndef CV_SOCK_H
#define CV_SOCK_H

#ifdef __cplusplus
extern "C" {
#endif

int cv_sock_init(void);
int cv_sock_fini(void);
/* Closes fd; sets it to -1 on success, returns errno on failure. */
int cv_sock_close(int* fd);

#ifdef __cplusplus
}
#endif

#endif
