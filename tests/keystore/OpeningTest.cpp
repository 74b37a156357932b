// SPDX-License-Identifier: MIT
// Opening and closing a store: the new container, the version record, what cannot be written.
#include "tests/container/EngineStore.h"
#include "tests/keystore/TestStore.h"
#include "tests/support/ReadOnlyScope.h"

namespace keystore {
namespace {

class Opening : public testing::Test {
  protected:
    // A container without the key store's doings, with the bytes of a version record or none.
    void MakeContainer(const Bytes& version) {
        // A name of its own: a store that was refused may stay open.
        const std::string file = "store" + std::to_string(++made_) + ".fbr";
        path = dir.File(file);
        support::container::EngineStore container;
        ASSERT_EQ(container.Create(dir / file), 0);
        if (!version.empty()) {
            ASSERT_EQ(container.Put(u"\\FBRVersion", version), 0);
        }
    }
    // Has the version in its root, and is not changed by being opened again.
    void ExpectGood() {
        Store(path).Close();
        const Bytes before = support::ReadBytes(path);
        EXPECT_EQ(before.size() % 512, 0u);
        {
            Store store(path);
            ASSERT_EQ(store.status, FSSTATUS_SUCCESS);
            uint32_t type = 0;
            EXPECT_EQ(store.Get(store.Root(), "FBRVersion", &type), Bytes({2, 0, 0, 0}));
            EXPECT_EQ(type, kRegDword);
        }
        EXPECT_EQ(support::ReadBytes(path), before);
    }

    support::TempDir dir;
    WString path = dir.File("store.fbr");

  private:
    int made_ = 0;
};

TEST_F(Opening, StampsAContainerThatHasNoVersionAndLooksAtTheThirdWordAlone) {
    ExpectGood();
    MakeContainer({});
    ExpectGood();
    MakeContainer({7, 0, 0, 0, 8, 0, 0, 0, 2, 0, 0, 0});
    EXPECT_EQ(Store(path).status, FSSTATUS_SUCCESS);
    for (const Bytes& other : {Bytes{4, 0, 0, 0, 4, 0, 0, 0, 3, 0, 0, 0},
                               Bytes{4, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0}, Bytes{4, 0, 0, 0, 4}}) {
        MakeContainer(other);
        const Bytes before = support::ReadBytes(path);
        FBR_STORE handle = reinterpret_cast<FBR_STORE>(this);
        EXPECT_EQ(FBR_InitialiseEx(path.c_str(), &handle, FS_VR_METHOD_TARN),
                  FSSTATUS_VERSION_MISMATCH);
        EXPECT_EQ(handle, reinterpret_cast<FBR_STORE>(this)) << "untouched";
        EXPECT_EQ(support::ReadBytes(path), before);
    }
}

TEST_F(Opening, TellsWhyItFails) {
    support::WriteBytes(dir / "text", Bytes(2000, 'x'));
    support::WriteBytes(dir / "empty", {});
    EXPECT_EQ(Store(support::Wide(dir / "missing" / "x")).status, FSSTATUS_PATH_NOT_FOUND);
    for (const char* name : {"text", "empty"})
        EXPECT_EQ(Store(dir.File(name)).status, FSSTATUS_FAILED);
    EXPECT_NE(Store(support::Wide(dir.Path())).status, FSSTATUS_SUCCESS) << "a folder";
}

TEST_F(Opening, AtMostReadsAReadOnlyContainer) {
    {
        Store store(path);
        store.Lock();
        store.Set(store.Make("k"), "v", {1, 2, 3});
    }
    const Bytes before = support::ReadBytes(path);
    {
        const support::ReadOnlyScope readOnly(path);
        Store store(path);
        ASSERT_EQ(store.status, FSSTATUS_SUCCESS);
        store.Lock();
        const FBR_KEY key = store.Open("k");
        EXPECT_EQ(store.Get(key, "v"), Bytes({1, 2, 3}));
        for (const FBR_STATUS answer :
             {store.Set(key, "v", {4}), store.DeleteValue(key, "v"), store.DeleteTree("\\k"),
              store.TryMake("new"), store.Rename(key, "n")})
            EXPECT_NE(answer, FSSTATUS_SUCCESS);
    }
    EXPECT_EQ(support::ReadBytes(path), before);
}

// Counts the findings of a check, through the exported callback.
int g_findings;
void CountFindings(void* name, uint32_t code, uint32_t, uint32_t, uint8_t, uint8_t*) {
    EXPECT_NE(name, nullptr) << "the library's own buffer";
    if (code > 4) ++g_findings;
}

TEST_F(Opening, ASoundStoreChecksCleanAndAClosedOneHoldsNothing) {
    Store store(path);
    store.Lock();
    // Who has the lock has pages taken ahead, and such as he gave up.
    g_findings = 0;
    uintmax_t size = 0;
    for (size_t i = 0; i < 400; ++i) {
        const WString name(i % 40 + 1, 'v');
        const Bytes data(i * 997 % 9000);
        EXPECT_EQ(store.Set(store.Make("k:ey"), name, data), FSSTATUS_SUCCESS);
        if (i % 40 == 7) {
            EXPECT_EQ(FBR_DeleteDirNamedEx(WTEXT("k:ey"), store.handle), FSSTATUS_SUCCESS);
        }
        if (i % 10 == 3) {
            EXPECT_EQ(FBR_CheckFileEx(path.c_str(), CountFindings), FSSTATUS_SUCCESS);
        }
        if (i == 200) size = support::ReadBytes(path).size();
    }
    EXPECT_EQ(g_findings, 0);
    EXPECT_LT(support::ReadBytes(path).size(), size + size / 8) << "pages that are free are used";
    store.Lock(kLockRead);
    EXPECT_EQ(store.Close(), FSSTATUS_SUCCESS) << "whatever is open and locked";
    const Bytes before = support::ReadBytes(path);
    EXPECT_EQ(FBR_CheckFileEx(path.c_str(), CountFindings), FSSTATUS_SUCCESS);
    EXPECT_EQ(FBR_CheckFileEx(path.c_str(), nullptr), FSSTATUS_SUCCESS);
    EXPECT_EQ(support::ReadBytes(path), before);
    EXPECT_EQ(FBR_CheckAndRepairFileEx(path.c_str(), CountFindings), FSSTATUS_SUCCESS);
    EXPECT_EQ(g_findings, 0);
    EXPECT_NE(FBR_CheckFileEx(dir.File("none").c_str(), nullptr), FSSTATUS_SUCCESS);
    Store again(path);
    EXPECT_EQ(again.Lock(), FSSTATUS_SUCCESS) << "the lock went with the store";
    EXPECT_TRUE(again.Has("k:ey"));
}

}  // namespace
}  // namespace keystore
