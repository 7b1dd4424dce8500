/* Paths: canonical forms, joining, searching folders and the home folder.
 *
 * Both '/' and '\\' count as separators on input; output always uses '/'.
 * Only POSIX roots are recognised: a leading run of separators is the root
 * "/". A leading "//" is therefore the root as well, which is what the
 * system itself does with such paths; cv_path_unc_parts is kept for callers
 * that want to look at "//server/share" forms explicitly. */
#include "cv_path.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "cv_file.h"

namespace {

bool isSep(char c) {
    return c == '/' || c == '\\';
}

bool isAlpha(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

}  // namespace

extern "C" {

const char* cv_path_next_dirsep(const char* p) {
    if (!p) return nullptr;
    for (; *p; ++p) {
        if (isSep(*p)) return p;
    }
    return nullptr;
}

int cv_path_extract_prefix(const char* path, char* prefix, size_t size) {
    if (!path || !prefix || size == 0) return -1;
    size_t n = 0;
    while (isSep(path[n])) ++n;
    if (n == 0) {
        prefix[0] = '\0';
        return 0;
    }
    if (size < 2) return -1;
    prefix[0] = '/';
    prefix[1] = '\0';
    return static_cast<int>(n);
}

int cv_path_unc_parts(const char* path, char* server, size_t ssize, char* share, size_t shsize) {
    if (!path || !server || !share || ssize == 0 || shsize == 0) return -1;
    // Exactly two separators, then a server name, a separator and a share name.
    if (!isSep(path[0]) || !isSep(path[1]) || path[2] == '\0' || isSep(path[2])) return -1;
    const char* srv = path + 2;
    const char* srvEnd = cv_path_next_dirsep(srv);
    if (!srvEnd || srvEnd[1] == '\0' || isSep(srvEnd[1])) return -1;
    const char* shr = srvEnd + 1;
    const char* shrEnd = cv_path_next_dirsep(shr);
    size_t srvLen = static_cast<size_t>(srvEnd - srv);
    size_t shrLen = shrEnd ? static_cast<size_t>(shrEnd - shr) : strlen(shr);
    if (srvLen >= ssize || shrLen >= shsize) return -1;
    memcpy(server, srv, srvLen);
    server[srvLen] = '\0';
    memcpy(share, shr, shrLen);
    share[shrLen] = '\0';
    return 0;
}

/* RFC 3986: scheme = ALPHA *( ALPHA / DIGIT / "+" / "-" / "." ), then ':'.
 * A one-letter scheme is not accepted: "C:/x" or "c:\\x" is a drive-letter
 * path far more often than a URI, and no registered scheme has one letter. */
int cv_uri_valid_uri(const char* text) {
    if (!text || !isAlpha(text[0])) return 0;
    size_t i = 1;
    while (isAlpha(text[i]) || isDigit(text[i]) || text[i] == '+' || text[i] == '-' || text[i] == '.') ++i;
    return (text[i] == ':' && i >= 2) ? 1 : 0;
}

/* out may be the same buffer as in: the rebuilt path never runs ahead of
 * the text still to be read. */
int cv_path_canonical_path(const char* in, char* out, size_t size) {
    if (!in || !out || size == 0) return -1;
    if (in[0] == '\0') {
        out[0] = '\0';
        return 0;
    }
    size_t inLen = strlen(in);
    if (memchr(in, '\n', inLen)) return -1;

    if (strncmp(in, "vexl://", 7) == 0 || cv_uri_valid_uri(in)) {
        if (inLen >= size) return -1;
        memmove(out, in, inLen + 1);
        return 0;
    }

    char prefix[2];
    int skip = cv_path_extract_prefix(in, prefix, sizeof prefix);
    if (skip < 0) return -1;
    size_t rootLen = strlen(prefix);
    if (rootLen >= size) return -1;
    memcpy(out, prefix, rootLen);
    size_t w = rootLen;  // bytes written after the root

    const char* p = in + skip;
    while (*p) {
        const char* sep = cv_path_next_dirsep(p);
        size_t len = sep ? static_cast<size_t>(sep - p) : strlen(p);
        if (len == 0 || (len == 1 && p[0] == '.')) {
            // empty component (a run of separators) or "."
        } else if (len == 2 && p[0] == '.' && p[1] == '.') {
            // drop the previous component, if there is one
            if (w > rootLen) {
                while (w > rootLen && out[w - 1] != '/') --w;
                if (w > rootLen) --w;  // its separator
            }
        } else {
            size_t need = len + (w > rootLen ? 1 : 0);
            if (w + need >= size) return -1;
            const char* src = p;  // read before out is written: they may alias
            if (w > rootLen) out[w++] = '/';
            memmove(out + w, src, len);
            w += len;
        }
        if (!sep) break;
        p = sep + 1;
    }

    if (w == 0) {
        if (size < 2) return -1;
        out[w++] = '.';
    }
    out[w] = '\0';
    return 0;
}

int cv_path_append(const char* dir, const char* name, char* out, size_t size) {
    if (!name || !out || size == 0) return -1;
    if (!dir || dir[0] == '\0') return cv_path_canonical_path(name, out, size);
    // Joined in a scratch buffer: out is often the same buffer as name.
    size_t dl = strlen(dir);
    size_t nl = strlen(name);
    char* joined = static_cast<char*>(malloc(dl + nl + 2));
    if (!joined) return -1;
    memcpy(joined, dir, dl);
    joined[dl] = '/';
    memcpy(joined + dl + 1, name, nl + 1);
    int rc = cv_path_canonical_path(joined, out, size);
    free(joined);
    return rc;
}

int cv_path_find_file_in_paths(const char* name, const char* const* dirs, char* out, size_t size) {
    if (!name || name[0] == '\0' || !dirs || !out || size == 0) return -1;
    size_t nl = strlen(name);
    for (; *dirs; ++dirs) {
        size_t dl = strlen(*dirs);
        if (dl + nl + 2 > size) {
            out[0] = '\0';
            return -1;
        }
        memcpy(out, *dirs, dl);
        out[dl] = '/';
        memcpy(out + dl + 1, name, nl + 1);
        cv_stat_t rec;
        if (cv_file_stat(out, &rec, 0) == 0) return 0;
    }
    out[0] = '\0';
    return -1;
}

int cv_path_home_dir(char* buf, size_t size) {
    if (!buf || size == 0) return -1;
    const char* home = getenv("HOME");
    if (!home) return -1;
    if (cv_path_canonical_path(home, buf, size) != 0) return -1;
    return static_cast<int>(strlen(buf));
}

}  // extern "C"
