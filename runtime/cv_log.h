/* Process-wide rotating log. Messages are written without a trailing
 * newline; the library adds exactly one. */
#ifndef CV_LOG_H
#define CV_LOG_H

#include <stdarg.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define CV_PRINTF(f, a) __attribute__((format(printf, f, a)))
#else
#define CV_PRINTF(f, a)
#endif

/* Sink types */
enum cv_log_sink_e { CV_LOG_NONE = 0, CV_LOG_SYSLOG = 1, CV_LOG_FILE = 2, CV_LOG_FUNC = 3 };

/* Levels */
enum cv_log_level_e { CV_LEVEL_ERR = 0, CV_LEVEL_LOG = 1, CV_LEVEL_DBG = 2 };

int cv_log_init(int type, const char* name);
int cv_log_cleanup(void);
int cv_log_rotate(void);
int cv_log_openfile(void);

int cv_log(const char* fmt, ...) CV_PRINTF(1, 2);
int cv_err(const char* fmt, ...) CV_PRINTF(1, 2);
int cv_dbg(const char* fmt, ...) CV_PRINTF(1, 2);
int cv_log_vmsg(int level, const char* fmt, va_list ap) CV_PRINTF(2, 0);

void cv_dbg_set(unsigned flag);
void cv_dbg_set_all(unsigned level);
/* The all-modules debug level: callers read it to decide whether bulky
 * traces are worth formatting. */
unsigned cv_dbg_get_all(void);

/* Messages at or below this level are echoed to stderr (-1: none). */
void cv_log_set_echo_level(int level);
/* 0 disables all logging. */
void cv_log_set_enabled(int enabled);

/* The two sinks cv_log_init never sets up. Each takes effect only while no
 * sink is set up (else EBUSY) and lasts until cv_log_cleanup.
 * Function sink: fn receives "LABEL message" (no newline, no timestamp). */
typedef void (*cv_log_fn)(const char* text);
int cv_log_set_function(cv_log_fn fn);
/* System log sink: facility LOG_LOCAL2. */
int cv_log_use_syslog(void);

/* Crash backtrace support; nothing is installed on this platform. */
int cv_btrace_init(void);
int cv_btrace_cleanup(void);

#ifdef __cplusplus
}
#endif

#endif
