// An open store of a contract test and short ways to use it, by the exported functions alone.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <set>

#include "tests/contract/Backend.h"

namespace contract {

struct Value {
    uint32_t type = 0;
    std::string bytes;
    bool operator==(const Value& other) const = default;
};

// A key with all below it, for comparing: subkeys and values by name.
struct Tree {
    std::map<WString, Value> values;
    std::map<WString, Tree> keys;
    bool operator==(const Tree& other) const = default;
};

// An open key, closed with the object.
class OpenKey {
  public:
    OpenKey() = default;
    OpenKey(FBR_STORE store, FBR_KEY key) : store_(store), key_(key) {}
    ~OpenKey() { Close(); }
    OpenKey(OpenKey&& other) noexcept : store_(other.store_), key_(std::exchange(other.key_, 0)) {}
    OpenKey& operator=(OpenKey&& other) noexcept {
        std::swap(store_, other.store_);
        std::swap(key_, other.key_);
        return *this;
    }
    operator FBR_KEY() const { return key_; }
    FBR_STATUS Close() {
        return key_ == 0 ? FSSTATUS_SUCCESS : FBR_CloseDirEx(std::exchange(key_, 0), store_);
    }

  private:
    FBR_STORE store_ = nullptr;
    FBR_KEY key_ = 0;
};

class OpenStore {
  public:
    // Opens the store of `place` and takes the write lock.
    explicit OpenStore(Place& place);
    // Gives the lock up while the store is closed, or closes under it.
    ~OpenStore() { Close(); }
    OpenStore(const OpenStore&) = delete;
    OpenStore& operator=(const OpenStore&) = delete;
    void Close();
    FBR_STORE Get() const { return store_; }

    OpenKey Root() { return Open(WTEXT("\\")); }
    // The key of a path from the root, or below `parent`; a failure to open fails the test.
    OpenKey Open(const WString& path, FBR_KEY parent = 0);
    OpenKey Create(const WString& path, FBR_KEY parent = 0);
    // The statuses alone.
    FBR_STATUS Probe(const WString& path, FBR_KEY parent = 0);
    FBR_STATUS Make(const WString& path, FBR_KEY parent = 0,
                    FBR_CREATEOPTIONS options = FSCREATEOPTIONS_NONE);

    FBR_STATUS Set(FBR_KEY key, const WString& name, const std::string& bytes, uint32_t type = 3);
    // The value by the way of a size query and a second one; `status` is the last status.
    Value Get(FBR_KEY key, const WString& name, FBR_STATUS* status = nullptr);

    // All names, which must come with FSSTATUS_NO_MORE_ENTRIES, be without a repetition, and be
    // the same one by one as together.
    std::set<WString> Values(FBR_KEY key);
    std::set<WString> Keys(FBR_KEY key);
    WString FullName(FBR_KEY key);
    WString Name(FBR_KEY key);

    Tree Content(const WString& path);
    // Everything but the version value of the root.
    Tree Content();

  private:
    FBR_STORE store_ = nullptr;
    Place& place_;
};

// A test on one kind of store, which leaves the process as it found it. What the system opens once
// for good, it has opened before by a store of that kind.
class StoreTest : public testing::TestWithParam<Backend> {
  protected:
    void SetUp() override {
        SCOPED_TRACE("");
        {
            const auto place = GetParam().makePlace();
            OpenStore(*place).Make(WTEXT("k"));
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

// One byte of data after the other, different for each seed.
std::string Bytes(size_t size, uint32_t seed = 0);
// One unit a character; for names that are plain ASCII.
WString Name(const std::string& text);

}  // namespace contract
