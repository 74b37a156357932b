// SPDX-License-Identifier: MIT
// A store that many use: who may, who waits for changes, who works beside whom.
#include <signal.h>

#include <cstdlib>
#include <future>

#include "FS_Library_DLL/IFSInterface.h"
#include "FS_Library_DLL/SharedStore.h"
#include "tests/cluster/BrokenLine.h"
#include "tests/cluster/RunningCluster.h"
#include "tests/faults/Registry.h"
#include "tests/remote/RunningServer.h"
#include "tests/support/Store.h"

namespace cluster_test {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;
using support::OpenKey;
using support::Store;

void Shell(const std::string& command) {
    ASSERT_EQ(std::system((command + " >/dev/null 2>&1").c_str()), 0) << command;
}

FBR_STATUS Opened(const platform::WString& path) {
    return Store(path, FS_VR_METHOD_CLUSTER).status;
}

// An authority, a member's certificate that serves us as well, and another authority.
TEST(ClusterAccess, OverTlsBothSidesShowWhoTheyAre) {
    const support::TempDir folder;
    const std::string in = "cd '" + folder.Path().string() + "' && ";
    const std::string make = "openssl req -newkey rsa:2048 -nodes -subj /O=test ";
    for (const char* name : {"ca", "other"})
        Shell(in + make + "-x509 -days 2 -keyout " + name + ".key -out " + name + ".pem");
    Shell(in + make + "-keyout own.key -out own.csr");
    Shell(in +
          "echo subjectAltName=IP:127.0.0.1 > names && openssl x509 -req -in own.csr -CA ca.pem "
          "-CAkey ca.key -CAcreateserial -days 2 -extfile names -out own.pem");
    RunningCluster cluster(1, folder.Path());
    const auto path = cluster.Path("tls");
    const auto file = [&](const char* name) { return (folder / name).string(); };
    const Variable patience("ZRFS_ETCD_PATIENCE", "1");
    EXPECT_EQ(Opened(path), FSSTATUS_FAILED);
    {
        const Variable authority("ZRFS_ETCD_CACERT", file("other.pem"));
        EXPECT_EQ(Opened(path), FSSTATUS_ACCESS_DENIED);
    }
    const Variable authority("ZRFS_ETCD_CACERT", file("ca.pem"));
    EXPECT_EQ(Opened(path), FSSTATUS_FAILED);
    std::ofstream(file("settings")) << "CERT=" << file("own.pem") << "\nKEY=" << file("own.key");
    const Variable settings("ZRFS_ETCD_SETTINGS", file("settings"));
    Store store(path, FS_VR_METHOD_CLUSTER);
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.TryMake("k"), FSSTATUS_SUCCESS);
}

// A token of before a member started again is none, and is fetched anew.
TEST(ClusterAccess, AUserDoesWhatItsRoleAllows) {
    RunningCluster cluster(1);
    const std::string tell = "ETCDCTL_API=3 etcdctl --endpoints=" + cluster.Endpoints()[0] + " ";
    for (const char* command :
         {"user add root:top", "user grant-role root root", "user add some:word", "role add users",
          "role grant-permission users readwrite --prefix=true mine/", "user grant-role some users",
          "auth enable"})
        Shell(tell + command);
    EXPECT_EQ(Opened(cluster.Path("mine")), FSSTATUS_ACCESS_DENIED);
    const Variable user("ZRFS_ETCD_USER", "some");
    {
        const Variable password("ZRFS_ETCD_PASSWORD", "wrong");
        EXPECT_EQ(Opened(cluster.Path("mine")), FSSTATUS_ACCESS_DENIED);
    }
    const Variable password("ZRFS_ETCD_PASSWORD", "word");
    EXPECT_EQ(Opened(cluster.Path("theirs")), FSSTATUS_ACCESS_DENIED);
    Store store(cluster.Path("mine"), FS_VR_METHOD_CLUSTER);
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    const OpenKey key(store.handle, store.Make("k"));
    cluster.Kill(0);
    cluster.Start(0);
    EXPECT_EQ(store.Set(key, "v", {1}), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Get(key, "v"), support::Bytes{1});
}

