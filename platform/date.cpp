#include <cmath>

#include "platform/automation.h"

namespace {

constexpr int64_t kSecondsPerDay = 86400;

// Days since 1970-01-01 of a proleptic Gregorian date (month 1-12, day 1-31).
int64_t days_from_civil(int64_t year, int64_t month, int64_t day) {
  year -= month <= 2;
  const int64_t era = (year >= 0 ? year : year - 399) / 400;
  const int64_t yearOfEra = year - era * 400;
  const int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
  const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

struct CivilDate {
  int64_t year, month, day;
};

CivilDate civil_from_days(int64_t days) {
  days += 719468;
  const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const int64_t dayOfEra = days - era * 146097;
  const int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;
  const int64_t day = dayOfYear - (153 * shiftedMonth + 2) / 5 + 1;
  const int64_t month = shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9;
  return {yearOfEra + era * 400 + (month <= 2), month, day};
}

int64_t floor_div(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

// Day numbers of DATE: day 0 is 1899-12-30.
const int64_t kEpoch = days_from_civil(1899, 12, 30);
constexpr int64_t kFirstDay = -657434;  // 100-01-01
constexpr int64_t kLastDay = 2958465;   // 9999-12-31

bool in_range(int64_t day) { return day >= kFirstDay && day <= kLastDay; }

}  // namespace

INT VariantTimeToSystemTime(DOUBLE vtime, LPSYSTEMTIME st) {
  if (!st || !(vtime > double(kFirstDay - 1) && vtime < double(kLastDay + 1))) return FALSE;
  // Before day 0 the integer part still names the day and the fraction is the time of day.
  const double dayPart = std::trunc(vtime);
  int64_t day = int64_t(dayPart);
  int64_t seconds = int64_t(std::floor(std::fabs(vtime - dayPart) * kSecondsPerDay + 0.5));
  if (seconds >= kSecondsPerDay) {
    ++day;
    seconds -= kSecondsPerDay;
  }
  if (!in_range(day)) return FALSE;
  const CivilDate date = civil_from_days(day + kEpoch);
  st->wYear = WORD(date.year);
  st->wMonth = WORD(date.month);
  st->wDay = WORD(date.day);
  st->wDayOfWeek = WORD(((day % 7) + 7 + 6) % 7);  // day 0 was a Saturday
  st->wHour = WORD(seconds / 3600);
  st->wMinute = WORD(seconds / 60 % 60);
  st->wSecond = WORD(seconds % 60);
  st->wMilliseconds = 0;
  return TRUE;
}

INT SystemTimeToVariantTime(LPSYSTEMTIME st, DOUBLE* vtime) {
  if (!st || !vtime || st->wMonth > 12 || st->wDay > 31) return FALSE;
  int64_t day = 0;  // year, month and day all zero: a time of day alone
  if (st->wYear != 0 || st->wMonth != 0 || st->wDay != 0) {
    const int64_t year = st->wYear < 100 ? 1900 + st->wYear : st->wYear;
    const int64_t monthIndex = year * 12 + st->wMonth - 1;  // month 0 rolls back a year
    const int64_t normalYear = floor_div(monthIndex, 12);
    const int64_t normalMonth = monthIndex - normalYear * 12 + 1;
    day = days_from_civil(normalYear, normalMonth, 1) - kEpoch + st->wDay - 1;
  }
  int64_t seconds = int64_t(st->wHour) * 3600 + int64_t(st->wMinute) * 60 + st->wSecond;
  day += seconds / kSecondsPerDay;
  seconds %= kSecondsPerDay;
  if (!in_range(day)) return FALSE;
  const double time = double(seconds) / kSecondsPerDay;
  *vtime = day >= 0 ? double(day) + time : double(day) - time;
  return TRUE;
}
