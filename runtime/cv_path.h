/* Paths. */
#ifndef CV_PATH_H
#define CV_PATH_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

int cv_path_append(const char* dir, const char* name, char* out, size_t size);
int cv_path_canonical_path(const char* in, char* out, size_t size);
/* dirs is a null-terminated list. */
int cv_path_find_file_in_paths(const char* name, const char* const* dirs, char* out, size_t size);
/* Canonical $HOME; returns its length, or -1. */
int cv_path_home_dir(char* buf, size_t size);

/* Copies the root/volume prefix of path ("/" for an absolute POSIX path,
 * "" for a relative one) into prefix and returns its length in path, or -1
 * when it does not fit. */
int cv_path_extract_prefix(const char* path, char* prefix, size_t size);
/* Splits "//server/share/rest" into its parts; -1 when path is no UNC path. */
int cv_path_unc_parts(const char* path, char* server, size_t ssize, char* share, size_t shsize);
/* The next '/' or '\\' at or after p, or null. */
const char* cv_path_next_dirsep(const char* p);

/* 1 when text is an absolute URI (scheme ":" ...), else 0. */
int cv_uri_valid_uri(const char* text);

#ifdef __cplusplus
}
#endif

#endif
