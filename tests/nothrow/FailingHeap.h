// The nothrow program's heap: it replaces the global allocation functions so
// that allocations fail on demand, in one of two ways.
#ifndef FAILING_HEAP_H
#define FAILING_HEAP_H

#include <cstddef>

namespace failingheap {

// The calling thread: allocations left before this one and every later one
// fail (-1: none fails), and whether one was refused since it was last cleared.
extern thread_local long t_allowed;
extern thread_local bool t_refused;

// The library's own threads (named "alarmsdk-..."): from this call on, the
// n-th allocation of each of them fails, once (n < 0: none). Other threads
// (the test's, the stand-in's) are never failed.
void FailEachLibraryThreadAt(long n);
// Library-thread allocations refused since the last FailEachLibraryThreadAt.
long LibraryRefusals();
// All refusals so far on the library threads of this name ("alarmsdk-send",
// "-legacy", "-check", "-http"; any other name: the other library threads).
long RefusalsOf(const char* threadName);

}  // namespace failingheap

#endif
