// Files and directories over POSIX descriptors and DIR streams.
#include "cv_file.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cv_error.h"
#include "cv_log.h"

struct cv_dir_s {
    DIR* stream;
};

namespace {

int errnoOr(int fallback) {
    return errno ? errno : fallback;
}

unsigned typeCode(mode_t mode) {
    if (S_ISDIR(mode)) return CV_FTYPE_DIR;
    if (S_ISREG(mode)) return CV_FTYPE_REG;
    if (S_ISCHR(mode)) return CV_FTYPE_CHR;
    if (S_ISBLK(mode)) return CV_FTYPE_BLK;
    if (S_ISFIFO(mode)) return CV_FTYPE_FIFO;
    if (S_ISSOCK(mode)) return CV_FTYPE_SOCK;
    if (S_ISLNK(mode)) return CV_FTYPE_LINK;
    return CV_FTYPE_OTHER;
}

void fillStat(const struct stat& st, cv_stat_t* rec) {
    rec->dev = static_cast<uint64_t>(st.st_dev);
    rec->size = static_cast<uint64_t>(st.st_size);
    rec->type = typeCode(st.st_mode);
    rec->mode = static_cast<unsigned>(st.st_mode);
    rec->uid = static_cast<unsigned>(st.st_uid);
    rec->gid = static_cast<unsigned>(st.st_gid);
    rec->atime = st.st_atime;
    rec->mtime = st.st_mtime;
    rec->ctime = st.st_ctime;
    rec->nlink = static_cast<uint64_t>(st.st_nlink);
}

bool isDirectory(const char* path) {
    struct stat st;
    return stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

extern "C" {

int cv_file_init(void) {
    return 0;
}

int cv_file_open(const char* path, cv_file_t* fd, unsigned flags, unsigned mode) {
    if (!fd) return EINVAL;
    *fd = CV_FILE_INVALID;
    if (!path) return EINVAL;

    int oflags;
    if ((flags & CV_FILE_READ) && (flags & CV_FILE_WRITE))
        oflags = O_RDWR;
    else if (flags & CV_FILE_WRITE)
        oflags = O_WRONLY;
    else
        oflags = O_RDONLY;
    if (flags & CV_FILE_CREATE) oflags |= O_CREAT;
    if (flags & CV_FILE_APPEND) oflags |= O_APPEND;
    if (flags & CV_FILE_TRUNCATE) oflags |= O_TRUNC;
    // We live inside a browser process: none of our descriptors belongs in
    // the programs it starts.
    oflags |= O_CLOEXEC;

    int d = open(path, oflags, static_cast<mode_t>(mode));
    if (d < 0) return errnoOr(EIO);
    *fd = d;
    return 0;
}

int cv_file_openread(const char* path, cv_file_t* fd) {
    return cv_file_open(path, fd, CV_FILE_READ, 0);
}

int cv_file_openappend(const char* path, cv_file_t* fd, unsigned mode) {
    return cv_file_open(path, fd, CV_FILE_WRITE | CV_FILE_CREATE | CV_FILE_APPEND, mode);
}

int cv_file_close(cv_file_t* fd) {
    if (!fd) return EINVAL;
    if (*fd < 0) return EBADF;
    int rc = close(*fd) == 0 ? 0 : errnoOr(EIO);
    // On Linux the descriptor is gone even when close() reports an error;
    // retrying would close someone else's descriptor.
    *fd = CV_FILE_INVALID;
    return rc;
}

int cv_file_flush(cv_file_t* fd) {
    if (!fd) return EINVAL;
    if (*fd < 0) return EBADF;
    return fsync(*fd) == 0 ? 0 : errnoOr(EIO);
}

int cv_file_read(cv_file_t* fd, void* buf, size_t len, size_t* got) {
    if (!fd || !got || (!buf && len)) return EINVAL;
    ssize_t n = read(*fd, buf, len);
    if (n < 0) {
        int err = errnoOr(EIO);
        cv_err("cv_fileread: read failed. error=%d", err);
        *got = 0;
        return err;
    }
    *got = static_cast<size_t>(n);
    return 0;
}

int cv_file_write(cv_file_t* fd, const void* buf, size_t len, size_t* put) {
    if (!fd || !put || (!buf && len)) return EINVAL;
    ssize_t n = write(*fd, buf, len);
    if (n < 0) {
        *put = 0;
        return errnoOr(EIO);
    }
    *put = static_cast<size_t>(n);
    return 0;
}

int cv_file_seek(cv_file_t* fd, int64_t offset, int whence, int64_t* newpos) {
    if (!fd) return EINVAL;
    off_t pos = lseek(*fd, static_cast<off_t>(offset), whence);
    if (pos == static_cast<off_t>(-1)) return errnoOr(EIO);
    if (newpos) *newpos = static_cast<int64_t>(pos);
    return 0;
}

int cv_file_stat(const char* path, cv_stat_t* rec, unsigned flags) {
    if (!path || !rec) return EINVAL;
    struct stat st;
    int rc = (flags & CV_STAT_NOFOLLOW) ? lstat(path, &st) : stat(path, &st);
    if (rc != 0) return errnoOr(EIO);
    fillStat(st, rec);
    return 0;
}

int cv_file_fstat(cv_file_t* fd, cv_stat_t* rec) {
    if (!fd || !rec) return EINVAL;
    struct stat st;
    if (fstat(*fd, &st) != 0) return errnoOr(EIO);
    fillStat(st, rec);
    return 0;
}

int cv_file_delete(const char* path) {
    if (!path) return EINVAL;
    return unlink(path) == 0 ? 0 : errnoOr(EIO);
}

int cv_file_hardlink(const char* existing, const char* newpath) {
    if (!existing || !newpath) return EINVAL;
    return link(existing, newpath) == 0 ? 0 : errnoOr(EIO);
}

// Paths already use '/' here.
int cv_file_tounixpath(char* path) {
    return path ? 0 : EINVAL;
}

int cv_dir_open(const char* path, cv_dir_t* dir) {
    if (!dir) return EINVAL;
    *dir = nullptr;
    if (!path) return EINVAL;
    DIR* stream = opendir(path);
    if (!stream) return errnoOr(EIO);
    cv_dir_s* handle = static_cast<cv_dir_s*>(malloc(sizeof(cv_dir_s)));
    if (!handle) {
        closedir(stream);
        return ENOMEM;
    }
    handle->stream = stream;
    *dir = handle;
    return 0;
}

int cv_dir_close(cv_dir_t* dir) {
    if (!dir || !*dir) return EINVAL;
    int rc = closedir((*dir)->stream) == 0 ? 0 : errnoOr(EIO);
    free(*dir);
    *dir = nullptr;
    return rc;
}

int cv_dir_next(cv_dir_t* dir, char* name) {
    if (!dir || !*dir || !name) return EINVAL;
    errno = 0;
    struct dirent* entry = readdir((*dir)->stream);
    if (!entry) return errno ? errno : CV_ERR_END;
    size_t len = strnlen(entry->d_name, CV_MAX_PATH - 1);
    if (len == 0) return EIO;
    memcpy(name, entry->d_name, len);
    name[len] = '\0';
    return 0;
}

int cv_dir_create(const char* path, unsigned mode, int recursive) {
    if (!path || !*path) return EINVAL;
    if (!recursive) return mkdir(path, static_cast<mode_t>(mode)) == 0 ? 0 : errnoOr(EIO);

    char partial[CV_MAX_PATH];
    size_t len = strlen(path);
    if (len >= sizeof partial) return ENAMETOOLONG;
    memcpy(partial, path, len + 1);
    // Trailing separators would make the last mkdir() see an empty name.
    while (len > 1 && partial[len - 1] == '/') partial[--len] = '\0';

    // Create each missing component from the top down; one that exists
    // already must be a directory.
    for (size_t i = 1; i <= len; ++i) {
        if (i != len && partial[i] != '/') continue;
        char saved = partial[i];
        partial[i] = '\0';
        if (mkdir(partial, static_cast<mode_t>(mode)) != 0) {
            int err = errnoOr(EIO);
            if (err != EEXIST || !isDirectory(partial)) {
                partial[i] = saved;
                return err == EEXIST ? ENOTDIR : err;
            }
        }
        partial[i] = saved;
    }
    return 0;
}

}  // extern "C"
