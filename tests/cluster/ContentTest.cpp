// SPDX-License-Identifier: MIT
// What lies on the cluster: long and many values, what writers left that died, and records that
// nobody of ours wrote.
#include <chrono>
#include <cstdlib>
#include <fstream>

#include "FS_Library_DLL/IFSInterface.h"
#include "FS_Library_DLL/SharedStore.h"
#include "FS_Library_DLL/cluster/ClusterRecords.h"
#include "FS_Library_DLL/cluster/EtcdSettings.h"
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

    // Whether it finds damage, and tells of that record.
    FBR_STATUS Check(const std::string& record) {
        const LogCapture log;
        FBR_FileChecking(true);
        const FBR_STATUS status = FBR_CheckFile(store.handle);
        FBR_FileChecking(false);
        EXPECT_TRUE(status != FSSTATUS_FILE_CORRUPT || IsTold(log, record)) << record;
        return status;
    }
    static bool IsTold(const LogCapture& log, const std::string& record) {
        const auto messages = log.Messages();
        return std::any_of(messages.begin(), messages.end(), [&](const std::string& line) {
            return line.find(record + " ") != std::string::npos;
        });
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
    records.Put(prefix + "/t/" + lost, "2026-01-01T00:00:00.000Z");
    records.Put(prefix + "/g/foreign", "x");  // and in nobody's way
    records.Put(prefix + "/d/" + IdOf("stays") + "/v/" + lost + "/00000", "x");
    uint32_t done = 0;
    EXPECT_EQ(FBR_Compact(store.handle, &done), FSSTATUS_FILE_CORRUPT);
    EXPECT_EQ(Check(prefix + "/g/foreign"), FSSTATUS_FILE_CORRUPT);
    records.Delete(prefix + "/g/");
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
    const auto isTold = [&](const std::string& record, const std::string& text, auto operation,
                            FBR_STATUS expected = FSSTATUS_FILE_CORRUPT) {
        SCOPED_TRACE(record + ": " + text);
        records.Put(record, text);
        store.Unlock();
        const LogCapture log;
        EXPECT_EQ(operation(), expected);
        EXPECT_TRUE(IsTold(log, record));
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
        if (std::string(text).find("\"name\":\"v\"") > 200)
            isTold(value, text, list, FSSTATUS_NO_MORE_ENTRIES);
    }
    std::string many = "{";  // takes no square of them
    for (int i = 0; i < 100000; ++i) many += '"' + std::to_string(i) + "\":1,";
    const auto began = std::chrono::steady_clock::now();
    isTold(value, many + "\"name\":\"w\"}", query);
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(10));
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

// What stands beside a record that is none is read as ever, in whatever way.
TEST_F(ClusterContent, ARecordThatIsNoneHidesNoOther) {
    store.TryMake("a");
    store.TryMake("z\\below");
    records.Put(prefix + "/c/0/m", "none");
    auto* shared = dynamic_cast<SharedStore*>(store.handle);
    const OpenKey root(store.handle, store.Root());
    for (const char* way : {"locked", "snapshot", "free"}) {
        SCOPED_TRACE(way);
        EXPECT_EQ(store.Unlock(), FSSTATUS_SUCCESS);
        if (*way == 'l') store.Lock();
        if (*way == 's') shared->Snapshot(true);
        const LogCapture log;
        EXPECT_TRUE(store.Has("z\\below"));
        EXPECT_EQ(store.Keys(root), (support::Names{Text("a"), Text("z")}));
        EXPECT_TRUE(IsTold(log, prefix + "/c/0/m"));
        EXPECT_EQ(store.TryOpen("m"), FSSTATUS_FILE_CORRUPT);
        if (*way == 's') shared->Snapshot(false);
        if (*way != 'l') store.Lock();
    }
    EXPECT_EQ(Check(prefix + "/c/0/m"), FSSTATUS_FILE_CORRUPT);
    EXPECT_EQ(store.DeleteTree("\\"), FSSTATUS_SUCCESS);
    EXPECT_TRUE(records.Below(prefix + "/c/").empty());
}

