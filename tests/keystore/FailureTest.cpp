// Every allocation and every file call of every operation fails in turn. The operation tells so or
// has done its work, and the store goes on working.
//
// A write that fails within a commit can leave some pages of the change on the disk and others not,
// for pages are written in place: what the operation was about may be damaged then, and is found to
// be, and mended by a repair. What it was not about stays readable, before and after.
#include <functional>

#include "tests/container/Promise.h"
#include "tests/keystore/TestStore.h"
#include "tests/support/FailingHeap.h"
#include "tests/support/FaultFile.h"

namespace keystore {
namespace {

constexpr uint64_t kMostCalls = 5000;

// One operation under test. `prepare` runs before each try and makes the same state every time.
struct Operation {
    const char* name;
    std::function<void(Store&)> prepare;
    std::function<FBR_STATUS(Store&)> run;
    // Statuses of a second try after a first one that failed when its work was done.
    std::vector<FBR_STATUS> again = {};
};

void Forget(Store& store) {
    FBR_DeleteDirNamedEx(WTEXT("\\t"), store.handle);
}

FBR_KEY Work(Store& store) {
    return store.Open(WTEXT("t"));
}

FBR_STATUS CloseAfter(FBR_STATUS status, FBR_KEY key, Store& store) {
    if (key != 0) FBR_CloseDirEx(key, store.handle);
    return status;
}

FBR_STATUS CreateKey(Store& store, const WChar* name) {
    FBR_KEY key = 0;
    const FBR_STATUS status =
        FBR_CreateDirEx(0, name, FSCREATEOPTIONS_VOLATILE, &key, store.handle);
    return CloseAfter(status == FSSTATUS_ALREADY_EXISTS ? FSSTATUS_SUCCESS : status, key, store);
}

FBR_STATUS SetValue(Store& store, const WChar* name, size_t size) {
    const FBR_KEY key = Work(store);
    return CloseAfter(store.Set(key, name, Bytes(size, 5)), key, store);
}

FBR_STATUS Query(Store& store, const WChar* name) {
    const FBR_KEY key = Work(store);
    Bytes buffer(5000);
    uint64_t size = 0;
    uint32_t type = 0;
    const FBR_STATUS status =
        FBR_QueryValue(key, name, buffer.data(), buffer.size(), &size, &type, store.handle);
    if (status == FSSTATUS_SUCCESS) {
        EXPECT_EQ(type, kRegBinary);
        EXPECT_EQ(Bytes(buffer.data(), buffer.data() + size), Bytes(size, 3)) << "its own bytes";
        EXPECT_GT(size, 0u);
    }
    return CloseAfter(status, key, store);
}

FBR_STATUS TextOf(Store& store, FBR_STATUS (*get)(FBR_KEY, WChar**, FBR_STORE)) {
    const FBR_KEY key = Work(store);
    WChar* text = nullptr;
    const FBR_STATUS status = get(key, &text, store.handle);
    FBR_Release(text);
    return CloseAfter(status, key, store);
}

FBR_STATUS FirstOf(Store& store, FBR_STATUS (*get)(FBR_KEY, uint32_t, WChar**, FBR_STORE)) {
    const FBR_KEY key = Work(store);
    WChar* text = nullptr;
    FBR_STATUS status = get(key, 1, &text, store.handle);
    if (status == FSSTATUS_SUCCESS && text == nullptr) status = FSSTATUS_FAILED;  // no memory
    FBR_Release(text);
    return CloseAfter(status, key, store);
}

// Two values, of which one is long, and two subkeys, of which one hides a value.
void Prepare(Store& store) {
    Forget(store);
    const FBR_KEY key = store.Make(WTEXT("t"));
    store.Set(key, WTEXT("small"), Bytes(20, 3));
    store.Set(key, WTEXT("large/name"), Bytes(3000, 3));
    store.Set(key, WTEXT("sub"), Bytes(7, 3));
    FBR_CloseDirEx(key, store.handle);
    for (const WString name : {WTEXT("t\\sub"), WTEXT("t\\other\\below")}) {
        const FBR_KEY sub = store.Make(name);
        store.Set(sub, WTEXT("v"), Bytes(40, 4));
        FBR_CloseDirEx(sub, store.handle);
    }
}

const Operation kOperations[] = {
    {"create a key", Prepare,
     [](Store& store) { return CreateKey(store, WTEXT("t\\new\\ke/y\\deep")); }},
    {"create a key over a value", Prepare,
     [](Store& store) { return CreateKey(store, WTEXT("t\\small")); }},
    {"open a key", Prepare,
     [](Store& store) {
         const FBR_KEY key = Work(store);
         return CloseAfter(key != 0 ? FSSTATUS_SUCCESS : FSSTATUS_FAILED, key, store);
     }},
    {"set a new value", Prepare, [](Store& store) { return SetValue(store, WTEXT("n:ew"), 100); }},
    {"set a long value", Prepare, [](Store& store) { return SetValue(store, WTEXT("new"), 4000); }},
    {"shorten a value", Prepare,
     [](Store& store) { return SetValue(store, WTEXT("large/name"), 10); }},
    {"lengthen a value", Prepare,
     [](Store& store) { return SetValue(store, WTEXT("small"), 2000); }},
    {"set a hidden value", Prepare, [](Store& store) { return SetValue(store, WTEXT("sub"), 9); }},
    {"query a value", Prepare, [](Store& store) { return Query(store, WTEXT("large/name")); }},
    {"query a hidden value", Prepare, [](Store& store) { return Query(store, WTEXT("sub")); }},
    {"delete a value",
     Prepare,
     [](Store& store) {
         const FBR_KEY key = Work(store);
         return CloseAfter(FBR_DeleteValue(key, WTEXT("large/name"), store.handle), key, store);
     },
     {FSSTATUS_NOT_FOUND}},
    {"rename a key",
     Prepare,
     [](Store& store) {
         const FBR_KEY key = store.Open(WTEXT("t\\sub"));
         return CloseAfter(FBR_RenameDirEx(key, WTEXT("renamed"), store.handle), key, store);
     },
     {FSSTATUS_INVALID_PARAMETER}},
    {"delete a key",
     Prepare,
     [](Store& store) {
         const FBR_KEY key = store.Open(WTEXT("t\\sub"));
         return CloseAfter(FBR_DeleteDirEx(key, store.handle), key, store);
     },
     {FSSTATUS_INVALID_PARAMETER}},
    {"delete a tree",
     Prepare,
     [](Store& store) { return FBR_DeleteDirNamedEx(WTEXT("\\t"), store.handle); },
     {FSSTATUS_NOT_FOUND}},
    {"list values", Prepare, [](Store& store) { return FirstOf(store, FBR_EnumIntFileEx); }},
    {"list keys", Prepare, [](Store& store) { return FirstOf(store, FBR_EnumIntDirEx); }},
    {"name a key", Prepare, [](Store& store) { return TextOf(store, FBR_GetName_DirEx); }},
    {"name a key in full", Prepare,
     [](Store& store) { return TextOf(store, FBR_GetFullName_DirEx); }},
    {"duplicate a key", Prepare,
     [](Store& store) {
         const FBR_KEY key = Work(store);
         FBR_KEY copy = 0;
         const FBR_STATUS status = FBR_DuplicateDirHandleEx(key, &copy, store.handle);
         return CloseAfter(CloseAfter(status, copy, store), key, store);
     }},
    {"tell a key's time", Prepare,
     [](Store& store) {
         const FBR_KEY key = Work(store);
         FBR_SYSTEMTIME time{};
         return CloseAfter(FBR_GetDirTimesEx(key, &time, store.handle), key, store);
     }},
    {"compact", Prepare,
     [](Store& store) {
         FBR_DeleteDirNamedEx(WTEXT("\\t\\sub"), store.handle);
         uint32_t done = 0;
         return FBR_Compact(store.handle, &done);
     }},
    {"check", Prepare, [](Store& store) { return FBR_CheckFileEx(store.file.c_str(), nullptr); }},
    {"repair", Prepare,
     [](Store& store) {
         // Not under the lock of a store that would not know of it.
         store.Unlock();
         const FBR_STATUS status = FBR_CheckAndRepairFileEx(store.file.c_str(), nullptr);
         const FBR_STATUS locked = store.Lock();
         return status != FSSTATUS_SUCCESS ? status : locked;
     }},
    {"take and release a lock", Prepare,
     [](Store& store) {
         FBR_STATUS status = store.Lock(kLockWriteToo);
         if (status == FSSTATUS_SUCCESS) {
             status = SetValue(store, WTEXT("locked"), 50);
             store.Unlock(kLockWriteToo);
         }
         return status;
     }},
};

// Fails one call of one kind while it lives, and tells whether that call was reached.
class Fault {
  public:
    virtual ~Fault() = default;
    virtual bool Hit() const = 0;
};

class HeapFault : public Fault {
  public:
    HeapFault(uint64_t number, bool keep) : heap_(number, keep) {}
    bool Hit() const override { return heap_.Hits() > 0; }

