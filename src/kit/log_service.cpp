#include "kit/log_service.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include "kit/singleton.h"

namespace qzextensionkit {

IQZELogger::~IQZELogger() = default;

QZELogService::QZELogService() = default;
QZELogService::~QZELogService() = default;

QZELogService* QZELogService::GetInstance() {
    return internal::ProcessSingleton<QZELogService>::Get();
}

bool QZELogService::RegisterLogger(IQZELogger* logger) {
    if (logger == nullptr) {
        return false;
    }
    // The old sink is released here, and with it destroyed.
    logger_.reset(logger);
    return true;
}

namespace {

// Two passes over the same arguments: measure, then format into a buffer of
// exactly that size. There is no fixed buffer and no length limit.
std::string FormatMessage(const char* format, va_list args) {
    if (format == nullptr) {
        return "log format error!!!";
    }
    va_list measure;
    va_copy(measure, args);
    int length = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    if (length < 0) {
        return "log format error!!!";
    }
    std::string text;
    size_t size = static_cast<size_t>(length) + 1;
    char* buffer = static_cast<char*>(std::malloc(size));
    if (buffer != nullptr) {
        va_list again;
        va_copy(again, args);
        if (std::vsnprintf(buffer, size, format, again) >= 0) {
            text.assign(buffer, static_cast<size_t>(length));
        }
        va_end(again);
        std::free(buffer);
    }
    return text;
}

}  // namespace

void QZELogService::LogMessage(int level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::string text = FormatMessage(format, args);
    va_end(args);

    if (!logger_) {
        return;
    }
    std::string line = "[QZExtensionKit] ";
    line += text;
    logger_->Log(level, line);
}

}  // namespace qzextensionkit
