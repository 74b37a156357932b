// Every request and reply, byte for byte, and replies that lie.
#include <functional>

#include "FS_Library_DLL/remote/FsIpcImpl.h"
#include "platform/Heap.h"
#include "tests/remote/ScriptedServer.h"

namespace remote_test {
namespace {

const FBR_METHOD kMethod = static_cast<FBR_METHOD>(4);

// Those that the tests of the server and of the contract behind it do not hold.
// One exchange: what the caller does, what is to be sent for it, and the reply's payload.
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
    {"initialise", "00000000 08000000 610062006300 0000 04000000", "01000000 00000000",
     [](FsIpcImpl& store) { EXPECT_EQ(store.FBR_InitialiseEx(WTEXT("abc")), FSSTATUS_SUCCESS); }},
    {"empty string", "00000000 02000000 0000 04000000", "01000000 02000000",
     [](FsIpcImpl& store) {
         EXPECT_EQ(store.FBR_InitialiseEx(WTEXT("")), FSSTATUS_INVALID_PARAMETER);
     }},
    {"corrupted", "03000000", "04000000 01000000 00000000",
     [](FsIpcImpl& store) {
         uint32_t flag = 9;
         EXPECT_EQ(store.FBR_IsCorrupted(&flag), FSSTATUS_SUCCESS);
         EXPECT_EQ(flag, 1u);
     }},
    {"compact", "04000000", "05000000 ff000000 07000000",
     [](FsIpcImpl& store) {
         uint32_t done = 9;
         EXPECT_EQ(store.FBR_Compact(&done), FSSTATUS_LOCK_FAILED);
         EXPECT_EQ(done, 255u);
     }},
    {"set value", "06000000 0100000000000000 04000000 6e00 0000 04000000 03000000 aabbcc",
     "07000000 00000000",
     [](FsIpcImpl& store) {
         const uint8_t data[] = {0xAA, 0xBB, 0xCC};
         EXPECT_EQ(store.FBR_SetValue(1, WTEXT("n"), 4, data, 3), FSSTATUS_SUCCESS);
     }},
    {"query", "07000000 0100000000000000 04000000 6e00 0000 05000000",
     "08000000 03000000 02000000 02000000 eeff 00000000",
     [](FsIpcImpl& store) {
         uint8_t buffer[5] = {};
         uint64_t size = 0;
         uint32_t type = 0;
         EXPECT_EQ(store.FBR_QueryValue(1, WTEXT("n"), buffer, 5, &size, &type), FSSTATUS_SUCCESS);
         EXPECT_EQ(size, 2u);
         EXPECT_EQ(type, 3u);
         EXPECT_EQ(Bytes(buffer, buffer + 3), Hex("eeff00"));
     }},
    {"create, existing", "08000000 0000000000000000 01000000 04000000 6b00 0000",
     "09000000 2a00000000000000 08000000",
     [](FsIpcImpl& store) {
         int64_t key = 0;
         EXPECT_EQ(store.FBR_CreateDirEx(0, WTEXT("k"), FSCREATEOPTIONS_VOLATILE, &key),
                   FSSTATUS_ALREADY_EXISTS);
         EXPECT_EQ(key, 42);
     }},
    {"key by index, past the end", "0f000000 0700000000000000 09000000",
     "10000000 02000000 0000 05000000",
     [](FsIpcImpl& store) {
         WChar* name = nullptr;
         EXPECT_EQ(store.FBR_EnumIntDirEx(7, 9, &name), FSSTATUS_NO_MORE_ENTRIES);
         EXPECT_EQ(Take(name), WTEXT(""));
     }},
    {"name, text behind its zero", "10000000 0700000000000000",
     "11000000 08000000 6e00 0000 7800 0000 00000000",
     [](FsIpcImpl& store) {
         WChar* name = nullptr;
         EXPECT_EQ(store.FBR_GetName_DirEx(7, &name), FSSTATUS_SUCCESS);
         EXPECT_EQ(Take(name), WTEXT("n"));
     }},
    {"times", "13000000 0700000000000000",
     "14000000 1500 0600 0a00 e703 0b00 0b00 1f00 ea07 00000000",
     [](FsIpcImpl& store) {
         FBR_SYSTEMTIME time{};
         EXPECT_EQ(store.FBR_GetDirTimesEx(7, &time), FSSTATUS_SUCCESS);
         EXPECT_EQ(time.wYear, 2026);
         EXPECT_EQ(time.wMonth, 11);
         EXPECT_EQ(time.wDayOfWeek, 6);
         EXPECT_EQ(time.wDay, 21);
         EXPECT_EQ(time.wHour, 10);
         EXPECT_EQ(time.wMinute, 11);
         EXPECT_EQ(time.wSecond, 31);
         EXPECT_EQ(time.wMilliseconds, 999);
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

TEST(RemoteClient, LocksAndSecurityNeedNoServer) {
    FsIpcImpl store(kMethod, UniquePipe("none"));
    uint32_t number = 77;
    EXPECT_EQ(store.FBR_GetLockEx(1), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.FBR_GetLockTypeEx(&number), FSSTATUS_SUCCESS);
    EXPECT_EQ(number, 77u);
    EXPECT_EQ(store.FBR_ReleaseLockEx(1), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.FBR_GetKeySecurityString(1, nullptr, &number), FSSTATUS_NOT_IMPLEMENTED);
    EXPECT_EQ(store.FBR_SetKeySecurityString(1, WTEXT("D:")), FSSTATUS_NOT_IMPLEMENTED);
}

TEST(RemoteClient, RefusesRepliesThatLieAndTouchesNothing) {
    const char* const kQueryReplies[] = {
        "09000000 03000000 02000000 02000000 eeff 00000000",          // another request's code
        "08000000",                                                   // nothing behind the code
        "08000000 03000000 02000000 02000000 ee",                     // data cut
        "08000000 03000000 02000000 ffffffff eeff 00000000",          // a count past the reply
        "08000000 03000000 06000000 06000000 010203040506 00000000",  // more than the buffer
        "08000000 03000000 02000000 02000000 eeff 0000",              // status cut
    };
    std::vector<Bytes> packets;
    for (const char* reply : kQueryReplies) packets.push_back(Packet(Hex(reply)));
    const WString pipe = UniquePipe("lies");
    ScriptedServer server(pipe, packets);
    FsIpcImpl store(kMethod, pipe);
    for (const char* reply : kQueryReplies) {
        SCOPED_TRACE(reply);
        Bytes buffer(5, 0x55);
        uint64_t size = 77;
        uint32_t type = 77;
        EXPECT_EQ(store.FBR_QueryValue(1, WTEXT("n"), buffer.data(), 5, &size, &type),
                  FSSTATUS_FAILED);
        EXPECT_EQ(buffer, Bytes(5, 0x55));
        EXPECT_EQ(size, 77u);
        EXPECT_EQ(type, 77u);
    }
}

TEST(RemoteClient, RefusesStringsThatLie) {
    const char* const kNames[] = {
        "16000000 01000000 04000000 61006200 05000000",  // no zero
        "16000000 01000000 03000000 610000 05000000",    // a zero cut in half
        "16000000 01000000 00000000 05000000",           // no room for a zero
        "16000000 01000000 ff000000 61000000 05000000",  // a count past the reply
        "16000000 ffffffff 04000000 61000000 05000000",  // more strings than there are
    };
    std::vector<Bytes> packets;
    for (const char* reply : kNames) packets.push_back(Packet(Hex(reply)));
    const WString pipe = UniquePipe("strings");
    ScriptedServer server(pipe, packets);
    FsIpcImpl store(kMethod, pipe);
    for (const char* reply : kNames) {
        SCOPED_TRACE(reply);
        std::vector<WString> names = {WTEXT("old")};
        EXPECT_EQ(store.FBR_EnumerateAllKeys(7, names), FSSTATUS_FAILED);
        EXPECT_EQ(names.size(), 1u);
    }
}

}  // namespace
}  // namespace remote_test
