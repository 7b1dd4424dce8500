/* The whole cv_* runtime. */
#ifndef CV_RUNTIME_H
#define CV_RUNTIME_H

#include "cv_error.h"
#include "cv_file.h"
#include "cv_log.h"
#include "cv_path.h"
#include "cv_process.h"
#include "cv_sock.h"
#include "cv_str.h"
#include "cv_thread.h"
#include "cv_time.h"

#endif
