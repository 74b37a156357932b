// SPDX-License-Identifier: MIT
// Stores that are a file of their own, a container and an offline hive, and every kind of store
// behind a server.
#pragma once

#include "server/PathGuard.h"
#include "storage/StorageApi.h"
#include "tests/contract/Backend.h"
#include "tests/remote/RunningServer.h"
#include "tests/support/TempDir.h"

namespace contract {

template <FBR_METHOD method>
class FilePlace : public Place {
  public:
    static std::unique_ptr<Place> Make() { return std::make_unique<FilePlace>(); }
    WString Path() const override { return folder_.File("store"); }
    std::filesystem::path File() const override { return folder_ / "store"; }
    FBR_METHOD Method() const override { return method; }

  private:
    support::TempDir folder_;
};

// An engine that is given by the caller is one that differs from the built-in one anywhere.
inline storage::StorageFunctionTable GivenEngine() {
    storage::StorageFunctionTable table = storage::OwnFunctions();
    table.StorageIsCorrupted = [](storage::StorageContext* container, uint8_t* corrupted) {
        return storage::StorageIsCorrupted(container, corrupted);
    };
    return table;
}

// A container of such an engine, in the place of the process's own while it lives.
class GivenEnginePlace : public FilePlace<FS_VR_METHOD_TARN> {
  public:
    static std::unique_ptr<Place> Make() { return std::make_unique<GivenEnginePlace>(); }
    GivenEnginePlace() { FBR_SetTARN_Functions(&given_); }
    ~GivenEnginePlace() override { FBR_SetTARN_Functions(&before_); }

  private:
    storage::StorageFunctionTable before_ = storage::g_storageFunctions, given_ = GivenEngine();
};

// A store that a server of this process opens.
template <class Near>
class RemotePlace : public Place {
  public:
    static std::unique_ptr<Place> Make() { return std::make_unique<RemotePlace>(); }
    WString Path() const override { return server_.Pipe() + WTEXT("|") + near_.Path(); }
    FBR_METHOD Method() const override {
        const FBR_METHOD method = near_.Method();
        return method == FS_VR_METHOD_TARN ? static_cast<FBR_METHOD>(server::kMethodRemoteContainer)
                                           : method;
    }
    void Opened(FBR_STORE store) override { near_.Opened(store); }
    void Closing(FBR_STORE store) override { near_.Closing(store); }

  private:
    Near near_;
    remote_test::RunningServer server_;
};

inline Backend ContainerBackend() {
    return {"Container",
            FilePlace<FS_VR_METHOD_TARN>::Make,
            {"container", "near", "writesNeedLock", "rootHasVersion", "emptyNameIsDefault",
             "shortBufferSucceeds", "refusedDeleteTakesValues", "unknownParentIsRoot",
             "volatileEndsWithStore"}};
}

inline Backend GivenEngineBackend() {
    Backend backend = ContainerBackend();
    backend.name = "GivenEngine";
    backend.makePlace = GivenEnginePlace::Make;
    backend.traits.insert("givenEngine");
    return backend;
}

inline Backend OfflineBackend() {
    return {"Offline",
            FilePlace<FS_VR_METHOD_OFFLINE>::Make,
            {"offline", "near", "rootHasVersion", "handleOutlivesKey", "keepsSecurity",
             "renameTripsOverDeleted"}};
}

// As the store itself, but for what the way to it changes.
template <class Near>
Backend Behind(Backend backend) {
    backend.name = "Remote" + backend.name;
    backend.makePlace = RemotePlace<Near>::Make;
    for (const char* trait : {"near", "writesNeedLock", "unknownParentIsRoot", "keepsSecurity"})
        backend.traits.erase(trait);
    backend.traits.insert({"remote", "far", "listsReplace", "endHasName"});
    return backend;
}

}  // namespace contract
