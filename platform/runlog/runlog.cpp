// Run-log: formats one message and writes it as one line.
//
// The threads of the libraries that log here never end and keep logging while
// the process exits, so every piece of state below is trivially destructible
// (a statically initialised pthread mutex and plain pointers): nothing is torn
// down under a logging thread by static destruction. Buffers live on the
// calling thread's stack.
#include "runlog_testing.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Longest text kept of one message; longer ones are cut.
constexpr std::size_t kMaxText = 8 * 1024;
// Room for "<time> <level> <source>:<line> ".
constexpr std::size_t kMaxPrefix = 512;
// Formats up to this size are rewritten on the stack, longer ones on the heap.
constexpr std::size_t kStackFormat = 1024;

pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;
Runlog_CaptureFn g_captureFn = nullptr;
void* g_captureContext = nullptr;
// Mirrors g_captureFn != nullptr, so a message nobody takes costs no lock.
std::atomic<bool> g_capturing{false};

// A child forked while another thread held the lock must still be able to log.
// Registered when the library is loaded, before the libraries that log here
// register theirs: their handlers then run first and take their own locks
// before this one, the order their threads take them in.
void LockForFork() { pthread_mutex_lock(&g_lock); }
void UnlockAfterFork() { pthread_mutex_unlock(&g_lock); }
const int g_forkHandlers = pthread_atfork(&LockForFork, &UnlockAfterFork, &UnlockAfterFork);

