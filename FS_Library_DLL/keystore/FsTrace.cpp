// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/keystore/FsTrace.h"

#include <fmt/args.h>
#include <fmt/format.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

#include "Shared/logging/Logger.h"
#include "platform/Clock.h"
#include "platform/HostPath.h"
#include "platform/Resources.h"
#include "platform/RootFolder.h"

using platform::WString;

namespace {

// The log file of the process. The lock makes one write whole and keeps the file open while it
// runs; the lines of concurrent threads may mix, for a line is several writes. Never destroyed:
// threads write to it while the process ends.
struct TraceFile {
    std::mutex lock;
    std::unique_ptr<platform::PageFile> file;
    uint64_t length = 0;
    std::atomic<bool> open{false};
};
TraceFile& g_file = *new TraceFile;

// Shared by all operations and threads with no lock: a nested operation starts it anew, so a
// duration is an indication and no more.
struct FsTimer {
    std::atomic<int64_t> start{0};
    std::atomic<int64_t> end{0};
    int64_t frequency = platform::PerformanceFrequency();
};
FsTimer& Timer() {
    static FsTimer* timer = new FsTimer;  // never freed: a late operation may still use it
    return *timer;
}

WString LogPath() {
    const std::string name = fmt::format("FBR_{}.log", platform::ProcessId());
    WString path(g_switches.logDirectory);
    path += platform::kHostSeparator;
    path += WTEXT("logs");
    path += platform::kHostSeparator;
    path += platform::FromUtf8(name);
    return path.substr(0, kLogDirectoryUnits - 1);
}

std::string FormatFields(const char* format, std::initializer_list<FsTraceArg> args) {
    try {
        fmt::dynamic_format_arg_store<fmt::format_context> store;
        for (const FsTraceArg& arg : args) {
            switch (arg.kind) {
                case FsTraceArg::Kind::Number:
                    store.push_back(arg.number);
                    break;
                case FsTraceArg::Kind::Signed:
                    store.push_back(static_cast<int64_t>(arg.number));
                    break;
                case FsTraceArg::Kind::Flag:
                    store.push_back(arg.number != 0);
                    break;
                case FsTraceArg::Kind::Seconds:
                    store.push_back(arg.seconds);
                    break;
                case FsTraceArg::Kind::Text:
                    store.push_back(arg.text == nullptr ? std::string("(null)")
                                                        : platform::ToUtf8(arg.text));
                    break;
            }
        }
        return fmt::vformat(format, store);
    } catch (...) {
        return Varnhold::Hob::Detail::HandleFormatExceptionGeneric(format);
    }
}

}  // namespace

FsTraceLogger::FsTraceLogger() : enabled(g_switches.trace), level(g_switches.traceLevel) {}

uint32_t FsTraceLogger::GetTick() const {
    return platform::TickCount();
}
uint32_t FsTraceLogger::GetThreadId() const {
    return platform::ThreadId();
}
bool FsTraceLogger::IsActive() const {
    return enabled && g_file.open;
}

void FsTraceLogger::Write(std::string_view bytes) const {
    const std::lock_guard guard(g_file.lock);
    if (g_file.file == nullptr) return;
    const void* const buffer = bytes.data();
    uint32_t done = 0;
    g_file.file->Write(g_file.length, &buffer, 1, static_cast<uint32_t>(bytes.size()), &done);
    g_file.length += done;
}

void FsTrace(const FsTraceLogger& logger, uint32_t level, const char* function,
             std::string_view message) {
    if (!logger.IsActive() || level > logger.level) return;
    char prefix[64];
    const int length =
        std::snprintf(prefix, sizeof prefix, "L%2d T%4d %d ", static_cast<int>(level),
                      static_cast<int>(logger.GetThreadId()), static_cast<int>(logger.GetTick()));
    logger.Write({prefix, static_cast<size_t>(length)});
    logger.Write("[" + std::string(function) + "] ");
    logger.Write(message);
    logger.Write("\r\n");
}

bool FS_OpenTraceFile() {
    const std::lock_guard guard(g_file.lock);
    if (g_file.file != nullptr || g_switches.logDirectory[0] == 0) return false;
    try {
        const WString path = LogPath();
        const platform::WithinRoot anywhere(nullptr);  // the log is no client's file
        const platform::Handle handle = platform::OpenFileHandle(
            path.c_str(), false, static_cast<uint32_t>(platform::Disposition::CreateAlways),
            nullptr);
        if (platform::IsValid(handle))
            g_file.file.reset(platform::AdoptFileHandle(handle, path.c_str()));
    } catch (const std::bad_alloc&) {
        // No memory for the path: the trace stays silent.
    }
    g_file.length = 0;
    g_file.open = g_file.file != nullptr;
    return true;
}

void FS_CloseTraceFile() {
    const std::lock_guard guard(g_file.lock);
    g_file.open = false;
    g_file.file.reset();
}

void FsFormatTrace(uint32_t level, const char* function, const char* format,
                   std::initializer_list<FsTraceArg> args) {
    try {
        FsTrace(FsTraceLogger(), level, function, FormatFields(format, args));
    } catch (...) {
        // A line that finds no memory is not written.
    }
}

void FsTraceScope::Enter(const char* format, std::initializer_list<FsTraceArg> args) const {
    FsFormatTrace(kTraceScope, function_, format, args);
    Timer().start = platform::PerformanceCounter();
}

double FsTraceScope::StopTimer() {
    FsTimer& timer = Timer();
    timer.end = platform::PerformanceCounter();
    return static_cast<double>(timer.end - timer.start) / static_cast<double>(timer.frequency);
}
