// Collects every run-log message of the process while alive, so a test can
// assert that an exact text was logged at an exact level and source.
#ifndef TEST_LOG_CAPTURE_H
#define TEST_LOG_CAPTURE_H

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace testsupport {

struct LogLine {
    int level;
    std::string source;
    int line;
    std::string text;
};

class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> lines() const;
    // Number of messages with exactly this text (and level/source when given).
    std::size_t count(const std::string& text, int level = -1, const std::string& source = "") const;
    bool contains(const std::string& text, int level = -1, const std::string& source = "") const {
        return count(text, level, source) > 0;
    }
    // Waits up to timeoutMs for a message with this text.
    bool waitFor(const std::string& text, int timeoutMs) const;
    void clear();
    // Every line as "level source:line text", one per line, for failure messages.
    std::string dump() const;
    // Just the texts, each followed by a line break.
    std::string texts() const;

private:
    static void OnMessage(void* self, int level, const char* source, int line, const char* text);
    mutable std::mutex mutex_;
    std::vector<LogLine> lines_;
};

}  // namespace testsupport

#endif