TEST(ClusterShared, AStoreIsMadeByTheFirstLockForChanges) {
    RunningCluster cluster(1);
    Store reader(cluster.Path("new"), FS_VR_METHOD_CLUSTER);
    EXPECT_FALSE(dynamic_cast<SharedStore*>(reader.handle)->IsMade());
    support::Names names;
    const OpenKey root(reader.handle, reader.Root());
    for (const bool locked : {false, true}) {
        if (locked) reader.Lock(support::kLockRead);
        EXPECT_EQ(FBR_EnumerateAllKeys(root, names, reader.handle), FSSTATUS_NO_MORE_ENTRIES);
        EXPECT_EQ(FBR_EnumerateAllValues(root, names, reader.handle), FSSTATUS_NO_MORE_ENTRIES);
    }
    EXPECT_TRUE(names.empty());
    reader.Unlock(support::kLockRead);
    EXPECT_TRUE(Records(cluster).Below("new/").empty());
    Store writer(cluster.Path("new"), FS_VR_METHOD_CLUSTER);
    writer.Lock();
    writer.Unlock();
    EXPECT_TRUE(reader.Get(root, "FBRVersion").has_value());
    EXPECT_EQ(reader.Lock(), FSSTATUS_SUCCESS);
}

// What is gathered is there when the lock is given back; where the lock was lost, all of it is not.
TEST(ClusterShared, GatheredChangesFailTogether) {
    RunningCluster cluster(1);
    Store store(cluster.Path("all"), FS_VR_METHOD_CLUSTER);
    auto* shared = dynamic_cast<SharedStore*>(store.handle);
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    shared->Gather(true);
    const support::Bytes longer(600'000, 7);
    const OpenKey key(store.handle, store.Make("a\\b"));
    for (const char* name : {"one", "two", "ONE"}) store.Set(key, name, {*name == 'O', 5});
    store.Set(key, "long", longer);
    store.Set(key, "long", {1});
    EXPECT_EQ(store.Values(key).size(), 3u);
    EXPECT_EQ(store.Rename(key, "c"), FSSTATUS_SUCCESS);
    store.Set(key, "last", {1});
    EXPECT_EQ(store.Unlock(), FSSTATUS_SUCCESS);
    const OpenKey again(store.handle, store.Open("a\\c"));
    EXPECT_EQ(store.Get(again, "one"), (support::Bytes{1, 5}));
    EXPECT_EQ(store.Get(again, "long"), support::Bytes{1});
    EXPECT_EQ(store.Get(again, "last"), support::Bytes{1});
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.TryMake("lost"), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Set(key, "v", {1}), FSSTATUS_SUCCESS);
    Records(cluster).Delete("all/lock");
    EXPECT_EQ(shared->SendGathered(), FSSTATUS_LOCK_FAILED);
    EXPECT_EQ(store.TryMake("more"), FSSTATUS_LOCK_FAILED);
    EXPECT_EQ(store.Unlock(), FSSTATUS_LOCK_FAILED);
    EXPECT_FALSE(store.Has("lost"));
    EXPECT_EQ(store.Get(again, "v"), std::nullopt);
}

