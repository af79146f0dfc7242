#pragma once
// DATE <-> calendar fields. A DATE counts days from 1899-12-30 00:00; before that day the integer
// part is the (negative) day and the fraction is still the time of day, so -1.25 is
// 1899-12-29 06:00. Valid calendar range: 100-01-01 to 9999-12-31.
#include "platform/types.h"

typedef struct _SYSTEMTIME {
  WORD wYear;
  WORD wMonth;
  WORD wDayOfWeek;
  WORD wDay;
  WORD wHour;
  WORD wMinute;
  WORD wSecond;
  WORD wMilliseconds;
} SYSTEMTIME, *PSYSTEMTIME, *LPSYSTEMTIME;

// Splits a DATE, rounding to the nearest second; wMilliseconds is always 0 and wDayOfWeek is
// filled (0 = Sunday). FALSE when the DATE lies outside the valid range.
INT VariantTimeToSystemTime(DOUBLE vtime, LPSYSTEMTIME st);
// Joins calendar fields; wMilliseconds and wDayOfWeek are ignored. Months, days, hours, minutes
// and seconds beyond their range roll over into the next larger field (month 0 is December of
// the year before, day 0 the last day of the month before); years 0-99 mean 1900-1999.
// Year, month and day all zero mean a time of day alone: the result's day part is zero.
// FALSE when wMonth > 12, wDay > 31 or the result lies outside the valid range.
INT SystemTimeToVariantTime(LPSYSTEMTIME st, DOUBLE* vtime);
