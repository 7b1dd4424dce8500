/* Time. */
#ifndef CV_TIME_H
#define CV_TIME_H

#include <sys/time.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

int cv_time_init(void);
int cv_time_gettimeofday(struct timeval* tv, void* tz);
int cv_time_localtime(const time_t* t, struct tm* tm);
/* now - start in microseconds; 22 for null arguments or a start in the future. */
int cv_time_get_usec_since(const struct timeval* start, unsigned long long* usec);

#ifdef __cplusplus
}
#endif

#endif
