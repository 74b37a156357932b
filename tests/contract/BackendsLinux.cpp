// SPDX-License-Identifier: MIT
#include <filesystem>

#include "tests/contract/FilePlaces.h"

namespace contract {

std::string ProcessState() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::to_string(std::distance(begin(descriptors), end(descriptors))) + " descriptors";
}

const std::vector<Backend>& AllBackends() {
    static const std::vector<Backend> all{
        ContainerBackend(), GivenEngineBackend(), OfflineBackend(),
        Behind<FilePlace<FS_VR_METHOD_TARN>>(ContainerBackend()),
        Behind<FilePlace<FS_VR_METHOD_OFFLINE>>(OfflineBackend())};
    return all;
}

}  // namespace contract
