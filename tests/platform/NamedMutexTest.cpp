#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <thread>

#include "platform/Clock.h"
#include "platform/Resources.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TempDir.h"

namespace {

using namespace platform;
using support::ChildProcess;

constexpr uint32_t kLong = 20000;

// A name that no other test and no other run uses, in plain letters for the command line.
std::string UniqueName(const char* what) {
    return "zrfs-test-" + std::string(what) + "-" + std::to_string(ProcessId()) + "-" +
           std::to_string(PerformanceCounter());
}

class Mutex {
  public:
    explicit Mutex(const std::string& name)
        : handle_(CreateNamedMutex(FromUtf8(name).c_str(), nullptr)) {}
    ~Mutex() { CloseNamedMutex(handle_); }
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    WaitResult Wait(uint32_t milliseconds) { return WaitForMutex(handle_, milliseconds); }
    bool Release() { return ReleaseNamedMutex(handle_); }

  private:
    Handle handle_;
};

WaitResult WaitInOtherThread(Mutex& mutex, uint32_t milliseconds) {
    WaitResult result{};
    std::thread([&] {
        result = mutex.Wait(milliseconds);
        if (result == WaitResult::Granted || result == WaitResult::Abandoned) mutex.Release();
    }).join();
    return result;
}

// hold NAME MARK: takes the mutex twice, makes the file MARK and waits to be killed.
const support::ChildRole kHold("hold", [](const std::vector<std::string>& arguments) {
    Mutex mutex(arguments[0]);
    mutex.Wait(kLong);
    mutex.Wait(kLong);
    support::WriteBytes(arguments[1], {1});
    std::this_thread::sleep_for(std::chrono::minutes(2));
    return 0;
});

// count NAME WORD TIMES reopen|keep: adds to the shared word under the mutex, in two steps.
const support::ChildRole kCount("count", [](const std::vector<std::string>& arguments) {
    auto mutex = std::make_unique<Mutex>(arguments[0]);
    const Handle word = OpenSharedWord(FromUtf8(arguments[1]).c_str());
    uint32_t volatile* value = MapSharedWord(word);
    const bool reopen = arguments[3] == "reopen";
    for (int i = std::stoi(arguments[2]); i > 0; --i) {
        if (mutex->Wait(kLong) != WaitResult::Granted) return 1;
        const uint32_t before = *value;
        if (i % 16 == 0) std::this_thread::yield();
        *value = before + 1;
        if (!mutex->Release()) return 2;
        if (reopen) {
            mutex.reset();
            mutex = std::make_unique<Mutex>(arguments[0]);
        }
    }
    UnmapSharedWord(const_cast<uint32_t*>(value));
    CloseSharedWord(word);
    return 0;
});

// The count that two processes reach which add to one word.
uint32_t CountInTwoProcesses(const char* how, int times) {
    const std::string name = UniqueName(how);
    const std::string wordName = name + "-word";
    const Handle word = CreateSharedWord(FromUtf8(wordName).c_str(), nullptr);
    uint32_t* value = MapSharedWord(word);
    {
        ChildProcess first("count", {name, wordName, std::to_string(times), how});
        ChildProcess second("count", {name, wordName, std::to_string(times), how});
        EXPECT_EQ(first.Wait(), 0);
        EXPECT_EQ(second.Wait(), 0);
    }
    const uint32_t count = *value;
    UnmapSharedWord(value);
    CloseSharedWord(word);
    return count;
}

TEST(NamedMutex, IsHeldUntilTheLastOfItsReleases) {
    Mutex mutex(UniqueName("recursive"));
    EXPECT_EQ(mutex.Wait(0), WaitResult::Granted);
    EXPECT_EQ(mutex.Wait(0), WaitResult::Granted);
    EXPECT_TRUE(mutex.Release());
    EXPECT_EQ(WaitInOtherThread(mutex, 0), WaitResult::TimedOut);
    EXPECT_TRUE(mutex.Release());
    EXPECT_EQ(WaitInOtherThread(mutex, 0), WaitResult::Granted);
}

TEST(NamedMutex, IsReleasedByItsOwnerOnly) {
    Mutex mutex(UniqueName("owner"));
    EXPECT_FALSE(mutex.Release()) << "nobody owns it";
    EXPECT_EQ(mutex.Wait(0), WaitResult::Granted);
    std::thread([&] {
        EXPECT_FALSE(mutex.Release());
        EXPECT_EQ(LastError(), kErrorNotOwner);
    }).join();
    EXPECT_TRUE(mutex.Release());
    EXPECT_FALSE(mutex.Release());
}

TEST(NamedMutex, GivesUpAfterTheTimeAndNotBefore) {
    Mutex mutex(UniqueName("time"));
    ASSERT_EQ(mutex.Wait(0), WaitResult::Granted);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(WaitInOtherThread(mutex, 150), WaitResult::TimedOut);
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(140));
    EXPECT_LT(waited, std::chrono::seconds(10));
    mutex.Release();
}