// A child that leads to a key which hangs elsewhere, as one in a circle does, and a child whose own
// record is missing: both are told by name, end every walk, and can be removed without harm to what
// hangs elsewhere.
TEST_F(ClusterContent, BrokenLinksAreToldAndCanBeRemoved) {
    ASSERT_EQ(store.TryMake("top\\mid\\leaf"), FSSTATUS_SUCCESS);
    ASSERT_EQ(store.TryMake("other\\below"), FSSTATUS_SUCCESS);
    const std::string top = IdOf("top"), other = IdOf("other");
    cluster::ChildRecord mid;
    ASSERT_TRUE(
        cluster::ReadChild(records.Below(prefix + "/c/" + top + "/mid")[0].value, "mid", &mid));
    const OpenKey value(store.handle, store.Open("top\\mid"));
    ASSERT_EQ(store.Set(value, "v", {7}), FSSTATUS_SUCCESS);
    const std::string link = prefix + "/c/" + mid.id + "/bad";
    const auto linkTo = [&](const std::string& id) {
        records.Put(link, cluster::ChildText({id, Text("bad")}));
    };
    const auto isTold = [&](const std::string& path, const std::string& record) {
        for (const bool isLocked : {false, true}) {
            store.Unlock();
            if (isLocked) store.Lock();
            const LogCapture log;
            support::Names names;
            const OpenKey key(store.handle, store.Open(path));
            EXPECT_EQ(FBR_EnumerateAllKeys(key, names, store.handle), FSSTATUS_FILE_CORRUPT);
            EXPECT_TRUE(IsTold(log, record)) << record << (isLocked ? " locked" : "");
            if (!isLocked) store.Lock();
        }
        EXPECT_EQ(Check(record), FSSTATUS_FILE_CORRUPT);
    };
    for (const std::string& id : {mid.id, top, other}) {
        SCOPED_TRACE(id);
        linkTo(id);
        isTold("top\\mid\\bad", link);
        EXPECT_EQ(store.DeleteTree("top\\mid\\bad"), FSSTATUS_SUCCESS);
        EXPECT_EQ(Check(""), FSSTATUS_SUCCESS);
        EXPECT_TRUE(store.Has("top\\mid\\leaf") && store.Has("other\\below"));
    }
    // Nor is one way by another name.
    const std::string twin = prefix + "/c/" + top + "/twin";
    records.Put(twin, cluster::ChildText({mid.id, Text("twin")}));
    isTold("top\\twin", twin);
    EXPECT_EQ(store.DeleteTree("top\\twin"), FSSTATUS_SUCCESS);
    EXPECT_TRUE(store.Has("top\\mid\\leaf"));
    // A record that is missing is made anew by a compaction, and what hangs on it is all there.
    const std::string own = prefix + "/k/" + mid.id;
    records.Delete(own);
    isTold("top\\mid", own);
    EXPECT_EQ(store.Set(value, "w", {1}), FSSTATUS_FILE_CORRUPT);
    uint32_t done = 0;
    EXPECT_EQ(FBR_Compact(store.handle, &done), FSSTATUS_SUCCESS);
    EXPECT_EQ(Check(""), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Get(value, "v"), Bytes{7});
    EXPECT_TRUE(store.Has("top\\mid\\leaf"));
    // And it can be deleted, with a way to elsewhere below it that leads nowhere then.
    linkTo(other);
    records.Delete(own);
    EXPECT_EQ(store.DeleteTree("top\\mid"), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.TryMake("other\\more"), FSSTATUS_SUCCESS);
    records.Put(prefix + "/c/" + other + "/up", cluster::ChildText({top, Text("up")}));
    EXPECT_EQ(store.DeleteTree("other"), FSSTATUS_SUCCESS);
    EXPECT_TRUE(store.Has("top"));
    EXPECT_TRUE(records.Below(prefix + "/g/").empty());
    EXPECT_EQ(Check(""), FSSTATUS_SUCCESS);
}

