#include "host/base/gxtime.h"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <limits>

namespace {

constexpr int64_t SECONDS_PER_DAY = 86400;
// The calendar repeats every 400 years.
constexpr int64_t DAYS_PER_ERA = 146097;
constexpr int64_t YEARS_PER_ERA = 400;

int64_t FloorDiv(int64_t value, int64_t divisor) {
  return value / divisor - (value % divisor < 0 ? 1 : 0);
}

// Days from 1 March of year 0 to that date. Years are counted from March, so that the leap day ends them.
// `month` from 0 (January); months and days may lie outside their range.
int64_t DayNumber(int64_t year, int64_t month, int64_t day) {
  const int64_t months = year * 12 + month - 2;
  const int64_t marchYear = FloorDiv(months, 12);
  const int64_t marchMonth = months - marchYear * 12;
  return marchYear * 365 + FloorDiv(marchYear, 4) - FloorDiv(marchYear, 100) + FloorDiv(marchYear, 400) +
         (marchMonth * 153 + 2) / 5 + day - 1;
}

struct CivilDate {
  int64_t Year;
  int Month, Day;  // from 1
};

CivilDate DateOfDayNumber(int64_t number) {
  const int64_t era = FloorDiv(number, DAYS_PER_ERA);
  const int64_t dayOfEra = number - era * DAYS_PER_ERA;
  const int64_t yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / (DAYS_PER_ERA - 1)) / 365;
  const int64_t dayOfYear = dayOfEra - (yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100);
  const int64_t marchMonth = (dayOfYear * 5 + 2) / 153;
  const int64_t day = dayOfYear - (marchMonth * 153 + 2) / 5 + 1;
  const int64_t month = marchMonth < 10 ? marchMonth + 3 : marchMonth - 9;
  return {era * YEARS_PER_ERA + yearOfEra + (month <= 2 ? 1 : 0), static_cast<int>(month),
          static_cast<int>(day)};
}

}  // namespace

CGXTime::CGXTime(int year, int month, int day, int hour, int minute, int second, int milliseconds)
    : m_iYear(year),
      m_iMonth(month),
      m_iDay(day),
      m_iHour(hour),
      m_iMinute(minute),
      m_iSecond(second),
      m_iMSecond(milliseconds) {}

void CGXTime::AddSeconds(int seconds) {
  const int64_t ofDay =
      int64_t{m_iHour} * 3600 + int64_t{m_iMinute} * 60 + int64_t{m_iSecond} + int64_t{seconds};
  const int64_t carry = FloorDiv(ofDay, SECONDS_PER_DAY);
  const CivilDate date = DateOfDayNumber(DayNumber(m_iYear, int64_t{m_iMonth} - 1, m_iDay) + carry);
  m_iYear = static_cast<int>(
      std::clamp<int64_t>(date.Year, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
  m_iMonth = date.Month;
  m_iDay = date.Day;
  const int rest = static_cast<int>(ofDay - carry * SECONDS_PER_DAY);
  m_iHour = rest / 3600;
  m_iMinute = rest / 60 % 60;
  m_iSecond = rest % 60;
}

void CGXTime::GetPresentTime(int utc) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  std::tm fields{};
  if (utc != 0) {
    gmtime_r(&now.tv_sec, &fields);
  } else {
    localtime_r(&now.tv_sec, &fields);
  }
  *this = CGXTime(fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday, fields.tm_hour, fields.tm_min,
                  fields.tm_sec, static_cast<int>(now.tv_nsec / 1000000));
}

CGXString CGXTime::TimeTextSeconds(int clockDisplayMode) const {
  CGXString text;
  if (clockDisplayMode == 12) {
    const int hour = m_iHour % 12 > 0 ? m_iHour % 12 : m_iHour % 12 + 12;
    text.Format("%d:%02d:%02d %s", hour, m_iMinute, m_iSecond, m_iHour % 24 < 12 ? "AM" : "PM");
  } else {
    text.Format("%02d:%02d:%02d", m_iHour, m_iMinute, m_iSecond);
  }
  return text;
}