TEST(NamedMutex, IsOneForAllHandlesOfItsName) {
    const std::string name = UniqueName("same");
    Mutex first(name);
    Mutex other(name + "x");
    ASSERT_EQ(first.Wait(0), WaitResult::Granted);
    {
        Mutex second(name);
        EXPECT_EQ(WaitInOtherThread(second, 0), WaitResult::TimedOut);
        EXPECT_EQ(WaitInOtherThread(other, 0), WaitResult::Granted);
        EXPECT_TRUE(second.Release()) << "the thread owns it by either handle";
    }
    EXPECT_EQ(WaitInOtherThread(first, 0), WaitResult::Granted);
}

TEST(NamedMutex, TellsNamesApartByCaseAndEveryUnit) {
    const std::string base = UniqueName("long") + std::string(220, 'a');
    Mutex mutex(base + "b \xC3\xA9|?*");
    ASSERT_EQ(mutex.Wait(0), WaitResult::Granted);
    for (const char* end : {"b \xC3\xA8|?*", "B \xC3\xA9|?*", "b \xC3\xA9|?"}) {
        Mutex other(base + end);
        EXPECT_EQ(WaitInOtherThread(other, 0), WaitResult::Granted) << end;
    }
    mutex.Release();
}

TEST(NamedMutex, PassesOnFromAThreadThatEndedAsItsOwner) {
    Mutex mutex(UniqueName("thread"));
    std::thread([&] {
        mutex.Wait(0);
        mutex.Wait(0);
    }).join();
    EXPECT_EQ(mutex.Wait(kLong), WaitResult::Abandoned);
    EXPECT_TRUE(mutex.Release()) << "one grant, one release";
    EXPECT_EQ(WaitInOtherThread(mutex, 0), WaitResult::Granted);
}

TEST(NamedMutex, PassesOnFromAKilledProcess) {
    const support::TempDir dir;
    const std::string name = UniqueName("killed");
    const auto mark = dir / "held";
    Mutex mutex(name);
    ChildProcess child("hold", {name, mark.string()});
    ASSERT_TRUE(support::Eventually([&] { return std::filesystem::exists(mark); }));
    EXPECT_EQ(mutex.Wait(0), WaitResult::TimedOut);
    WaitResult result{};
    std::thread waiter([&] {
        result = mutex.Wait(kLong);
        mutex.Release();
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    child.Kill();
    waiter.join();
    EXPECT_EQ(result, WaitResult::Abandoned);
    EXPECT_EQ(mutex.Wait(0), WaitResult::Granted) << "it is told once";
    EXPECT_TRUE(mutex.Release());
}

TEST(NamedMutex, KeepsProcessesApart) {
    EXPECT_EQ(CountInTwoProcesses("keep", 4000), 8000u);
}

// The last to close removes what the next to open has just found.
TEST(NamedMutex, KeepsProcessesApartThatOpenAndCloseIt) {
    EXPECT_EQ(CountInTwoProcesses("reopen", 2000), 4000u);
}

TEST(NamedMutex, RefusesWhatIsNoMutex) {
    EXPECT_EQ(WaitForMutex(nullptr, 0), WaitResult::Failed);
    EXPECT_FALSE(ReleaseNamedMutex(nullptr));
    CloseNamedMutex(nullptr);
}

}  // namespace
