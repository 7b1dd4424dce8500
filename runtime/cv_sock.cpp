/* Sockets: the socket layer needs no set-up on POSIX systems. */
#include "cv_sock.h"

#include <errno.h>
#include <unistd.h>

extern "C" {

int cv_sock_init(void) {
    return 0;
}

int cv_sock_fini(void) {
    return 0;
}

int cv_sock_close(int* fd) {
    if (!fd) return EINVAL;
    if (close(*fd) != 0) return errno;
    *fd = -1;
    return 0;
}

}  // extern "C"
