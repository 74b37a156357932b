// SPDX-License-Identifier: MIT
// Every request and reply, byte for byte, and replies that lie.
#include <functional>

#include "FS_Library_DLL/remote/FsIpcImpl.h"
#include "platform/Heap.h"
#include "tests/remote/ScriptedServer.h"

namespace remote_test {
namespace {

const FBR_METHOD kMethod = static_cast<FBR_METHOD>(4);

// One exchange: what the caller does, what is to be sent for it, and the reply's payload. That all
// others are as the server has them is shown by the contract of the stores behind one.
struct Exchange {
    const char* title;
    const char* request;
    const char* reply;
    std::function<void(FsIpcImpl&)> call;
};

WString Take(WChar* text) {
    WString copy = text == nullptr ? WString(WTEXT("(null)")) : WString(text);
    platform::HeapRelease(text);
    return copy;
}

const Exchange kExchanges[] = {
    {"name, text behind its zero", "10000000 0700000000000000",
     "11000000 08000000 6e00 0000 7800 0000 00000000",
     [](FsIpcImpl& store) {
         WChar* name = nullptr;
         EXPECT_EQ(store.FBR_GetName_DirEx(7, &name), FSSTATUS_SUCCESS);
         EXPECT_EQ(Take(name), WTEXT("n"));
     }},
    {"all values, old names replaced, text behind a zero", "14000000 0700000000000000",
     "15000000 02000000 08000000 61000000 78000000 04000000 62000000 05000000",
     [](FsIpcImpl& store) {
         std::vector<WString> names = {WTEXT("old")};
         EXPECT_EQ(store.FBR_EnumerateAllValues(7, names), FSSTATUS_NO_MORE_ENTRIES);
         EXPECT_EQ(names, (std::vector<WString>{WTEXT("a"), WTEXT("b")}));
     }},
};

TEST(RemoteClient, SendsAndReadsEveryExchangeByteForByte) {
    const WString pipe = UniquePipe("bytes");
    std::vector<Bytes> packets;
    for (const Exchange& exchange : kExchanges) packets.push_back(Packet(Hex(exchange.reply)));
    ScriptedServer server(pipe, packets);
    FsIpcImpl store(kMethod, pipe);
    for (const Exchange& exchange : kExchanges) {
        SCOPED_TRACE(exchange.title);
        exchange.call(store);
        ASSERT_FALSE(server.Requests().empty());
        EXPECT_EQ(server.Requests().back(), Hex(exchange.request));
    }
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

}  // namespace
}  // namespace remote_test
