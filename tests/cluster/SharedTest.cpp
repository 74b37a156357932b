// SPDX-License-Identifier: MIT
// A store that many use: who may, who waits for changes, who works beside whom.
#include <signal.h>

#include <cstdlib>
#include <future>
#include <regex>

#include "FS_Library_DLL/IFSInterface.h"
#include "FS_Library_DLL/SharedStore.h"
#include "tests/cluster/BrokenLine.h"
#include "tests/cluster/RunningCluster.h"
#include "tests/faults/Registry.h"
#include "tests/remote/RunningServer.h"
#include "tests/shared/LogCapture.h"
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
    // What is wrong is told by what a person has to look at.
    const auto isTold = [](const platform::WString& where, const char* words) {
        std::string told;
        // A busy machine may need longer than the second that is waited here.
        for (int turn = 0; turn < 20 && (turn == 0 || told.find("Timeout") != told.npos); ++turn) {
            const LogCapture log;
            const FBR_STATUS status = Opened(where);
            told =
                std::to_string(status) + ' ' + (log.lines.empty() ? "" : log.lines.back().message);
        }
        EXPECT_TRUE(std::regex_search(told, std::regex(words))) << told;
    };
    isTold(path, "^1 .*CACERT names its authority");
    for (const auto& [name, words] :
         {std::pair("other.pem", "15 .*authority that ZRFS_ETCD_CACERT"),
          std::pair("names", "15 .*CACERT names .*/names"), std::pair("none", "15 .*be read")}) {
        const Variable authority("ZRFS_ETCD_CACERT", file(name));
        isTold(path, words);
    }
    const Variable authority("ZRFS_ETCD_CACERT", file("ca.pem"));
    isTold(path, "^1 .*want a certificate");
    RunningCluster plain(1);
    isTold(plain.Path("tls"), "^1 .*does it speak TLS");
    {
        const Variable certificate("ZRFS_ETCD_CERT", file("own.pem"));
        const Variable key("ZRFS_ETCD_KEY", file("ca.key"));
        isTold(path, "^15 .*ZRFS_ETCD_KEY .*ca.key");
    }
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
          "user add reader:word", "role add readers",
          "role grant-permission readers read --prefix=true mine/",
          "user grant-role reader readers", "auth enable"})
        Shell(tell + command);
    EXPECT_EQ(Opened(cluster.Path("mine")), FSSTATUS_ACCESS_DENIED);
    const auto fbr = [&](const char* command) {
        return Program("fbr", {command, "etcd://" + platform::ToUtf8(cluster.Path("mine"))}).Wait();
    };
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
    // Who may read only reads, beside the one who has the lock, and is told why there is no more.
    const Variable reader("ZRFS_ETCD_USER", "reader");
    for (const char* command : {"ls", "export", "stat", "check"}) EXPECT_EQ(fbr(command), 0);
    EXPECT_EQ(fbr("compact"), 1);
    Store reading(cluster.Path("mine"), FS_VR_METHOD_CLUSTER);
    EXPECT_EQ(reading.Lock(), FSSTATUS_ACCESS_DENIED);
    EXPECT_EQ(reading.Lock(support::kLockRead), FSSTATUS_ACCESS_DENIED);
}

// All that is read is of one state, whatever others do, until the cluster keeps that no longer.
TEST(ClusterShared, ASnapshotShowsOneState) {
    RunningCluster cluster(1);
    Store writer(cluster.Path("states"), FS_VR_METHOD_CLUSTER);
    Store reader(cluster.Path("states"), FS_VR_METHOD_CLUSTER);
    auto* shared = dynamic_cast<SharedStore*>(reader.handle);
    ASSERT_EQ(writer.Lock(), FSSTATUS_SUCCESS);
    const OpenKey key(writer.handle, writer.Make("k")), gone(writer.handle, writer.Make("gone\\a"));
    const support::Bytes before(700'000, 1), after(700'000, 2);
    writer.Set(key, "v", before);
    writer.Set(gone, "v", {1});
    shared->Snapshot(true);
    EXPECT_TRUE(reader.Has("k"));
    writer.Set(key, "v", after);
    writer.DeleteTree("gone");
    writer.TryMake("new");
    const auto seen = [&] {
        const OpenKey root(reader.handle, reader.Root()), own(reader.handle, reader.Open("k"));
        return std::pair(reader.Keys(root).size(), reader.Get(own, "v"));
    };
    EXPECT_EQ(seen(), std::pair(size_t{2}, std::optional(before)));
    EXPECT_EQ(reader.Get(OpenKey(reader.handle, reader.Open("gone\\a")), "v"), support::Bytes{1});
    shared->Snapshot(false);
    EXPECT_EQ(seen(), std::pair(size_t{2}, std::optional(after)));
    EXPECT_TRUE(reader.Has("new"));
    // Under the lock all is of now.
    shared->Snapshot(true);
    EXPECT_TRUE(reader.Has("k"));
    writer.DeleteTree("new");
    writer.Unlock();
    EXPECT_TRUE(reader.Has("new"));
    ASSERT_EQ(reader.Lock(), FSSTATUS_SUCCESS);
    EXPECT_FALSE(reader.Has("new"));
    EXPECT_EQ(reader.TryMake("mine"), FSSTATUS_SUCCESS);
    reader.Unlock();
    EXPECT_TRUE(reader.Has("mine"));
    uint64_t state = 0;
    ASSERT_EQ(writer.Lock(), FSSTATUS_SUCCESS);
    writer.TryMake("later");
    dynamic_cast<SharedStore*>(writer.handle)->CurrentState(&state);
    cluster::EtcdHttp http(cluster.Settings(cluster.Endpoints()));
    std::string reply;
    EXPECT_EQ(http.Post("/v3/kv/compaction",
                        R"({"physical":true,"revision":")" + std::to_string(state) + "\"}",
                        cluster::Milliseconds(5000), &reply),
              cluster::Outcome::Answered);
    EXPECT_EQ(reader.TryOpen("k\\x"), FSSTATUS_FAILED);
    shared->Snapshot(false);
    EXPECT_TRUE(reader.Has("later"));
}

