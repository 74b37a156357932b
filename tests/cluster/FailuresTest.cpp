// SPDX-License-Identifier: MIT
// Members and writers that are killed, halted and missing, and answers that are lost.
// ZRFS_LONG_TESTS=1 makes 10,000 sets of each of the mixes, and halts a leader, too.
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <future>

#include "FS_Library_DLL/IFSInterface.h"
#include "FS_Library_DLL/SharedStore.h"
#include "FS_Library_DLL/cluster/ClusterRecords.h"
#include "tests/cluster/BrokenLine.h"
#include "tests/cluster/RunningCluster.h"
#include "tests/support/Store.h"

namespace cluster_test {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;
using support::Store;
using support::Text;

support::Bytes DataOf(int number) {
    const std::string text = std::to_string(number);
    return {text.begin(), text.end()};
}

// Sets numbers one after the other, some under each lock, and writes a byte for each that was
// answered. What is refused is tried again, as the same number.
const support::ChildRole kWriter("cluster-writer", [](const std::vector<std::string>& words) {
    const int count = std::stoi(words[2]);
    const std::string name = words[1];
    Store store(words[0], FS_VR_METHOD_CLUSTER);
    std::ofstream answered(words[3], std::ios::binary);
    const auto end = steady_clock::now() + seconds(IsLong() ? 500 : 100);
    for (int done = 0; done < count && steady_clock::now() < end;) {
        if (store.Lock() != FSSTATUS_SUCCESS) continue;
        FBR_STATUS told = FSSTATUS_SUCCESS;
        const FBR_KEY key = store.Make(name, 0, FSCREATEOPTIONS_NONE, &told);
        for (int i = 0; i < 20 && done < count && key != 0; ++i) {
            if (store.Set(key, Text(std::to_string(done)), DataOf(done)) != FSSTATUS_SUCCESS) break;
            answered.put('.').flush();
            ++done;
        }
        if (key != 0) store.Close(key);
        store.Unlock();
    }
    return 0;
});

// Takes the lock and keeps it until it is killed.
const support::ChildRole kHolder("cluster-holder", [](const std::vector<std::string>& words) {
    Store store(words[0], FS_VR_METHOD_CLUSTER);
    if (store.Lock() != FSSTATUS_SUCCESS) return 1;
    store.TryMake("volatile", 0, FSCREATEOPTIONS_VOLATILE);
    std::ofstream(words[1]).put('.').flush();
    std::this_thread::sleep_for(seconds(300));
    return 0;
});

class Writers {
  public:
    Writers(const RunningCluster& cluster, const std::string& prefix, int each)
        : path_(platform::ToUtf8(cluster.Path(prefix))) {
        for (int i = 0; i < 4; ++i)
            children_.push_back(std::make_unique<support::ChildProcess>(
                "cluster-writer", std::vector<std::string>{path_, Name(i), std::to_string(each),
                                                           (folder_ / Name(i)).string()}));
    }
    static std::string Name(int writer) { return "w" + std::to_string(writer); }
    uintmax_t Answered(int writer) const {
        std::error_code none;
        const uintmax_t size = std::filesystem::file_size(folder_ / Name(writer), none);
        return none ? 0 : size;
    }
    uintmax_t Answered() const {
        uintmax_t all = 0;
        for (int i = 0; i < 4; ++i) all += Answered(i);
        return all;
    }
    // Until so many more sets are answered; how long that took.
    seconds Await(uintmax_t more) const {
        const auto began = steady_clock::now();
        const uintmax_t wanted = Answered() + more;
        while (Answered() < wanted && steady_clock::now() - began < seconds(60))
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return std::chrono::ceil<seconds>(steady_clock::now() - began);
    }
    // All that was answered is there, and nothing else, once.
    void Judge() {
        for (auto& child : children_) child->Wait();
        Store store(path_, FS_VR_METHOD_CLUSTER);
        for (int i = 0; i < 4; ++i) {
            const support::OpenKey key(store.handle, store.Open(Name(i)));
            const auto count = static_cast<int>(Answered(i));
            EXPECT_EQ(store.Values(key).size(), static_cast<size_t>(count)) << Name(i);
            for (int number = 0; number < count; ++number)
                EXPECT_EQ(store.Get(key, Text(std::to_string(number))), DataOf(number));
        }
    }

