// The host's calendar time: proleptic Gregorian, no time zone of its own (the user of a value knows whether it
// is UTC).
#pragma once

#include "host/base/gxstring.h"

class CGXTime {
 public:
  CGXTime() = default;  // all fields 0, an empty time
  CGXTime(int year, int month, int day, int hour, int minute, int second, int milliseconds = 0);

  int Year() const { return m_iYear; }
  int Month() const { return m_iMonth; }  // 1 to 12
  int Day() const { return m_iDay; }      // 1 to 31
  int Hour() const { return m_iHour; }
  int Minute() const { return m_iMinute; }
  int Second() const { return m_iSecond; }
  int MSecond() const { return m_iMSecond; }

  void Year(int year) { m_iYear = year; }
  void Month(int month) { m_iMonth = month; }
  void Day(int day) { m_iDay = day; }
  void Hour(int hour) { m_iHour = hour; }
  void Minute(int minute) { m_iMinute = minute; }
  void Second(int second) { m_iSecond = second; }
  void MSecond(int milliseconds) { m_iMSecond = milliseconds; }

  // Moves the time by whole seconds, carrying into every field; milliseconds stay. Fields out of range are
  // normalised.
  void AddSeconds(int seconds);

  // Now, with milliseconds: 1 gives UTC, 0 local time.
  void GetPresentTime(int utc);

  // "h:mm:ss AM" with mode 12, "hh:mm:ss" with any other.
  CGXString TimeTextSeconds(int clockDisplayMode) const;

 private:
  int m_iYear = 0, m_iMonth = 0, m_iDay = 0;
  int m_iHour = 0, m_iMinute = 0, m_iSecond = 0, m_iMSecond = 0;
};