  private:
    support::FailingHeap heap_;
};

class FileFault : public Fault {
  public:
    FileFault(support::FaultFile& files, uint64_t number, bool keep) : files_(files) {
        files_.Reset();
        files_.KeepFailing(keep);
        files_.FailAny(number, platform::kErrorGenFailure);
    }
    ~FileFault() override { files_.Reset(); }
    bool Hit() const override { return files_.Hits() > 0; }

  private:
    support::FaultFile& files_;
};

using MakeFault = std::function<std::unique_ptr<Fault>(uint64_t number)>;

class Failures : public testing::TestWithParam<bool> {
  protected:
    void SetUp() override {
        ASSERT_EQ(store->Lock(), FSSTATUS_SUCCESS);
        ASSERT_EQ(store->Set(store->Make(WTEXT("keep")), WTEXT("v"), Bytes(100, 9)),
                  FSSTATUS_SUCCESS);
    }
    void ExpectIntact(const char* what, uint64_t number) {
        const FBR_KEY key = store->Open(WTEXT("keep"));
        ASSERT_NE(key, 0) << what << ", call " << number;
        ASSERT_EQ(store->Get(key, WTEXT("v")), Bytes(100, 9)) << what << ", call " << number;
        FBR_CloseDirEx(key, store->handle);
    }
    void ExpectSound(const char* what, uint64_t number) {
        uint32_t corrupted = 0;
        EXPECT_EQ(FBR_IsCorrupted(store->handle, &corrupted), FSSTATUS_SUCCESS);
        ASSERT_EQ(corrupted, 0u) << what << ", call " << number;
    }
    // Closed and repaired it is sound, and what the operation was not about is still there.
    void ExpectRepairable(const char* what, uint64_t number) {
        namespace container = support::container;
        store.reset();
        const std::filesystem::path where = dir / "store.fbr";
        ASSERT_EQ(container::CheckContainer(where, container::kRepair).status, 0)
            << what << ", call " << number;
        ASSERT_TRUE(container::CheckContainer(where, container::kDeepCheck).FoundNothing())
            << what << ", call " << number;
        store = std::make_unique<Store>(path);
        ExpectIntact(what, number);
    }
    // A store like the first one, with nothing left of what failed before.
    void StartAnew() {
        store.reset();
        std::filesystem::remove(dir / "store.fbr");
        store = std::make_unique<Store>(path);
        SetUp();
    }
    // Fails call 1, 2, 3 ... of the operation until it is through without having met the fault.
    enum class Afterwards { Sound, MayBeDamaged };
    void FailEachCall(const Operation& operation, Afterwards afterwards,
                      const MakeFault& makeFault) {
        for (uint64_t number = 1; number < kMostCalls; ++number) {
            operation.prepare(*store);
            bool hit = false;
            FBR_STATUS status = FSSTATUS_SUCCESS;
            {
                const std::unique_ptr<Fault> fault = makeFault(number);
                status = operation.run(*store);
                hit = fault->Hit();
            }
            if (!hit) {
                ASSERT_EQ(status, FSSTATUS_SUCCESS) << operation.name << " without a fault";
                return;
            }
            ASSERT_NO_FATAL_FAILURE(ExpectIntact(operation.name, number));
            if (afterwards == Afterwards::MayBeDamaged) {
                operation.run(*store);
                ASSERT_NO_FATAL_FAILURE(ExpectIntact(operation.name, number));
                ASSERT_NO_FATAL_FAILURE(ExpectRepairable(operation.name, number));
                StartAnew();
                continue;
            }
            ASSERT_NO_FATAL_FAILURE(ExpectSound(operation.name, number));
            if (status == FSSTATUS_SUCCESS) continue;
            status = operation.run(*store);
            const auto& again = operation.again;
            ASSERT_TRUE(status == FSSTATUS_SUCCESS ||
                        std::find(again.begin(), again.end(), status) != again.end())
                << operation.name << " after a fault in call " << number << ": " << status;
            // A rename that failed half-way can leave a hidden value, which keeps its key.
            StartAnew();
        }
        FAIL() << operation.name << " never came to its end";
    }

