// The process-wide log.
//
// The message path never blocks and never touches the heap: each message is
// formatted into one stack buffer, the timestamp prefix is placed directly in
// front of it, and the whole line goes to the file with as few write() calls
// as the kernel allows (usually one) on a descriptor opened with O_APPEND.
// Nothing is buffered in user space: the browser may end the process at any
// moment without telling us, and every line must already be in the file.
//
// The state that every thread shares (sink, descriptor, counters, the last
// message for repeat collapsing) lives in atomics. Only rotation takes the
// file lock.
#include "cv_log.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "cv_file.h"
#include "cv_path.h"
#include "cv_thread.h"
#include "cv_time.h"

namespace {

constexpr uint64_t kDefaultMaxSize = 10ull << 20;
constexpr uint64_t kGrowthCheck = 65536;  // bytes written between two size checks
constexpr size_t kPrefixArea = 256;       // timestamp (and repeat line) prefix
constexpr size_t kMessageArea = 4090;     // message text after the label, with its NUL
constexpr size_t kMaxMessage = kMessageArea - 1;
constexpr size_t kLabelWidth = 4;  // "LOG "
constexpr size_t kMaxLine = 4093;  // label + message, without the newline
constexpr size_t kLastSize = 4352;
constexpr size_t kLastWords = kLastSize / sizeof(uint64_t);
constexpr size_t kFuncText = 4096;  // function and system-log sinks: label + 4091 characters

const char* const kLabels[] = {"ERR ", "LOG ", "DBG "};
const int kPriorities[] = {LOG_ERR, LOG_INFO, LOG_DEBUG};

int levelIndex(int level) {
    return level <= 0 ? 0 : (level == 1 ? 1 : 2);
}

std::atomic<int> s_sink{CV_LOG_NONE};
std::atomic<int> s_fd{CV_FILE_INVALID};
std::atomic<bool> s_stderrOnly{false};
std::atomic<int> s_enabled{1};
std::atomic<unsigned> s_debug{0};
std::atomic<unsigned> s_debugAll{0};
std::atomic<int> s_echoLevel{-1};
std::atomic<unsigned> s_pid{0};
std::atomic<uint64_t> s_maxSize{kDefaultMaxSize};
std::atomic<uint64_t> s_growth{0};
std::atomic<unsigned> s_repeats{0};
std::atomic<cv_log_fn> s_function{nullptr};

// Written by cv_log_init before any message can reach the file, then read
// only under the lock.
cv_mutex_t s_lock;
std::atomic<bool> s_lockReady{false};
char s_baseName[CV_MAX_PATH];

// The last message, for repeat collapsing, kept as a sequence lock over
// atomic words so that readers never see a torn text as a repeat. Writers
// never wait for each other: a writer that finds another one busy simply
// leaves the record alone, which at worst lets one repeat through as a line
// of its own. Readers that race with a writer treat the message as new.
// Nothing is ever lost, and nothing blocks.
//
// The words are stored with release and loaded with acquire rather than
// fenced: a reader that sees any word of a write under way then also sees
// that write's odd sequence number on its second look, and the second look
// cannot move ahead of the word loads. (Standalone fences would order the
// same, but ThreadSanitizer does not understand them.)
std::atomic<uint64_t> s_lastSeq{0};
std::atomic<size_t> s_lastLen{0};
std::atomic<uint64_t> s_lastWords[kLastWords];

uint64_t wordAt(const char* text, size_t len, size_t index) {
    uint64_t word = 0;
    size_t offset = index * sizeof word;
    memcpy(&word, text + offset, std::min(sizeof word, len - offset));
    return word;
}

bool isLastMessage(const char* text, size_t len) {
    uint64_t seq = s_lastSeq.load(std::memory_order_acquire);
    if (seq & 1) return false;
    bool same = s_lastLen.load(std::memory_order_acquire) == len;
    for (size_t i = 0; same && i * sizeof(uint64_t) < len; ++i)
        same = s_lastWords[i].load(std::memory_order_acquire) == wordAt(text, len, i);
    return same && s_lastSeq.load(std::memory_order_relaxed) == seq;
}

void rememberMessage(const char* text, size_t len) {
    uint64_t seq = s_lastSeq.load(std::memory_order_relaxed);
    if ((seq & 1) || !s_lastSeq.compare_exchange_strong(seq, seq + 1, std::memory_order_acquire)) return;
    s_lastLen.store(len, std::memory_order_release);
    for (size_t i = 0; i * sizeof(uint64_t) < len; ++i)
        s_lastWords[i].store(wordAt(text, len, i), std::memory_order_release);
    s_lastSeq.store(seq + 2, std::memory_order_release);
}

void forgetMessage() {
    uint64_t seq = s_lastSeq.load(std::memory_order_relaxed);
    if ((seq & 1) || !s_lastSeq.compare_exchange_strong(seq, seq + 1, std::memory_order_acquire)) return;
    s_lastLen.store(0, std::memory_order_release);
    s_lastSeq.store(seq + 2, std::memory_order_release);
}

void writeAll(int fd, const char* data, size_t len, bool countGrowth) {
    while (len > 0) {
        size_t put = 0;
        if (cv_file_write(&fd, data, len, &put) != 0 || put == 0) return;
        if (countGrowth) s_growth.fetch_add(put, std::memory_order_relaxed);
        data += put;
        len -= put;
    }
}

// Makes fd the log's descriptor. An open log keeps its descriptor number:
// the new file is put in place with dup2(), so a thread that is writing at
// this moment finishes its line in the old file or the new one, and never
// writes to a closed or reused descriptor.
void installDescriptor(int fd) {
    int current = s_fd.load(std::memory_order_acquire);
    if (current < 0) {
        s_fd.store(fd, std::memory_order_release);
        return;
    }
    if (dup2(fd, current) >= 0) {
        // dup2() does not carry close-on-exec over.
        fcntl(current, F_SETFD, FD_CLOEXEC);
        close(fd);
        return;
    }
    // dup2() failed: switch descriptors instead.
    s_fd.store(fd, std::memory_order_release);
    close(current);
}

void dropDescriptor() {
    int current = s_fd.exchange(CV_FILE_INVALID, std::memory_order_acq_rel);
    if (current >= 0) close(current);
}

// Per thread: the date and time of the current second and the
// "[pid-thread] " tag, formatted once and reused until the second (or the
// cached pid) changes. Each thread converts the time into its own tm, so no
// thread ever sees another one's half-written fields, and a busy log skips
// the conversion and the formatting for most lines.
struct LineStamp {
    time_t second = -1;
    size_t dateLen = 0;
    char date[64] = {};
    unsigned pid = 0;
    size_t tagLen = 0;
    char tag[64] = {};
};
thread_local LineStamp t_stamp;

// False when the local time cannot be had: then the line is not written.
bool refreshStamp(LineStamp& stamp) {
    time_t now = time(nullptr);
    if (stamp.dateLen == 0 || now != stamp.second) {
        struct tm tm;
        if (cv_time_localtime(&now, &tm) != 0) return false;
        int n = snprintf(stamp.date, sizeof stamp.date, "%04d-%02d-%02d %02d:%02d:%02d ", tm.tm_year + 1900,
                         tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec);
        if (n < 0 || static_cast<size_t>(n) >= sizeof stamp.date) return false;
        stamp.second = now;
        stamp.dateLen = static_cast<size_t>(n);
    }
    unsigned pid = s_pid.load(std::memory_order_relaxed);
    if (stamp.tagLen == 0 || pid != stamp.pid) {
        int n =
            snprintf(stamp.tag, sizeof stamp.tag, "[%x-%p] ", pid, reinterpret_cast<void*>(pthread_self()));
        if (n < 0 || static_cast<size_t>(n) >= sizeof stamp.tag) return false;
        stamp.pid = pid;
        stamp.tagLen = static_cast<size_t>(n);
    }
    return true;
}

// "Last message repeated N times\n" when N > 0, then "date time [pid-thread] ":
// the same text as the single format
//   "Last message repeated %.*d times\n%04d-%02d-%02d %02d:%02d:%02d [%x-%p] "
// (or "%.*d%04d-..." with precision and value 0 when there is nothing to
// report), built from the pieces cached above. Returns the length, or -1
// when it does not fit.
int formatPrefix(char* out, unsigned repeats, const LineStamp& stamp) {
    size_t n = 0;
    if (repeats > 0) {
        int r =
            snprintf(out, kPrefixArea, "Last message repeated %.*d times\n", 0, static_cast<int>(repeats));
        if (r < 0) return -1;
        n = static_cast<size_t>(r);
    }
    if (n + stamp.dateLen + stamp.tagLen >= kPrefixArea) return -1;
    memcpy(out + n, stamp.date, stamp.dateLen);
    n += stamp.dateLen;
    memcpy(out + n, stamp.tag, stamp.tagLen);
    n += stamp.tagLen;
    return static_cast<int>(n);
}

// Label and message for the function and system-log sinks.
void formatPlain(char* out, int level, const char* fmt, va_list ap) {
    memcpy(out, kLabels[levelIndex(level)], kLabelWidth);
    if (vsnprintf(out + kLabelWidth, kFuncText - kLabelWidth, fmt, ap) < 0) out[kLabelWidth] = '\0';
}

int fileMessage(int level, const char* fmt, va_list ap) {
    bool stderrOnly = s_stderrOnly.load(std::memory_order_relaxed);
    if (s_fd.load(std::memory_order_acquire) < 0 && !stderrOnly) return 0;

    // [prefix area][label][message]['\n']
    char buf[kPrefixArea + kMaxLine + 2];
    char* line = buf + kPrefixArea;
    memcpy(line, kLabels[levelIndex(level)], kLabelWidth);
    int full = vsnprintf(line + kLabelWidth, kMessageArea, fmt, ap);
    size_t lineLen = kLabelWidth + (full < 0 ? 0 : std::min(static_cast<size_t>(full), kMaxMessage));

    if (isLastMessage(line, lineLen)) {
        s_repeats.fetch_add(1, std::memory_order_relaxed);
        return 0;
    }
    rememberMessage(line, lineLen);
    line[lineLen++] = '\n';

    if (stderrOnly || s_echoLevel.load(std::memory_order_relaxed) >= level) {
        writeAll(STDERR_FILENO, line, lineLen, false);
        if (stderrOnly) return 0;
    }

    LineStamp& stamp = t_stamp;
    if (!refreshStamp(stamp)) return 0;

    unsigned repeats = s_repeats.exchange(0, std::memory_order_relaxed);
    char prefix[kPrefixArea];
    int prefixLen = formatPrefix(prefix, repeats, stamp);
    if (prefixLen < 0) {
        s_repeats.fetch_add(repeats, std::memory_order_relaxed);
        return 0;
    }
    char* start = line - prefixLen;
    memcpy(start, prefix, static_cast<size_t>(prefixLen));

    int fd = s_fd.load(std::memory_order_acquire);
    if (fd >= 0) writeAll(fd, start, static_cast<size_t>(prefixLen) + lineLen, true);

    uint64_t grown = s_growth.load(std::memory_order_relaxed);
    if (grown >= kGrowthCheck && s_growth.compare_exchange_strong(grown, 0, std::memory_order_relaxed))
        cv_log_rotate();
    return 0;
}

// "name:5" -> "name" with a 5 MiB limit; text after the digits is kept.
void takeSizeSuffix(char* name) {
    char* colon = strrchr(name, ':');
    if (!colon || colon == name || colon[1] < '0' || colon[1] > '9') return;
    char* end = colon + 1;
    uint64_t mib = 0;
    while (*end >= '0' && *end <= '9') {
        if (mib < (1ull << 29)) mib = mib * 10 + static_cast<uint64_t>(*end - '0');
        ++end;
    }
    memmove(colon, end, strlen(end) + 1);
    if (mib > 0 && mib < (1ull << 29)) s_maxSize.store(mib << 20, std::memory_order_relaxed);
}

// A relative log name goes into the user's log folder.
int placeInLogFolder() {
    char home[CV_MAX_PATH];
    if (cv_path_home_dir(home, sizeof home) < 0) return EINVAL;
    if (strncmp(home, "/var/root", 9) == 0) home[0] = '\0';

    char dir[CV_MAX_PATH];
    int n = snprintf(dir, sizeof dir, "%s/Library/Logs/Corvane", home);
    if (n < 0 || static_cast<size_t>(n) >= sizeof dir) return ERANGE;

    char joined[CV_MAX_PATH];
    if (cv_path_append(dir, s_baseName, joined, sizeof joined) != 0) return ERANGE;
    memcpy(s_baseName, joined, sizeof joined);
    s_baseName[sizeof s_baseName - 1] = '\0';
    return cv_dir_create(dir, 0777, 1);
}

}  // namespace

