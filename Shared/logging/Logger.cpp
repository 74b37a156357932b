// SPDX-License-Identifier: MIT
#include "Shared/logging/Logger.h"

#include <cstdlib>
#include <mutex>
#include <new>
#include <system_error>
#include <utility>

namespace Varnhold::Hob::Detail {
namespace {

std::atomic<bool> destroyed{false};

constexpr const char* kOwnFile = "Shared/Logger";
constexpr const char* kHandlerName = "Varnhold::Hob::Detail::HandleFormatExceptionGeneric";

const char* OrNull(const char* text) {
    return text != nullptr ? text : "(null)";
}

void LogFormatFailure(int line, const std::string& message) {
    Logger::Instance().Log(kError, kOwnFile, kHandlerName, line, message);
}

// "[ENTER]" alone, or "[ENTER] message".
void LogEdge(const char* edge, const char* file, const char* function, int line,
             const std::string& message) {
    const Logger& logger = Logger::Instance();
    if (!logger.IsEnabled(kScope)) return;
    std::string text = edge;
    if (!message.empty()) text.append(1, ' ').append(message);
    logger.Log(kScope, file, function, line, text);
}

}  // namespace

// The object is never destroyed, so that a thread which still logs while the process ends finds
// it whole.
Logger& Logger::Instance() {
    alignas(Logger) static unsigned char storage[sizeof(Logger)];
    static Logger* const instance = [] {
        auto* made = new (storage) Logger;
        std::atexit(&Logger::TearDown);
        return made;
    }();
    return *instance;
}

// Shuts the door and touches nothing else. The lock may be held for ever by now: by the sink whose
// call of exit led here, by a thread in a slow sink, or by one that the system ended inside.
void Logger::TearDown() {
    destroyed.exchange(true);
}

bool Logger::IsEnabled(int severity) const {
    if (destroyed || severity > level_.load(std::memory_order_relaxed)) return false;
    const std::shared_lock<std::shared_mutex> guard(lock_);
    for (const Sink& sink : sinks_) {
        if (!sink.filter || sink.filter(severity)) return true;
    }
    return false;
}

void Logger::Log(int severity, const char* file, const char* function, int line,
                 std::string_view message) const {
    if (destroyed) return;
    const std::shared_lock<std::shared_mutex> guard(lock_);
    if (destroyed || sinks_.empty()) return;  // it may have been a long wait
    const LogRecord record{0, severity, file, function, line, std::string(message)};
    for (const Sink& sink : sinks_) {
        if (severity <= sink.level) sink.delivery(record);
    }
}

void Logger::AddSink(int level, Filter filter, Delivery delivery) {
    const std::unique_lock<std::shared_mutex> guard(lock_);
    sinks_.push_back({std::move(filter), std::move(delivery), level});
    if (level > level_) level_ = level;
}

void Logger::RemoveSinks() {
    const std::unique_lock<std::shared_mutex> guard(lock_);
    sinks_.clear();
    level_ = kError;
}

std::string HandleFormatExceptionGeneric(const char* formatString) {
    try {
        throw;
    } catch (const std::system_error& failure) {
        if (Logger::Instance().IsEnabled(kError)) {
            LogFormatFailure(
                __LINE__,
                fmt::format("Failed to format formatString[{}] msg[{}] error_code[{}]",
                            OrNull(formatString), OrNull(failure.what()), failure.code().value()));
        }
    } catch (const std::exception& failure) {
        if (Logger::Instance().IsEnabled(kError)) {
            LogFormatFailure(__LINE__, fmt::format("Failed to format formatString[{}] msg[{}]",
                                                   OrNull(formatString), OrNull(failure.what())));
        }
    } catch (...) {
        // Nothing can be told about it.
    }
    return {};
}

LogScope::LogScope(const char* file, const char* function, int line, std::string message)
    : file_(file),
      function_(function),
      line_(line),
      message_(std::move(message)),
      exceptions_(std::uncaught_exceptions()) {
    LogEdge("[ENTER]", file_, function_, line_, message_);
}

LogScope::~LogScope() {
    try {
        const bool thrown = std::uncaught_exceptions() != exceptions_;
        LogEdge(thrown ? "[EXCEPTION EXIT]" : "[EXIT]", file_, function_, line_, message_);
    } catch (...) {
        // The end of a scope never throws.
    }
}

}  // namespace Varnhold::Hob::Detail
