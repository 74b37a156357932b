#include "tests/support/FixedClock.h"

namespace support {
namespace {

platform::UtcTime standing;

platform::UtcTime Now() {
    return standing;
}

}  // namespace

FixedClock::FixedClock(platform::UtcTime time) {
    Set(time);
    platform::SetClock(Now);
}

FixedClock::~FixedClock() {
    platform::SetClock(nullptr);
}

void FixedClock::Set(platform::UtcTime time) {
    standing = time;
}

}  // namespace support