  private:
    const support::TempDir folder_;
    const std::string path_;
    std::vector<std::unique_ptr<support::ChildProcess>> children_;
};

TEST(ClusterFailures, WhatWasAnsweredOutlivesTheLeader) {
    RunningCluster cluster;
    const int each = IsLong() ? 2500 : 60;
    Writers writers(cluster, "kills", each);
    writers.Await(each);
    const size_t leader = cluster.Leader();
    cluster.Kill(leader);
    EXPECT_LE(writers.Await(1), seconds(15));
    cluster.Start(leader);
    writers.Judge();
    EXPECT_EQ(writers.Answered(), static_cast<uintmax_t>(4 * each));
    if (!IsLong()) return;
    Writers more(cluster, "halts", each);
    more.Await(each);
    const size_t halted = cluster.Leader();
    cluster.Halt(halted, true);
    EXPECT_LE(more.Await(1), seconds(15));
    std::this_thread::sleep_for(seconds(10));
    cluster.Halt(halted, false);
    more.Judge();
    EXPECT_EQ(more.Answered(), static_cast<uintmax_t>(4 * each));
}

TEST(ClusterFailures, ALockAndVolatileKeysEndWithTheirHolder) {
    const Variable lease("ZRFS_ETCD_LEASE", "3");
    RunningCluster cluster(1);
    const support::TempDir folder;
    const std::string path = platform::ToUtf8(cluster.Path("holder"));
    support::ChildProcess holder("cluster-holder", {path, (folder / "has").string()});
    ASSERT_TRUE(support::Eventually([&] { return std::filesystem::exists(folder / "has"); }));
    Store store(path, FS_VR_METHOD_CLUSTER);
    EXPECT_TRUE(store.Has("volatile"));
    holder.Kill();
    const auto began = steady_clock::now();
    EXPECT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    EXPECT_LE(steady_clock::now() - began, seconds(6));
    EXPECT_TRUE(support::Eventually([&] { return !store.Has("volatile"); }));
    EXPECT_EQ(store.Unlock(), FSSTATUS_SUCCESS);
    // They go whoever has the lock and has seen them.
    Store closing(path, FS_VR_METHOD_CLUSTER);
    closing.Lock();
    closing.TryMake("volatile\\below", 0, FSCREATEOPTIONS_VOLATILE);
    closing.Unlock();
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    EXPECT_TRUE(store.Has("volatile\\below"));
    closing.Close();
    EXPECT_FALSE(store.Has("volatile\\below"));
    EXPECT_EQ(store.Unlock(), FSSTATUS_SUCCESS);
    // The same where only the thread ends: at once in its own store, and elsewhere.
    const auto takeAndEnd = [&] {
        std::thread([&] { EXPECT_EQ(store.Lock(), FSSTATUS_SUCCESS); }).join();
        return steady_clock::now();
    };
    const auto ended = takeAndEnd();
    EXPECT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    EXPECT_LE(steady_clock::now() - ended, seconds(2));
    EXPECT_EQ(store.TryMake("mine"), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Unlock(), FSSTATUS_SUCCESS);
    const auto endedAgain = takeAndEnd();
    Store other(path, FS_VR_METHOD_CLUSTER);
    EXPECT_EQ(other.Lock(), FSSTATUS_SUCCESS);
    EXPECT_LE(steady_clock::now() - endedAgain, seconds(7));
}

// Whatever other threads are about at the fork, the child does not hang, and closing there takes
// nothing from the parent. It may open a store of its own.
TEST(ClusterFailures, AForkedChildTakesNothingAway) {
    RunningCluster cluster(1);
    const auto path = cluster.Path("forked");
    Store store(path, FS_VR_METHOD_CLUSTER);
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    const support::OpenKey key(store.handle, store.Make("k"));
    ASSERT_EQ(store.TryMake("volatile", 0, FSCREATEOPTIONS_VOLATILE), FSSTATUS_SUCCESS);
    std::atomic<bool> ends = false;
    std::thread reader([&] {
        while (!ends) store.Get(key, "v");
    });
    const auto inChild = [&]() -> int {
        alarm(20);
        uint32_t type = 0;
        const bool isRefused =
            store.TryOpen("k") == FSSTATUS_FAILED && store.TryMake("n") == FSSTATUS_FAILED &&
            store.Lock() == FSSTATUS_FAILED && store.Unlock() == FSSTATUS_FAILED &&
            FBR_GetLockTypeEx(store.handle, &type) == FSSTATUS_FAILED &&
            store.Set(key, "v", {1}) == FSSTATUS_FAILED && store.Delete(key) == FSSTATUS_FAILED;
        if (!isRefused) return 1;
        if (store.Close() != FSSTATUS_SUCCESS) return 2;
        return Store(path, FS_VR_METHOD_CLUSTER).Has("volatile") ? 0 : 3;
    };
    for (int i = 0; i < 10; ++i) {
        const pid_t child = fork();
        if (child == 0) _exit(inChild());
        int ended = -1;
        ASSERT_EQ(waitpid(child, &ended, 0), child);
        EXPECT_EQ(ended, 0);
    }
    ends = true;
    reader.join();
    EXPECT_EQ(store.Set(key, "v", {1}), FSSTATUS_SUCCESS);
    EXPECT_TRUE(store.Has("volatile"));
    EXPECT_EQ(store.Unlock(), FSSTATUS_SUCCESS);
}

TEST(ClusterFailures, WithoutAMajorityCallsFailAndTheHandleGoesOnLater) {
    const Variable patience("ZRFS_ETCD_PATIENCE", "2");
    const Variable lease("ZRFS_ETCD_LEASE", "4");
    RunningCluster cluster;
    Store store(cluster.Path("quorum"), FS_VR_METHOD_CLUSTER);
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    const support::OpenKey key(store.handle, store.Make("k"));
    ASSERT_EQ(store.Set(key, "v", {1}), FSSTATUS_SUCCESS);
    Store reader(cluster.Path("quorum"), FS_VR_METHOD_CLUSTER);
    const support::OpenKey read(reader.handle, reader.Open("k"));
    cluster.Kill(0);
    cluster.Kill(1);
    const auto began = steady_clock::now();
    EXPECT_EQ(store.Set(key, "v", {2}), FSSTATUS_FAILED);
    EXPECT_EQ(reader.Get(read, "v"), std::nullopt);
    EXPECT_EQ(Store(cluster.Path("quorum"), FS_VR_METHOD_CLUSTER).status, FSSTATUS_FAILED);
    EXPECT_LE(steady_clock::now() - began, seconds(12));
    cluster.Start(0);
    cluster.Start(1);
    cluster.AwaitAll();
    // The lock may have been lost, and what became of the set is not known.
    store.Unlock();
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Set(key, "v", {3}), FSSTATUS_SUCCESS);
    EXPECT_EQ(reader.Get(read, "v"), support::Bytes{3});
}

