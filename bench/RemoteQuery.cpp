// SPDX-License-Identifier: MIT
#include "bench/RemoteQuery.h"

#include <algorithm>
#include <stdexcept>
#include <thread>

#include "include/ZrFsLibrary.h"
#include "platform/Clock.h"
#include "server/StoreServer.h"

namespace bench {
namespace {

constexpr uint32_t kBatches = 100, kQueries = 100;

Timer TimeQueries(const Text& path, uint32_t method, const KeyData& key) {
    const ValueData& value = *std::min_element(
        key.values.begin(), key.values.end(),
        [](const auto& a, const auto& b) { return a.data.size() < b.data.size(); });
    FBR_STORE store = nullptr;
    FBR_KEY handle = 0;
    bool good = FBR_InitialiseEx(path.c_str(), &store, static_cast<FBR_METHOD>(method)) == 0 &&
                FBR_OpenDirEx(0, key.path.c_str(), &handle, store) == 0;
    std::vector<uint8_t> buffer(value.data.size());
    Timer timer;
    for (uint32_t batch = 0; good && batch < kBatches; ++batch) {
        timer.Start();
        for (uint32_t i = 0; i < kQueries; ++i) {
            uint64_t size = 0;
            uint32_t type = 0;
            good &= FBR_QueryValue(handle, value.name.c_str(), buffer.data(), buffer.size(), &size,
                                   &type, store) == 0;
        }
        timer.Stop(kQueries);
        good &= buffer == value.data;
    }
    if (store != nullptr) FBR_DeInitialiseEx(store);
    if (!good) throw std::runtime_error("a query of the remote measurement failed");
    return timer;
}

}  // namespace

RemoteQuery MeasureRemoteQuery(const std::filesystem::path& store, const KeyData& key) {
    server::ServerOptions options;
    options.name = ToText("zrfs-bench-" + std::to_string(platform::ProcessId()));
    server::StoreServer server(options);
    if (server.Listen() != 0) throw std::runtime_error("cannot listen on " + server.Where());
    std::thread running([&] { server.Run(); });
    RemoteQuery times;
    std::string failure;
    try {
        const Text path = ToText(store.string());
        times.local = TimeQueries(path, FS_VR_METHOD_TARN, key);
        times.remote =
            TimeQueries(options.name + ToText("|") + path, server::kMethodRemoteContainer, key);
    } catch (const std::exception& error) {
        failure = error.what();
    }
    server.Stop();
    running.join();
    if (!failure.empty()) throw std::runtime_error(failure);
    return times;
}

}  // namespace bench
