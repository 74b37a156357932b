// SPDX-License-Identifier: MIT
// Replies that lie, packets that are cut, empty, huge or late, and servers that come, go and come
// back.
#include <chrono>

#include "FS_Library_DLL/remote/FsIpcImpl.h"
#include "platform/Heap.h"
#include "tests/remote/ScriptedServer.h"

namespace remote_test {
namespace {

const FBR_METHOD kMethod = static_cast<FBR_METHOD>(4);

// That all requests are as the server has them is shown by the contract of the stores behind one.
TEST(RemoteClient, ReadsTextAsFarAsItsZeroAndReplacesOldNames) {
    const WString pipe = UniquePipe("bytes");
    ScriptedServer server(
        pipe, {Packet(Hex("11000000 08000000 6e00 0000 7800 0000 00000000")),
               Packet(Hex("15000000 02000000 08000000 61000000 78000000 04000000 62000000"
                          " 05000000"))});
    FsIpcImpl store(kMethod, pipe);
    WChar* name = nullptr;
    EXPECT_EQ(store.FBR_GetName_DirEx(7, &name), FSSTATUS_SUCCESS);
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(WString(name), WTEXT("n"));
    platform::HeapRelease(name);
    std::vector<WString> names = {WTEXT("old")};
    EXPECT_EQ(store.FBR_EnumerateAllValues(7, names), FSSTATUS_NO_MORE_ENTRIES);
    EXPECT_EQ(names, (std::vector<WString>{WTEXT("a"), WTEXT("b")}));
    EXPECT_EQ(server.Requests(), (std::vector<Bytes>{Hex("10000000 0700000000000000"),
                                                     Hex("14000000 0700000000000000")}));
}

// Nothing of the caller's is touched by such a reply.
TEST(RemoteClient, RefusesRepliesThatLie) {
    const std::vector<std::string> replies = {
        // To a query for up to 5 bytes.
        "09000000 03000000 02000000 02000000 eeff 00000000",          // another request's code
        "08000000",                                                   // nothing behind the code
        "08000000 03000000 02000000 02000000 ee",                     // data cut
        "08000000 03000000 02000000 ffffffff eeff 00000000",          // a count past the reply
        "08000000 03000000 06000000 06000000 010203040506 00000000",  // more than the buffer
        "08000000 03000000 02000000 02000000 eeff 0000",              // status cut
        // To an enumeration of keys.
        "16000000 01000000 04000000 61006200 05000000",  // no zero
        "16000000 01000000 03000000 610000 05000000",    // a zero cut in half
        "16000000 01000000 00000000 05000000",           // no room for a zero
        "16000000 01000000 ff000000 61000000 05000000",  // a count past the reply
        "16000000 ffffffff 04000000 61000000 05000000",  // more strings than there are
    };
    std::vector<Bytes> packets;
    packets.reserve(replies.size());
    for (const std::string& reply : replies) packets.push_back(Packet(Hex(reply)));
    const WString pipe = UniquePipe("lies");
    ScriptedServer server(pipe, packets);
    FsIpcImpl store(kMethod, pipe);
    for (const std::string& reply : replies) {
        SCOPED_TRACE(reply);
        Bytes buffer(5, 0x55);
        uint64_t size = 77;
        uint32_t type = 77;
        std::vector<WString> names = {WTEXT("old")};
        EXPECT_EQ(reply.starts_with("16")
                      ? store.FBR_EnumerateAllKeys(7, names)
                      : store.FBR_QueryValue(1, WTEXT("n"), buffer.data(), 5, &size, &type),
                  FSSTATUS_FAILED);
        EXPECT_EQ(buffer, Bytes(5, 0x55));
        EXPECT_EQ(size, 77u);
        EXPECT_EQ(type, 77u);
        EXPECT_EQ(names.size(), 1u);
    }
}

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
        server = std::make_unique<ScriptedServer>(
            pipe, std::vector<Bytes>{Packet(Hex("03000000 00000000"))});
    });
    EXPECT_EQ(CheckOnce(pipe), FSSTATUS_SUCCESS);
    starter.join();
}

TEST(RemoteTransport, GivesUpAfterAboutFiveSecondsWithoutAServer) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(CheckOnce(UniquePipe("missing")), FSSTATUS_FAILED);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(4900));
    EXPECT_LE(took, std::chrono::seconds(9));
}

}  // namespace
}  // namespace remote_test
