// SPDX-License-Identifier: MIT
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
        EXPECT_EQ(client.Ask(kOpen), Packet(kOpened));
        EXPECT_GT(g_asClient, 0);
        g_asClient = 0;
        EXPECT_EQ(client.Ask(kMakeVolatile), Packet(kMade));
        EXPECT_GT(g_asClient, 0);
        g_asClient = 0;
    }
    // The volatile key went.
    EXPECT_GT(g_asClient, 0);
    EXPECT_EQ(g_asServer, 0);
    EXPECT_FALSE(ActsForSomebody());
    platform::SetAllocationGate(nullptr);
}

// Neither a client nor a server takes a file for a pipe, however the name is spelled.
TEST(RemoteNames, LeadToPipesOnly) {
    const support::TempDir dir;
    const support::Bytes content = {'a', 'b', 'c'};
    support::WriteBytes(dir / "f", content);
    const std::wstring drive = dir.Path().wstring();
    const std::wstring names[] = {L"",
                                  L"..",
                                  L"..\\..\\" + drive + L"\\f",
                                  L"..\\" + drive + L"\\f",
                                  L"a\\..\\..\\" + drive + L"\\f",
                                  L"..\\NUL",
                                  L"../" + drive + L"/f",
                                  L".. \\x",
                                  L"a\\\\b",
                                  L"\\a"};
    const auto stop = platform::StopSignal::Create();
    for (const std::wstring& name : names) {
        SCOPED_TRACE(platform::ToUtf8(name));
        EXPECT_FALSE(
            platform::IsValid(platform::OpenPipe(name.c_str(), platform::Disclosure::Impersonate)));
        EXPECT_EQ(platform::LastError(), platform::kErrorInvalidName);
        EXPECT_EQ(platform::PipeListener::Listen(name.c_str(), false, stop.get()), nullptr);
    }
    EXPECT_EQ(support::ReadBytes(dir / "f"), content);
}

TEST(RemoteHandles, DoNotGrowWithTheConnections) {
    const support::TempDir dir;
    server::ServerOptions options;
    options.root = dir.Path();
    const RunningServer server(std::move(options));
    const auto connect = [&] {
        RawClient client(server.Pipe());
        EXPECT_EQ(client.Ask(kOpen), Packet(kOpened));
    };
    for (int i = 0; i < 10; ++i) connect();
    const size_t before = support::ProcessState::Handles();
    for (int i = 0; i < 100; ++i) connect();
    EXPECT_LT(support::ProcessState::Handles(), before + 50);
}

}  // namespace
}  // namespace remote_test
