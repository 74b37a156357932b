// SPDX-License-Identifier: MIT
// Threads on one store, and on stores of one file.
#include <atomic>
#include <functional>
#include <thread>

#include "tests/sharing/Content.h"
#include "tests/support/FileWrapper.h"

namespace sharing {
namespace {

constexpr uint32_t kThreads = 8;

class Threads : public testing::Test {
  protected:
    // Runs a body in eight threads, for a time, each with a tally of its own.
    void InThreads(int milliseconds, const std::function<void(uint32_t, int64_t, Tally*)>& body) {
        const int64_t end = NowMs() + milliseconds;
        std::vector<std::thread> threads;
        Tally tallies[kThreads];
        for (uint32_t i = 0; i < kThreads; ++i)
            threads.emplace_back([&, i] { body(i, end, &tallies[i]); });
        for (std::thread& thread : threads) thread.join();
        for (const Tally& tally : tallies) {
            EXPECT_TRUE(tally.Good()) << tally.Line();
            EXPECT_GT(tally.done, 0u);
            EXPECT_LE(tally.busy * 20, tally.done) << tally.Line();
        }
    }
    Troupe troupe;
    const std::string path = troupe.File("s.fbr");
};

// With one store for all, open keys and all, and with a store for each.
TEST_F(Threads, EightOnOneFileGetWholeAnswers) {
    constexpr uint32_t kWriters = 3;
    for (const bool together : {true, false}) {
        const std::string file = troupe.File(together ? "one.fbr" : "each.fbr");
        MakeShared(file, kWriters);
        Store common(file);
        const OpenKeys commonKeys = OpenShared(&common, kWriters);
        InThreads(MixTime(1500), [&](uint32_t thread, int64_t end, Tally* tally) {
            Store own(file);
            Store* store = together ? &common : &own;
            const OpenKeys keys = together ? commonKeys : OpenShared(&own, kWriters);
            Reader reader(kWriters, tally);
            while (NowMs() < end) {
                if (thread >= kWriters)
                    reader.Step(store, keys);
                else if (!ChangeUnderLock(store, thread, tally))
                    return;
            }
        });
        EXPECT_EQ(common.Close(), FSSTATUS_SUCCESS);
        ExpectSound(file);
    }
}

// Files in whose use something happens, once at a time: before a read, or when a single page behind
// page 1 is half written.
class MetFiles final : public support::FileWrapper {
  public:
    std::function<void()> beforeRead, midWrite;

    platform::PageFile* Wrap(platform::PageFile* opened, const platform::WChar*) override {
        return new File(opened, this);
    }

  private:
    class File final : public support::ForwardingFile {
      public:
        File(platform::PageFile* inner, MetFiles* scope) : ForwardingFile(inner), scope_(scope) {}
        platform::Error Read(uint64_t offset, void* buffer, uint32_t bytes,
                             uint32_t* done) override {
            if (scope_->beforeRead) {
                const auto happen = std::exchange(scope_->beforeRead, nullptr);
                happen();
                scope_->beforeRead = happen;
            }
            return Inner().Read(offset, buffer, bytes, done);
        }
        platform::Error Write(uint64_t offset, const void* const* buffers, uint32_t count,
                              uint32_t bytes, uint32_t* done) override {
            if (scope_->midWrite && count == 1 && offset >= 2 * uint64_t{bytes}) {
                Inner().Write(offset, buffers, count, bytes / 2, done);
                scope_->midWrite();
            }
            return Inner().Write(offset, buffers, count, bytes, done);
        }

      private:
        MetFiles* scope_;
    };
};

// What a reader without the lock meets in the middle of an overwriting: not the old value any more,
// and nothing of both.
TEST_F(Threads, AReaderBesideAPageHalfWrittenGetsItWhole) {
    const auto value = [](uint32_t sequence) { return Sealed("\\k", "v", {1, sequence}, 300); };
    MetFiles files;
    std::atomic<bool> half{false}, goOn{false};
    Store store(path), other(path);
    Bytes data;
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    ASSERT_EQ(store.Set("\\k", "v", {1, 1}, 300), FSSTATUS_SUCCESS);
    ASSERT_EQ(other.Get("\\k", "v", &data), FSSTATUS_SUCCESS);
    EXPECT_EQ(data, value(1));
    std::thread reader([&] {
        EXPECT_TRUE(support::Eventually([&] { return half.load(); }));
        std::thread rest([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            goOn = true;
        });
        EXPECT_EQ(other.Get("\\k", "v", &data), FSSTATUS_SUCCESS);
        EXPECT_EQ(data, value(2));
        rest.join();
    });
    files.midWrite = [&] {
        half = true;
        support::Eventually([&] { return goOn.load(); });
    };
    EXPECT_EQ(store.Set("\\k", "v", {1, 2}, 300), FSSTATUS_SUCCESS);
    files.midWrite = nullptr;
    reader.join();
    EXPECT_EQ(store.Unlock(), FSSTATUS_SUCCESS);
}

TEST_F(Threads, AReaderWhomChangesMeetAtEveryReadTakesTheLockInTheEnd) {
    MetFiles files;
    Store store(path), reader(path);
    uint32_t changes = 0;
    const auto change = [&] {
        if (store.Lock() != FSSTATUS_SUCCESS) return;
        EXPECT_EQ(store.Set("\\k", "v", {1, ++changes}, 300), FSSTATUS_SUCCESS);
        EXPECT_EQ(store.Unlock(), FSSTATUS_SUCCESS);
    };
    change();
    files.beforeRead = change;
    Bytes data;
    EXPECT_EQ(reader.Get("\\k", "v", &data), FSSTATUS_SUCCESS);
    files.beforeRead = nullptr;
    EXPECT_EQ(ReadSeal(data, "\\k", "v"), (Seal{1, changes}));
    EXPECT_GT(changes, 8u);
}

// A thread that took no lock has none to give up.
TEST_F(Threads, AReleaseByAThreadWithoutALockTakesNothingFromTheOwner) {
    Store store(path);
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    std::thread([&] { EXPECT_EQ(store.Unlock(), FSSTATUS_LOCK_FAILED); }).join();
    EXPECT_EQ(store.Set("\\k", "v", {1, 1}, 300), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Unlock(), FSSTATUS_SUCCESS);
}

}  // namespace
}  // namespace sharing
