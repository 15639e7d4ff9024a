#include "LogCapture.h"

#include <chrono>
#include <thread>

#include "runlog.h"

namespace testsupport {

LogCapture::LogCapture() { Runlog_SetCapture(&LogCapture::OnMessage, this); }

LogCapture::~LogCapture() { Runlog_SetCapture(nullptr, nullptr); }

void LogCapture::OnMessage(void* self, int level, const char* source, int line, const char* text) {
    auto* capture = static_cast<LogCapture*>(self);
    std::lock_guard<std::mutex> lock(capture->mutex_);
    capture->lines_.push_back(LogLine{level, source != nullptr ? source : "", line, text != nullptr ? text : ""});
}

std::vector<LogLine> LogCapture::lines() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
}

std::size_t LogCapture::count(const std::string& text, int level, const std::string& source) const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::size_t n = 0;
    for (const LogLine& l : lines_) {
        if (l.text == text && (level < 0 || l.level == level) && (source.empty() || l.source == source)) {
            ++n;
        }
    }
    return n;
}

bool LogCapture::waitFor(const std::string& text, int timeoutMs) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (std::chrono::steady_clock::now() < deadline) {
        if (contains(text)) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return contains(text);
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.clear();
}

std::string LogCapture::dump() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::string out;
    for (const LogLine& l : lines_) {
        out += std::to_string(l.level) + " " + l.source + ":" + std::to_string(l.line) + " " + l.text + "\n";
    }
    return out;
}

std::string LogCapture::texts() const {
    std::string out;
    for (const LogLine& l : lines()) {
        out += l.text + "\n";
    }
    return out;
}

}  // namespace testsupport
