// SPDX-License-Identifier: MIT
#include "tests/contract/ClusterPlaces.h"

#include "platform/Clock.h"
#include "tests/cluster/RunningCluster.h"

namespace contract {
namespace {

// Started by the first test that wants it, but where somebody else has one.
WString PathOf(const std::string& prefix) {
    if (const char* running = std::getenv("ZRFS_TEST_CLUSTER"))
        return platform::FromUtf8(running + ("/" + prefix));
    static cluster_test::RunningCluster cluster;
    return cluster.Path(prefix);
}

class ClusterPlace : public Place {
  public:
    static std::unique_ptr<Place> Make() { return std::make_unique<ClusterPlace>(); }
    ClusterPlace() {
        static int count = 0;
        prefix_ =
            "contract" + std::to_string(platform::ProcessId()) + "/" + std::to_string(++count);
    }
    WString Path() const override { return PathOf(prefix_); }
    FBR_METHOD Method() const override { return FS_VR_METHOD_CLUSTER; }

  private:
    std::string prefix_;
};

}  // namespace

std::vector<Backend> ClusterBackends() {
    return {{"Cluster",
             ClusterPlace::Make,
             {"cluster", "near", "far", "writesNeedLock", "rootHasVersion", "emptyNameIsDefault",
              "shortBufferSucceeds", "volatileEndsWithStore"}}};
}

}  // namespace contract
