#pragma once
// The regional date and time forms: short date dd/mm/yyyy, long time HH:MM:SS (24-hour).

#include <string>

#include "platform/clock.h"

namespace quellor {

std::string ShortDate(const LocalTime& t);        // "16/11/2026"
std::string LongTime(const LocalTime& t);         // "08:05:09"
std::string GeneralDateTime(const LocalTime& t);  // "16/11/2026 08:05:09"
std::string DayFileName(const LocalTime& t);      // short date with "/" as "-": "16-11-2026"
std::string CompactDate(const LocalTime& t);      // "20261116"
std::string CompactTime(const LocalTime& t);      // "080509"
std::string MonthAbbrev(int month);               // "Jan" ... "Dec"
std::string DayAbbrev(int weekday);               // "Sun" ... "Sat"
std::string StartTimeText(const LocalTime& t);    // "16 Nov 2026 08:05:09"

}  // namespace quellor