// One request, however long it takes, and whichever member goes meanwhile; locks are no changes.
TEST(ClusterShared, AChangeIsWaitedForWithoutAsking) {
    RunningCluster cluster(1);
    BrokenLine line(cluster.Endpoints()[0]);
    Store store(cluster.Path("watched"), FS_VR_METHOD_CLUSTER);
    Store waiting(line.Endpoint() + "/watched", FS_VR_METHOD_CLUSTER);
    auto* shared = dynamic_cast<SharedStore*>(waiting.handle);
    uint64_t state = 0;
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    OpenKey key(store.handle, store.Make("k"));
    const auto changes = [&](auto change) {
        ASSERT_EQ(shared->CurrentState(&state), FSSTATUS_SUCCESS);
        const int before = line.Requests();
        std::atomic<bool> changed = false;
        const auto end = steady_clock::now() + seconds(10);
        auto told = std::async(std::launch::async, [&] {
            const FBR_STATUS status =
                shared->WaitForChange(state, [&] { return steady_clock::now() < end; });
            return status == FSSTATUS_SUCCESS && changed && steady_clock::now() < end;
        });
        EXPECT_EQ(told.wait_for(std::chrono::milliseconds(700)), std::future_status::timeout);
        store.Unlock();
        ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
        changed = true;
        change();
        EXPECT_TRUE(told.get());
        EXPECT_LE(line.Requests() - before, 2);
    };
    changes([&] { store.Set(key, "v", {1}); });
    changes([&] { store.DeleteValue(key, "v"); });
    changes([&] { store.TryMake("new", 0, FSCREATEOPTIONS_VOLATILE); });
    changes([&] {
        key.Close();
        store.Close();  // and the volatile key goes
    });
    shared->CurrentState(&state);
    const auto began = steady_clock::now();
    const auto end = began + std::chrono::milliseconds(100);
    EXPECT_EQ(shared->WaitForChange(state, [&] { return steady_clock::now() < end; }),
              FSSTATUS_SUCCESS);
    EXPECT_LE(steady_clock::now() - began, seconds(1));
}

TEST(ClusterShared, AServerOffersOne) {
    RunningCluster cluster(1);
    const remote_test::RunningServer server;
    Store far(server.Pipe() + WTEXT("|") + cluster.Path("far"), FS_VR_METHOD_CLUSTER);
    ASSERT_EQ(far.status, FSSTATUS_SUCCESS);
    const OpenKey key(far.handle, far.Make("a\\b"));
    EXPECT_EQ(far.Set(key, "v", {1, 2}), FSSTATUS_SUCCESS);
    EXPECT_EQ(far.Rename(key, "c"), FSSTATUS_SUCCESS);
    Store near(cluster.Path("far"), FS_VR_METHOD_CLUSTER);
    EXPECT_EQ(near.Get(OpenKey(near.handle, near.Open("a\\c")), "v"), (support::Bytes{1, 2}));
    EXPECT_EQ(far.DeleteTree("a"), FSSTATUS_SUCCESS);
    EXPECT_FALSE(near.Has("a"));
}

// Random work below a key of its own, some under each lock, which must then hold what it held.
const support::ChildRole kModeller("cluster-modeller", [](const std::vector<std::string>& words) {
    Store store(words[0], FS_VR_METHOD_CLUSTER);
    const std::u16string own(words[1].begin(), words[1].end());
    std::mt19937 random(static_cast<uint32_t>(std::stoi(words[2])));
    faults::Key model;
    for (int round = std::stoi(words[3]); round > 0; --round) {
        if (store.Lock() != FSSTATUS_SUCCESS) return 1;
        {
            const OpenKey key(store.handle, store.Make(words[1]));
            faults::Key found;
            if (support::ReadKey(store.handle, key, &found) != FSSTATUS_SUCCESS) return 2;
            if (!(found == model)) return 3;
        }
        for (int i = 0; i < 15; ++i) {
            faults::Step step = faults::RandomStep(&random, model);
            if (step.kind == faults::Step::Kind::Compact || !faults::Apply(step, &model)) continue;
            step.path.insert(step.path.begin(), own);
            if (faults::Apply(step, &store) != FSSTATUS_SUCCESS) return 4;
        }
        if (store.Unlock() != FSSTATUS_SUCCESS) return 5;
    }
    return 0;
});

