// SPDX-License-Identifier: MIT
// Every allocation and every file call of every operation fails in turn. The operation tells so or
// has done its work, and the store goes on working.
//
// A write that fails within a commit can leave some pages of the change on the disk and others not,
// for pages are written in place: what the operation was about may be damaged then, and is found to
// be, and mended by a repair. What it was not about stays readable, before and after.
#include <span>

#include "tests/contract/Player.h"
#include "tests/support/EveryFailure.h"

namespace keystore {
namespace {

using platform::WString;
using support::Store;

constexpr FBR_STATUS kOk = FSSTATUS_SUCCESS;

// The sections of failing.txt: what a store has, and what is done to it.
using Operation = support::Section;
const std::vector<Operation> kSections = support::SectionsIn("keystore/failing.txt");

int g_bad;
void CountBad(void*, uint32_t code, uint32_t, uint32_t, uint8_t, uint8_t*) {
    if (code > 4) ++g_bad;
}

class At : public contract::Place {
  public:
    explicit At(WString path) : path_(std::move(path)) {}
    WString Path() const override { return path_; }
    FBR_METHOD Method() const override { return FS_VR_METHOD_TARN; }

  private:
    const WString path_;
};

// A store in the hands of a script.
struct Player : contract::Player {
    explicit Player(const WString& path)
        : contract::Player(Container(), std::make_unique<At>(path)) {}
    static const contract::Backend& Container() {
        static const contract::Backend container{"Container", nullptr, {"container", "near"}};
        return container;
    }
    // All of it; the first failure.
    FBR_STATUS Do(const Operation& operation, bool* asWritten) {
        FBR_STATUS first = kOk;
        *asWritten = true;
        for (const auto& [number, line] : operation.lines) {
            bool so = false;
            const FBR_STATUS status = Answer(line, &so);
            if (first == kOk) first = status;
            *asWritten &= so;
        }
        return first;
    }
    // What no operation is about.
    void ExpectIntact() { Play("get keep v -> 3 *100"); }
};

class Failures : public testing::TestWithParam<support::Failing> {
  protected:
    Failures() {
        Begin();
        bool made = false;
        EXPECT_EQ(Player(path).Do(kSections[0], &made), kOk);
        prepared = support::ReadBytes(path);
    }
    // The file of an attempt; a store that failed behind its opening may keep that of the last one.
    void Begin() {
        path = dir.File("store" + std::to_string(++attempts) + ".fbr");
        if (!prepared.empty()) support::WriteBytes(path, prepared);
    }
    void ExpectRepairable() {
        ASSERT_EQ(FBR_CheckAndRepairFileEx(path.c_str(), nullptr), kOk);
        g_bad = 0;
        ASSERT_EQ(FBR_CheckFileEx(path.c_str(), CountBad), kOk);
        ASSERT_EQ(g_bad, 0);
        Player(path).ExpectIntact();
    }
    void Attempt(const Operation& operation, support::Failure& failure) {
        Begin();
        {
            Player player(path);
            bool asWritten = false;
            FBR_STATUS status = failure.During([&] { return player.Do(operation, &asWritten); });
            ASSERT_TRUE(failure.Hit() || status == kOk) << "without a fault";
            ASSERT_TRUE(status != kOk || asWritten) << player.Told();
            player.ExpectIntact();
            bool sound = false;
            EXPECT_EQ(player.Answer("corrupted -> 0", &sound), kOk);
            if (status != kOk) player.Do(operation, &asWritten);
            if (failure.InHeap()) {
                ASSERT_TRUE(sound && asWritten) << status << " and then" << player.Told();
            }
            player.ExpectIntact();
        }
        if (failure.Hit() && !failure.InHeap()) ExpectRepairable();
    }

    support::TempDir dir;
    WString path;
    support::Bytes prepared;
    int attempts = 0;
};

TEST_P(Failures, OfEachCallOfAnOperation) {
    ASSERT_GT(kSections.size(), 20u);
    for (const Operation& operation : std::span(kSections).subspan(1)) {
        SCOPED_TRACE(operation.name);
        support::WithEveryFailure(GetParam(),
                                  [&](support::Failure& failure) { Attempt(operation, failure); });
    }
}

// The same for opening and closing, where the store itself comes and goes.
TEST_P(Failures, OfOpeningAndClosing) {
    support::WithEveryFailure(GetParam(), [&](support::Failure& failure) {
        Begin();
        auto store = std::make_unique<Store>(path);
        store->Lock();
        const support::Bytes data(static_cast<size_t>(attempts) * 7 % 700, 5);
        store->Set(store->Open("t"), "at close", data);
        const FBR_STATUS status = failure.During([&] {
            store.reset();
            store = std::make_unique<Store>(path);
            return store->status;
        });
        EXPECT_TRUE(failure.Hit() || status == kOk);
        store.reset();
        Player(path).ExpectIntact();
    });
}

// Nothing is left, or a whole store.
TEST_P(Failures, OfMakingAStore) {
    support::WithEveryFailure(GetParam(), [&](support::Failure& failure) {
        const WString fresh = dir.File("fresh" + std::to_string(++attempts) + ".fbr");
        failure.During([&] {
            const Store made(fresh);
            EXPECT_EQ(made.handle != nullptr, made.status == kOk);
            return made.status;
        });
        if (std::filesystem::exists(fresh)) {
            EXPECT_EQ(Store(fresh).status, kOk);
        }
    });
}

INSTANTIATE_TEST_SUITE_P(Kinds, Failures,
                         testing::Values(support::Failing::Allocation,
                                         support::Failing::AllocationsFromThenOn,
                                         support::Failing::FileCall,
                                         support::Failing::FileCallsFromThenOn));

}  // namespace
}  // namespace keystore
