#include "FailingHeap.h"

#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace failingheap {

thread_local long t_allowed = -1;
thread_local bool t_refused = false;

namespace {

std::atomic<long> g_round{0};  // each FailEachLibraryThreadAt starts a round
std::atomic<long> g_failAt{-1};
std::atomic<long> g_refusals{0};
const char* const kNames[] = {"alarmsdk-send", "alarmsdk-legacy", "alarmsdk-check", "alarmsdk-http"};
constexpr int kKinds = sizeof(kNames) / sizeof(kNames[0]);
std::atomic<long> g_refusalsOf[kKinds + 1];  // by name, the last for any other "alarmsdk-" thread

struct ThreadCount {
    long round = -1;
    long count = 0;
    int library = -1;  // -1 unknown; the name is read again each round until it is the library's
    int kind = kKinds;
};
thread_local ThreadCount t_count;

int KindOf(const char* name) {
    int kind = 0;
    while (kind < kKinds && std::strcmp(name, kNames[kind]) != 0) {
        ++kind;
    }
    return kind;
}

bool IsLibraryThread() {
    if (t_count.library < 0) {
        char name[16] = {};
        const bool named = pthread_getname_np(pthread_self(), name, sizeof(name)) == 0;
        t_count.library = named && std::strncmp(name, "alarmsdk-", 9) == 0 ? 1 : 0;
        t_count.kind = KindOf(name);
    }
    return t_count.library == 1;
}

// True when this allocation is the library thread's n-th of the round.
bool LibraryTurn() {
    const long round = g_round.load(std::memory_order_acquire);
    if (t_count.round != round) {
        t_count.round = round;
        t_count.count = 0;
        t_count.library = t_count.library == 1 ? 1 : -1;
    }
    const long failAt = g_failAt.load(std::memory_order_relaxed);
    if (failAt < 0 || !IsLibraryThread()) {
        return false;
    }
    return t_count.count++ == failAt;
}

void* Allocate(std::size_t size, bool nothrow) {
    bool refuse = t_allowed == 0;
    t_refused = t_refused || refuse;
    t_allowed -= t_allowed > 0 ? 1 : 0;
    if (LibraryTurn()) {
        g_refusals.fetch_add(1);
        g_refusalsOf[t_count.kind].fetch_add(1);
        refuse = true;
    }
    void* p = refuse ? nullptr : std::malloc(size == 0 ? 1 : size);
    return p != nullptr || nothrow ? p : throw std::bad_alloc();
}

}  // namespace

void FailEachLibraryThreadAt(long n) {
    g_failAt.store(n);
    g_refusals.store(0);
    g_round.fetch_add(1, std::memory_order_release);
}

long LibraryRefusals() { return g_refusals.load(); }

long RefusalsOf(const char* threadName) { return g_refusalsOf[KindOf(threadName)].load(); }

}  // namespace failingheap

// Every form, so that sanitizer runtimes never pair their allocator with ours.
void* operator new(std::size_t size) { return failingheap::Allocate(size, false); }
void* operator new[](std::size_t size) { return failingheap::Allocate(size, false); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return failingheap::Allocate(size, true); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return failingheap::Allocate(size, true); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }

// After an allocation fails mid-parse the XML parser's objects are only to be discarded: what its scanner held stays
// allocated. That is the parser's own memory, past the library's reach; everything else stays checked for leaks.
extern "C" const char* __lsan_default_suppressions() { return "leak:libxerces-c\n"; }
