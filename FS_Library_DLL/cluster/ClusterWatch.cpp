// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/ClusterWatch.h"

#include <thread>

namespace cluster {
namespace {

// A member that hangs tells nothing: another is asked, from the same revision on.
constexpr Milliseconds kOneWatch{300'000};
constexpr Milliseconds kPause{200};

}  // namespace

// Every change of a key writes among the children or the times; the lock and long data do not
// count.
FBR_STATUS WaitForChange(const std::shared_ptr<const EtcdSettings>& settings,
                         const RecordNames& names, int64_t revision,
                         const EtcdHttp::GoesOn& goesOn) {
    EtcdApi api(settings);
    const std::vector<Span> spans = {names.All("c"), names.All("t")};
    auto lastSeen = Clock::now();
    while (goesOn()) {
        const auto began = Clock::now();
        const Outcome outcome = api.WaitFor(Events::All, spans, revision + 1, kOneWatch, goesOn);
        if (outcome == Outcome::Denied) return FSSTATUS_ACCESS_DENIED;
        if (outcome == Outcome::Answered || outcome == Outcome::TooLarge) return FSSTATUS_SUCCESS;
        // One that lasted had found a member.
        if (Clock::now() - began > std::chrono::seconds(5)) lastSeen = Clock::now();
        if (Clock::now() - lastSeen > std::chrono::seconds(settings->patience))
            return FSSTATUS_FAILED;
        if (goesOn()) std::this_thread::sleep_for(kPause);
    }
    return FSSTATUS_SUCCESS;
}

}  // namespace cluster
