// Collects every run-log message of the process while alive: a test asserts an exact text, level and source.
#ifndef TEST_LOG_CAPTURE_H
#define TEST_LOG_CAPTURE_H

#include <algorithm>
#include <mutex>
#include <vector>

#include "TestEnv.h"
#include "runlog_testing.h"

namespace testsupport {

struct LogLine {
    int level;
    std::string source;
    int line;
    std::string text;
};

class LogCapture {
public:
    LogCapture() { Runlog_SetCapture(&LogCapture::OnMessage, this); }
    ~LogCapture() { Runlog_SetCapture(nullptr, nullptr); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> lines() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }
    std::size_t count(const std::string& text, int level = -1, const std::string& source = "") const {
        std::lock_guard<std::mutex> lock(mutex_);
        return std::count_if(lines_.begin(), lines_.end(), [&](const LogLine& l) {
            return l.text == text && (level < 0 || l.level == level) && (source.empty() || l.source == source);
        });
    }
    bool contains(const std::string& text, int level = -1, const std::string& source = "") const {
        return count(text, level, source) > 0;
    }
    bool waitFor(const std::string& text, int timeoutMs) const {
        return WaitUntil([&] { return contains(text); }, timeoutMs);
    }
    void clear() {
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.clear();
    }
    // Every line as "level source:line text" (dump, for failure messages) or as its text alone (texts).
    std::string dump() const { return Joined(true); }
    std::string texts() const { return Joined(false); }

private:
    static void OnMessage(void* self, int level, const char* source, int line, const char* text) {
        auto* capture = static_cast<LogCapture*>(self);
        std::lock_guard<std::mutex> lock(capture->mutex_);
        capture->lines_.push_back(LogLine{level, source != nullptr ? source : "", line, text != nullptr ? text : ""});
    }
    std::string Joined(bool full) const {
        std::string out;
        for (const LogLine& l : lines()) {
            out += (full ? std::to_string(l.level) + " " + l.source + ":" + std::to_string(l.line) + " " : "") +
                   l.text + "\n";
        }
        return out;
    }
    mutable std::mutex mutex_;
    std::vector<LogLine> lines_;
};

}  // namespace testsupport

#endif