extern "C" {

int cv_log_init(int type, const char* name) {
    int expected = CV_LOG_NONE;
    if (s_sink.load(std::memory_order_acquire) != CV_LOG_NONE) return 0;
    if (type == CV_LOG_FUNC) return EINVAL;
    // Whatever the type, the log goes to a file; the system log needs no
    // setting up. A bad name below leaves the sink set without a file, so
    // later calls change nothing and messages are dropped.
    if (!s_sink.compare_exchange_strong(expected, CV_LOG_FILE, std::memory_order_acq_rel)) return 0;
    if (!name) return EINVAL;
    if (strlen(name) > CV_MAX_PATH) return ENAMETOOLONG;

    int rc = cv_mutex_init(&s_lock);
    if (rc != 0) return rc;
    s_lockReady.store(true, std::memory_order_release);

    int result = 0;
    if (strcmp(name, "-") == 0) {
        s_stderrOnly.store(true, std::memory_order_release);
    } else {
        size_t len = strlen(name);
        if (len >= sizeof s_baseName) return ENAMETOOLONG;
        memcpy(s_baseName, name, len + 1);
        takeSizeSuffix(s_baseName);
        cv_file_tounixpath(s_baseName);
        if (!strchr(s_baseName, '/')) {
            rc = placeInLogFolder();
            if (rc != 0) return rc;
        }
        result = cv_log_rotate();
    }
    s_pid.store(static_cast<unsigned>(getpid()), std::memory_order_relaxed);
    cv_btrace_init();
    return result;
}

int cv_log_cleanup(void) {
    switch (s_sink.load(std::memory_order_acquire)) {
        case CV_LOG_FUNC:
            s_function.store(nullptr, std::memory_order_release);
            break;
        case CV_LOG_FILE: {
            int fd = s_fd.load(std::memory_order_acquire);
            if (fd >= 0) cv_file_flush(&fd);
            dropDescriptor();
            if (s_lockReady.exchange(false, std::memory_order_acq_rel)) cv_mutex_destroy(&s_lock);
            break;
        }
        case CV_LOG_SYSLOG:
            closelog();
            break;
        default:
            break;
    }
    // A pending repeat count dies with the log, and with it the message it
    // counted: a new log starts without a previous message.
    s_repeats.store(0, std::memory_order_relaxed);
    forgetMessage();
    s_growth.store(0, std::memory_order_relaxed);
    s_stderrOnly.store(false, std::memory_order_release);
    s_echoLevel.store(-1, std::memory_order_relaxed);
    s_sink.store(CV_LOG_NONE, std::memory_order_release);
    cv_btrace_cleanup();
    return 0;
}

int cv_log_rotate(void) {
    if (!s_lockReady.load(std::memory_order_acquire)) return EINVAL;
    int rc = cv_mutex_acquire(&s_lock);
    if (rc != 0) return rc;
    int fd = s_fd.load(std::memory_order_acquire);
    if (fd >= 0) {
        cv_stat_t st;
        errno = 0;
        if (cv_file_fstat(&fd, &st) != 0) {
            if (errno != 0) {
                rc = errno;
                cv_mutex_release(&s_lock);
                return rc;
            }
        } else if (st.size < s_maxSize.load(std::memory_order_relaxed)) {
            cv_mutex_release(&s_lock);
            return 0;
        }
        // Too large: the current file stays open until the next one is in
        // its place (see installDescriptor).
    }
    rc = cv_log_openfile();
    cv_mutex_release(&s_lock);
    return rc;
}

int cv_log_openfile(void) {
    // Directory and file part of the base name.
    char dir[CV_MAX_PATH];
    const char* slash = strrchr(s_baseName, '/');
    const char* file = slash ? slash + 1 : s_baseName;
    if (!slash) {
        strcpy(dir, ".");
    } else {
        size_t dirLen = slash == s_baseName ? 1 : static_cast<size_t>(slash - s_baseName);
        memcpy(dir, s_baseName, dirLen);
        dir[dirLen] = '\0';
    }

    // name.log -> name.D.log, name -> name.D
    char numbered[CV_MAX_PATH];
    size_t fileLen = strlen(file);
    const char* dot = strrchr(file, '.');
    size_t stem = dot ? static_cast<size_t>(dot - file) : fileLen;
    size_t numberedLen = fileLen + 2;
    if (numberedLen >= sizeof numbered) {
        dropDescriptor();
        return ENAMETOOLONG;
    }
    memcpy(numbered, file, stem);
    numbered[stem] = '.';
    numbered[stem + 1] = '0';
    memcpy(numbered + stem + 2, file + stem, fileLen - stem + 1);
    const size_t digitPos = stem + 1;

    cv_dir_t listing;
    int rc = cv_dir_open(dir, &listing);
    if (rc != 0) {
        fprintf(stderr, "Error opening log directory %s\n", dir);
        dropDescriptor();
        return rc;
    }
    unsigned present = 0;
    char entry[CV_MAX_PATH];
    while (cv_dir_next(&listing, entry) == 0) {
        if (strlen(entry) != numberedLen) continue;
        char digit = entry[digitPos];
        if (digit < '0' || digit > '9') continue;
        if (memcmp(entry, numbered, digitPos) != 0) continue;
        if (memcmp(entry + digitPos + 1, numbered + digitPos + 1, numberedLen - digitPos - 1) != 0) continue;
        present |= 1u << (digit - '0');
    }
    cv_dir_close(&listing);

    // Continue in the newest file: the last one of the first run of present
    // digits. A gap always follows the newest file (the file after the
    // current one is deleted whenever a new one starts), so this holds
    // after a wrap from 9 to 0 too.
    int digit = 0;
    bool isNew = true;
    if (present != 0) {
        while (!(present & (1u << digit))) ++digit;
        while (digit < 9 && (present & (1u << (digit + 1)))) ++digit;
        isNew = false;
    }

    char path[CV_MAX_PATH];
    size_t dirLen = strlen(dir);
    if (dirLen + 1 + numberedLen >= sizeof path) {
        dropDescriptor();
        return ENAMETOOLONG;
    }
    memcpy(path, dir, dirLen);
    path[dirLen] = '/';
    memcpy(path + dirLen + 1, numbered, numberedLen + 1);
    char* pathDigit = path + dirLen + 1 + digitPos;
    *pathDigit = static_cast<char>('0' + digit);

    cv_file_t fd;
    if (cv_file_openappend(path, &fd, 0660) != 0) {
        fprintf(stderr, "Cannot open log file: %s\n", path);
        dropDescriptor();
        return EINVAL;
    }
    for (;;) {
        cv_stat_t st;
        if (cv_file_fstat(&fd, &st) == 0 && st.size < s_maxSize.load(std::memory_order_relaxed)) {
            if (isNew) {
                cv_file_delete(s_baseName);
                cv_file_hardlink(path, s_baseName);
            }
            installDescriptor(fd);
            return 0;
        }
        cv_file_close(&fd);
        digit = (digit + 1) % 10;
        *pathDigit = static_cast<char>('0' + (digit + 1) % 10);
        cv_file_delete(path);
        *pathDigit = static_cast<char>('0' + digit);
        if (cv_file_openappend(path, &fd, 0660) != 0) {
            fprintf(stderr, "Cannot open log file: %s\n", path);
            dropDescriptor();
            return EINVAL;
        }
        isNew = true;
    }
}

int cv_log_vmsg(int level, const char* fmt, va_list ap) {
    if (!s_enabled.load(std::memory_order_relaxed)) return 0;
    if (level != CV_LEVEL_ERR && level != CV_LEVEL_LOG && !s_debug.load(std::memory_order_relaxed)) return 0;

    int savedErrno = errno;
    int rc = 0;
    switch (s_sink.load(std::memory_order_acquire)) {
        case CV_LOG_FUNC: {
            char text[kFuncText];
            formatPlain(text, level, fmt, ap);
            cv_log_fn fn = s_function.load(std::memory_order_acquire);
            if (fn) fn(text);
            break;
        }
        case CV_LOG_SYSLOG: {
            char text[kFuncText];
            formatPlain(text, level, fmt, ap);
            syslog(kPriorities[levelIndex(level)] | LOG_LOCAL2, "%s", text);
            break;
        }
        case CV_LOG_FILE:
            rc = fileMessage(level, fmt, ap);
            break;
        default:
            rc = EINVAL;
            break;
    }
    errno = savedErrno;
    return rc;
}

int cv_log(const char* fmt, ...) {
    if (!s_enabled.load(std::memory_order_relaxed)) return 0;
    va_list ap;
    va_start(ap, fmt);
    cv_log_vmsg(CV_LEVEL_LOG, fmt, ap);
    va_end(ap);
    return 0;
}

int cv_err(const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    cv_log_vmsg(CV_LEVEL_ERR, fmt, ap);
    va_end(ap);
    return 0;
}

int cv_dbg(const char* fmt, ...) {
    if (!s_debug.load(std::memory_order_relaxed)) return 0;
    va_list ap;
    va_start(ap, fmt);
    cv_log_vmsg(CV_LEVEL_DBG, fmt, ap);
    va_end(ap);
    return 0;
}

void cv_dbg_set(unsigned flag) {
    s_debug.store(flag, std::memory_order_relaxed);
}
void cv_dbg_set_all(unsigned level) {
    s_debugAll.store(level, std::memory_order_relaxed);
}
unsigned cv_dbg_get_all(void) {
    return s_debugAll.load(std::memory_order_relaxed);
}
void cv_log_set_echo_level(int level) {
    s_echoLevel.store(level, std::memory_order_relaxed);
}
void cv_log_set_enabled(int enabled) {
    s_enabled.store(enabled, std::memory_order_relaxed);
}

int cv_log_set_function(cv_log_fn fn) {
    if (!fn) return EINVAL;
    int expected = CV_LOG_NONE;
    if (!s_sink.compare_exchange_strong(expected, CV_LOG_FUNC, std::memory_order_acq_rel)) return EBUSY;
    s_function.store(fn, std::memory_order_release);
    return 0;
}

int cv_log_use_syslog(void) {
    int expected = CV_LOG_NONE;
    if (!s_sink.compare_exchange_strong(expected, CV_LOG_SYSLOG, std::memory_order_acq_rel)) return EBUSY;
    return 0;
}

int cv_btrace_init(void) {
    return 0;
}
int cv_btrace_cleanup(void) {
    return 0;
}

}  // extern "C"
