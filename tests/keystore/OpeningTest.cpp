// Opening and closing a store: the new container, the version record, what cannot be written.
#include "storage/StorageApi.h"
#include "storage/core/Context.h"
#include "tests/keystore/TestStore.h"

namespace keystore {
namespace {

class Opening : public testing::Test {
  protected:
    // A container without the key store's doings; `version` becomes the words of its version
    // record, unless it is empty.
    void MakeContainer(const std::vector<uint32_t>& version) {
        storage::StorageContext* container = nullptr;
        ASSERT_EQ(
            storage::StorageCreate(path.c_str(), 1, 512, nullptr, &container, '\\', nullptr, 0), 0);
        if (!version.empty()) {
            storage::FileHandle* file = nullptr;
            ASSERT_EQ(storage::StorageCreateFile(container, WTEXT("\\FBRVersion"), 1, 1, 0, 0, 0,
                                                 WTEXT(""), 0, &file, 1, 1),
                      0);
            uint32_t done = 0;
            const auto bytes = static_cast<uint32_t>(version.size() * 4);
            EXPECT_EQ(storage::StorageWriteFile(file, version.data(), bytes, &done), 0);
            EXPECT_EQ(storage::StorageCloseFile(file), 0);
        }
        EXPECT_EQ(storage::StorageClose(container), 0);
    }

