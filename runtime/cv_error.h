/* Error numbers of the cv_* runtime.
 *
 * Every cv_* function returns 0 or an error number: either the platform's
 * errno value or one of the runtime's own codes below (28672 and up). */
#ifndef CV_ERROR_H
#define CV_ERROR_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

enum cv_error_e {
    CV_ERR_INVALID_DOC_ROOT = 28672,
    CV_ERR_TOKEN_MISMATCH = 28673,
    CV_ERR_BASENAME_NOT_FOUND = 28674,
    CV_ERR_PATH_MISMATCH = 28675,
    CV_ERR_ILLEGAL_UTF = 28676,
    CV_ERR_BUFFER_SPACE = 28677,
    CV_ERR_END = 28678,
    CV_ERR_LIBRARY = 28679,
    CV_ERR_MODULE_LOAD = 28680,
    CV_ERR_UUID = 28681,
    CV_ERR_XML_CONFIG = 28682,
    CV_ERR_LOCALE = 28683,
    CV_ERR_MD5 = 28684,
    CV_ERR_SHA = 28685,
    CV_ERR_LOG_MESSAGE = 28686,
    CV_ERR_USER_NAME = 28687,
    CV_ERR_UAC_PARSE = 28688,
    CV_ERR_NO_XFER = 28689,
    CV_ERR_UNIMPLEMENTED = 28690,
    CV_ERR_INTERNAL = 28691,
    CV_ERR_REACHED_END = 28692,
    CV_ERR_STORAGE = 28693,
    CV_ERR_BAD_PATHNAME = 28694,
    CV_ERR_INSECURE = 28697,
    CV_ERR_FILE_NOT_VALID = 28698
};

/* Text of a runtime code, or strerror_r() for any other number.
 * Returns 22 (EINVAL) for a null or empty buffer. */
int cv_platform_errstr(int code, char* buf, size_t size);

#ifdef __cplusplus
}
#endif

#endif
