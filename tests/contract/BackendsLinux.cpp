// SPDX-License-Identifier: MIT
#include <filesystem>

#include "tests/contract/ClusterPlaces.h"
#include "tests/contract/FilePlaces.h"

namespace contract {

std::string ProcessState() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::to_string(std::distance(begin(descriptors), end(descriptors))) + " descriptors";
}

const std::vector<Backend>& AllBackends() {
    static const std::vector<Backend> all = [] {
        // Whose files programs that share no code with us can read.
        Backend offline = OfflineBackend();
        offline.traits.insert("programs");
        std::vector<Backend> kinds{ContainerBackend(), GivenEngineBackend(), offline,
                                   Behind<FilePlace<FS_VR_METHOD_TARN>>(ContainerBackend()),
                                   Behind<FilePlace<FS_VR_METHOD_OFFLINE>>(OfflineBackend())};
        for (Backend& kind : ClusterBackends()) kinds.push_back(std::move(kind));
        return kinds;
    }();
    return all;
}

}  // namespace contract