// Settings that are none are told by name and line, and blanks and line ends of any system are not.
// Where each record of a circle is as it must be, only the way shows it.
TEST_F(ClusterContent, AWayInACircleEnds) {
    ASSERT_EQ(store.TryMake("top\\mid"), FSSTATUS_SUCCESS);
    const std::string top = IdOf("top");
    cluster::ChildRecord mid;
    ASSERT_TRUE(
        cluster::ReadChild(records.Below(prefix + "/c/" + top + "/mid")[0].value, "mid", &mid));
    records.Put(prefix + "/c/" + mid.id + "/top", cluster::ChildText({top, Text("top")}));
    records.Put(prefix + "/k/" + top, cluster::KeyText({mid.id, Text("top"), {}}));
    for (const bool isLocked : {true, false}) {
        store.Unlock();
        if (isLocked) store.Lock();
        std::string path = "top\\mid";
        FBR_STATUS status = FSSTATUS_NO_MORE_ENTRIES;
        for (int turn = 0; turn < 9 && status != FSSTATUS_FILE_CORRUPT; ++turn) {
            path += "\\top\\mid";
            support::Names names;
            const OpenKey key(store.handle, store.Open(path));
            status = FBR_EnumerateAllKeys(key, names, store.handle);
        }
        EXPECT_EQ(status, FSSTATUS_FILE_CORRUPT);
    }
    store.Lock();
    EXPECT_EQ(Check(prefix + "/c/0/top"), FSSTATUS_FILE_CORRUPT);
    uint32_t done = 0;
    EXPECT_EQ(FBR_Compact(store.handle, &done), FSSTATUS_FILE_CORRUPT);
    EXPECT_EQ(store.DeleteTree("top"), FSSTATUS_SUCCESS);
    EXPECT_EQ(FBR_Compact(store.handle, &done), FSSTATUS_SUCCESS);
    EXPECT_TRUE(records.Below(prefix + "/c/").empty());
}

TEST_F(ClusterContent, ALockThatIsNoneIsTold) {
    store.Unlock();
    for (const char* text : {"", "none", "{}"}) {
        records.Put(prefix + "/lock", text);
        const LogCapture log;
        EXPECT_EQ(store.Lock(), FSSTATUS_FILE_CORRUPT) << text;
        EXPECT_TRUE(IsTold(log, prefix + "/lock")) << text;
        EXPECT_EQ(Check(prefix + "/lock"), FSSTATUS_FILE_CORRUPT) << text;
    }
    records.Delete(prefix + "/lock");
    EXPECT_EQ(store.Lock(), FSSTATUS_SUCCESS);
}

TEST(ClusterSettings, EachLineIsTakenOrTold) {
    const support::TempDir folder;
    const std::string file = (folder / "settings").string();
    const Variable settings("ZRFS_ETCD_SETTINGS", file);
    const auto fault = [&](const std::string& text, cluster::EtcdSettings* read) {
        std::ofstream(file, std::ios::binary) << text;
        cluster::SettingsFault told;
        return cluster::ReadEtcdSettings({"host:1"}, read, &told) ? "" : told.text;
    };
    const struct {
        const char *text, *told;
    } rows[] = {{"LEASE=abc", "LEASE in line 1 of "},
                {"# a note\r\n\r\nLEASE=-5\r\n", "LEASE in line 3 of "},
                {"PATIENCE=5s", "\"5s\", and not a number"},
                {"PATIENCE=601", "from 1 to 600"},
                {"USER=a\nUSRE=bob", "Line 2 of "},
                {"USER", "has no \"=\""},
                {"KEY=/none/here", "The file /none/here, which KEY in line 1 of "}};
    for (const auto& row : rows) {
        cluster::EtcdSettings read;
        EXPECT_NE(fault(row.text, &read).find(row.told), std::string::npos) << row.text;
    }
    cluster::EtcdSettings read;
    EXPECT_EQ(fault(" USER = bob \r\n# c\r\n\r\nLEASE =\t5\r\nPASSWORD=a=b", &read), "");
    EXPECT_EQ(read.user, "bob");
    EXPECT_EQ(read.password, "a=b");
    EXPECT_EQ(read.lease, 5);
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
                             "host:1,/a", "a b:1/a", "user@host:1/a", "host:99999/a", "host:0/a",
                             "host:1//a", "host:1/a//b", "host:1/a/c", "host:1/a/lock/b"})
        EXPECT_EQ(Store(path, FS_VR_METHOD_CLUSTER).status,
                  *path == 0 ? FSSTATUS_INVALID_PARAMETER : FSSTATUS_INVALID_NAME)
            << path;
}

}  // namespace
}  // namespace cluster_test
