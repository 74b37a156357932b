// SPDX-License-Identifier: MIT
// Replies that lie, packets that are cut, empty, huge or late, and servers that come, go and come
// back.
#include <chrono>

#include "FS_Library_DLL/remote/FsIpcImpl.h"
#include "platform/Heap.h"
#include "tests/remote/ScriptedServer.h"
#include "tests/support/ScriptText.h"

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

// The rows of replies.txt. Nothing of the caller's is touched by a reply that lies.
TEST(RemoteClient, MakesOfRepliesWhatIsWritten) {
    for (const support::Section& section : support::SectionsIn("remote/replies.txt"))
        for (const auto& [number, line] : section.lines) {
            SCOPED_TRACE("line " + std::to_string(number) + ": " + line);
            const size_t arrow = line.find(" -> "), verb = line.find(' ');
            const bool bare = line.substr(verb + 1).starts_with("payload");
            const size_t hex = bare ? verb + 8 : verb;
            const Bytes bytes = Hex(line.substr(hex, arrow - hex));
            const WString pipe = UniquePipe("replies");
            const ScriptedServer server(pipe, {bare ? Packet(bytes) : bytes});
            FsIpcImpl store(kMethod, pipe);
            Bytes buffer(5, 0x55);
            uint64_t size = 77;
            uint32_t type = 77;
            std::vector<WString> names = {WTEXT("old")};
            const FBR_STATUS status =
                line[0] == 'k' ? store.FBR_EnumerateAllKeys(7, names)
                : line[0] == 'v'
                    ? store.FBR_QueryValue(1, WTEXT("n"), buffer.data(), 5, &size, &type)
                    : store.FBR_CheckFile();
            EXPECT_EQ(FsStatusName(status), "FSSTATUS_" + line.substr(arrow + 4));
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
