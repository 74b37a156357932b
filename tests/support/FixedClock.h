// SPDX-License-Identifier: MIT
// A wall clock that stands still.
#pragma once

#include "platform/Clock.h"

namespace support {

// While it lives, platform::UtcNow gives `time`. One at a time.
class FixedClock {
  public:
    explicit FixedClock(platform::UtcTime time) {
        Set(time);
        platform::SetClock([] { return now_; });
    }
    ~FixedClock() { platform::SetClock(nullptr); }
    FixedClock(const FixedClock&) = delete;
    FixedClock& operator=(const FixedClock&) = delete;

    void Set(platform::UtcTime time) { now_ = time; }

  private:
    static inline platform::UtcTime now_;
};

}  // namespace support
