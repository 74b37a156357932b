// Many clients at work on one container, and some of them killed in the middle of it.
#include <cstdlib>

#include "tests/contract/FilePlaces.h"
#include "tests/contract/RandomWork.h"
#include "tests/support/ChildProcess.h"

namespace remote_test {
namespace {

namespace fs = std::filesystem;
using contract::OpenStore;
using contract::RandomWork;
using platform::WString;

// More with ZRFS_CLIENTS and ZRFS_OPERATIONS in the environment.
int Setting(const char* name, int usual) {
    const char* text = std::getenv(name);
    return text != nullptr ? std::atoi(text) : usual;
}

// A container in a folder, reached by the server or by itself.
class At : public contract::Place {
  public:
    At(WString path, uint32_t method) : path_(std::move(path)), method_(method) {}
    WString Path() const override { return path_; }
    FBR_METHOD Method() const override { return static_cast<FBR_METHOD>(method_); }

  private:
    WString path_;
    uint32_t method_;
};

WString Base(int client) {
    return WTEXT("\\client") + contract::Name(std::to_string(client));
}

RandomWork WorkOf(int client) {
    return RandomWork(
        static_cast<uint32_t>(client) + 1, Base(client),
        contract::Behind<contract::FilePlace<FS_VR_METHOD_TARN>>(contract::ContainerBackend())
            .differences);
}

// Its operations in a key of its own; `done` is told of each one that was answered.
template <class Done>
void RunClient(const WString& path, int client, int operations, Done done) {
    At place(path, server::kMethodRemoteContainer);
    OpenStore store(place);
    RandomWork work = WorkOf(client);
    for (int i = 0; i < operations && store.Get() != nullptr; ++i) {
        work.Step(&store);
        done();
    }
}

// A client that works until it is killed, with a byte in a file for each operation answered.
const support::ChildRole kVictim("remote-victim", [](const std::vector<std::string>& arguments) {
    std::ofstream log(arguments[2], std::ios::binary);
    RunClient(platform::FromUtf8(arguments[0]), std::stoi(arguments[1]), 1 << 30,
              [&] { log.put('.').flush(); });
    return 0;
});

TEST(ManyClients, LoseNothingThoughATenthOfThemIsKilled) {
    const int clients = Setting("ZRFS_CLIENTS", 20);
    const int operations = Setting("ZRFS_OPERATIONS", 100);
    const int victims = (clients + 9) / 10;
    const support::TempDir dir;
    const auto log = [&](int client) { return dir / ("done" + std::to_string(client)); };
    const auto answered = [&](int client) {
        std::error_code missing;
        const auto size = fs::file_size(log(client), missing);
        return missing ? 0 : static_cast<int>(size);
    };
    {
        const RunningServer server;
        const WString path = server.Pipe() + WTEXT("|") + dir.File("x.fbr");
        std::vector<std::unique_ptr<support::ChildProcess>> killed;
        std::vector<std::thread> threads;
        for (int client = 0; client < clients; ++client) {
            if (client < victims) {
                killed.push_back(std::make_unique<support::ChildProcess>(
                    "remote-victim",
                    std::vector<std::string>{platform::ToUtf8(path), std::to_string(client),
                                             log(client).string()}));
            } else {
                threads.emplace_back([=] { RunClient(path, client, operations, [] {}); });
            }
        }
        for (int client = 0; client < victims; ++client) {
            for (int i = 0; i < 60000 && answered(client) < operations / 2; ++i)
                platform::SleepMilliseconds(5);
            EXPECT_GE(answered(client), operations / 2);
            killed[static_cast<size_t>(client)]->Kill();
        }
        for (std::thread& thread : threads) thread.join();
    }
    At place(dir.File("x.fbr"), FS_VR_METHOD_TARN);
    OpenStore store(place);
    for (int client = 0; client < clients; ++client) {
        SCOPED_TRACE(client);
        const int done = client < victims ? answered(client) : operations;
        RandomWork work = WorkOf(client);
        for (int i = 0; i < done; ++i) work.Step(nullptr);
        const contract::Tree found = store.Content(Base(client));
        if (client < victims && !(found == work.Expected())) {
            // The operation in which it was killed had been done, or was half done.
            work.Step(nullptr);
            EXPECT_TRUE(found == work.Expected() || found == work.HalfDone());
        } else {
            EXPECT_TRUE(found == work.Expected());
        }
    }
    uint32_t corrupted = 1;
    EXPECT_EQ(FBR_IsCorrupted(store.Get(), &corrupted), FSSTATUS_SUCCESS);
    EXPECT_EQ(corrupted, 0u);
}

}  // namespace
}  // namespace remote_test
