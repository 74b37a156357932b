// A wall clock that stands still.
#pragma once

#include "platform/Clock.h"

namespace support {

// While it lives, platform::UtcNow gives `time`. One at a time.
class FixedClock {
  public:
    explicit FixedClock(platform::UtcTime time);
    ~FixedClock();
    FixedClock(const FixedClock&) = delete;
    FixedClock& operator=(const FixedClock&) = delete;

    void Set(platform::UtcTime time);
};

}  // namespace support
