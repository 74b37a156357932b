// SPDX-License-Identifier: MIT
// The process-wide logger of everything but the key store's trace: severities, scopes, sinks.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <list>
#include <shared_mutex>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "platform/Text.h"

namespace Varnhold::Hob::Detail {

// Lower is more important.
enum Severity : int { kError = 1, kWarning = 2, kInformation = 3, kScope = 4 };

// What a sink is handed. The strings live for the time of the call.
struct LogRecord {
    uint32_t zero = 0;
    int severity = 0;
    const char* file = nullptr;      // such as "FS_Library_DLL/FsHiveRegistryImpl"
    const char* function = nullptr;  // qualified, such as "FsHiveRegistryImpl::FBR_InitialiseEx"
    int line = 0;
    std::string message;
};

class Logger {
  public:
    using Filter = std::function<bool(int severity)>;
    using Delivery = std::function<void(const LogRecord&)>;

    // The one logger, made on first use. After the process began to tear down, logging does
    // nothing and waits for nobody; the sinks are neither called nor destroyed.
    static Logger& Instance();

    // True when a message of this severity would reach a sink. Call it before formatting.
    bool IsEnabled(int severity) const;
    void Log(int severity, const char* file, const char* function, int line,
             std::string_view message) const;

    // Adds a sink for severities up to `level` and lets them pass. A sink is called from any
    // thread, several at once, and must not throw; it may end the process. Takes the exclusive
    // lock, as does RemoveSinks.
    void AddSink(int level, Filter filter, Delivery delivery);
    void RemoveSinks();

  private:
    struct Sink {
        Filter filter;
        Delivery delivery;
        int level;
    };
    Logger() = default;
    static void TearDown();

    std::atomic<int> level_ = kError;
    mutable std::shared_mutex lock_;
    std::list<Sink> sinks_;
};

// Runs in a catch block of a formatting call: logs what failed and returns an empty message.
std::string HandleFormatExceptionGeneric(const char* formatString);

// Formats, converting nothing; a format that throws gives an empty message and one error line.
template <class... Args>
std::string FormatMessageSafely(const char* format, const Args&... args) {
    try {
        return fmt::format(fmt::runtime(format), args...);
    } catch (...) {
        return HandleFormatExceptionGeneric(format);
    }
}

// The shape of a log site: the test first, and only then the formatting.
template <class... Args>
void LogFormatted(int severity, const char* file, const char* function, int line,
                  const char* format, const Args&... args) {
    if (!Logger::Instance().IsEnabled(severity)) return;
    Logger::Instance().Log(severity, file, function, line, FormatMessageSafely(format, args...));
}

// Writes "[ENTER]" when made and "[EXIT]", or "[EXCEPTION EXIT]", when it goes.
class LogScope {
  public:
    LogScope(const char* file, const char* function, int line, std::string message = {});
    ~LogScope();
    LogScope(const LogScope&) = delete;
    LogScope& operator=(const LogScope&) = delete;

  private:
    const char* file_;
    const char* function_;
    int line_;
    std::string message_;
    int exceptions_;
};

}  // namespace Varnhold::Hob::Detail

// A log site in a source file that defines ZRFS_LOG_FILE as its name for the log.
// The arguments are evaluated only when the severity is enabled.
#define ZRFS_LOG(severity, function, ...)                                                         \
    (::Varnhold::Hob::Detail::Logger::Instance().IsEnabled(severity)                              \
         ? ::Varnhold::Hob::Detail::LogFormatted((severity), ZRFS_LOG_FILE, (function), __LINE__, \
                                                 __VA_ARGS__)                                     \
         : void())
