// SPDX-License-Identifier: MIT
// A sink that keeps what was logged while it lives.
#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "Shared/logging/Logger.h"

class LogCapture {
  public:
    struct Line {
        int severity;
        std::string file, function, message;
        int line;
    };

    explicit LogCapture(int level = Varnhold::Hob::Detail::kScope) {
        Varnhold::Hob::Detail::Logger::Instance().AddSink(
            level, nullptr, [this](const Varnhold::Hob::Detail::LogRecord& record) {
                const std::lock_guard guard(lock_);  // threads log at once
                lines.push_back(
                    {record.severity, record.file, record.function, record.message, record.line});
            });
    }
    ~LogCapture() { Varnhold::Hob::Detail::Logger::Instance().RemoveSinks(); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    bool Has(const std::string& message) const {
        const std::lock_guard guard(lock_);
        return std::any_of(lines.begin(), lines.end(),
                           [&](const Line& line) { return line.message == message; });
    }
    std::vector<std::string> Messages() const {
        const std::lock_guard guard(lock_);
        std::vector<std::string> messages;
        for (const Line& line : lines) messages.push_back(line.message);
        return messages;
    }

    std::vector<Line> lines;

  private:
    mutable std::mutex lock_;
};