TEST(ClusterShared, ThreeWorkOnOneStoreUnderItsLock) {
    RunningCluster cluster;
    std::vector<std::unique_ptr<support::ChildProcess>> children;
    for (int i = 0; i < 3; ++i)
        children.push_back(std::make_unique<support::ChildProcess>(
            "cluster-modeller",
            std::vector<std::string>{platform::ToUtf8(cluster.Path("model")),
                                     "w" + std::to_string(i), std::to_string(i + 1),
                                     IsLong() ? "60" : "5"}));
    for (auto& child : children) EXPECT_EQ(child->Wait(), 0);
    Store store(cluster.Path("model"), FS_VR_METHOD_CLUSTER);
    FBR_FileChecking(true);
    EXPECT_EQ(FBR_CheckFile(store.handle), FSSTATUS_SUCCESS);
    FBR_FileChecking(false);
}

// A program of this build with its streams in a folder; it ends with the object.
class Program {
  public:
    Program(const char* name, const std::vector<std::string>& arguments) {
        std::ofstream(folder_ / "in").flush();
        const auto bin = std::filesystem::read_symlink("/proc/self/exe").parent_path();
        process_ = std::make_unique<support::ChildProcess>(bin / name, arguments, folder_.Path());
    }
    int Wait() { return process_->Wait(); }
    void Interrupt() const { kill(static_cast<pid_t>(process_->Id()), SIGINT); }
    std::string Out(const char* stream = "out") const {
        std::ifstream in(folder_ / stream);
        return {std::istreambuf_iterator<char>(in), {}};
    }

  private:
    const support::TempDir folder_;
    std::unique_ptr<support::ChildProcess> process_;
};

TEST(ClusterShared, TheToolWorksOnOne) {
    RunningCluster cluster(1);
    const support::TempDir folder;
    const std::string file = (folder / "a.jsonl").string();
    const auto at = [&](const char* prefix) {
        return "etcd://" + platform::ToUtf8(cluster.Path(prefix));
    };
    std::ofstream(file) << R"({"key":"\\K\\L","name":"n","type":4,"data":"07000000"})" << '\n';
    EXPECT_EQ(Program("fbr", {"ls", at("typo")}).Wait(), 1);
    Program none("fbr", {"ls", "etcd://127.0.0.1:1,127.0.0.1:2/none"});
    EXPECT_EQ(none.Wait(), 1);
    EXPECT_NE(none.Out("err").find("The cluster at 127.0.0.1:1, 127.0.0.1:2"), std::string::npos);
    EXPECT_EQ(Program("fbr", {"import", at("tool"), file}).Wait(), 0);
    EXPECT_EQ(Program("fbr", {"create", at("tool")}).Wait(), 1);
    Program watch("fbr", {"watch", at("tool"), "K"});
    EXPECT_TRUE(support::Eventually([&] {
        Program("fbr", {"set", at("tool"), "K", "m", "dword", std::to_string(rand())}).Wait();
        return watch.Out().find("\"m\"") != std::string::npos;
    }));
    const auto began = steady_clock::now();
    watch.Interrupt();
    EXPECT_NE(watch.Wait(), 0);
    EXPECT_LE(steady_clock::now() - began, std::chrono::milliseconds(900));
    EXPECT_EQ(Program("fbr", {"rm", at("tool"), "K", "m"}).Wait(), 0);
    EXPECT_EQ(Program("fbr", {"diff", at("tool"), "--to", file}).Wait(), 0);
}

// The contract's tests, three times at once on one cluster.
TEST(ClusterShared, TheContractHoldsBesideOthers) {
    const char* times = std::getenv("ZRFS_LONG_TESTS");
    if (times == nullptr) GTEST_SKIP() << "ZRFS_LONG_TESTS=1 does it";
    RunningCluster cluster;
    const std::string endpoints = platform::ToUtf8(cluster.Path(""));
    const Variable where("ZRFS_TEST_CLUSTER", endpoints.substr(0, endpoints.size() - 1));
    std::vector<std::unique_ptr<Program>> children;
    for (int i = 0; i < 3; ++i)
        children.push_back(std::make_unique<Program>(
            "test_contract",
            std::vector<std::string>{"--gtest_filter=*/Cluster",
                                     "--gtest_random_seed=" + std::to_string(i + 1)}));
    for (auto& child : children) EXPECT_EQ(child->Wait(), 0);
}

}  // namespace
}  // namespace cluster_test
