#include <gtest/gtest.h>

#include <filesystem>

#include "platform/Clock.h"
#include "platform/Resources.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TempDir.h"

namespace {

using namespace platform;
using support::ChildProcess;

std::string UniqueName() {
    return "zrfs-test-word-" + std::to_string(ProcessId()) + "-" +
           std::to_string(PerformanceCounter());
}

class Word {
  public:
    explicit Word(Handle handle) : handle_(handle), view_(MapSharedWord(handle)) {}
    ~Word() {
        UnmapSharedWord(view_);
        CloseSharedWord(handle_);
    }
    Word(const Word&) = delete;
    Word& operator=(const Word&) = delete;

    uint32_t volatile& operator*() { return *view_; }

  private:
    Handle handle_;
    uint32_t* view_;
};

Handle Create(const std::string& name) {
    return CreateSharedWord(FromUtf8(name).c_str(), nullptr);
}
Handle Open(const std::string& name) {
    return OpenSharedWord(FromUtf8(name).c_str());
}

// keep NAME MARK: makes the word, or joins it, adds 100, makes the file MARK and waits for the
// end.
const support::ChildRole kKeep("keep", [](const std::vector<std::string>& arguments) {
    Word word(Create(arguments[0]));
    *word = *word + 100;
    support::WriteBytes(arguments[1], {1});
    std::this_thread::sleep_for(std::chrono::minutes(2));
    return 0;
});

class SharedWordTest : public testing::Test {
  protected:
    std::unique_ptr<ChildProcess> Keeper() {
        auto child =
            std::make_unique<ChildProcess>("keep", std::vector{name_, (dir_ / "mark").string()});
        EXPECT_TRUE(support::Eventually([&] { return std::filesystem::exists(dir_ / "mark"); }));
        return child;
    }

    support::TempDir dir_;
    std::string name_ = UniqueName();
};

TEST_F(SharedWordTest, IsMadeZeroAndSharedByItsUsers) {
    EXPECT_EQ(Open(name_), nullptr);
    EXPECT_EQ(LastError(), kErrorFileNotFound);
    Word first(Create(name_));
    EXPECT_EQ(*first, 0u);
    *first = 7;
    Word opened(Open(name_));
    EXPECT_EQ(*opened, 7u);
    Word created(Create(name_));
    EXPECT_EQ(*created, 7u) << "an existing word keeps its value";
    *created = 8;
    EXPECT_EQ(*first, 8u);
}

TEST_F(SharedWordTest, IsGoneWithItsLastUser) {
    {
        Word first(Create(name_));
        Word second(Open(name_));
        *first = 7;
    }
    EXPECT_EQ(Open(name_), nullptr);
    EXPECT_EQ(*Word(Create(name_)), 0u);
}

TEST_F(SharedWordTest, LivesOnInAnotherProcess) {
    auto first = std::make_unique<Word>(Create(name_));
    **first = 7;
    const auto keeper = Keeper();
    EXPECT_EQ(**first, 107u);
    first.reset();
    EXPECT_EQ(*Word(Open(name_)), 107u);
    EXPECT_EQ(*Word(Create(name_)), 107u);
}

TEST_F(SharedWordTest, IsGoneWithAKilledProcess) {
    const auto keeper = Keeper();
    { EXPECT_EQ(*Word(Open(name_)), 100u); }
    keeper->Kill();
    EXPECT_EQ(Open(name_), nullptr);
    EXPECT_EQ(LastError(), kErrorFileNotFound);
    EXPECT_EQ(*Word(Create(name_)), 0u);
}

TEST_F(SharedWordTest, TakesTheNameThatAMutexBearsElsewhere) {
    // Mutex and word of one container differ by a prefix; each is itself only.
    const Handle mutex = CreateNamedMutex(FromUtf8("L_" + name_).c_str(), nullptr);
    Word word(Create("V_" + name_));
    EXPECT_EQ(WaitForMutex(mutex, 0), WaitResult::Granted);
    *word = 5;
    EXPECT_TRUE(ReleaseNamedMutex(mutex));
    CloseNamedMutex(mutex);
    EXPECT_EQ(*word, 5u);
}

TEST_F(SharedWordTest, RefusesWhatIsNoWord) {
    EXPECT_EQ(MapSharedWord(nullptr), nullptr);
    UnmapSharedWord(nullptr);
    CloseSharedWord(nullptr);
}

}  // namespace
