// SPDX-License-Identifier: MIT
// Many clients at work on one container, and some of them killed in the middle of it.
#include <cstdlib>

#include "server/PathGuard.h"
#include "tests/faults/Registry.h"
#include "tests/remote/RunningServer.h"
#include "tests/support/ChildProcess.h"

namespace remote_test {
namespace {

using faults::Step;
using platform::WString;

// More with ZRFS_CLIENTS and ZRFS_OPERATIONS in the environment.
int Setting(const char* name, int usual) {
    const char* text = std::getenv(name);
    return text != nullptr ? std::atoi(text) : usual;
}

std::string NameOf(int client) {
    return "client" + std::to_string(client);
}

faults::Steps StepsOf(int client) {
    return faults::Steps(static_cast<uint32_t>(client) + 1, {});
}

// Its steps in a key of its own; `done` is told of each one that was answered.
template <class Done>
void RunClient(const WString& path, int client, int operations, Done done) {
    support::Store store(path, static_cast<FBR_METHOD>(server::kMethodRemoteContainer));
    const std::string name = NameOf(client);
    faults::Steps steps = StepsOf(client);
    for (int i = 0; i < operations && store.handle != nullptr; ++i) {
        Step step = steps.Next();
        step.path.insert(step.path.begin(), std::u16string(name.begin(), name.end()));
        if (step.kind != Step::Kind::Compact) {
            EXPECT_EQ(Apply(step, &store), FSSTATUS_SUCCESS);
        }
        done();
    }
}

// A client that works until it is killed, with a byte in a file for each operation answered.
const support::ChildRole kVictim("remote-victim", [](const std::vector<std::string>& arguments) {
    std::ofstream log(arguments[2]);
    RunClient(platform::FromUtf8(arguments[0]), std::stoi(arguments[1]), 1 << 30,
              [&] { log.put('.').flush(); });
    return 0;
});

TEST(ManyClients, LoseNothingThoughATenthOfThemIsKilled) {
    const int clients = Setting("ZRFS_CLIENTS", 20);
    const int operations = Setting("ZRFS_OPERATIONS", 100);
    const int victims = (clients + 9) / 10;
    const support::TempDir dir;
    const auto answered = [&](int client) {
        return static_cast<int>(faults::StepsDone((dir / NameOf(client)).string()));
    };
    {
        const RunningServer server;
        const WString path = server.Pipe() + WTEXT("|") + dir.File("x.fbr");
        std::vector<std::unique_ptr<support::ChildProcess>> killed;
        std::vector<std::thread> threads;
        for (int client = 0; client < clients; ++client) {
            if (client < victims) {
                const std::vector<std::string> words = {platform::ToUtf8(path),
                                                        std::to_string(client),
                                                        (dir / NameOf(client)).string()};
                killed.push_back(std::make_unique<support::ChildProcess>("remote-victim", words));
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
    support::Store store(dir.File("x.fbr"));
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    for (int client = 0; client < clients; ++client) {
        SCOPED_TRACE(client);
        faults::Steps steps = StepsOf(client);
        for (int i = client < victims ? answered(client) : operations; i > 0; --i) steps.Next();
        const support::container::Key before = steps.Content();
        support::container::Key found;
        ASSERT_EQ(support::ReadKey(store.handle, store.Open(NameOf(client)), &found),
                  FSSTATUS_SUCCESS);
        // The operation in which it was killed had been done, or was half done.
        if (client < victims) {
            EXPECT_EQ(faults::JudgeCut(before, steps.Next(), found), "");
        } else {
            EXPECT_TRUE(found == before);
        }
    }
    uint32_t corrupted = 1;
    EXPECT_EQ(FBR_IsCorrupted(store.handle, &corrupted), FSSTATUS_SUCCESS);
    EXPECT_EQ(corrupted, 0u);
}

}  // namespace
}  // namespace remote_test