    support::TempDir dir;
    const WString path = dir.File("store.fbr");
};

const Bytes kVersionTwo{2, 0, 0, 0};

TEST_F(Opening, MakesAContainerWithItsVersionInTheRoot) {
    Store store(path);
    ASSERT_EQ(store.status, FSSTATUS_SUCCESS);
    uint32_t type = 0;
    EXPECT_EQ(store.Get(store.Root(), WTEXT("FBRVersion"), &type), kVersionTwo);
    EXPECT_EQ(type, kRegDword);
    EXPECT_EQ(store.Set(store.Root(), WTEXT("v"), {1}), FSSTATUS_LOCK_FAILED);
    EXPECT_EQ(store.Close(), FSSTATUS_SUCCESS);
    EXPECT_EQ(support::ReadBytes(path).size() % 512, 0u);
}

TEST_F(Opening, AgainChangesNoByteOfAGoodStore) {
    Store(path).Close();
    const Bytes before = support::ReadBytes(path);
    {
        Store store(path);
        EXPECT_EQ(store.status, FSSTATUS_SUCCESS);
        EXPECT_EQ(store.Get(store.Root(), WTEXT("FBRVersion")), kVersionTwo);
        EXPECT_FALSE(store.Has(WTEXT("none")));
    }
    EXPECT_EQ(support::ReadBytes(path), before);
}

TEST_F(Opening, StampsAContainerThatHasNoVersion) {
    MakeContainer({});
    Store store(path);
    EXPECT_EQ(store.status, FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Get(store.Root(), WTEXT("FBRVersion")), kVersionTwo);
}

TEST_F(Opening, LooksAtTheThirdWordAlone) {
    MakeContainer({7, 8, 2});
    EXPECT_EQ(Store(path).status, FSSTATUS_SUCCESS);
}

class OtherVersion : public Opening, public testing::WithParamInterface<std::vector<uint32_t>> {};

TEST_P(OtherVersion, IsRefusedAndLeftAsItIs) {
    MakeContainer(GetParam());
    const Bytes before = support::ReadBytes(path);
    FBR_STORE handle = reinterpret_cast<FBR_STORE>(this);
    EXPECT_EQ(FBR_InitialiseEx(path.c_str(), &handle, FS_VR_METHOD_TARN),
              FSSTATUS_VERSION_MISMATCH);
    EXPECT_EQ(handle, reinterpret_cast<FBR_STORE>(this)) << "untouched";
    EXPECT_EQ(support::ReadBytes(path), before);
}

INSTANTIATE_TEST_SUITE_P(Words, OtherVersion,
                         testing::Values(std::vector<uint32_t>{4, 4, 3},
                                         std::vector<uint32_t>{4, 4, 0},
                                         std::vector<uint32_t>{4, 4}));

TEST_F(Opening, TellsWhyItFails) {
    FBR_STORE handle = nullptr;
    const auto open = [&](const WString& where) {
        return FBR_InitialiseEx(where.c_str(), &handle, FS_VR_METHOD_TARN);
    };
    EXPECT_EQ(open(support::Wide(dir / "missing" / "store.fbr")), FSSTATUS_PATH_NOT_FOUND);
    support::WriteBytes(dir / "text", Bytes(2000, 'x'));
    EXPECT_EQ(open(dir.File("text")), FSSTATUS_FAILED);
    support::WriteBytes(dir / "empty", {});
    EXPECT_EQ(open(dir.File("empty")), FSSTATUS_FAILED);
    EXPECT_NE(open(support::Wide(dir.Path())), FSSTATUS_SUCCESS) << "a folder";
    EXPECT_EQ(handle, nullptr);
}

TEST_F(Opening, AtMostReadsAReadOnlyContainer) {
    {
        Store store(path);
        store.Lock();
        store.Set(store.Make(WTEXT("k")), WTEXT("v"), {1, 2, 3});
        store.Unlock();
    }
    const Bytes before = support::ReadBytes(path);
    // As an engine opens a file that it may not write, at the start and when it opens it again.
    struct ReadOnlyTable {
        storage::StorageFunctionTable saved = storage::g_storageFunctions;
        ReadOnlyTable() {
            storage::StorageFunctionTable table = saved;
            table.StorageOpen = [](const WChar* where, storage::StorageContext** opened,
                                   uint16_t separator, void* reserved, uint8_t update) {
                const storage::Status status =
                    storage::StorageOpen(where, opened, separator, reserved, update);
                if (status == 0) (*opened)->readOnly = true;
                return status;
            };
            table.StorageGetLock = [](storage::StorageContext* locked, int32_t type) {
                const storage::Status status = storage::StorageGetLock(locked, type);
                locked->readOnly = true;
                return status;
            };
            EXPECT_EQ(FBR_SetTARN_Functions(&table), FSSTATUS_SUCCESS);
        }
        ~ReadOnlyTable() { FBR_SetTARN_Functions(&saved); }
    };
    {
        const ReadOnlyTable readOnly;
        Store store(path);
        ASSERT_EQ(store.status, FSSTATUS_SUCCESS);
        store.Lock();
        const FBR_KEY key = store.Open(WTEXT("k"));
        EXPECT_EQ(store.Get(key, WTEXT("v")), Bytes({1, 2, 3}));
        EXPECT_EQ(store.Set(key, WTEXT("v"), {4}), FSSTATUS_FAILED);
        EXPECT_EQ(store.Set(key, WTEXT("new"), {4}), FSSTATUS_FAILED);
        EXPECT_EQ(FBR_DeleteValue(key, WTEXT("v"), store.handle), FSSTATUS_FAILED);
        EXPECT_EQ(FBR_DeleteDirNamedEx(WTEXT("\\k"), store.handle), FSSTATUS_FAILED);
        EXPECT_EQ(store.Make(WTEXT("new")), 0);
        EXPECT_EQ(FBR_RenameDirEx(key, WTEXT("n"), store.handle), FSSTATUS_FAILED);
        EXPECT_EQ(store.Get(key, WTEXT("v")), Bytes({1, 2, 3}));
    }
    EXPECT_EQ(support::ReadBytes(path), before);
}

// Counts the findings of a check, through the exported callback.
int g_findings;
void CountFindings(void* name, uint32_t code, uint32_t, uint32_t, uint8_t, uint8_t*) {
    EXPECT_NE(name, nullptr) << "the library's own buffer";
    if (code > 4) ++g_findings;
}

TEST_F(Opening, ASoundStoreChecksClean) {
    Store store(path);
    store.Lock();
    // Who has the lock has pages taken ahead, and such as he gave up.
    g_findings = 0;
    uintmax_t size = 0;
    for (size_t i = 0; i < 400; ++i) {
        const WString name(i % 40 + 1, 'v');
        const Bytes data(i * 997 % 9000);
        EXPECT_EQ(store.Set(store.Make(WTEXT("k:ey")), name, data), FSSTATUS_SUCCESS);
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
    EXPECT_EQ(FBR_CheckFile(store.handle), FSSTATUS_FAILED) << "checking is off";
    FBR_FileChecking(true);
    EXPECT_EQ(FBR_CheckFile(store.handle), FSSTATUS_SUCCESS);
    FBR_FileChecking(false);
    store.Set(store.Root(), WTEXT("last"), Bytes(3000));
    store.Unlock();
    store.Close();
    const Bytes before = support::ReadBytes(path);
    EXPECT_EQ(FBR_CheckFileEx(path.c_str(), CountFindings), FSSTATUS_SUCCESS);
    EXPECT_EQ(FBR_CheckFileEx(path.c_str(), nullptr), FSSTATUS_SUCCESS);
    EXPECT_EQ(support::ReadBytes(path), before);
    EXPECT_EQ(FBR_CheckAndRepairFileEx(path.c_str(), CountFindings), FSSTATUS_SUCCESS);
    EXPECT_EQ(g_findings, 0);
    EXPECT_NE(FBR_CheckFileEx(dir.File("none").c_str(), nullptr), FSSTATUS_SUCCESS);
}

TEST_F(Opening, ACloseEndsTheStoreWhateverIsOpen) {
    Store store(path);
    store.Lock();
    for (int i = 0; i < 300; ++i) EXPECT_NE(store.Make(WTEXT("k")), 0);
    store.Lock(kLockRead);
    EXPECT_EQ(store.Close(), FSSTATUS_SUCCESS);
    Store again(path);
    EXPECT_EQ(again.Lock(), FSSTATUS_SUCCESS) << "the lock went with the store";
    EXPECT_TRUE(again.Has(WTEXT("k")));
}

}  // namespace
}  // namespace keystore