    support::TempDir dir;
    const WString path = dir.File("store.fbr");
    support::FaultFile files;
    std::unique_ptr<Store> store = std::make_unique<Store>(path);
};

TEST_P(Failures, OfEachAllocation) {
    for (const Operation& operation : kOperations)
        FailEachCall(operation, Afterwards::Sound, [&](uint64_t number) {
            return std::make_unique<HeapFault>(number, GetParam());
        });
}

TEST_P(Failures, OfEachFileCall) {
    for (const Operation& operation : kOperations)
        FailEachCall(operation, Afterwards::MayBeDamaged, [&](uint64_t number) {
            return std::make_unique<FileFault>(files, number, GetParam());
        });
}

// The same for opening and closing, where the store itself comes and goes.
TEST_P(Failures, OfOpeningAndClosing) {
    store->Unlock();
    const MakeFault faults[] = {
        [&](uint64_t number) { return std::make_unique<HeapFault>(number, GetParam()); },
        [&](uint64_t number) { return std::make_unique<FileFault>(files, number, GetParam()); }};
    for (const MakeFault& makeFault : faults) {
        bool hit = true;
        for (uint64_t number = 1; hit && number < kMostCalls; ++number) {
            store = std::make_unique<Store>(path);
            ASSERT_EQ(store->status, FSSTATUS_SUCCESS) << "before call " << number;
            store->Lock();
            SetValue(*store, WTEXT("at close"), number % 700);
            {
                const std::unique_ptr<Fault> fault = makeFault(number);
                store.reset();
                store = std::make_unique<Store>(path);
                hit = fault->Hit();
            }
            if (!hit) {
                ASSERT_EQ(store->status, FSSTATUS_SUCCESS);
            }
            store = std::make_unique<Store>(path);
            ASSERT_EQ(store->status, FSSTATUS_SUCCESS) << "after call " << number;
            ASSERT_NO_FATAL_FAILURE(ExpectIntact("close and open", number));
        }
        EXPECT_FALSE(hit);
    }
}

TEST_P(Failures, OfMakingAStore) {
    const MakeFault faults[] = {
        [&](uint64_t number) { return std::make_unique<HeapFault>(number, GetParam()); },
        [&](uint64_t number) { return std::make_unique<FileFault>(files, number, GetParam()); }};
    int round = 0;
    for (const MakeFault& makeFault : faults) {
        bool hit = true;
        for (uint64_t number = 1; hit && number < kMostCalls; ++number) {
            // A name of its own: a store that failed behind its opening may stay open.
            const std::string name = "fresh" + std::to_string(++round) + ".fbr";
            {
                const std::unique_ptr<Fault> fault = makeFault(number);
                Store made(dir.File(name));
                EXPECT_EQ(made.handle != nullptr, made.status == FSSTATUS_SUCCESS);
                hit = fault->Hit();
            }
            // Nothing is left, or a whole store.
            if (!std::filesystem::exists(dir / name)) continue;
            EXPECT_EQ(Store(dir.File(name)).status, FSSTATUS_SUCCESS) << "after call " << number;
        }
        EXPECT_FALSE(hit);
    }
}

INSTANTIATE_TEST_SUITE_P(OnceAndFromThenOn, Failures, testing::Bool());

}  // namespace
}  // namespace keystore
