/* Threads, mutexes and conditions. */
#ifndef CV_THREAD_H
#define CV_THREAD_H

#include <pthread.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef pthread_t cv_thread_t;
typedef pthread_mutex_t cv_mutex_t;
typedef struct cv_cond_s {
    cv_mutex_t* mutex;
    pthread_cond_t cond;
} cv_cond_t;

typedef void* (*cv_thread_fn)(void*);

/* A null handle creates a detached thread. */
int cv_thread_spawn(cv_thread_t* handle, cv_thread_fn fn, void* arg);
int cv_thread_join(cv_thread_t* handle);
/* Lets a thread that will never be joined release its resources when it ends;
   the pthread_detach result. */
int cv_thread_detach(cv_thread_t* handle);
int cv_thread_sleep(unsigned ms);

int cv_mutex_init(cv_mutex_t* m);
int cv_mutex_destroy(cv_mutex_t* m);
int cv_mutex_acquire(cv_mutex_t* m);
int cv_mutex_release(cv_mutex_t* m);

int cv_cond_init(cv_cond_t* c, cv_mutex_t* m);
int cv_cond_destroy(cv_cond_t* c);
/* Waits with the bound mutex, which the caller holds. */
int cv_cond_wait(cv_cond_t* c);
int cv_cond_signal(cv_cond_t* c);

#ifdef __cplusplus
}
#endif

#endif
