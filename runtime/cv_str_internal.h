/* Internal entry points of the string family, for its tests and benchmarks.
 * Nothing in the plug-in calls these. */
#ifndef CV_STR_INTERNAL_H
#define CV_STR_INTERNAL_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The base64 encoders. cv_str_buf_to_base64 picks the best one the CPU
 * runs, once per process. */
enum cv_base64_impl_e {
    CV_BASE64_SCALAR = 0, /* portable: two output characters per table lookup */
    CV_BASE64_SSSE3 = 1,  /* 12 input bytes per step */
    CV_BASE64_AVX2 = 2    /* 24 input bytes per step */
};

/* 1 when this build and this CPU can run the encoder, else 0. */
int cv_base64_impl_supported(int impl);
/* The encoder cv_str_buf_to_base64 uses. */
int cv_base64_impl_selected(void);
/* cv_str_buf_to_base64 with a chosen encoder; CV_ERR_UNIMPLEMENTED when it
 * is not supported here. */
int cv_str_buf_to_base64_impl(int impl, const void* in, size_t len, char* out, size_t size);

#ifdef __cplusplus
}
#endif

#endif
