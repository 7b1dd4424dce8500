/* Built into corvane-browser only with sanitizers. QtWebKit opens NPAPI
 * plug-ins with RTLD_DEEPBIND, so that a plug-in's private copies of common
 * libraries win over the browser's. The sanitizer runtimes refuse that flag
 * and end the process: a deep-bound library would reach the C library's
 * malloc and friends around their interceptors. Our plug-in carries no
 * private copies of anything, so in these builds the browser loads it with
 * ordinary binding instead: this dlopen, exported from the executable,
 * comes first for every library (Qt's too), drops that one flag and hands
 * the call on unchanged. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stddef.h>

/* The sanitizer's own dlopen, when it has one: it keeps its list of loaded
 * modules (for symbolizing reports) up to date. */
extern void* __interceptor_dlopen(const char* file, int mode) __attribute__((weak));

__attribute__((visibility("default"))) void* dlopen(const char* file, int mode) {
    mode &= ~RTLD_DEEPBIND;
    if (__interceptor_dlopen) return __interceptor_dlopen(file, mode);
    void* (*next)(const char*, int) = (void* (*)(const char*, int))dlsym(RTLD_NEXT, "dlopen");
    return next ? next(file, mode) : NULL;
}
