// time.h: UTCTime records, the C library's broken-down time, and seconds since the epoch.
//
// Seconds count from 1970-01-01 00:00:00 UTC, without leap seconds, in 64 bits on every host. A
// year field below 69 means 2000 plus it, every other value 1900 plus it; so 101 and 1 are both
// 2001. Years before 1970 count as 1970: their days are those of the year alone.
//
// QEL_ERR_BAD_PARAM everywhere: a null argument. QEL_ERR_NO_MEMORY where a record is made.
#ifndef UTIL_TIME_H
#define UTIL_TIME_H

#include <time.h>

#include <qel/qel.h>

// Seconds of a UTCTime. QEL_ERR_BAD_PARAM: a field out of range after ut2tm.
QelStatus utctime2time_t(const QelUTCTime *utctime, int64_t *seconds_out);

// A new UTCTime, in UTC, from a broken-down UTC time (as gmtime gives it); the caller frees it. The
// year field is years since 1900 as it stands.
QelStatus tm2ut(const struct tm *broken_down, QelUTCTime **utctime_out);

// A new broken-down time from a UTCTime; the caller frees it. A minute or an hour one step out of
// range is carried into the day, month and year (so 24:00 is midnight of the next day); other
// fields are copied unchecked. The offset from UTC is not applied. tm_yday and tm_isdst are 0.
QelStatus ut2tm(const QelUTCTime *utctime, struct tm **broken_down_out);

// Seconds of a broken-down time in UTC. QEL_ERR_BAD_PARAM: a second or minute outside 0..59, an
// hour outside 0..24, a day outside 1..31 or a month outside 0..11. The day is not held against the
// length of its month: 30 February is a day after the 29th. tm_wday, tm_yday and tm_isdst are not
// read.
QelStatus gtime(const struct tm *broken_down, int64_t *seconds_out);

// Day of the week, 0 (Sunday) to 6, of a date. In March of a leap year it is that of the day
// before. It is for information only. A null record gives 0.
int makewkday(const QelUTCTime *utctime);

#endif
