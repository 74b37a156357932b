// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/front/PathGrammar.h"

using platform::WStringView;

namespace {

constexpr WStringView kRemote = WTEXT("!REMOTE");

// The first two parts that are not empty, and how many there are.
struct Parts {
    WStringView part[2];
    uint32_t count = 0;

    explicit Parts(WStringView path) {
        while (!path.empty()) {
            const size_t length = path.find('|');
            const WStringView next = path.substr(0, length);
            if (!next.empty() && count++ < 2) part[count - 1] = next;
            if (length == WStringView::npos) return;
            path.remove_prefix(length + 1);
        }
    }
};

BackendKind LocalKind(FBR_METHOD method) {
    switch (static_cast<uint32_t>(method)) {
        case FS_VR_METHOD_TARN:
            return BackendKind::Container;
        case FS_VR_METHOD_NATIVE:
            return BackendKind::Native;
        case FS_VR_METHOD_VARNHOLD_TARN:
            return BackendKind::Shell;
        case FS_VR_METHOD_HIVE:
            return BackendKind::Hive;
        case FS_VR_METHOD_OFFLINE:
            return BackendKind::Offline;
        case FS_VR_METHOD_CLUSTER:
            return BackendKind::Cluster;
        default:
            return BackendKind::None;
    }
}

StoreRequest LocalRequest(WStringView storePath, bool remote, FBR_METHOD method) {
    StoreRequest request;
    request.kind = LocalKind(method);
    request.remote = remote;
    request.storePath = storePath;
    if (request.kind != BackendKind::Hive) return request;
    const size_t mark = storePath.find('!');
    if (mark == WStringView::npos) return {};
    request.storePath = storePath.substr(0, mark);
    request.mountName = storePath.substr(mark + 1);
    return request;
}

}  // namespace

StoreRequest ParseStorePath(WStringView path, FBR_METHOD method) {
    const Parts parts(path);
    const bool remote = parts.count > 0 && parts.part[0] == kRemote;
    if (remote) return parts.count < 2 ? StoreRequest{} : LocalRequest(parts.part[1], true, method);
    if (parts.count == 1) return LocalRequest(parts.part[0], false, method);
    if (parts.count != 2) return {};
    StoreRequest request;
    // A container is a file of this machine: the server's name is dropped.
    request.kind = static_cast<uint32_t>(method) == FS_VR_METHOD_TARN ? BackendKind::Container
                                                                      : BackendKind::Ipc;
    request.server = parts.part[0];
    request.storePath = parts.part[1];
    return request;
}
