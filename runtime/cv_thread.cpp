// Threads, mutexes and conditions over pthreads.
#include "cv_thread.h"

#include <errno.h>
#include <unistd.h>

#include "cv_log.h"

extern "C" {

int cv_thread_spawn(cv_thread_t* handle, cv_thread_fn fn, void* arg) {
    if (!fn) return EINVAL;
    if (handle) return pthread_create(handle, nullptr, fn, arg);

    // Nobody will join this one.
    pthread_attr_t attr;
    int rc = pthread_attr_init(&attr);
    if (rc != 0) return rc;
    rc = pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    if (rc == 0) {
        pthread_t thread;
        rc = pthread_create(&thread, &attr, fn, arg);
    }
    pthread_attr_destroy(&attr);
    return rc;
}

int cv_thread_join(cv_thread_t* handle) {
    if (!handle) return EINVAL;
    return pthread_join(*handle, nullptr);
}

int cv_thread_detach(cv_thread_t* handle) {
    if (!handle) return EINVAL;
    return pthread_detach(*handle);
}

int cv_thread_sleep(unsigned ms) {
    if (usleep(static_cast<useconds_t>(ms) * 1000) != 0) return errno ? errno : EINVAL;
    return 0;
}

int cv_mutex_init(cv_mutex_t* m) {
    if (m) pthread_mutex_init(m, nullptr);
    return 0;
}

int cv_mutex_destroy(cv_mutex_t* m) {
    return m ? pthread_mutex_destroy(m) : EINVAL;
}

int cv_mutex_acquire(cv_mutex_t* m) {
    return m ? pthread_mutex_lock(m) : EINVAL;
}

int cv_mutex_release(cv_mutex_t* m) {
    return m ? pthread_mutex_unlock(m) : EINVAL;
}

int cv_cond_init(cv_cond_t* c, cv_mutex_t* m) {
    if (!c || !m) return EINVAL;
    c->mutex = m;
    int err = pthread_cond_init(&c->cond, nullptr);
    if (err != 0) cv_log("cv_cond_init failed. err=%d", err);
    return err;
}

int cv_cond_destroy(cv_cond_t* c) {
    return c ? pthread_cond_destroy(&c->cond) : EINVAL;
}

int cv_cond_wait(cv_cond_t* c) {
    if (!c || !c->mutex) return EINVAL;
    return pthread_cond_wait(&c->cond, c->mutex);
}

int cv_cond_signal(cv_cond_t* c) {
    return c ? pthread_cond_signal(&c->cond) : EINVAL;
}

}  // extern "C"