bool IsFlag(char c) { return c == '-' || c == '+' || c == ' ' || c == '#' || c == '0' || c == '\''; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsConversion(char c) { return c != '\0' && std::strchr("diouxXeEfFgGaAcsp%", c) != nullptr; }

// A width or precision: '*' or a run of digits starting at format[i].
std::size_t SkipCount(const char* format, std::size_t i) {
    if (format[i] == '*') {
        return i + 1;
    }
    while (IsDigit(format[i])) {
        ++i;
    }
    return i;
}

// Scans the conversion that starts at format[0] == '%'. Returns its length and
// whether the C library can be trusted with it. "%n" is refused: a log text
// has no business writing through a pointer.
std::size_t ScanConversion(const char* format, bool* valid) {
    std::size_t i = 1;
    while (IsFlag(format[i])) {
        ++i;
    }
    i = SkipCount(format, i);  // width
    if (format[i] == '.') {
        i = SkipCount(format, i + 1);  // precision
    }
    const char a = format[i];
    const char b = a != '\0' ? format[i + 1] : '\0';
    if ((a == 'h' && b == 'h') || (a == 'l' && b == 'l')) {
        i += 2;
    } else if (a == 'h' || a == 'l' || a == 'j' || a == 'z' || a == 't' || a == 'L' || a == 'q') {
        ++i;
    }
    const char conversion = format[i];
    // "%%" is the only form of '%' the C library defines.
    *valid = conversion == '%' ? i == 1 : IsConversion(conversion);
    return conversion == '\0' ? i : i + 1;
}

// Writes the format with every unusable conversion escaped, so that it
// prints literally and takes no argument. out == nullptr only measures.
// Returns the length of the rewritten format.
std::size_t RewriteFormat(const char* format, char* out, bool* changed) {
    std::size_t n = 0;
    *changed = false;
    for (const char* p = format; *p != '\0';) {
        if (*p != '%') {
            if (out != nullptr) {
                out[n] = *p;
            }
            ++n;
            ++p;
            continue;
        }
        bool valid = false;
        const std::size_t length = ScanConversion(p, &valid);
        for (std::size_t k = 0; k < length; ++k) {
            const bool escape = !valid && p[k] == '%';
            if (out != nullptr) {
                if (escape) {
                    out[n] = '%';
                }
                out[n + (escape ? 1 : 0)] = p[k];
            }
            n += escape ? 2 : 1;
        }
        *changed = *changed || !valid;
        p += length;
    }
    if (out != nullptr) {
        out[n] = '\0';
    }
    return n;
}

// Drops a UTF-8 sequence that the cut at text[length] left incomplete.
std::size_t TrimPartialCharacter(const char* text, std::size_t length) {
    std::size_t start = length;
    std::size_t back = 0;
    while (start > 0 && back < 4 && (static_cast<unsigned char>(text[start - 1]) & 0xC0) == 0x80) {
        --start;
        ++back;
    }
    if (start == 0) {
        return length;
    }
    const unsigned char lead = static_cast<unsigned char>(text[start - 1]);
    std::size_t need = 1;
    if ((lead & 0xE0) == 0xC0) {
        need = 2;
    } else if ((lead & 0xF0) == 0xE0) {
        need = 3;
    } else if ((lead & 0xF8) == 0xF0) {
        need = 4;
    } else {
        return length;  // ASCII or not UTF-8 at all: nothing to repair
    }
    return back + 1 < need ? start - 1 : length;
}

// Formats into out (kMaxText + 1 bytes) and returns the text length.
std::size_t FormatText(char* out, const char* format, va_list args) {
    if (format == nullptr) {
        std::memcpy(out, "(null)", 7);
        return 6;
    }
    bool changed = false;
    const std::size_t rewrittenLength = RewriteFormat(format, nullptr, &changed);
    const char* safeFormat = format;
    char stackFormat[kStackFormat];
    char* heapFormat = nullptr;
    if (changed) {
        char* target = stackFormat;
        if (rewrittenLength + 1 > sizeof stackFormat) {
            heapFormat = static_cast<char*>(std::malloc(rewrittenLength + 1));
            if (heapFormat == nullptr) {
                std::memcpy(out, "(format too long)", 18);
                return 17;
            }
            target = heapFormat;
        }
        RewriteFormat(format, target, &changed);
        safeFormat = target;
    }
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int full = std::vsnprintf(out, kMaxText + 1, safeFormat, args);
#pragma GCC diagnostic pop
    std::free(heapFormat);
    if (full < 0) {
        out[0] = '\0';
        return 0;
    }
    if (static_cast<std::size_t>(full) <= kMaxText) {
        return static_cast<std::size_t>(full);
    }
    const std::size_t length = TrimPartialCharacter(out, kMaxText);
    out[length] = '\0';
    return length;
}

// Writes the decimal digits of value at out; returns their count.
std::size_t PutDecimal(char* out, unsigned long value) {
    char digits[24];
    std::size_t n = 0;
    do {
        digits[n++] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    for (std::size_t i = 0; i < n; ++i) {
        out[i] = digits[n - 1 - i];
    }
    return n;
}

// Two digits, zero-padded.
void PutTwo(char* out, int value) {
    out[0] = static_cast<char>('0' + value / 10 % 10);
    out[1] = static_cast<char>('0' + value % 10);
}

// "2026-01-02T03:04:05" of the last second this thread logged in: a second's
// lines share it, so the calendar is worked out once a second, not per line.
// Plain data, so it needs no destruction.
struct SecondText {
    time_t second = -1;
    char text[32];
    std::size_t length = 0;
};
thread_local SecondText t_second;

// "2026-01-02T03:04:05.678Z" into out (at least 32 bytes); returns its length.
std::size_t FormatTime(char* out) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    SecondText& cached = t_second;
    if (cached.second != now.tv_sec) {
        tm utc{};
        gmtime_r(&now.tv_sec, &utc);
        const int n =
            std::snprintf(cached.text, sizeof(cached.text), "%04d-%02d-%02dT%02d:%02d:%02d", utc.tm_year + 1900,
                          utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
        cached.length = n < 0 ? 0 : std::strlen(cached.text);
        cached.second = now.tv_sec;
    }
    std::memcpy(out, cached.text, cached.length);
    std::size_t length = cached.length;
    const int millis = static_cast<int>(now.tv_nsec / 1000000);
    out[length++] = '.';
    out[length++] = static_cast<char>('0' + millis / 100);
    PutTwo(out + length, millis % 100);
    length += 2;
    out[length++] = 'Z';
    return length;
}

// Appends text to out[length..size-1], cut so that a terminator still fits.
std::size_t Append(char* out, std::size_t length, std::size_t size, const char* text, std::size_t textLength) {
    const std::size_t room = length + 1 < size ? size - 1 - length : 0;
    const std::size_t n = textLength < room ? textLength : room;
    std::memcpy(out + length, text, n);
    return length + n;
}

std::size_t AppendInt(char* out, std::size_t length, std::size_t size, int value) {
    char digits[24];
    std::size_t n = 0;
    const long long wide = value;
    if (wide < 0) {
        digits[n++] = '-';
    }
    n += PutDecimal(digits + n, static_cast<unsigned long>(wide < 0 ? -wide : wide));
    return Append(out, length, size, digits, n);
}

// "<time> <level> <source>:<line> " into out (size bytes); returns its length.
std::size_t FormatPrefix(char* out, std::size_t size, int level, const char* source, int line) {
    std::size_t length = FormatTime(out);
    length = Append(out, length, size, " ", 1);
    length = AppendInt(out, length, size, level);
    length = Append(out, length, size, " ", 1);
    length = Append(out, length, size, source, std::strlen(source));
    length = Append(out, length, size, ":", 1);
    length = AppendInt(out, length, size, line);
    return Append(out, length, size, " ", 1);
}

void WriteAll(int fd, const char* data, std::size_t size) {
    // One write() per line is what keeps lines whole across processes; the
    // loop only finishes a write a signal or a full pipe cut short.
    while (size > 0) {
        const ssize_t n = write(fd, data, size);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        data += n;
        size -= static_cast<std::size_t>(n);
    }
}

// The open RUNLOG_FILE, kept between messages (an open per message costs more
// than the rest of a caller's alarm). Plain data, so it outlives static
// destruction while threads still log.
int g_logFd = -1;
char g_logFdPath[4096];
dev_t g_logDevice = 0;
ino_t g_logInode = 0;
long long g_logCheckedAt = 0;  // monotonic milliseconds of the last look at the file

constexpr long long kFileCheckMillis = 1000;

// The coarse clock is read without a system call and in a few nanoseconds;
// its few milliseconds of resolution are nothing against a second.
long long MonotonicMillis() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Read on every message, set with g_lock held.
std::atomic<Runlog_ClockFn> g_clock{&MonotonicMillis};

// RUNLOG_FILE as last looked up. Looking it up costs more than dropping a
// message, and a service drops several per alarm, so it is looked up at the
// first message and then at most once a second. g_envPath is read and written
// with g_lock held; the atomics let a message that is dropped take no lock.
char g_envPath[4096 + 1];  // one byte more than a usable path: a longer one stays unusable
std::atomic<bool> g_envLooked{false};
std::atomic<bool> g_envSet{false};
std::atomic<long long> g_envLookedAt{0};

// Whether RUNLOG_FILE names a file, looked up again when the second is up.
bool LogFileWanted(long long now) {
    if (g_envLooked.load(std::memory_order_acquire)) {
        const long long since = now - g_envLookedAt.load(std::memory_order_relaxed);
        if (since >= 0 && since < kFileCheckMillis) {  // a clock set back looks again
            return g_envSet.load(std::memory_order_relaxed);
        }
    }
    pthread_mutex_lock(&g_lock);
    const char* path = std::getenv("RUNLOG_FILE");
    const bool set = path != nullptr && path[0] != '\0';
    const std::size_t length = set ? strnlen(path, sizeof(g_envPath) - 1) : 0;
    if (set) {
        std::memcpy(g_envPath, path, length);
    }
    g_envPath[length] = '\0';
    g_envSet.store(set, std::memory_order_relaxed);
    g_envLookedAt.store(now, std::memory_order_relaxed);
    g_envLooked.store(true, std::memory_order_release);
    pthread_mutex_unlock(&g_lock);
    return set;
}

// The descriptor for path, with g_lock held. Another RUNLOG_FILE is opened as
// soon as it is looked up; whether the file is still the one the name leads to
// (not removed, renamed away or replaced) is checked once a second, a stat per
// line being dearer than the line. A file that is gone is created again.
int LogFileFor(const char* path, long long now) {
    if (g_logFd >= 0 && std::strncmp(g_logFdPath, path, sizeof(g_logFdPath)) == 0) {
        if (now - g_logCheckedAt < kFileCheckMillis) {
            return g_logFd;
        }
        g_logCheckedAt = now;
        struct stat st;
        if (stat(path, &st) == 0 && st.st_dev == g_logDevice && st.st_ino == g_logInode) {
            return g_logFd;
        }
    }
    if (g_logFd >= 0) {
        close(g_logFd);
        g_logFd = -1;
    }
    if (std::strlen(path) >= sizeof(g_logFdPath)) {
        return -1;
    }
    g_logFd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    struct stat st;
    if (g_logFd >= 0 && fstat(g_logFd, &st) == 0) {
        std::memcpy(g_logFdPath, path, std::strlen(path) + 1);
        g_logDevice = st.st_dev;
        g_logInode = st.st_ino;
        g_logCheckedAt = now;
    } else if (g_logFd >= 0) {
        close(g_logFd);
        g_logFd = -1;
    }
    return g_logFd;
}

// Formats and writes one message that is not dropped.
__attribute__((noinline)) void WriteMessage(int level, const char* sourceFile, int line, long long now,
                                            const char* format, va_list args) {
    const int savedErrno = errno;  // logging must not disturb the caller's errno

    // One buffer holds the whole line: prefix, text, line break.
    char buffer[kMaxPrefix + kMaxText + 2];
    const char* source = sourceFile != nullptr ? sourceFile : "(null)";
    const std::size_t prefix = FormatPrefix(buffer, kMaxPrefix, level, source, line);
    char* text = buffer + prefix;
    const std::size_t textLength = FormatText(text, format, args);

    pthread_mutex_lock(&g_lock);
    // Looked at again under the lock: another thread may have looked it up since.
    const int fd = g_envPath[0] != '\0' ? LogFileFor(g_envPath, now) : -1;
    // If the file cannot be opened, errors still reach stderr.
    const bool toStderr = fd < 0 && level >= RUNLOG_LEVEL_ERROR;
    if (g_captureFn != nullptr) {
        g_captureFn(g_captureContext, level, source, line, text);
    }
    if (fd >= 0 || toStderr) {
        // A text with line breaks must still make exactly one line.
        for (std::size_t i = 0; i < textLength; ++i) {
            if (text[i] == '\n' || text[i] == '\r') {
                text[i] = ' ';
            }
        }
        text[textLength] = '\n';
        WriteAll(fd >= 0 ? fd : STDERR_FILENO, buffer, prefix + textLength + 1);
    }
    pthread_mutex_unlock(&g_lock);

    errno = savedErrno;
}

}  // namespace

extern "C" {

void Runlog_SetCapture(Runlog_CaptureFn fn, void* context) {
    pthread_mutex_lock(&g_lock);
    g_captureFn = fn;
    g_captureContext = fn != nullptr ? context : nullptr;
    g_capturing.store(fn != nullptr, std::memory_order_release);
    pthread_mutex_unlock(&g_lock);
}

void Runlog_SetClock(Runlog_ClockFn fn) {
    pthread_mutex_lock(&g_lock);
    g_clock.store(fn != nullptr ? fn : &MonotonicMillis);
    g_envLooked.store(false, std::memory_order_release);  // a new clock counts from a new look
    pthread_mutex_unlock(&g_lock);
}

void Runlog_TextAdapt(int level, const char* sourceFile, int line, const char* format, ...) {
    // Deciding to drop a message touches neither errno nor the line buffer: a
    // service drops several per alarm.
    const Runlog_ClockFn clock = g_clock.load(std::memory_order_acquire);
    const long long now = clock == &MonotonicMillis ? MonotonicMillis() : clock();
    if (!LogFileWanted(now) && level < RUNLOG_LEVEL_ERROR && !g_capturing.load(std::memory_order_acquire)) {
        return;
    }
    va_list args;
    va_start(args, format);
    WriteMessage(level, sourceFile, line, now, format, args);
    va_end(args);
}

}  // extern "C"
