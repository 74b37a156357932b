// SPDX-License-Identifier: MIT
// Any bytes from a client: the server answers or ends the connection, and opens nothing outside of
// its root. The first byte of an input tells whether the rest is what comes over the connection,
// or what packets are made of that are mostly in order.
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/resource.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "fuzz/Require.h"
#include "server/Conversation.h"

namespace {

namespace fs = std::filesystem;
using fuzz::Require;
using platform::Error;
using platform::WString;

// A folder with something beside the root that must not be reached, and a link that leads there.
class World {
  public:
    World() {
        rlimit files{};
        getrlimit(RLIMIT_NOFILE, &files);
        files.rlim_cur = files.rlim_max;
        setrlimit(RLIMIT_NOFILE, &files);
        char name[] = "/dev/shm/zrfs-fuzz-XXXXXX";
        Require(mkdtemp(name) != nullptr, "no folder");
        base_ = fs::canonical(name);
        fs::create_directory(base_ / "root");
        fs::create_directory_symlink(base_, base_ / "root" / "link");
        MakeStore(base_ / "root" / "a.fbr");
        fs::copy_file(base_ / "root" / "a.fbr", base_ / "seed");
        fs::copy_file(base_ / "seed", base_ / "out.fbr");
    }
    ~World() { fs::remove_all(base_); }
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    void Renew() const {
        for (const auto& entry : fs::directory_iterator(Root()))
            if (!entry.is_symlink()) fs::remove_all(entry.path());
        fs::copy_file(base_ / "seed", Root() / "a.fbr");
    }
    fs::path Root() const { return base_ / "root"; }

    // The server may open what is below its root, and what processes share by name.
    void Check(const char* path) const {
        const std::string real = fs::weakly_canonical(path).string();
        Require(real.starts_with(Root().string() + "/") || real == Root() ||
                    real.starts_with("/dev/shm/varnhold-"),
                path);
    }

  private:
    static void MakeStore(const fs::path& path) {
        FBR_STORE store = nullptr;
        FBR_KEY key = 0;
        Require(FBR_InitialiseEx(path.u16string().c_str(), &store, FS_VR_METHOD_TARN) == 0,
                "a store");
        Require(FBR_GetLockEx(1, store) == 0, "a store");
        Require(FBR_CreateDirEx(0, WTEXT("k\\k"), FSCREATEOPTIONS_NONE, &key, store) == 0,
                "a store");
        Require(FBR_SetValue(key, WTEXT("v"), 1, "data", 4, store) == 0, "a store");
        Require(FBR_ReleaseLockEx(1, store) == 0, "a store");
        Require(FBR_DeInitialiseEx(store) == 0, "a store");
    }
    fs::path base_;
};

// Null while nobody is watched.
const World* g_watched = nullptr;

void Check(const char* path) {
    if (g_watched != nullptr) g_watched->Check(path);
}

class InMemory final : public platform::PipeConnection {
  public:
    explicit InMemory(std::vector<uint8_t> sent) : sent_(std::move(sent)) {}
    Error Read(void* buffer, uint32_t bytes, uint32_t) override {
        if (sent_.size() - at_ < bytes) return platform::kErrorBrokenPipe;
        std::memcpy(buffer, sent_.data() + at_, bytes);
        at_ += bytes;
        return 0;
    }
    Error Write(const void* buffer, uint32_t bytes, uint32_t) override {
        ipc::WireReader packet({static_cast<const uint8_t*>(buffer), bytes});
        Require(packet.U32() == ipc::kPacketMagic && packet.U32() == bytes, "a header");
        const uint32_t code = packet.U32();
        Require(packet.Left() >= 4 && code >= 1 && code <= ipc::kRequestCount, "a reply");
        return 0;
    }
    Error Impersonate() override { return 0; }
    Error EndImpersonation() override { return 0; }