// Nothing can be changed, and that is told; all can be read, and what was written in vain is gone.
TEST(ClusterShared, ACrowdedClusterCanBeRead) {
    RunningCluster cluster(1, {}, "--quota-backend-bytes=4000000");
    Store store(cluster.Path("full"), FS_VR_METHOD_CLUSTER);
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    const OpenKey key(store.handle, store.Make("k"));
    ASSERT_EQ(store.Set(key, "v", {1}), FSSTATUS_SUCCESS);
    const LogCapture log;
    EXPECT_EQ(store.Set(key, "long", support::Bytes(6'000'000, 3)), FSSTATUS_FAILED);
    EXPECT_TRUE(Records(cluster).Below("full/d/").empty());
    EXPECT_EQ(store.Set(key, "more", {1}), FSSTATUS_FAILED);
    store.Unlock();
    EXPECT_EQ(store.Lock(), FSSTATUS_FAILED);
    const auto messages = log.Messages();
    EXPECT_TRUE(std::any_of(messages.begin(), messages.end(), [](const std::string& line) {
        return line.find("is used up") != std::string::npos;
    }));
    EXPECT_EQ(store.Get(key, "v"), support::Bytes{1});
    const std::string at = "etcd://" + platform::ToUtf8(cluster.Path("full"));
    EXPECT_EQ(Program("fbr", {"export", at}).Wait(), 0);
    Program rm("fbr", {"rm", at, "k", "v"});
    EXPECT_EQ(rm.Wait(), 1);
    EXPECT_NE(rm.Out("err").find("is used up"), std::string::npos);
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
    EXPECT_LE(steady_clock::now() - began, seconds(5));
}

TEST(ClusterShared, AServerOffersOne) {
    RunningCluster cluster(1);
    server::ServerOptions options;
    options.cluster = cluster.Path("far");
    const remote_test::RunningServer server(std::move(options));
    for (const char* other : {"farther", "fa", "other/far"}) {
        const Store refused(server.Pipe() + WTEXT("|") + cluster.Path(other), FS_VR_METHOD_CLUSTER);
        EXPECT_EQ(refused.status, FSSTATUS_INVALID_PARAMETER) << other;
    }
    EXPECT_EQ(
        Store(server.Pipe() + WTEXT("|") + cluster.Path("far/below"), FS_VR_METHOD_CLUSTER).status,
        FSSTATUS_SUCCESS);
    Store far(server.Pipe() + WTEXT("|") + cluster.Path("far"), FS_VR_METHOD_CLUSTER);
    ASSERT_EQ(far.status, FSSTATUS_SUCCESS);
    const OpenKey key(far.handle, far.Make("a\\b"));
    EXPECT_EQ(far.Set(key, "v", {1, 2}), FSSTATUS_SUCCESS);
    EXPECT_EQ(far.Rename(key, "c"), FSSTATUS_SUCCESS);
    Store near(cluster.Path("far"), FS_VR_METHOD_CLUSTER);
    EXPECT_EQ(near.Get(OpenKey(near.handle, near.Open("a\\c")), "v"), (support::Bytes{1, 2}));
    const std::string at =
        platform::ToUtf8(server.Pipe()) + "|etcd://" + platform::ToUtf8(cluster.Path("far"));
    Program get("fbr", {"get", at, "a\\c", "v"});
    EXPECT_EQ(get.Wait(), 0) << get.Out("err");
    EXPECT_EQ(Program("fbr", {"set", at, "a", "w", "dword", "7"}).Wait(), 0);
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
    EXPECT_LE(steady_clock::now() - began, seconds(3));
    EXPECT_EQ(Program("fbr", {"rm", at("tool"), "K", "m"}).Wait(), 0);
    // One whose reader has gone gives the lock back, and the next need not wait for its lease.
    const std::string bin = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    std::ofstream(folder / "lines") << "set " << at("tool") << " K o dword 1\n"
                                    << "ls -R " << at("tool") << "\n";
    const auto broke = steady_clock::now();
    std::system(
        ("'" + bin + "/fbr' batch " + (folder / "lines").string() + " 2>&1 | true").c_str());
    EXPECT_EQ(Program("fbr", {"rm", at("tool"), "K", "o"}).Wait(), 0);
    EXPECT_LE(steady_clock::now() - broke, seconds(6));
    for (const char* command : {"check", "compact"})
        EXPECT_EQ(Program("fbr", {command, at("tool")}).Wait(), 0);
    Records(cluster).Put("tool/c/0/bad", "none");
    Program ls("fbr", {"ls", at("tool")});
    EXPECT_EQ(ls.Wait(), 1);
    EXPECT_NE(ls.Out().find("K"), std::string::npos);
    EXPECT_NE(ls.Out("err").find("tool/c/0/bad"), std::string::npos);
    EXPECT_EQ(Program("fbr", {"check", at("tool")}).Wait(), 3);
    Records(cluster).Delete("tool/c/0/bad");
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
