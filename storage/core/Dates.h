// SPDX-License-Identifier: MIT
// Dates of the container: doubles, whole days since 1899-12-30 and the fraction of a day, in UTC.
#pragma once

#include <cstdint>

namespace storage {

// Now, with millisecond precision; 0.0 when the clock is outside the years 1 to 9999.
double CurrentDate();

// A negative date gives 0, 0, 0. December 31 of a year, and December 30 of a leap year too, comes
// out as day 0 of January of the next year, which callers read as that.
void DecodeDate(double date, uint16_t* year, uint16_t* month, uint16_t* day);
void DecodeTime(double date, uint16_t* hour, uint16_t* minute, uint16_t* second,
                uint16_t* millisecond);

}  // namespace storage