  private:
    std::vector<uint8_t> sent_;
    size_t at_ = 0;
};

const char* const kPaths[] = {"a.fbr",   "b.fbr",          "../out.fbr", "link/out.fbr",
                              "d/c.fbr", "a.log",          "root",       "../root",
                              ".",       "link/root/a.fbr"};
const char* const kNames[] = {"\\", "k", "k\\k", "v", "", "FBRVersion", "a/b", "(Default)"};

template <size_t n>
WString Text(FuzzedDataProvider* from, const char* const (&usual)[n]) {
    const auto pick = from->ConsumeIntegralInRange<uint32_t>(0, n);
    if (pick < n) return platform::FromUtf8(usual[pick]);
    return platform::FromUtf8(from->ConsumeRandomLengthString(40));
}

uint64_t Key(FuzzedDataProvider* from) {
    return from->ConsumeBool() ? from->ConsumeIntegralInRange<uint64_t>(0, 4)
                               : from->ConsumeIntegral<uint64_t>();
}

std::vector<uint8_t> OneRequest(FuzzedDataProvider* from) {
    using enum ipc::Request;
    // Mostly of a store that is open.
    const auto code = from->ConsumeIntegralInRange<uint32_t>(0, ipc::kRequestCount);
    ipc::WireWriter payload(code);
    const auto request = static_cast<ipc::Request>(code);
    if (request == InitialiseEx) {
        const bool container = from->ConsumeBool();
        payload.String(Text(from, kPaths)).U32(container ? 4 : from->ConsumeIntegral<uint8_t>());
    } else if (request >= DeleteValue && request != DeleteDirNamedEx) {
        payload.U64(Key(from));
    }
    if (request == CreateDirEx) payload.U32(from->ConsumeIntegral<uint8_t>());
    if ((request >= DeleteValue && request <= OpenDirEx) || request == DeleteDirNamedEx ||
        request == RenameDirEx)
        payload.String(Text(from, kNames));
    if (request == SetValue) {
        const std::string data = from->ConsumeRandomLengthString(2000);
        payload.U32(from->ConsumeIntegral<uint32_t>()).U32(static_cast<uint32_t>(data.size()));
        payload.Bytes(data.data(), data.size());
    }
    if (request == QueryValue || request == EnumIntFileEx || request == EnumIntDirEx)
        payload.U32(from->ConsumeIntegral<uint32_t>());
    return payload.Payload();
}

std::vector<uint8_t> Packets(FuzzedDataProvider* from) {
    std::vector<uint8_t> all;
    const auto add = [&](const std::vector<uint8_t>& payload) {
        ipc::WireWriter packet(ipc::kPacketMagic);
        packet.U32(static_cast<uint32_t>(payload.size()) + ipc::kPacketHeaderSize);
        packet.Bytes(payload.data(), payload.size());
        all.insert(all.end(), packet.Payload().begin(), packet.Payload().end());
    };
    add(ipc::WireWriter(0).String(WTEXT("a.fbr")).U32(4).Payload());
    add(ipc::WireWriter(9).U64(0).String(WTEXT("k")).Payload());
    for (int i = 0; i < 60 && from->remaining_bytes() > 0; ++i) add(OneRequest(from));
    return all;
}

}  // namespace

// Calls that the linker leads here.
extern "C" {
int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = va_arg(rest, mode_t);
    va_end(rest);
    Check(path);
    return __real_open(path, flags, mode);
}
int __real_unlink(const char* path);
int __wrap_unlink(const char* path) {
    Check(path);
    return __real_unlink(path);
}
int __real_mkdir(const char* path, mode_t mode);
int __wrap_mkdir(const char* path, mode_t mode) {
    Check(path);
    return __real_mkdir(path, mode);
}
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    static const World world;
    world.Renew();
    FuzzedDataProvider from(data + 1, size - 1);
    InMemory connection(data[0] == 0 ? std::vector<uint8_t>(data + 1, data + size)
                                     : Packets(&from));
    g_watched = &world;
    {
        server::SessionRules rules(server::PathGuard(world.Root()));
        server::ServeConnection(&connection, &rules, 0);
    }
    g_watched = nullptr;
    return 0;
}
