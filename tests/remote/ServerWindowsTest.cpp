// The server acts as its client while it answers, and as itself otherwise; what clients took with
// them it lets go.
#include <windows.h>

#include "platform/Heap.h"
#include "tests/remote/RawClient.h"
#include "tests/support/TempDir.h"
#include "tests/support/windows/ProcessState.h"

namespace remote_test {
namespace {

std::atomic<int> g_asClient{0}, g_asServer{0};

bool ActsForSomebody() {
    HANDLE token = nullptr;
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token)) return false;
    CloseHandle(token);
    return true;
}

// Memory of this heap is taken by the stores alone, whatever they do.
bool NoteAllocation(size_t) {
    ++(ActsForSomebody() ? g_asClient : g_asServer);
    return true;
}

TEST(RemoteIdentity, EveryRequestAndTheClosingRunAsTheClient) {
    const support::TempDir dir;
    platform::SetAllocationGate(NoteAllocation);
    {
        server::ServerOptions options;
        options.root = dir.Path();
        const RunningServer server(std::move(options));
        RawClient client(server.Pipe());
        EXPECT_EQ(client.Ask(Hex("00000000 0c000000 61002e006600620072000000 04000000")),
                  Packet(Hex("01000000 00000000")));
        EXPECT_GT(g_asClient, 0);
        g_asClient = 0;
        EXPECT_EQ(client.Ask(Hex("08000000 0000000000000000 01000000 04000000 6b000000")),
                  Packet(Hex("09000000 0100000000000000 00000000")));
        EXPECT_GT(g_asClient, 0);
        g_asClient = 0;
    }
    // The volatile key went.
    EXPECT_GT(g_asClient, 0);
    EXPECT_EQ(g_asServer, 0);
    EXPECT_FALSE(ActsForSomebody());
    platform::SetAllocationGate(nullptr);
}

TEST(RemoteHandles, DoNotGrowWithTheConnections) {
    const support::TempDir dir;
    server::ServerOptions options;
    options.root = dir.Path();
    const RunningServer server(std::move(options));
    const auto connect = [&] {
        RawClient client(server.Pipe());
        EXPECT_EQ(client.Ask(Hex("00000000 0c000000 61002e006600620072000000 04000000")),
                  Packet(Hex("01000000 00000000")));
    };
    for (int i = 0; i < 10; ++i) connect();
    const size_t before = support::ProcessState::Handles();
    for (int i = 0; i < 100; ++i) connect();
    EXPECT_LT(support::ProcessState::Handles(), before + 50);
}

}  // namespace
}  // namespace remote_test
