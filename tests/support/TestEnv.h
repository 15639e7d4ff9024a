// Small process-level helpers for tests: environment overrides that undo
// themselves, free loopback ports, temporary directories, bounded waits.
#ifndef TEST_ENV_H
#define TEST_ENV_H

#include <functional>
#include <string>

namespace testsupport {

// Sets (or, with nullptr, unsets) a variable; restores the old state when destroyed.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    std::string name_;
    bool hadValue_;
    std::string oldValue_;
};

// A TCP port on 127.0.0.1 that was free a moment ago.
int FreeLoopbackPort();

// A new empty directory under /tmp, removed with its contents when destroyed.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

// Polls condition every 2 ms until it holds or timeoutMs passes.
bool WaitUntil(const std::function<bool()>& condition, int timeoutMs);

}  // namespace testsupport

#endif
