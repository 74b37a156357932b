// SPDX-License-Identifier: MIT
// Which store paths a client may name.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "include/ZrFsTypes.h"
#include "platform/RootFolder.h"
#include "platform/Text.h"

namespace server {

// The method number by which a client asks for a container: with the container's own number a
// path with a server name stays local. No local backend uses it.
inline constexpr uint32_t kMethodRemoteContainer = FS_VR_METHOD_REMOTE_CONTAINER;

// What the server opens for a client.
struct StoreRequest {
    FBR_METHOD method;
    platform::WString path;
};

class PathGuard {
  public:
    // Without a root any file that the server (or the client it acts as) can open may be named,
    // relative ones from the server's folder. With one, only files below it, relative ones from
    // it; no live registry, nor a hive under a name that the system mounts hives by. That a path
    // was admitted does not say where it leads when it is opened: Root does.
    //
    // Of stores on a cluster only `cluster` and those below it, empty for none: the server shows
    // its own credentials to the members that the path names.
    //
    // Throws std::runtime_error when the root is no folder.
    explicit PathGuard(std::optional<std::filesystem::path> root, platform::WString cluster = {});

    // The store to open, or nothing when the method or the path is refused.
    std::optional<StoreRequest> Admit(uint32_t method, const platform::WString& path) const;

    // What the files are to be opened within; null without a root.
    const platform::RootFolder* Root() const { return folder_.get(); }

  private:
    std::optional<platform::WString> AdmitFile(const platform::WString& path) const;
    bool AdmitMount(const platform::WString& name) const;
    bool AdmitCluster(const platform::WString& path) const;

    std::shared_ptr<const platform::RootFolder> folder_;
    platform::WString root_;  // its path; empty without a root
    platform::WString cluster_;
};

}  // namespace server
