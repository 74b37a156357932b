// SPDX-License-Identifier: MIT
#include <filesystem>

#include "tests/contract/FilePlaces.h"

namespace contract {

std::string ProcessState() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::to_string(std::distance(begin(descriptors), end(descriptors))) + " descriptors";
}

const std::vector<Backend>& AllBackends() {
    // Whose files programs that share no code with us can read.
    Backend offline = OfflineBackend();
    offline.traits.insert("programs");
    static const std::vector<Backend> all{
        ContainerBackend(), GivenEngineBackend(), offline,
        Behind<FilePlace<FS_VR_METHOD_TARN>>(ContainerBackend()),
        Behind<FilePlace<FS_VR_METHOD_OFFLINE>>(OfflineBackend())};
    return all;
}

}  // namespace contract
