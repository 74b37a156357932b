// SPDX-License-Identifier: MIT
// What a store that many machines share can do beside IFSInterface. A store handle that has it is
// one of these, too: dynamic_cast finds it.
#pragma once

#include <functional>

#include "include/ZrFsTypes.h"

class SharedStore {
  public:
    virtual ~SharedStore() = default;

    // Whether anybody has made the store: opening it does not, the first lock for changes does.
    virtual bool IsMade() = 0;

    // From now on, keys that are made and values that are set by the lock's holder go to the
    // cluster many at a time, as one change, and a success means no more than that they will;
    // until now. Any other operation, and giving the lock back, makes them first.
    virtual void Gather(bool gathers) = 0;
    // Makes them now. Where one of them failed, those that were gathered with it were not made, all
    // that came later was refused with the same status, and this answers it.
    virtual FBR_STATUS SendGathered() = 0;

    // From now on, all reads see the state that the first of them finds, without the lock; until as
    // many calls have ended it. FSSTATUS_FAILED from a read when the cluster keeps that state no
    // longer. Under the lock it changes nothing.
    virtual void Snapshot(bool begins) = 0;

    // What reads see now, for WaitForChange.
    virtual FBR_STATUS CurrentState(uint64_t* state) = 0;
    // Until something has changed since then, or `goesOn` is false, which is asked when a signal
    // has come. FSSTATUS_FAILED when no member answers any more. Nobody else waits for it.
    virtual FBR_STATUS WaitForChange(uint64_t state, const std::function<bool()>& goesOn) = 0;
};
