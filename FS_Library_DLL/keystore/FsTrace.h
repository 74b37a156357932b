// SPDX-License-Identifier: MIT
// The trace of the key store: one file for each process, one line for each event.
//
// A site costs one test of a byte while the trace is off. Nothing that goes wrong in here reaches
// a caller.
#pragma once

#include <initializer_list>
#include <string_view>
#include <type_traits>

#include "FS_Library_DLL/FsSwitches.h"
#include "platform/Text.h"

// Levels; lower is more important.
inline constexpr uint32_t kTraceFailure = 1;
inline constexpr uint32_t kTraceDetail = 3;
inline constexpr uint32_t kTraceScope = 4;

// One field of a line: a number (also a handle or an address), a flag, a time or a text, which may
// be null.
class FsTraceArg {
  public:
    enum class Kind { Number, Signed, Flag, Seconds, Text };

    FsTraceArg(bool flag) : kind(Kind::Flag), number(flag) {}
    FsTraceArg(double time) : kind(Kind::Seconds), seconds(time) {}
    FsTraceArg(const platform::WChar* string) : kind(Kind::Text), text(string) {}
    FsTraceArg(platform::WChar* string) : kind(Kind::Text), text(string) {}
    template <class T>
    requires std::is_integral_v<T> || std::is_enum_v<T> FsTraceArg(T value)
        : kind(Kind::Number), number(static_cast<uint64_t>(value)) {}
    // An engine code; a 64-bit number is a handle and has no sign.
    FsTraceArg(int32_t value) : kind(Kind::Signed), number(static_cast<uint64_t>(int64_t{value})) {}
    template <class T>
    FsTraceArg(T* address) : kind(Kind::Number), number(reinterpret_cast<uintptr_t>(address)) {}

    Kind kind;
    union {
        uint64_t number;
        double seconds;
        const platform::WChar* text;
    };
};

// One site's way to the log.
class FsTraceLogger {
  public:
    FsTraceLogger();  // with the switches as they stand
    virtual ~FsTraceLogger() = default;
    virtual uint32_t GetTick() const;
    virtual uint32_t GetThreadId() const;
    // The trace is on and its file is open.
    virtual bool IsActive() const;
    virtual void Write(std::string_view bytes) const;

    bool enabled;
    uint32_t level;
};

// Writes the line unless its level is above the logger's.
void FsTrace(const FsTraceLogger& logger, uint32_t level, const char* function,
             std::string_view message);

// Opens the file in the log directory's folder "logs" and empties it. False when it is open
// already or there is no directory; true in every other case, also when the file could not be
// made: the trace is silent then.
bool FS_OpenTraceFile();
// Ends the log of the whole process.
void FS_CloseTraceFile();

// Formats and writes a line whatever the switch says; use FsTraceLine.
void FsFormatTrace(uint32_t level, const char* function, const char* format,
                   std::initializer_list<FsTraceArg> args);
template <class... Args>
void FsTraceLine(uint32_t level, const char* function, const char* format, const Args&... args) {
    if (g_switches.trace) FsFormatTrace(level, function, format, {FsTraceArg(args)...});
}

// The entry and the exit line of one operation, and the time between them.
class FsTraceScope {
  public:
    template <class... Args>
    FsTraceScope(const char* function, const char* format, const Args&... args)
        : function_(function), on_(g_switches.trace) {
        if (on_) Enter(format, {FsTraceArg(args)...});
    }
    // The trace was on at the start: fetch what only the exit line needs.
    bool On() const { return on_; }
    // The last field of the format is the time in seconds, added here.
    template <class... Args>
    void Exit(const char* format, const Args&... args) const {
        if (on_) FsFormatTrace(kTraceScope, function_, format, {FsTraceArg(args)..., StopTimer()});
    }

  private:
    void Enter(const char* format, std::initializer_list<FsTraceArg> args) const;
    static double StopTimer();

    const char* function_;
    bool on_;
};
