// SPDX-License-Identifier: MIT
// What lies on the cluster: long and many values, what writers left that died, and records that
// nobody of ours wrote.
#include "FS_Library_DLL/cluster/ClusterRecords.h"
#include "tests/cluster/RunningCluster.h"
#include "tests/shared/LogCapture.h"
#include "tests/support/Store.h"

namespace cluster_test {
namespace {

using support::Bytes;
using support::OpenKey;
using support::Store;
using support::Text;

class ClusterContent : public testing::Test {
  protected:
    static RunningCluster& Cluster() {
        static RunningCluster cluster(1);
        return cluster;
    }
    ClusterContent()
        : prefix("content" + std::to_string(++count_)),
          records(Cluster()),
          store(Cluster().Path(prefix), FS_VR_METHOD_CLUSTER) {
        EXPECT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    }
    // The id of a key below the root.
    std::string IdOf(const std::string& name) {
        cluster::ChildRecord child;
        const auto found = records.Below(prefix + "/c/0/" + name);
        EXPECT_TRUE(!found.empty() && cluster::ReadChild(found[0].value, name, &child));
        return child.id;
    }

    const std::string prefix;
    Records records;
    Store store;

  private:
    static inline int count_ = 0;
};

TEST_F(ClusterContent, LongValuesAreThereWholeAndLeaveNoPieces) {
    const OpenKey key(store.handle, store.Make("k"));
    const std::string pieces = prefix + "/d/";
    Bytes data(10 << 20);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 7 + i / 999);
    ASSERT_EQ(store.Set(key, "a/b", data), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Get(key, "A/B"), data);
    EXPECT_EQ(records.Below(pieces).size(), 20u);
    // A neighbour's pieces stay, and so do those of a value whose writer died before the switch
    // until somebody sets it again.
    data.resize(600'000);
    ASSERT_EQ(store.Set(key, "a", data), FSSTATUS_SUCCESS);
    records.Put(pieces + IdOf("k") + "/a%2Fb/0123456789abcdef/00000", "left");
    ASSERT_EQ(store.Set(key, "a/b", {1}), FSSTATUS_SUCCESS);
    EXPECT_EQ(records.Below(pieces).size(), 2u);
    EXPECT_EQ(store.Get(key, "a"), data);
    ASSERT_EQ(store.Delete(key), FSSTATUS_SUCCESS);
    EXPECT_TRUE(records.Below(pieces).empty());
}

TEST_F(ClusterContent, ManyNamesComePageByPage) {
    const OpenKey key(store.handle, store.Make("many"));
    const std::string id = IdOf("many");
    std::vector<cluster::Operation> puts;
    for (int i = 0; i < 2345; ++i) {
        const std::string name = std::to_string(i);
        puts.push_back(cluster::Put(prefix + "/v/" + id + "/" + name,
                                    cluster::ValueText({Text(name), 3, std::string(i % 7, 'x')})));
        if (puts.size() < 100 && i != 2344) continue;
        records.Do(puts);
        puts.clear();
    }
    // Without the lock as well as under it.
    for (const bool locked : {true, false}) {
        if (!locked) {
            ASSERT_EQ(store.Unlock(), FSSTATUS_SUCCESS);
        } else {
            ASSERT_EQ(store.Unlock(), FSSTATUS_SUCCESS);  // what is kept is not of this lock
            ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
        }
        const auto names = store.Values(key);
        EXPECT_EQ(std::set(names.begin(), names.end()).size(), 2345u);
        for (const uint32_t index : {0u, 999u, 1000u, 2344u}) {
            FBR_WCHAR* name = nullptr;
            EXPECT_EQ(FBR_EnumIntFileEx(key, index, &name, store.handle), FSSTATUS_SUCCESS);
            EXPECT_EQ(support::Taken(name), names[index]);
        }
        EXPECT_EQ(FBR_EnumIntFileEx(key, 2345, nullptr, store.handle), FSSTATUS_NO_MORE_ENTRIES);
        EXPECT_EQ(store.Get(key, "2000"), Bytes(2000 % 7, 'x'));
    }
}

// A deletion that was cut off is finished by the next one to take the lock; what no record refers
// to goes with the next compaction.
TEST_F(ClusterContent, WhatDeadWritersLeftIsSweptAway) {
    ASSERT_EQ(store.TryMake("gone\\a\\b"), FSSTATUS_SUCCESS);
    ASSERT_EQ(store.TryMake("stays\\a"), FSSTATUS_SUCCESS);
    const std::string id = IdOf("gone");
    records.Delete(prefix + "/c/0/gone");
    records.Put(prefix + "/g/" + id, "{}");
    store.Unlock();
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    EXPECT_TRUE(records.Below(prefix + "/g/").empty());
    EXPECT_EQ(records.Below(prefix + "/k/").size(), 3u);
    const std::string lost = "00000000000000aa";
    records.Put(prefix + "/k/" + lost,
                cluster::KeyText({"00000000000000ab", Text("lost"), {2026, 1, 1, 0, 0, 0, 0}}));
    records.Put(prefix + "/v/" + lost + "/v", cluster::ValueText({Text("v"), 3, "x"}));
    records.Put(prefix + "/t/" + lost, "");
    records.Put(prefix + "/d/" + IdOf("stays") + "/v/" + lost + "/00000", "x");
    uint32_t done = 0;
    EXPECT_EQ(FBR_Compact(store.handle, &done), FSSTATUS_SUCCESS);
    EXPECT_EQ(done, 255u);
    for (const char* kind : {"/v/0", "/t/0000", "/d/"})
        for (const auto& record : records.Below(prefix + kind))
            EXPECT_EQ(record.key, prefix + "/v/0/fbrversion");
    EXPECT_EQ(records.Below(prefix + "/k/").size(), 3u);
    EXPECT_TRUE(store.Has("stays\\a"));
}

// Every record in turn is put in the place of a good one: each is told by its name, and does no
// harm.
TEST_F(ClusterContent, RecordsThatAreNoneAreToldByTheirNames) {
    FBR_STATUS told = FSSTATUS_SUCCESS;
    const OpenKey key(store.handle, store.Make("k", 0, FSCREATEOPTIONS_NONE, &told));
    ASSERT_EQ(told, FSSTATUS_SUCCESS);
    const std::string value = prefix + "/v/" + IdOf("k") + "/v", child = prefix + "/c/0/bad";
    const auto isTold = [&](const std::string& record, const std::string& text, auto operation) {
        SCOPED_TRACE(record + ": " + text);
        records.Put(record, text);
        store.Unlock();
        const LogCapture log;
        EXPECT_EQ(operation(), FSSTATUS_FILE_CORRUPT);
        const auto messages = log.Messages();
        EXPECT_TRUE(std::any_of(messages.begin(), messages.end(), [&](const std::string& line) {
            return line.find(record) != std::string::npos;
        }));
        EXPECT_EQ(store.Lock(), FSSTATUS_SUCCESS);
        records.Delete(record);
    };
    uint64_t size = 0;
    const auto query = [&] { return store.Query(key, "v", &size, sizeof size, &size); };
    const auto list = [&] {
        support::Names names;
        return FBR_EnumerateAllValues(key, names, store.handle);
    };
    for (const char* text :
         {"", "x", "[]", "{}", R"({"name":"v"})", R"({"name":"w","type":3,"data":""})",
          R"({"name":"v","type":-1,"data":""})", R"({"name":"v","type":4294967296,"data":""})",
          R"({"name":"v","type":3,"data":"YQ"})", R"({"name":"v","type":3,"data":"YR=="})",
          R"({"name":"v","type":3,"number":1})", R"({"name":"v","type":4,"number":4294967296})",
          R"({"name":"v","type":7,"texts":[1]})", R"({"name":"v","type":1,"text":"cut)",
          R"({"name":"v","type":3,"pieces":"x","size":1})",
          R"({"name":"v","type":3,"pieces":"0123456789abcdef","size":1})",
          R"({"name":"v","type":3,"pieces":"0123456789abcdef","size":99999999999})"}) {
        const bool isWholeButForPieces =
            std::string(text).find("\"size\":1}") < 200 && std::string(text).find("\"x\"") > 200;
        const std::string missing = prefix + "/d/" + IdOf("k") + "/v/0123456789abcdef/00000";
        if (isWholeButForPieces) {
            records.Put(value, text);
            isTold(missing, "longer than one byte", query);
            records.Delete(value);
            continue;
        }
        isTold(value, text, query);
        if (std::string(text).find("\"name\":\"v\"") > 200) isTold(value, text, list);
    }
    const auto open = [&] { return store.TryOpen("bad\\below"); };
    for (const char* text :
         {"", R"({"name":"bad"})", R"({"name":"bad","id":"0"})",
          R"({"name":"bad","id":"../../etc"})", R"({"name":"other","id":"0123456789abcdef"})",
          R"({"name":"b%61d","id":"0123456789abcdef"})"})
        isTold(child, text, open);
    EXPECT_EQ(store.Set(key, "v", {1}), FSSTATUS_SUCCESS);
    uint32_t corrupted = 0;
    EXPECT_EQ(FBR_IsCorrupted(store.handle, &corrupted), FSSTATUS_SUCCESS);
    EXPECT_EQ(corrupted, 1u);
}

// A root that is none, or of a later layout, opens nothing.
TEST_F(ClusterContent, ARootOfAnotherKindIsNotOpened) {
    const auto opened = [&](const std::string& text) {
        records.Put(prefix + "/other/k/0", text);
        return Store(Cluster().Path(prefix + "/other"), FS_VR_METHOD_CLUSTER).status;
    };
    EXPECT_EQ(opened("else"), FSSTATUS_FILE_CORRUPT);
    EXPECT_EQ(opened(R"({"layout":2})"), FSSTATUS_VERSION_MISMATCH);
    for (const char* path : {"", "host", "host:1", "host:1/", ":1/a", "host:/a", "host:x/a",
                             "host:1,/a", "a b:1/a", "user@host:1/a"})
        EXPECT_EQ(Store(path, FS_VR_METHOD_CLUSTER).status,
                  *path == 0 ? FSSTATUS_INVALID_PARAMETER : FSSTATUS_INVALID_NAME)
            << path;
}

}  // namespace
}  // namespace cluster_test
