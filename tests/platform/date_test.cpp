// DATE <-> SYSTEMTIME with the platform's rules.
#include <gtest/gtest.h>

#include "platform/automation.h"

namespace {

SYSTEMTIME make(WORD year, WORD month, WORD day, WORD hour = 0, WORD minute = 0, WORD second = 0,
                WORD milliseconds = 0) {
  return {year, month, 0, day, hour, minute, second, milliseconds};
}

SYSTEMTIME split(DATE value) {
  SYSTEMTIME st{};
  EXPECT_TRUE(VariantTimeToSystemTime(value, &st)) << value;
  return st;
}

DATE join(SYSTEMTIME st) {
  DATE value = -999999.0;
  EXPECT_TRUE(SystemTimeToVariantTime(&st, &value));
  return value;
}

void expect_fields(const SYSTEMTIME& st, int year, int month, int day, int hour, int minute, int second) {
  EXPECT_EQ(year, st.wYear);
  EXPECT_EQ(month, st.wMonth);
  EXPECT_EQ(day, st.wDay);
  EXPECT_EQ(hour, st.wHour);
  EXPECT_EQ(minute, st.wMinute);
  EXPECT_EQ(second, st.wSecond);
  EXPECT_EQ(0, st.wMilliseconds);
}

}  // namespace

TEST(Date, FixedPointsBothWays) {
  struct Case {
    DATE value;
    SYSTEMTIME fields;
  } cases[] = {
      {0.0, make(1899, 12, 30)},
      {2.5, make(1900, 1, 1, 12)},
      {-1.25, make(1899, 12, 29, 6)},
      {1.0, make(1899, 12, 31)},
      {-657434.0, make(100, 1, 1)},
      {2958465.0, make(9999, 12, 31)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.value);
    const SYSTEMTIME& f = c.fields;
    expect_fields(split(c.value), f.wYear, f.wMonth, f.wDay, f.wHour, f.wMinute, f.wSecond);
    EXPECT_EQ(c.value, join(c.fields));
  }
}

TEST(Date, NegativeFractionIsTheTimeOfThatDay) {
  // -0.5 and 0.5 both name 1899-12-30 12:00; -2.75 is 1899-12-28 18:00.
  expect_fields(split(-0.5), 1899, 12, 30, 12, 0, 0);
  expect_fields(split(-2.75), 1899, 12, 28, 18, 0, 0);
  EXPECT_EQ(-2.75, join(make(1899, 12, 28, 18)));
}

TEST(Date, RoundTripsDaysAndTimesAcrossTheRange) {
  for (int64_t day = -657434; day <= 2958465; day += 997) {
    for (int seconds : {0, 1, 3599, 43200, 86399}) {
      const DATE value = day >= 0 ? day + seconds / 86400.0 : day - seconds / 86400.0;
      EXPECT_EQ(value, join(split(value))) << day << " " << seconds;
    }
  }
}

TEST(Date, OutsideTheRangeFails) {
  SYSTEMTIME st;
  DATE value;
  EXPECT_FALSE(VariantTimeToSystemTime(-657435.0, &st));
  EXPECT_FALSE(VariantTimeToSystemTime(2958466.0, &st));
  EXPECT_FALSE(VariantTimeToSystemTime(2958465.99999999, &st));  // rounds into year 10000
  expect_fields(split(2958465.999988), 9999, 12, 31, 23, 59, 59);
  SYSTEMTIME tooLate = make(10000, 1, 1);
  EXPECT_FALSE(SystemTimeToVariantTime(&tooLate, &value));
  SYSTEMTIME badMonth = make(2000, 13, 1), badDay = make(2000, 1, 32);
  EXPECT_FALSE(SystemTimeToVariantTime(&badMonth, &value));
  EXPECT_FALSE(SystemTimeToVariantTime(&badDay, &value));
}

TEST(Date, MillisecondsRoundToTheSecondOrAreIgnored) {
  const double half = 0.5 / 86400, almostHalf = 0.499 / 86400;
  expect_fields(split(2.0 + 10.0 / 86400 + half), 1900, 1, 1, 0, 0, 11);
  expect_fields(split(2.0 + 10.0 / 86400 + almostHalf), 1900, 1, 1, 0, 0, 10);
  expect_fields(split(3.0 - half / 2), 1900, 1, 2, 0, 0, 0);  // 23:59:59.75 carries into the next day
  expect_fields(split(-1.0 - (86400 - 0.25) / 86400), 1899, 12, 30, 0, 0, 0);
}

// Leap years as the Gregorian calendar has them (1900 is not one, unlike the spreadsheet
// convention), fields beyond their range rolling over, two-digit years as 19xx, and no date at
// all as the time of day alone: each pair joins to DATEs `days` apart.
TEST(Date, CalendarRules) {
  const struct { SYSTEMTIME a, b; double days; } cases[] = {
      {make(1900, 2, 28), make(1900, 3, 1), 1}, {make(2000, 2, 28), make(2000, 3, 1), 2},
      {make(2100, 2, 28), make(2100, 3, 1), 1}, {make(2001, 3, 1), make(2001, 2, 29), 0},
      {make(1999, 12, 5), make(2000, 0, 5), 0}, {make(2000, 2, 29), make(2000, 3, 0), 0},
      {make(2000, 1, 2, 1), make(2000, 1, 1, 25), 0}, {make(1950, 6, 1), make(50, 6, 1), 0},
      {make(2010, 5, 6, 7, 8, 9), make(2010, 5, 6, 7, 8, 9, 999), 0},
      {make(1899, 12, 30, 18), make(0, 0, 0, 18), 0}, {make(1899, 12, 30), make(0, 0, 0), 0}};
  for (const auto& c : cases) EXPECT_EQ(join(c.a) + c.days, join(c.b)) << join(c.a);
  expect_fields(split(join(make(2004, 2, 29))), 2004, 2, 29, 0, 0, 0);
  expect_fields(split(join(make(0, 0, 0, 13, 14, 15))), 1899, 12, 30, 13, 14, 15);
  EXPECT_EQ(36526.0, join(make(2000, 1, 1)));
  expect_fields(split(40544.75), 2011, 1, 1, 18, 0, 0);
  EXPECT_EQ(6, split(0.0).wDayOfWeek);  // Saturday
  EXPECT_EQ(0, split(1.0).wDayOfWeek);
  EXPECT_EQ(5, split(-1.0).wDayOfWeek);
}
