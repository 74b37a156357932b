// SPDX-License-Identifier: MIT
// Every allocation and every file call of every operation fails in turn. The operation tells so or
// has done its work, and the store goes on working.
//
// A write that fails within a commit can leave some pages of the change on the disk and others not,
// for pages are written in place: what the operation was about may be damaged then, and is found to
// be, and mended by a repair. What it was not about stays readable, before and after.
#include <functional>

#include "tests/keystore/TestStore.h"
#include "tests/support/EveryFailure.h"

namespace keystore {
namespace {

constexpr FBR_STATUS kOk = FSSTATUS_SUCCESS;

FBR_STATUS SetIn(Store& s, const char* name, size_t size) {
    return s.Set(s.Open("t"), name, Bytes(size, 5));
}

FBR_STATUS Query(Store& s, const char* name) {
    Bytes buffer(5000);
    uint64_t size = 0;
    uint32_t type = 0;
    const FBR_STATUS status =
        s.Query(s.Open("t"), name, buffer.data(), buffer.size(), &size, &type);
    if (status == kOk) {
        EXPECT_EQ(type, kRegBinary);
        EXPECT_EQ(Bytes(buffer.data(), buffer.data() + size), Bytes(size, 3)) << "its own bytes";
        EXPECT_GT(size, 0u);
    }
    return status;
}

FBR_STATUS CreateIn(Store& s, const char* name) {
    const FBR_STATUS status = s.TryMake(name, 0, FSCREATEOPTIONS_VOLATILE);
    return status == FSSTATUS_ALREADY_EXISTS ? kOk : status;
}

// The status of a function that hands out text, which needs memory.
template <class Get>
FBR_STATUS TextOf(Store& s, Get get) {
    WChar* text = nullptr;
    const FBR_STATUS status = get(s.Open("t"), &text, s.handle);
    const bool none = text == nullptr;
    FBR_Release(text);
    return status == kOk && none ? FSSTATUS_FAILED : status;
}
FBR_STATUS SecondValue(FBR_KEY key, WChar** name, FBR_STORE store) {
    return FBR_EnumIntFileEx(key, 1, name, store);
}
FBR_STATUS SecondKey(FBR_KEY key, WChar** name, FBR_STORE store) {
    return FBR_EnumIntDirEx(key, 1, name, store);
}

// Not under the lock of a store that would not know of it.
FBR_STATUS Repair(Store& s) {
    s.Unlock();
    const FBR_STATUS status = FBR_CheckAndRepairFileEx(s.file.c_str(), nullptr);
    const FBR_STATUS locked = s.Lock();
    return status != kOk ? status : locked;
}

// One operation under test, on two values, of which one is long, and two subkeys, of which one
// hides a value.
struct Operation {
    const char* name;
    std::function<FBR_STATUS(Store&)> run;
    // The status of a second try after a first one that failed when its work was done.
    FBR_STATUS again = kOk;
};

const Operation kOperations[] = {
    {"create a key", [](Store& s) { return CreateIn(s, "t\\new\\ke/y\\deep"); }},
    {"create a key over a value", [](Store& s) { return CreateIn(s, "t\\small"); }},
    {"open and close a key", [](Store& s) { return s.TryOpen("t"); }},
    {"set a new value", [](Store& s) { return SetIn(s, "n:ew", 100); }},
    {"set a long value", [](Store& s) { return SetIn(s, "new", 4000); }},
    {"shorten a value", [](Store& s) { return SetIn(s, "large/name", 10); }},
    {"lengthen a value", [](Store& s) { return SetIn(s, "small", 2000); }},
    {"set a hidden value", [](Store& s) { return SetIn(s, "sub", 9); }},
    {"query a value", [](Store& s) { return Query(s, "large/name"); }},
    {"query a hidden value", [](Store& s) { return Query(s, "sub"); }},
    {"delete a value", [](Store& s) { return s.DeleteValue(s.Open("t"), "large/name"); },
     FSSTATUS_NOT_FOUND},
    {"rename a key", [](Store& s) { return s.Rename(s.Open("t\\sub"), "renamed"); },
     FSSTATUS_INVALID_PARAMETER},
    {"delete a key", [](Store& s) { return s.Delete(s.Open("t\\sub")); },
     FSSTATUS_INVALID_PARAMETER},
    {"delete a tree", [](Store& s) { return s.DeleteTree("\\t"); }, FSSTATUS_NOT_FOUND},
    {"list values", [](Store& s) { return TextOf(s, SecondValue); }},
    {"list keys", [](Store& s) { return TextOf(s, SecondKey); }},
    {"name a key", [](Store& s) { return TextOf(s, FBR_GetName_DirEx); }},
    {"name a key in full", [](Store& s) { return TextOf(s, FBR_GetFullName_DirEx); }},
    {"duplicate a key",
     [](Store& s) {
         FBR_KEY copy = 0;
         return s.Duplicate(s.Open("t"), &copy);
     }},
    {"tell a key's time",
     [](Store& s) {
         FBR_SYSTEMTIME time{};
         return FBR_GetDirTimesEx(s.Open("t"), &time, s.handle);
     }},
    {"compact",
     [](Store& s) {
         s.DeleteTree("\\t\\sub");
         uint32_t done = 0;
         return FBR_Compact(s.handle, &done);
     }},
    {"check", [](Store& s) { return FBR_CheckFileEx(s.file.c_str(), nullptr); }},
    {"repair", Repair},
    {"take and release a lock",
     [](Store& s) {
         FBR_STATUS status = s.Lock(kLockWriteToo);
         if (status == kOk) status = SetIn(s, "locked", 50);
         s.Unlock(kLockWriteToo);
         return status;
     }},
};

int g_bad;
void CountBad(void*, uint32_t code, uint32_t, uint32_t, uint8_t, uint8_t*) {
    if (code > 4) ++g_bad;
}

class Failures : public testing::TestWithParam<support::Failing> {
  protected:
    Failures() {
        Begin();
        Store store(path);
        EXPECT_EQ(store.Lock(), kOk);
        EXPECT_EQ(store.Set(store.Make("keep"), "v", Bytes(100, 9)), kOk);
        const FBR_KEY key = store.Make("t");
        store.Set(key, "small", Bytes(20, 3));
        store.Set(key, "large/name", Bytes(3000, 3));
        store.Set(key, "sub", Bytes(7, 3));
        for (const char* name : {"t\\sub", "t\\other\\below"})
            store.Set(store.Make(name), "v", Bytes(40, 4));
        store.Close();
        prepared = support::ReadBytes(path);
    }
    // The file of an attempt; a store that failed behind its opening may keep that of the last one.
    void Begin() {
        path = dir.File("store" + std::to_string(++attempts) + ".fbr");
        if (!prepared.empty()) support::WriteBytes(path, prepared);
    }
    // What no operation is about.
    static void ExpectIntact(Store& store) {
        const support::OpenKey key(store.handle, store.Open("keep"));
        ASSERT_NE(key, 0);
        ASSERT_EQ(store.Get(key, "v"), Bytes(100, 9));
    }
    void ExpectRepairable() {
        ASSERT_EQ(FBR_CheckAndRepairFileEx(path.c_str(), nullptr), kOk);
        g_bad = 0;
        ASSERT_EQ(FBR_CheckFileEx(path.c_str(), CountBad), kOk);
        ASSERT_EQ(g_bad, 0);
        Store store(path);
        ExpectIntact(store);
    }
    void Attempt(const Operation& operation, support::Failure& failure) {
        Begin();
        {
            Store store(path);
            ASSERT_EQ(store.Lock(), kOk);
            FBR_STATUS status = failure.During([&] { return operation.run(store); });
            ASSERT_TRUE(failure.Hit() || status == kOk) << "without a fault";
            ASSERT_NO_FATAL_FAILURE(ExpectIntact(store));
            uint32_t corrupted = 1;
            EXPECT_EQ(FBR_IsCorrupted(store.handle, &corrupted), kOk);
            if (status != kOk) status = operation.run(store);
            if (failure.InHeap()) {
                ASSERT_EQ(corrupted, 0u);
                ASSERT_TRUE(status == kOk || status == operation.again) << status;
            }
            ASSERT_NO_FATAL_FAILURE(ExpectIntact(store));
        }
        if (failure.Hit() && !failure.InHeap()) ExpectRepairable();
    }

    support::TempDir dir;
    WString path;
    Bytes prepared;
    int attempts = 0;
};

TEST_P(Failures, OfEachCallOfAnOperation) {
    for (const Operation& operation : kOperations) {
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
        SetIn(*store, "at close", static_cast<size_t>(attempts) * 7 % 700);
        const FBR_STATUS status = failure.During([&] {
            store.reset();
            store = std::make_unique<Store>(path);
            return store->status;
        });
        EXPECT_TRUE(failure.Hit() || status == kOk);
        store = std::make_unique<Store>(path);
        ASSERT_EQ(store->status, kOk);
        ExpectIntact(*store);
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