// A second rename, or a second key of the name, would be refused.
TEST(ClusterFailures, AnAnswerThatIsLostMakesNoSecondChange) {
    RunningCluster cluster(1);
    BrokenLine line(cluster.Endpoints()[0]);
    line.LoseOne();
    Store store(line.Endpoint() + "/lost", FS_VR_METHOD_CLUSTER);
    line.LoseOne();
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    line.LoseOne();
    EXPECT_EQ(store.TryMake("new"), FSSTATUS_SUCCESS);
    const support::OpenKey key(store.handle, store.Open("new"));
    line.LoseOne();
    EXPECT_EQ(store.Rename(key, "old"), FSSTATUS_SUCCESS);
    line.LoseOne();
    EXPECT_EQ(store.Set(key, "v", {1}), FSSTATUS_SUCCESS);
    line.LoseOne();
    EXPECT_EQ(store.DeleteValue(key, "v"), FSSTATUS_SUCCESS);
    line.LoseOne();
    EXPECT_EQ(store.DeleteTree("\\old"), FSSTATUS_SUCCESS);
    EXPECT_EQ(line.Lost(), 7);
}

// What a call costs, in requests, with the lock and without it.
TEST(ClusterFailures, CallsTakeNoMoreRequestsThanTheyMust) {
    RunningCluster cluster(1);
    BrokenLine line(cluster.Endpoints()[0]);
    Store store(line.Endpoint() + "/cost", FS_VR_METHOD_CLUSTER);
    int seen = 0;
    const auto cost = [&] { return line.Requests() - std::exchange(seen, line.Requests()); };
    cost();
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    EXPECT_EQ(cost(), 3);  // a lease, its record, and the root
    const support::OpenKey key(store.handle, store.Make("a\\b\\c\\d"));
    EXPECT_EQ(cost(), 2);
    for (int i = 0; i < 1000; ++i) store.Set(key, Text(std::to_string(i)), DataOf(i));
    EXPECT_LE(cost(), 1005);  // with those that keep the lease alive
    // What was written under the lock is known.
    EXPECT_EQ(store.Values(key).size(), 1000u);
    EXPECT_EQ(store.Get(key, "7"), DataOf(7));
    EXPECT_EQ(cost(), 0);
    store.Unlock();
    EXPECT_EQ(cost(), 1);
    uint32_t number = 0;
    uint64_t size = 0;
    EXPECT_EQ(store.Query(key, "7", &number, sizeof number, &size), FSSTATUS_SUCCESS);
    EXPECT_EQ(cost(), 1);
    EXPECT_EQ(store.Values(key).size(), 1000u);
    EXPECT_EQ(cost(), 1);
    FBR_WCHAR* name = nullptr;
    EXPECT_EQ(FBR_EnumIntFileEx(key, 500, &name, store.handle), FSSTATUS_SUCCESS);
    FBR_Release(name);
    EXPECT_EQ(cost(), 1);
    // One for each level of the way, and one for all of a way that is known.
    EXPECT_TRUE(store.Has("a\\b\\c\\d"));
    EXPECT_EQ(cost(), 4);
    EXPECT_TRUE(store.Has("a\\b\\C\\d"));
    EXPECT_FALSE(store.Has("a\\b\\c\\e"));
    EXPECT_EQ(cost(), 2);
    // Many siblings are gone through by few requests.
    Records records(cluster);
    for (int i = 0; i < 30; ++i) {
        std::vector<cluster::Operation> puts;
        for (int j = 0; j < 60; ++j) {
            const std::string id = cluster::NewId(), own = std::to_string(i * 60 + j);
            puts.push_back(cluster::Put("cost/k/" + id,
                                        cluster::KeyText({"0", Text(own), platform::UtcNow()})));
            puts.push_back(cluster::Put("cost/c/0/" + own, cluster::ChildText({id, Text(own)})));
        }
        records.Do(std::move(puts));
    }
    dynamic_cast<SharedStore*>(store.handle)->Snapshot(true);
    cost();
    for (const auto& one : store.Keys(support::OpenKey(store.handle, store.Root()))) {
        const support::OpenKey child(store.handle, store.Open(one));
        FBR_SYSTEMTIME time{};
        EXPECT_EQ(FBR_GetDirTimesEx(child, &time, store.handle), FSSTATUS_SUCCESS);
        EXPECT_TRUE(store.Values(child).empty());
        EXPECT_EQ(store.Keys(child).size(), one == Text("a") ? 1u : 0u);
    }
    EXPECT_LE(cost(), 200);
    dynamic_cast<SharedStore*>(store.handle)->Snapshot(false);
    // What is gathered goes in few.
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    auto* shared = dynamic_cast<SharedStore*>(store.handle);
    shared->Gather(true);
    cost();
    for (int i = 0; i < 200; ++i) {
        const support::OpenKey one(store.handle, store.Make(Text("many\\" + std::to_string(i))));
        store.Set(one, "v", DataOf(i));
    }
    EXPECT_LE(cost(), 2 + 200 * 4 / 100);
    shared->Gather(false);
    store.Unlock();
    cost();
    const auto names = [&] {
        support::Names all;
        FBR_EnumerateAllKeys(support::OpenKey(store.handle, store.Open("many")), all, store.handle);
        return all;
    };
    EXPECT_EQ(names().size(), 200u);
    ASSERT_EQ(store.Lock(3), FSSTATUS_SUCCESS);
    cost();
    for (int i = 0; i < 1000; ++i) store.Query(key, "7", &number, sizeof number, &size);
    EXPECT_EQ(cost(), 1);
}

