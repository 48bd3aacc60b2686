#pragma once

#include <memory>
#include <string>

#include "platform/export.h"

namespace qzextensionkit {

namespace internal {
template <class T>
class ProcessSingleton;
}  // namespace internal

// The sink that the host implements. The kit calls Log on whatever thread
// logs, possibly while holding one of its locks: a sink must be safe for
// concurrent calls and must not call back into the kit.
class QZEKIT_EXPORT IQZELogger {
public:
    virtual void Log(int level, std::string text) = 0;
    virtual ~IQZELogger();
};

class QZEKIT_EXPORT IQZELogService {
public:
    virtual bool RegisterLogger(IQZELogger* logger) = 0;
    virtual void LogMessage(int level, const char* format, ...) = 0;

protected:
    // The service lives to the end of the process and is never deleted
    // through this interface.
    ~IQZELogService() = default;
};

// Formats every message of the kit and hands it, tagged "[QZExtensionKit] ",
// to the one sink the host registered. Without a sink messages are dropped.
class QZEKIT_EXPORT QZELogService final : public IQZELogService {
public:
    static QZELogService* GetInstance();

    // Takes ownership of `logger` (it is deleted through IQZELogger when a
    // later sink replaces it). Null is refused and the present sink kept.
    bool RegisterLogger(IQZELogger* logger) override;
    // printf-style; no length limit. A bad format logs "log format error!!!".
    void LogMessage(int level, const char* format, ...) override
#if defined(__GNUC__) && !defined(_WIN32)
        __attribute__((format(printf, 3, 4)))
#endif
        ;

private:
    friend class internal::ProcessSingleton<QZELogService>;
    QZELogService();
    ~QZELogService();

    std::shared_ptr<IQZELogger> logger_;
};

}  // namespace qzextensionkit
