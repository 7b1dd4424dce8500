/* Files and directories. */
#ifndef CV_FILE_H
#define CV_FILE_H

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

#define CV_MAX_PATH 2048

/* A file handle is a plain descriptor, -1 when closed. */
typedef int cv_file_t;
#define CV_FILE_INVALID (-1)

/* Flags of cv_file_open */
enum cv_file_flag_e {
    CV_FILE_READ = 0x1,
    CV_FILE_WRITE = 0x2,
    CV_FILE_APPEND = 0x4,
    CV_FILE_CREATE = 0x100,
    CV_FILE_TRUNCATE = 0x200
};

/* Type codes of cv_stat_t.type */
enum cv_file_type_e {
    CV_FTYPE_DIR = 1,
    CV_FTYPE_REG = 2,
    CV_FTYPE_CHR = 3,
    CV_FTYPE_BLK = 4,
    CV_FTYPE_FIFO = 5,
    CV_FTYPE_SOCK = 6,
    CV_FTYPE_LINK = 7,
    CV_FTYPE_OTHER = 65535
};

/* Flag of cv_file_stat: do not follow a final symbolic link. */
#define CV_STAT_NOFOLLOW 0x1

typedef struct cv_stat_s {
    uint64_t dev;
    uint64_t size;
    unsigned type;
    unsigned mode;
    unsigned uid;
    unsigned gid;
    time_t atime;
    time_t mtime;
    time_t ctime;
    uint64_t nlink;
} cv_stat_t;

int cv_file_init(void);
int cv_file_open(const char* path, cv_file_t* fd, unsigned flags, unsigned mode);
int cv_file_openread(const char* path, cv_file_t* fd);
int cv_file_openappend(const char* path, cv_file_t* fd, unsigned mode);
int cv_file_close(cv_file_t* fd);
int cv_file_flush(cv_file_t* fd);
int cv_file_read(cv_file_t* fd, void* buf, size_t len, size_t* got);
int cv_file_write(cv_file_t* fd, const void* buf, size_t len, size_t* put);
/* whence: SEEK_SET, SEEK_CUR, SEEK_END; newpos may be null. */
int cv_file_seek(cv_file_t* fd, int64_t offset, int whence, int64_t* newpos);
int cv_file_stat(const char* path, cv_stat_t* rec, unsigned flags);
int cv_file_fstat(cv_file_t* fd, cv_stat_t* rec);
int cv_file_delete(const char* path);
int cv_file_hardlink(const char* existing, const char* newpath);
int cv_file_tounixpath(char* path);

/* A directory handle is opaque. */
typedef struct cv_dir_s* cv_dir_t;

int cv_dir_open(const char* path, cv_dir_t* dir);
int cv_dir_close(cv_dir_t* dir);
/* Copies the next entry's name (at most CV_MAX_PATH bytes with the NUL).
 * CV_ERR_END at the end, errno on a read error, 5 for an empty name. */
int cv_dir_next(cv_dir_t* dir, char* name);
int cv_dir_create(const char* path, unsigned mode, int recursive);

#ifdef __cplusplus
}
#endif

#endif
