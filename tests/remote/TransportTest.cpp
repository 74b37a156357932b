// SPDX-License-Identifier: MIT
// Packets on the wire that are cut, empty, huge or late, and servers that come, go and come back.
#include <chrono>

#include "FS_Library_DLL/remote/FsIpcImpl.h"
#include "tests/remote/ScriptedServer.h"

namespace remote_test {
namespace {

using Clock = std::chrono::steady_clock;

const Bytes kSuccess = Packet(Hex("03000000 00000000"));

FBR_STATUS CheckOnce(const WString& pipe) {
    FsIpcImpl store(FS_VR_METHOD_NATIVE, pipe);
    return store.FBR_CheckFile();
}

TEST(RemoteTransport, TakesAnyMagicAndRefusesPacketsWithoutPayloadOrTooLarge) {
    const struct {
        const char* packet;
        FBR_STATUS status;
    } kCases[] = {
        {"07000000 10000000 03000000 00000000", FSSTATUS_SUCCESS},  // the magic is not looked at
        {"2a000000 08000000", FSSTATUS_FAILED},                     // well-formed and empty
        {"2a000000 03000000", FSSTATUS_FAILED},                     // smaller than its header
        {"2a000000 ffffffff 03000000", FSSTATUS_FAILED},            // past the limit
        {"2a0000", FSSTATUS_FAILED},                                // a header cut
        {"2a000000 14000000 03000000", FSSTATUS_FAILED},            // a payload cut
    };
    for (const auto& test : kCases) {
        SCOPED_TRACE(test.packet);
        const WString pipe = UniquePipe("packet");
        ScriptedServer server(pipe, {Hex(test.packet)});
        EXPECT_EQ(CheckOnce(pipe), test.status);
    }
}

TEST(RemoteTransport, GoesOnWithAServerStartedAnew) {
    const WString pipe = UniquePipe("restart");
    FsIpcImpl store(FS_VR_METHOD_NATIVE, pipe);
    {
        ScriptedServer first(pipe, {Packet(Hex("01000000 00000000"))});
        EXPECT_EQ(store.FBR_InitialiseEx(WTEXT("s")), FSSTATUS_SUCCESS);
    }
    ScriptedServer second(pipe, {Packet(Hex("0e000000 12000000"))});
    // No new request 0: what the new server says to the request is the answer.
    EXPECT_EQ(store.FBR_CloseDirEx(5), FSSTATUS_INVALID_HANDLE);
    ASSERT_EQ(second.Requests().size(), 1u);
    EXPECT_EQ(second.Requests()[0], Hex("0d000000 0500000000000000"));
}

TEST(RemoteTransport, WaitsForAServerThatComesLate) {
    const WString pipe = UniquePipe("late");
    std::unique_ptr<ScriptedServer> server;
    std::thread starter([&] {
        platform::SleepMilliseconds(3000);
        server = std::make_unique<ScriptedServer>(pipe, std::vector<Bytes>{kSuccess});
    });
    EXPECT_EQ(CheckOnce(pipe), FSSTATUS_SUCCESS);
    starter.join();
}

TEST(RemoteTransport, GivesUpAfterAboutFiveSecondsWithoutAServer) {
    const auto start = Clock::now();
    EXPECT_EQ(CheckOnce(UniquePipe("missing")), FSSTATUS_FAILED);
    const auto took = Clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(4900));
    EXPECT_LE(took, std::chrono::seconds(9));
}

}  // namespace
}  // namespace remote_test
