// Wall-clock time.
#include "cv_time.h"

#include <errno.h>

#include "cv_log.h"

extern "C" {

int cv_time_init(void) {
    return 0;
}

int cv_time_gettimeofday(struct timeval* tv, void* tz) {
    if (!tv) return EINVAL;
    if (gettimeofday(tv, static_cast<struct timezone*>(tz)) != 0) return errno ? errno : EINVAL;
    return 0;
}

int cv_time_localtime(const time_t* t, struct tm* tm) {
    if (!t || !tm) return EINVAL;
    if (!localtime_r(t, tm)) return errno ? errno : EINVAL;
    return 0;
}

int cv_time_get_usec_since(const struct timeval* start, unsigned long long* usec) {
    if (!start || !usec) return EINVAL;
    struct timeval now;
    int rc = cv_time_gettimeofday(&now, nullptr);
    if (rc != 0) return rc;
    if (start->tv_sec > now.tv_sec || (start->tv_sec == now.tv_sec && start->tv_usec > now.tv_usec)) {
        cv_err("get_usec_since: big old %lld.%lld > %lld.%lld", static_cast<long long>(start->tv_sec),
               static_cast<long long>(start->tv_usec), static_cast<long long>(now.tv_sec),
               static_cast<long long>(now.tv_usec));
        return EINVAL;
    }
    long long diff = (static_cast<long long>(now.tv_sec) - start->tv_sec) * 1000000LL +
                     (static_cast<long long>(now.tv_usec) - start->tv_usec);
    *usec = static_cast<unsigned long long>(diff);
    return 0;
}

}  // extern "C"