// The way to one member hangs, and the request is made through another: when it arrives at last,
// the store has gone on.
TEST(ClusterFailures, ARequestThatComesLateChangesNothing) {
    const Variable patience("ZRFS_ETCD_PATIENCE", "2");
    RunningCluster cluster(1);
    BrokenLine line(cluster.Endpoints()[0]);
    Store store(line.Endpoint() + "," + cluster.Endpoints()[0] + "/late", FS_VR_METHOD_CLUSTER);
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    const support::OpenKey key(store.handle, store.Make("k"));
    line.HoldOne();
    EXPECT_EQ(store.Set(key, "v", {1}), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Set(key, "v", {2}), FSSTATUS_SUCCESS);
    line.Deliver();
    EXPECT_EQ(Records(cluster).Below("late/v/").back().value,
              R"({"name":"v","type":3,"data":"Ag=="})");
}

// Who has lost the lock without knowing changes nothing, and is told.
TEST(ClusterFailures, WhoLostTheLockIsToldByTheNextWrite) {
    RunningCluster cluster(1);
    Store store(cluster.Path("robbed"), FS_VR_METHOD_CLUSTER);
    Records records(cluster);
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    const support::OpenKey key(store.handle, store.Make("k"));
    records.Delete("robbed/lock");
    Store other(cluster.Path("robbed"), FS_VR_METHOD_CLUSTER);
    ASSERT_EQ(std::async(std::launch::async,
                         [&] {
                             const FBR_STATUS taken = other.Lock();
                             other.TryMake("theirs");
                             other.Unlock();
                             return taken;
                         })
                  .get(),
              FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Set(key, "v", {1}), FSSTATUS_LOCK_FAILED);
    EXPECT_EQ(store.TryMake("mine"), FSSTATUS_LOCK_FAILED);
    EXPECT_TRUE(store.Has("theirs"));
    EXPECT_FALSE(store.Has("mine"));
    EXPECT_EQ(store.Unlock(), FSSTATUS_LOCK_FAILED);
    EXPECT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Set(key, "v", {1}), FSSTATUS_SUCCESS);
}

// A member that takes requests and answers none holds nobody up for long, and only once.
TEST(ClusterFailures, AFirstMemberThatHangsIsPassedOver) {
    RunningCluster cluster;
    const size_t hangs = (cluster.Leader() + 1) % 3;
    const auto all = cluster.Endpoints();
    cluster.Halt(hangs, true);
    const auto began = steady_clock::now();
    Store store(all[hangs] + "," + all[(hangs + 1) % 3] + "," + all[(hangs + 2) % 3] + "/hangs",
                FS_VR_METHOD_CLUSTER);
    EXPECT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.TryMake("k"), FSSTATUS_SUCCESS);
    EXPECT_LE(steady_clock::now() - began, std::chrono::milliseconds(4500));
    cluster.Halt(hangs, false);
}

}  // namespace
}  // namespace cluster_test
