/* Strings, numbers and base64. */
#ifndef CV_STR_H
#define CV_STR_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

int cv_str_atoi(const char* s);
/* Writes "%d" into buf and returns buf. */
char* cv_str_itoa(int value, char* buf);

/* Appends at most maxlen bytes of src at *pos of dst, NUL-terminating
 * within size, and advances *pos. When src did not fit, a trailing partial
 * UTF-8 sequence is removed and CV_ERR_BUFFER_SPACE returned. */
int cv_str_nto(char* dst, const char* src, size_t maxlen, size_t size, size_t* pos);
/* cv_str_nto without a length limit. */
int cv_str_to(char* dst, const char* src, size_t size, size_t* pos);
/* Copy into dst from its start. */
int cv_str_ncpy(char* dst, const char* src, size_t size);
/* Append to the string already in dst. */
int cv_str_ncat(char* dst, const char* src, size_t size);

/* Removes a trailing incomplete UTF-8 sequence from s (length len);
 * returns the new length. */
size_t cv_utf8_trim_trailing_partial(char* s, size_t len);

/* Standard base64 with "=" padding, NUL-terminated. 22 for empty input,
 * CV_ERR_BUFFER_SPACE unless size > 4 * ceil(len / 3). The input may sit
 * inside out's buffer when it ends exactly at out + 4 * ceil(len / 3):
 * the encoders work front to back and never overwrite a byte they have
 * yet to read, so a file can be read into the tail of its own encoding. */
int cv_str_buf_to_base64(const void* in, size_t len, char* out, size_t size);

#ifdef __cplusplus
}
#endif

#endif
