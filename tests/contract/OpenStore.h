// An open store of a contract test.
#pragma once

#include <set>

#include "tests/contract/Backend.h"
#include "tests/support/Store.h"

namespace contract {

using support::OpenKey;
using support::Text;
using Set = std::set<WString>;

class OpenStore : public support::Store {
  public:
    // Opens the store of `place` and takes the write lock.
    explicit OpenStore(Place& place) : Store(place.Path(), place.Method()), place_(place) {
        EXPECT_EQ(status, FSSTATUS_SUCCESS);
        if (handle == nullptr) return;
        EXPECT_EQ(Lock(2), FSSTATUS_SUCCESS);
        place_.Opened(handle);
    }
    // Under the lock, so that volatile keys can go.
    ~OpenStore() {
        if (handle == nullptr) return;
        place_.Closing(handle);
        EXPECT_EQ(Close(), FSSTATUS_SUCCESS);
    }
    using Store::Set;

    // A failure fails the test.
    OpenKey Key(const Text& path, FBR_KEY parent = 0) {
        FBR_KEY key = 0;
        EXPECT_EQ(FBR_OpenDirEx(parent, path.c_str(), &key, handle), FSSTATUS_SUCCESS)
            << platform::ToUtf8(path);
        return {handle, key};
    }
    OpenKey Create(const Text& path, FBR_KEY parent = 0) {
        const FBR_KEY key = Make(path, parent);
        EXPECT_NE(key, 0) << platform::ToUtf8(path);
        return {handle, key};
    }
    FBR_STATUS Set(FBR_KEY key, const Text& name, const std::string& bytes, uint32_t type = 3) {
        return Store::Set(key, name, support::Bytes(bytes.begin(), bytes.end()), type);
    }
    // "(none)" when it cannot be had.
    std::string Data(FBR_KEY key, const Text& name) {
        const auto bytes = Get(key, name);
        return bytes ? std::string(bytes->begin(), bytes->end()) : "(none)";
    }

    // All names, which must come with FSSTATUS_NO_MORE_ENTRIES, be without a repetition, and be
    // the same one by one as together.
    contract::Set ValueNames(FBR_KEY key) { return AllNames(key, Values(key), FBR_EnumIntFileEx); }
    contract::Set KeyNames(FBR_KEY key) { return AllNames(key, Keys(key), FBR_EnumIntDirEx); }

  private:
    using EnumerateOne = FBR_STATUS (*)(FBR_KEY, uint32_t, FBR_WCHAR**, FBR_STORE);
    contract::Set AllNames(FBR_KEY key, const support::Names& together, EnumerateOne one) {
        FBR_WCHAR* name = nullptr;
        // One by one may cost a walk each time: large keys are tried at both ends only.
        const auto count = static_cast<uint32_t>(together.size());
        const uint32_t stride = count > 200 ? count - 1 : 1;
        for (uint32_t i = 0; i < count; i += stride) {
            EXPECT_EQ(one(key, i, &name, handle), FSSTATUS_SUCCESS);
            EXPECT_EQ(support::Taken(name), together[i]);
        }
        name = nullptr;
        EXPECT_EQ(one(key, count, &name, handle), FSSTATUS_NO_MORE_ENTRIES);
        EXPECT_TRUE(name == nullptr || *name == 0);
        FBR_Release(name);
        contract::Set names(together.begin(), together.end());
        EXPECT_EQ(names.size(), together.size()) << "a name came twice";
        return names;
    }

    Place& place_;
};

// A test on one kind of store, which leaves the process as it found it. What the system opens once
// for good, it has opened before by a store of that kind.
class StoreTest : public testing::TestWithParam<Backend> {
  protected:
    void SetUp() override {
        {
            const auto place = GetParam().makePlace();
            OpenStore(*place).TryMake("k");
        }
        before_ = ProcessState();
    }
    void TearDown() override {
        if (GetParam().leavesNoHandle) {
            EXPECT_EQ(ProcessState(), before_);
        }
    }

  private:
    std::string before_;
};

}  // namespace contract
