// Keeps exceptions inside the library. A C entry point, a handler the
// platform calls through a C function pointer, or one pass of a library
// thread wraps its body in NoThrow: an exception (in practice std::bad_alloc
// from copying a string or growing a container) becomes one error line and
// the caller's failure result instead of ending the host process.
//
//   int ZEBSomething(...) {
//       return alarmsdk::NoThrow(ALM_CALL_SITE("ZEBSomething"), -1, [&] { return ...; });
//   }
#ifndef ALARMSDK_NO_THROW_H
#define ALARMSDK_NO_THROW_H

#include <cxxabi.h>

#include <exception>
#include <new>
#include <utility>

#include "runlog.h"

namespace alarmsdk {

// Where a guarded body runs: the caller's log source and line, and the
// function name the error line gives.
struct CallSite {
    const char* source;
    int line;
    const char* function;
};

// Returns body's result, or failure after logging when body throws.
template <typename Result, typename Body> Result NoThrow(const CallSite& site, Result failure, Body&& body) {
    try {
        return std::forward<Body>(body)();
    } catch (abi::__forced_unwind&) {
        throw;  // thread cancellation must finish unwinding
    } catch (const std::bad_alloc&) {
        Runlog_TextAdapt(RUNLOG_LEVEL_ERROR, site.source, site.line, "In %s, out of memory!", site.function);
    } catch (const std::exception& e) {
        Runlog_TextAdapt(RUNLOG_LEVEL_ERROR, site.source, site.line, "In %s, unexpected exception: %s", site.function,
                         e.what());
    } catch (...) {
        Runlog_TextAdapt(RUNLOG_LEVEL_ERROR, site.source, site.line, "In %s, unexpected exception!", site.function);
    }
    return failure;
}

// Runs fn when the scope ends, also when an exception leaves it, so a lock
// taken by hand is never left held.
template <typename Fn> class ScopeExit {
public:
    explicit ScopeExit(Fn fn) : fn_(std::move(fn)) {}
    ~ScopeExit() { fn_(); }
    ScopeExit(const ScopeExit&) = delete;
    ScopeExit& operator=(const ScopeExit&) = delete;

private:
    Fn fn_;
};

}  // namespace alarmsdk

// The call site of a guarded body in a source that defines kLogSource.
#define ALM_CALL_SITE(function) (::alarmsdk::CallSite{kLogSource, __LINE__, (function)})

#endif
