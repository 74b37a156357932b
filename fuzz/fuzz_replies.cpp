// SPDX-License-Identifier: MIT
// Any bytes from a server: the client gives what a well-formed reply holds, or FSSTATUS_FAILED with
// the caller's variables as they were. This file stands in for the pipe.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "FS_Library_DLL/remote/FsIpcImpl.h"
#include "fuzz/Require.h"
#include "platform/Heap.h"

namespace {

using fuzz::Require;

std::vector<uint8_t> g_reply;  // what is still to be read
size_t g_at = 0;
FuzzedDataProvider* g_from = nullptr;

// A reply to the request just sent, with a header and a code that are mostly right.
void PrepareReply(uint32_t code) {
    const bool asExpected = g_from->ConsumeIntegral<uint8_t>() < 250;
    ipc::WireWriter payload(asExpected ? code + 1 : g_from->ConsumeIntegral<uint32_t>());
    const std::string rest = g_from->ConsumeRandomLengthString(300);
    payload.Bytes(rest.data(), rest.size());
    const auto size = static_cast<uint32_t>(payload.Payload().size()) + ipc::kPacketHeaderSize;
    ipc::WireWriter packet(ipc::kPacketMagic);
    packet.U32(asExpected ? size : g_from->ConsumeIntegral<uint32_t>());
    packet.Bytes(payload.Payload().data(), payload.Payload().size());
    g_reply = packet.Payload();
    g_at = 0;
}

}  // namespace

namespace platform {
Handle OpenPipe(const WChar*, Disclosure) noexcept {
    return reinterpret_cast<Handle>(16);
}
void ClosePipe(Handle) noexcept {}
void SleepMilliseconds(uint32_t) noexcept {}
// A request comes as its header and its payload.
Error WritePipe(Handle, const void* buffer, uint32_t bytes) noexcept {
    static bool header = false;
    header = !header;
    uint32_t code = 0;
    std::memcpy(&code, buffer, sizeof code);
    if (!header) PrepareReply(code);
    return kErrorSuccess;
}
Error ReadPipe(Handle, void* buffer, uint32_t bytes, uint32_t* done) noexcept {
    *done = static_cast<uint32_t>(std::min<size_t>(bytes, g_reply.size() - g_at));
    std::memcpy(buffer, g_reply.data() + g_at, *done);
    g_at += *done;
    return *done == 0 ? kErrorBrokenPipe : kErrorSuccess;
}
}  // namespace platform

namespace {

void Name(FBR_STATUS status, WChar* name) {
    Require(name != nullptr || status == FSSTATUS_FAILED, "a name");
    if (name != nullptr) platform::Length(name);
    platform::HeapRelease(name);
}

void Query(FsIpcImpl* store) {
    const auto room = g_from->ConsumeIntegralInRange<uint32_t>(0, 64);
    std::vector<uint8_t> buffer(room);
    uint64_t size = 0;
    uint32_t type = 0;
    store->FBR_QueryValue(1, WTEXT("v"), room == 0 ? nullptr : buffer.data(), room, &size, &type);
}

void Names(const std::vector<WString>& names) {
    // Every name takes six bytes of the reply at least.
    Require(names.size() <= g_reply.size() / 6 + 1, "more names than there were");
    for (const WString& name : names)
        Require(name.find(WChar{0}) == WString::npos, "text behind a zero");
}

void OneCall(FsIpcImpl* store) {
    uint32_t number = 0;
    int64_t key = 0;
    WChar* name = nullptr;
    FBR_SYSTEMTIME time{};
    std::vector<WString> names = {WTEXT("old")};
    switch (g_from->ConsumeIntegralInRange(0, 11)) {
        case 0:
            store->FBR_InitialiseEx(WTEXT("s"));
            break;
        case 1:
            store->FBR_IsCorrupted(&number);
            break;
        case 2:
            store->FBR_Compact(&number);
            break;
        case 3:
            Query(store);
            break;
        case 4:
            store->FBR_CreateDirEx(0, WTEXT("k"), FSCREATEOPTIONS_NONE, &key);
            break;
        case 5:
            store->FBR_DuplicateDirHandleEx(1, &key);
            break;
        case 6:
            Name(store->FBR_EnumIntDirEx(1, 0, &name), name);
            break;
        case 7:
            Name(store->FBR_GetFullName_DirEx(1, &name), name);
            break;
        case 8:
            store->FBR_GetDirTimesEx(1, &time);
            break;
        case 9:
            store->FBR_EnumerateAllValues(1, names);
            Names(names);
            break;
        case 10:
            store->FBR_EnumerateAllKeys(1, names);
            Names(names);
            break;
        default:
            store->FBR_CloseDirEx(1);
            break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider from(data, size);
    g_from = &from;
    FsIpcImpl store(FS_VR_METHOD_NATIVE, WTEXT("fuzz"));
    for (int i = 0; i < 20 && from.remaining_bytes() > 0; ++i) OneCall(&store);
    return 0;
}
