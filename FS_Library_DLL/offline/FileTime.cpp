// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/offline/FileTime.h"

namespace {

constexpr uint64_t kTicksPerMillisecond = 10000;
constexpr uint64_t kMillisecondsPerDay = 86400000;
constexpr uint32_t kDaysPerCycle = 146097;  // 400 years

// The date `days` after 1601-01-01. Years are counted from the first of March before that, so that
// the leap day is the last one of its year.
void SplitDate(uint64_t days, FBR_SYSTEMTIME* time) {
    const uint64_t shifted = days + 306;  // from 1600-03-01
    const uint64_t cycle = shifted / kDaysPerCycle;
    const auto day = static_cast<uint32_t>(shifted % kDaysPerCycle);
    const uint32_t year = (day - day / 1460 + day / 36524 - day / 146096) / 365;
    const uint32_t dayOfYear = day - (365 * year + year / 4 - year / 100);
    const uint32_t month = (5 * dayOfYear + 2) / 153;  // 0 is March
    time->wDay = static_cast<uint16_t>(dayOfYear - (153 * month + 2) / 5 + 1);
    time->wMonth = static_cast<uint16_t>(month < 10 ? month + 3 : month - 9);
    time->wYear = static_cast<uint16_t>(1600 + cycle * 400 + year + (month < 10 ? 0 : 1));
    time->wDayOfWeek = static_cast<uint16_t>((days + 1) % 7);
}

}  // namespace

bool FileTimeToCalendar(uint64_t ticks, FBR_SYSTEMTIME* time) {
    if (ticks >> 63 != 0) return false;
    const uint64_t milliseconds = ticks / kTicksPerMillisecond;
    auto rest = static_cast<uint32_t>(milliseconds % kMillisecondsPerDay);
    SplitDate(milliseconds / kMillisecondsPerDay, time);
    time->wMilliseconds = static_cast<uint16_t>(rest % 1000);
    rest /= 1000;
    time->wSecond = static_cast<uint16_t>(rest % 60);
    rest /= 60;
    time->wMinute = static_cast<uint16_t>(rest % 60);
    time->wHour = static_cast<uint16_t>(rest / 60);
    return true;
}
