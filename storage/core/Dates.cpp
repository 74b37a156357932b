// SPDX-License-Identifier: MIT
#include "storage/core/Dates.h"

#include <cmath>

#include "platform/Clock.h"

namespace storage {

namespace {

constexpr uint32_t kDayOfEpoch = 693594;  // ordinal of 1899-12-30, 1 being 0001-01-01
constexpr double kPastDates = 23242573;   // 65536-01-01, whose year a caller's number does not hold

bool IsLeap(uint32_t year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

uint32_t DaysIn(uint32_t month, uint32_t year) {
    constexpr uint8_t kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeap(year) ? 29 : kDays[month - 1];
}

int64_t OrdinalDay(const platform::UtcTime& time) {
    const uint32_t before = time.year - 1u;
    constexpr uint16_t kBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    const int64_t day = int64_t{before} * 365 + before / 4 - before / 100 + before / 400 + time.day;
    return day + kBefore[time.month - 1] + (time.month > 2 && IsLeap(time.year) ? 1 : 0);
}

}  // namespace

double CurrentDate() {
    const platform::UtcTime now = platform::UtcNow();
    if (now.year < 1 || now.year > 9999 || now.month < 1 || now.month > 12) return 0.0;
    const int64_t millisecond =
        ((now.hour * int64_t{60} + now.minute) * 60 + now.second) * 1000 + now.millisecond;
    return static_cast<double>(OrdinalDay(now) - kDayOfEpoch) +
           static_cast<double>(millisecond) / 86400000.0;
}

void DecodeDate(double date, uint16_t* year, uint16_t* month, uint16_t* day) {
    *year = *month = *day = 0;
    if (!(date >= 0 && date < kPastDates)) return;
    uint32_t rest = static_cast<uint32_t>(date) + kDayOfEpoch;
    const uint32_t a = rest / 146097;
    rest %= 146097;
    const uint32_t b = rest / 36524;
    rest %= 36524;
    const uint32_t c = rest / 1461;
    rest %= 1461;
    const uint32_t d = rest / 365;
    rest %= 365;
    const uint32_t inYear = 400 * a + 100 * b + 4 * c + d + 1;
    uint32_t inMonth = 1;
    while (rest > DaysIn(inMonth, inYear)) rest -= DaysIn(inMonth++, inYear);
    *year = static_cast<uint16_t>(inYear);
    *month = static_cast<uint16_t>(inMonth);
    *day = static_cast<uint16_t>(rest);
}

void DecodeTime(double date, uint16_t* hour, uint16_t* minute, uint16_t* second,
                uint16_t* millisecond) {
    const double fraction = std::isfinite(date) ? date - std::floor(date) : 0.0;
    uint32_t rest = static_cast<uint32_t>(fraction * 86400000.5);
    *hour = static_cast<uint16_t>(rest / 3600000);
    rest %= 3600000;
    *minute = static_cast<uint16_t>(rest / 60000);
    rest %= 60000;
    *second = static_cast<uint16_t>(rest / 1000);
    *millisecond = static_cast<uint16_t>(rest % 1000);
}

}  // namespace storage
