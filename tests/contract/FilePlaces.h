// Stores that are a file of their own: a container, alone and behind a server, and an offline hive.
#pragma once

#include "server/PathGuard.h"
#include "tests/contract/Backend.h"
#include "tests/remote/RunningServer.h"
#include "tests/support/TempDir.h"

namespace contract {

template <FBR_METHOD method>
class FilePlace : public Place {
  public:
    static std::unique_ptr<Place> Make() { return std::make_unique<FilePlace>(); }
    WString Path() const override { return folder_.File("store"); }
    FBR_METHOD Method() const override { return method; }

  private:
    support::TempDir folder_;
};

// A container that a server of this process opens.
class RemotePlace : public Place {
  public:
    static std::unique_ptr<Place> Make() { return std::make_unique<RemotePlace>(); }
    WString Path() const override { return server_.Pipe() + WTEXT("|") + folder_.File("x.fbr"); }
    FBR_METHOD Method() const override {
        return static_cast<FBR_METHOD>(server::kMethodRemoteContainer);
    }

  private:
    support::TempDir folder_;
    remote_test::RunningServer server_;
};

inline Backend ContainerBackend() {
    return {.name = "Container",
            .makePlace = FilePlace<FS_VR_METHOD_TARN>::Make,
            .differences = {.writesNeedLock = true,
                            .rootHasVersion = true,
                            .emptyNameIsDefault = true,
                            .shortBufferSucceeds = true,
                            .handleOutlivesKey = false,
                            .refusedDeleteTakesValues = true,
                            .unknownParentIsRoot = true,
                            .volatileEndsWithStore = true,
                            .keepsSecurity = false,
                            .listsReplace = false,
                            .compactDone = 255,
                            .endHasName = false,
                            .rootFullName = WTEXT(""),
                            .rootIsNamed = false,
                            .deleteBelowMissing = FSSTATUS_FAILED,
                            .volatileCreate = FSSTATUS_SUCCESS,
                            .renameTripsOverDeleted = false,
                            .renameInPlaceDuplicates = false,
                            .deleteWithSubkeys = {FSSTATUS_DIR_NOT_EMPTY}}};
}

// As the container, but for what the way to it changes.
inline Backend RemoteBackend() {
    Backend backend = ContainerBackend();
    backend.name = "Remote";
    backend.makePlace = RemotePlace::Make;
    backend.differences.writesNeedLock = false;
    backend.differences.unknownParentIsRoot = false;
    backend.differences.listsReplace = true;
    backend.differences.endHasName = true;
    return backend;
}

inline Backend OfflineBackend() {
    return {.name = "Offline",
            .makePlace = FilePlace<FS_VR_METHOD_OFFLINE>::Make,
            .differences = {.writesNeedLock = false,
                            .rootHasVersion = true,
                            .emptyNameIsDefault = false,
                            .shortBufferSucceeds = false,
                            .handleOutlivesKey = true,
                            .refusedDeleteTakesValues = false,
                            .unknownParentIsRoot = false,
                            .volatileEndsWithStore = false,
                            .keepsSecurity = true,
                            .listsReplace = false,
                            .compactDone = 1,
                            .endHasName = false,
                            .rootFullName = WTEXT("\\"),
                            .rootIsNamed = false,
                            .deleteBelowMissing = FSSTATUS_NOT_FOUND,
                            .volatileCreate = FSSTATUS_INVALID_NAME,
                            .renameTripsOverDeleted = true,
                            .renameInPlaceDuplicates = false,
                            .deleteWithSubkeys = {FSSTATUS_FAILED}}};
}

}  // namespace contract
