// SPDX-License-Identifier: MIT
// Clock, last error, paths and text.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "platform/Clock.h"
#include "platform/RealPath.h"
#include "platform/Text.h"
#include "tests/support/TempDir.h"

namespace {

using namespace platform;
namespace fs = std::filesystem;

TEST(Clock, TellsTheTimeInUtcAndCountsInTheUnitsItClaims) {
    using std::chrono::system_clock;
    const UtcTime now = UtcNow();
    const auto told = std::chrono::sys_days(std::chrono::year(now.year) / now.month / now.day) +
                      std::chrono::hours(now.hour) + std::chrono::minutes(now.minute) +
                      std::chrono::seconds(now.second);
    EXPECT_LT(std::chrono::abs(system_clock::now() - told), std::chrono::seconds(5));
    const int64_t counter = PerformanceCounter();
    const uint32_t ticks = TickCount();
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    const double seconds = static_cast<double>(PerformanceCounter() - counter) /
                           static_cast<double>(PerformanceFrequency());
    EXPECT_NEAR(seconds, 10, 9.96);
    EXPECT_NEAR(TickCount() - ticks, 10000, 9960);
}

TEST(Errors, KeepsALastErrorForEachThread) {
    std::atomic<bool> begin{false}, set{false};
    std::thread other([&] {
        while (!begin) continue;
        SetLastError(38);
        set = true;
    });
    SetLastError(5);
    begin = true;
    while (!set) continue;  // what waits may have errors of its own
    EXPECT_EQ(LastError(), 5u);
    other.join();
}

WString RealPathOf(const fs::path& path) {
    WString real;
    return RealPath(support::Wide(path), &real) == kErrorSuccess ? real : WString();
}

TEST(RealPath, IsTheSameForEverySpellingOfAFileAndOfOneToCome) {
    const support::TempDir folder;
    fs::create_directory(folder / "sub");
    support::WriteBytes(folder / "there.fbr", {});
    const fs::path before = fs::current_path();
    fs::current_path(folder.Path());
    for (const std::string name : {"there.fbr", "to come.fbr"}) {
        const WString real = RealPathOf(folder / name);
        EXPECT_TRUE(fs::path(real).is_absolute()) << real.size();
        EXPECT_EQ(fs::path(real).filename(), name);
        for (const fs::path& spelling :
             {fs::path(real), fs::path(name), fs::path("./" + name), folder / ("sub/../" + name),
              fs::path(".././" + folder.Path().filename().string() + "//" + name)})
            EXPECT_EQ(RealPathOf(spelling), real) << spelling;
    }
    EXPECT_EQ(RealPathOf("new/deep/x.fbr"), RealPathOf(folder.Path() / "new/deep/x.fbr"));
    fs::current_path(before);
    WString untouched = WTEXT("untouched");
    EXPECT_EQ(RealPath(WString(), &untouched), kErrorInvalidName);
    EXPECT_EQ(untouched, WTEXT("untouched"));
}

TEST(Text, ConvertsBothWaysAndReplacesWhatIsNoText) {
    WString all;
    for (uint32_t unit = 0; unit < 0x10000; ++unit)
        if (unit < 0xD800 || unit > 0xDFFF) all += static_cast<WChar>(unit);
    EXPECT_EQ(FromUtf8(ToUtf8(all)), all);
    const std::string lone = "\xEF\xBF\xBD";
    const std::pair<WString, std::string> texts[] = {
        {WTEXT("a\u00E9\u20AC\U0001F600z"), "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z"},
        {{0xD83D}, lone},
        {{0xDE00, 'x'}, lone + "x"},
        {{0xD83D, 'x', 0xDE00}, lone + "x" + lone},
        {{0xD83D, 0xD83D, 0xDE00}, lone + "\xF0\x9F\x98\x80"},
    };
    for (const auto& [text, bytes] : texts) EXPECT_EQ(ToUtf8(text), bytes);
    const struct {
        const char* what;
        std::string bytes;
        WString text;
    } cases[] = {
        {"a pair", "\xF0\x9F\x98\x80z", WTEXT("\U0001F600z")},
        {"a tail alone", "\x80x", WTEXT("\uFFFDx")},
        {"a cut sequence at the end", "x\xE2\x82", WTEXT("x\uFFFD")},
        {"a sequence cut by a letter", "\xE2\x82x", WTEXT("\uFFFDx")},
        {"a sequence cut by another", "\xE2\xC3\xA9", WTEXT("\uFFFD\u00E9")},
        {"an overlong form", "\xC0\xAF", WTEXT("\uFFFD\uFFFD")},
        {"a surrogate", "\xED\xA0\x80", WTEXT("\uFFFD\uFFFD\uFFFD")},
        {"above the last character", "\xF4\x90\x80\x80", WTEXT("\uFFFD\uFFFD\uFFFD\uFFFD")},
        {"a byte that never occurs", "\xFFx", WTEXT("\uFFFDx")},
    };
    for (const auto& c : cases) EXPECT_EQ(FromUtf8(c.bytes), c.text) << c.what;
}

// Units have no sign, and only A to Z fold, before the comparison: '_' lies between the upper and
// the lower letters.
TEST(Text, IsOrderedByUnitAndThenByLength) {
    const struct {
        WString a, b;
        int plain, folded;
    } cases[] = {
        {WTEXT("AZ[\u00C9"), WTEXT("az[\u00C9"), -1, 0},
        {WTEXT("\u00C9"), WTEXT("\u00E9"), -1, -1},
        {WTEXT("@"), WTEXT("`"), -1, -1},
        {WTEXT("B"), WTEXT("a"), -1, 1},
        {WTEXT("a"), WTEXT("ab"), -1, -1},
        {WTEXT("\uFFFE"), WTEXT("a"), 1, 1},
        {WTEXT("A"), WTEXT("_"), -1, 1},
        {WTEXT(""), WTEXT(""), 0, 0},
    };
    const auto sign = [](int number) { return (number > 0) - (number < 0); };
    for (const auto& c : cases) {
        EXPECT_EQ(sign(Compare(c.a, c.b)), c.plain) << ToUtf8(c.a);
        EXPECT_EQ(sign(Compare(c.b, c.a)), -c.plain) << ToUtf8(c.a);
        EXPECT_EQ(sign(CompareFolded(c.a, c.b)), c.folded) << ToUtf8(c.a);
    }
}

// The table stands for the one of a run time, against which it is held on the system that has it.
TEST(Printable, HasTheTableOfTheRunTime) {
    int printable = 0;
    for (uint32_t unit = 0; unit < 0x10000; ++unit)
        printable += IsPrintable(static_cast<WChar>(unit));
    EXPECT_EQ(printable, 50060);
    for (const uint16_t unit : {0x20, 0x7E, 0xA1, 0xAD, 0x3042, 0x4E00, 0xAC00, 0xFEFF})
        EXPECT_TRUE(IsPrintable(static_cast<WChar>(unit))) << std::hex << unit;
    for (const uint16_t unit :
         {0, 9, 10, 0x1F, 0x7F, 0xA0, 0x300, 0x2028, 0x20AC, 0xD800, 0xE000, 0xFFFD, 0xFFFF})
        EXPECT_FALSE(IsPrintable(static_cast<WChar>(unit))) << std::hex << unit;
}

}  // namespace
