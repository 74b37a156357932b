// SPDX-License-Identifier: MIT
// Opening and closing a store: the version record, what other hands wrote, checks.
#include "tests/container/EngineStore.h"
#include "tests/support/Store.h"

namespace keystore {
namespace {

using namespace support;

// What other hands write: a container without the key store's doings, with a file in it.
WString Foreign(const TempDir& dir, const std::u16string& file, const Bytes& bytes) {
    // A name of its own: a store that was refused may stay open.
    static int count = 0;
    const std::string name = std::to_string(++count) + ".fbr";
    container::EngineStore container;
    EXPECT_EQ(container.Create(dir / name), 0);
    EXPECT_EQ(container.MakeDirectory(u"\\k"), 0);
    EXPECT_EQ(container.Put(file, bytes), 0);
    return dir.File(name);
}

TEST(Opening, OfAnotherVersionIsRefusedAndLeavesFileAndHandleAlone) {
    const TempDir dir;
    for (const Bytes& other : {Bytes{4, 0, 0, 0, 4, 0, 0, 0, 3, 0, 0, 0},
                               Bytes{4, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0}, Bytes{4, 0, 0, 0, 4}}) {
        const WString path = Foreign(dir, u"\\FBRVersion", other);
        const Bytes before = ReadBytes(path);
        FBR_STORE handle = reinterpret_cast<FBR_STORE>(&handle);
        EXPECT_EQ(FBR_InitialiseEx(path.c_str(), &handle, FS_VR_METHOD_TARN),
                  FSSTATUS_VERSION_MISMATCH);
        EXPECT_EQ(handle, reinterpret_cast<FBR_STORE>(&handle));
        EXPECT_EQ(ReadBytes(path), before);
    }
    // The third word alone counts, and one without a version is stamped.
    EXPECT_EQ(Store(Foreign(dir, u"\\FBRVersion", {7, 0, 0, 0, 8, 0, 0, 0, 2, 0, 0, 0})).status,
              FSSTATUS_SUCCESS);
    // A value of fewer bytes than its header reads as zeros.
    Store stamped(Foreign(dir, u"\\k\\v", {3, 0, 0, 0, 0xFF}));
    EXPECT_EQ(stamped.Get(stamped.Root(), "FBRVersion"), Bytes({2, 0, 0, 0}));
    uint64_t size = 0;
    uint32_t type = 0;
    EXPECT_EQ(stamped.Query(stamped.Open("k"), "v", nullptr, 0, &size, &type),
              FSSTATUS_BUFFER_OVERFLOW);
    EXPECT_EQ(type, 3u);
    EXPECT_EQ(size, 255u);
    EXPECT_EQ(stamped.Get(stamped.Open("k"), "v"), std::nullopt) << "no byte of them";
}

// Counts the findings of a check, through the exported callback.
int g_findings;
void CountFindings(void* name, uint32_t code, uint32_t, uint32_t, uint8_t, uint8_t*) {
    EXPECT_NE(name, nullptr) << "the library's own buffer";
    if (code > 4) ++g_findings;
}

TEST(Opening, ASoundStoreChecksCleanAndAClosedOneHoldsNothing) {
    const TempDir dir;
    const WString path = dir.File("store.fbr");
    Store store(path);
    store.Lock();
    // Who has the lock has pages taken ahead, and such as he gave up.
    g_findings = 0;
    uintmax_t size = 0;
    for (size_t i = 0; i < 400; ++i) {
        EXPECT_EQ(store.Set(store.Make("k:ey"), WString(i % 40 + 1, 'v'), Bytes(i * 997 % 9000)),
                  FSSTATUS_SUCCESS);
        if (i % 40 == 7) {
            EXPECT_EQ(store.DeleteTree("k:ey"), FSSTATUS_SUCCESS);
        }
        if (i % 10 == 3) {
            EXPECT_EQ(FBR_CheckFileEx(path.c_str(), CountFindings), FSSTATUS_SUCCESS);
        }
        if (i == 200) size = std::filesystem::file_size(path);
    }
    EXPECT_LT(std::filesystem::file_size(path), size + size / 8) << "pages that are free are used";
    store.Lock(kLockRead);
    EXPECT_EQ(store.Close(), FSSTATUS_SUCCESS) << "whatever is open and locked";
    const Bytes before = ReadBytes(path);
    EXPECT_EQ(FBR_CheckFileEx(path.c_str(), CountFindings), FSSTATUS_SUCCESS);
    EXPECT_EQ(ReadBytes(path), before);
    EXPECT_EQ(FBR_CheckAndRepairFileEx(path.c_str(), CountFindings), FSSTATUS_SUCCESS);
    EXPECT_EQ(g_findings, 0);
    EXPECT_NE(FBR_CheckFileEx(dir.File("none").c_str(), nullptr), FSSTATUS_SUCCESS);
    Store again(path);
    EXPECT_EQ(again.Lock(), FSSTATUS_SUCCESS) << "the lock went with the store";
    EXPECT_TRUE(again.Has("k:ey"));
}

}  // namespace
}  // namespace keystore
