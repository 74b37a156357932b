// SPDX-License-Identifier: MIT
#include "Shared/logging/Logger.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <system_error>
#include <thread>

#include "tests/shared/LogCapture.h"
#include "tests/support/ChildProcess.h"

#define ZRFS_LOG_FILE "Shared/LoggerTest"

namespace {

using namespace Varnhold::Hob::Detail;
using Messages = std::vector<std::string>;

template <bool known>
struct Unprintable {};

}  // namespace

// What a formatter throws reaches the log site.
template <bool known>
struct fmt::formatter<Unprintable<known>> : fmt::formatter<int> {
    template <class Context>
    typename Context::iterator format(const Unprintable<known>&, Context&) const {
        if (known) throw std::system_error(5, std::generic_category(), "broken");
        throw 7;
    }
};

namespace {

TEST(Logger, HandsTheRecordToTheSinksOfItsLevelAndEvaluatesNothingForNone) {
    Logger& logger = Logger::Instance();
    int evaluated = 0;
    ZRFS_LOG(kError, "Test", "{}", ++evaluated);
    EXPECT_EQ(evaluated, 0);
    int accepted = kWarning;
    logger.AddSink(
        kScope, [&](int severity) { return severity == accepted; }, [](const LogRecord&) {});
    for (int severity = 0; severity <= 4; ++severity)
        EXPECT_EQ(logger.IsEnabled(severity), severity == accepted) << severity;
    logger.RemoveSinks();
    EXPECT_FALSE(logger.IsEnabled(accepted));
    const LogCapture errors(kError), information(kInformation);
    EXPECT_TRUE(logger.IsEnabled(kInformation));
    EXPECT_FALSE(logger.IsEnabled(kScope));
    ZRFS_LOG(kError, "Class::Failing", "{} of {}", 1, "two");
    ZRFS_LOG(kInformation, "Class::Telling", "told");
    ZRFS_LOG(kScope, "Class::Scope", "not seen");
    EXPECT_EQ(errors.Messages(), Messages{"1 of two"});
    EXPECT_EQ(information.Messages(), (Messages{"1 of two", "told"}));
    EXPECT_EQ(errors.lines[0].severity, 1);
    EXPECT_EQ(errors.lines[0].file, "Shared/LoggerTest");
    EXPECT_EQ(errors.lines[0].function, "Class::Failing");
    EXPECT_GT(errors.lines[0].line, 0);
}

TEST(Logger, LetsSeveralThreadsLogAtOnce) {
    std::atomic<int> inside{0};
    Logger::Instance().AddSink(kError, nullptr, [&inside](const LogRecord&) {
        ++inside;
        EXPECT_TRUE(support::Eventually([&] { return inside >= 2; })) << "the other is kept out";
    });
    const auto log = [] { ZRFS_LOG(kError, "Test", "here"); };
    std::thread other(log);
    log();
    other.join();
    Logger::Instance().RemoveSinks();
}

TEST(Logger, LeavesAnEmptyMessageAndOneErrorForABadFormat) {
    const LogCapture log;
    ZRFS_LOG(kInformation, "Class::Site", "{} and {:d}", "text", "no number");
    ASSERT_EQ(log.lines.size(), 2u);
    EXPECT_EQ(log.lines[0].severity, kError);
    EXPECT_EQ(log.lines[0].function, "Varnhold::Hob::Detail::HandleFormatExceptionGeneric");
    EXPECT_EQ(log.lines[0].message,
              "Failed to format formatString[{} and {:d}] msg[invalid type specifier]");
    EXPECT_EQ(log.lines[1].function, "Class::Site");
    EXPECT_EQ(log.lines[1].message, "");
}

TEST(Logger, SurvivesEveryOtherFailureToFormat) {
    LogCapture log;
    EXPECT_EQ(FormatMessageSafely("x {}", Unprintable<true>()), "");
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_TRUE(log.lines[0].message.starts_with("Failed to format formatString[x {}] msg[broken"));
    EXPECT_TRUE(log.lines[0].message.ends_with("] error_code[5]")) << log.lines[0].message;
    EXPECT_EQ(FormatMessageSafely("x {}", Unprintable<false>()), "");
    EXPECT_EQ(log.lines.size(), 1u) << "nothing can be told about what is no exception";
    try {
        throw std::runtime_error("reason");
    } catch (...) {
        EXPECT_EQ(HandleFormatExceptionGeneric(nullptr), "");
    }
    EXPECT_EQ(log.lines.back().message, "Failed to format formatString[(null)] msg[reason]");
}

// A scope in a destructor that runs because of an exception ends as usual: the count of exceptions
// in flight has not changed since its beginning.
TEST(LogScope, WritesEntryAndExitAndTellsAnExitByException) {
    struct CleansUp {
        ~CleansUp() { const LogScope scope("File", "CleanUp", 1); }
    };
    for (const bool throws : {false, true}) {
        const LogCapture log;
        try {
            const CleansUp cleansUp;
            const LogScope plain("File", "Plain", 3);
            const LogScope told("File", "Told", 5, "key a");
            if (throws) throw 1;
        } catch (int) {
        }
        const std::string exit = throws ? "[EXCEPTION EXIT]" : "[EXIT]";
        EXPECT_EQ(log.Messages(), (Messages{"[ENTER]", "[ENTER] key a", exit + " key a", exit,
                                            "[ENTER]", "[EXIT]"}));
        for (const auto& line : log.lines) EXPECT_EQ(line.severity, kScope);
        EXPECT_EQ(log.lines[3].function, "Plain");
        EXPECT_EQ(log.lines[3].line, 3);
    }
}

int delivered = 0;

void LogLate() {
    const int before = delivered;
    const bool enabled = Logger::Instance().IsEnabled(kError);
    ZRFS_LOG(kError, "Late", "late");
    Logger::Instance().Log(kError, "File", "Late", 1, "late");
    { const LogScope scope("File", "Late", 1); }
    std::_Exit(enabled || delivered != before || before != 1 ? 1 : 0);
}

// Exit handlers run in reverse order: the one set before the logger is made runs after its end.
const support::ChildRole kLogLate("log-late", [](const std::vector<std::string>&) {
    std::atexit(LogLate);
    Logger::Instance().AddSink(kScope, nullptr, [](const LogRecord&) { ++delivered; });
    ZRFS_LOG(kError, "Early", "early");
    return 2;
});

// Ends from inside a sink, while another thread stays inside one.
const support::ChildRole kExitInASink("exit-in-a-sink", [](const std::vector<std::string>&) {
    static std::atomic<bool> inside{false};
    std::thread([] {
        std::this_thread::sleep_for(std::chrono::seconds(20));
        std::_Exit(3);  // nothing ended the process
    }).detach();
    Logger::Instance().AddSink(kError, nullptr, [](const LogRecord& record) {
        if (record.message == "end") std::exit(0);
        inside = true;
        std::this_thread::sleep_for(std::chrono::hours(1));
    });
    std::thread([] { ZRFS_LOG(kError, "Slow", "stay"); }).detach();
    if (!support::Eventually([] { return inside.load(); })) return 1;
    ZRFS_LOG(kError, "Ending", "end");
    return 2;
});

TEST(Logger, DoesNothingAndWaitsForNobodyOnceTheProcessTearsDown) {
    EXPECT_EQ(support::ChildProcess("log-late", {}).Wait(), 0);
    EXPECT_EQ(support::ChildProcess("exit-in-a-sink", {}).Wait(), 0);
}

}  // namespace
