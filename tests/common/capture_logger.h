#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "kit/log_service.h"

namespace qzetest {

// Lines a test sink received, shared so that the sink itself can be handed
// to the log service (which owns and deletes it).
struct CapturedLines {
    std::mutex mutex;
    std::vector<std::pair<int, std::string>> lines;
    int destroyed = 0;

    std::vector<std::string> Texts() {
        std::lock_guard<std::mutex> hold(mutex);
        std::vector<std::string> out;
        for (auto& l : lines) {
            out.push_back(l.second);
        }
        return out;
    }
    bool Contains(const std::string& text) {
        std::lock_guard<std::mutex> hold(mutex);
        for (auto& l : lines) {
            if (l.second == text) {
                return true;
            }
        }
        return false;
    }
    void Clear() {
        std::lock_guard<std::mutex> hold(mutex);
        lines.clear();
    }
};

class CaptureLogger : public qzextensionkit::IQZELogger {
public:
    explicit CaptureLogger(std::shared_ptr<CapturedLines> sink) : sink_(std::move(sink)) {}
    ~CaptureLogger() override { ++sink_->destroyed; }
    void Log(int level, std::string text) override {
        std::lock_guard<std::mutex> hold(sink_->mutex);
        sink_->lines.emplace_back(level, std::move(text));
    }

private:
    std::shared_ptr<CapturedLines> sink_;
};

// Registers a fresh capturing sink with the kit's log service and returns
// what it captures.
inline std::shared_ptr<CapturedLines> CaptureLog() {
    auto lines = std::make_shared<CapturedLines>();
    qzextensionkit::QZELogService::GetInstance()->RegisterLogger(new CaptureLogger(lines));
    return lines;
}

}  // namespace qzetest
