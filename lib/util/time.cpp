// time.cpp: validity periods, UTCTime and the C library's times.

#include <util/time.h>

#include <cstdio>

#include <lib/memory.h>
#include <qel/qelp.h>

namespace {

constexpr int seconds_per_day = 86400;
constexpr int32_t last_second = INT32_MAX; // 2038-01-19 03:14:07, the end of a 32-bit clock
constexpr std::size_t printable_size = 25;

constexpr int month_lengths[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
constexpr int days_before_month[12] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
constexpr char month_names[12][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr char weekday_names[7][4] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

constexpr int64_t full_year(int field) {
    return int64_t{field} + (field < 69 ? 2000 : 1900);
}

// The field next to field that reads as the year after or before: 2068 is 68, but 2069 is 169.
constexpr int next_year_field(int field) {
    return field == 68 ? 169 : field + 1;
}
constexpr int previous_year_field(int field) {
    return field == 69 ? -32 : field - 1;
}

constexpr bool is_leap(int64_t year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

// Leap years from year 1 to year.
constexpr int64_t leap_years_through(int64_t year) {
    return year / 4 - year / 100 + year / 400;
}

constexpr bool in_range(int value, int low, int high) {
    return value >= low && value <= high;
}

constexpr bool has_month(const struct tm *t) {
    return in_range(t->tm_mon, 0, 11);
}

int length_of_month(const struct tm *t) {
    return month_lengths[t->tm_mon] + (t->tm_mon == 1 && is_leap(full_year(t->tm_year)) ? 1 : 0);
}

// A month that does not exist is left as it is, so that it does not become one that does.
void step_to_previous_day(struct tm *t) {
    if (--t->tm_mday >= 1 || !has_month(t))
        return;
    if (--t->tm_mon < 0) {
        t->tm_mon = 11;
        t->tm_year = previous_year_field(t->tm_year);
    }
    t->tm_mday = length_of_month(t);
}

void step_to_next_day(struct tm *t) {
    ++t->tm_mday;
    if (!has_month(t) || t->tm_mday <= length_of_month(t))
        return;
    t->tm_mday = 1;
    if (++t->tm_mon > 11) {
        t->tm_mon = 0;
        t->tm_year = next_year_field(t->tm_year);
    }
}

// At most one step of each field.
void carry(struct tm *t) {
    if (t->tm_min < 0) {
        t->tm_min += 60;
        --t->tm_hour;
    } else if (t->tm_min > 59) {
        t->tm_min -= 60;
        ++t->tm_hour;
    }
    if (t->tm_hour < 0) {
        t->tm_hour += 24;
        step_to_previous_day(t);
    } else if (t->tm_hour > 23) {
        t->tm_hour -= 24;
        step_to_next_day(t);
    }
}

QelStatus utctime_at(int64_t seconds, QelUTCTime **utctime_out) {
    const auto clock = static_cast<time_t>(seconds);
    struct tm broken_down;
    if (clock != seconds || gmtime_r(&clock, &broken_down) == nullptr)
        return QEL_ERR_GENERAL;
    return tm2ut(&broken_down, utctime_out);
}

QelStatus read_clock(int64_t *now) {
    const time_t clock = time(nullptr);
    if (clock == static_cast<time_t>(-1))
        return QEL_ERR_GENERAL;
    *now = clock;
    return QEL_OK;
}

// count days after now, on a 32-bit clock: the product is a 32-bit one, and where it or the sum
// runs over the end of the clock, the end of the clock.
int64_t end_of_validity(int64_t now, int32_t count) {
    const auto product =
        static_cast<int32_t>(static_cast<uint32_t>(count) * static_cast<uint32_t>(seconds_per_day));
    const bool ran_over = count > 0 && product < 0;
    if (ran_over || now > int64_t{last_second} - product)
        return last_second;
    return now + product;
}

} // namespace

QelStatus gtime(const struct tm *broken_down, int64_t *seconds_out) {
    if (seconds_out != nullptr)
        *seconds_out = 0;
    if (broken_down == nullptr || seconds_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    const struct tm &t = *broken_down;
    if (!in_range(t.tm_sec, 0, 59) || !in_range(t.tm_min, 0, 59) || !in_range(t.tm_hour, 0, 24) ||
        !in_range(t.tm_mday, 1, 31) || !in_range(t.tm_mon, 0, 11))
        return QEL_ERR_BAD_PARAM;

    const int day = t.tm_hour == 24 ? t.tm_mday + 1 : t.tm_mday;
    const int hour = t.tm_hour == 24 ? 0 : t.tm_hour;
    const int64_t year = full_year(t.tm_year);
    int64_t days = 0;
    if (year > 1970)
        days = (year - 1970) * 365 + leap_years_through(year - 1) - leap_years_through(1969);
    days += days_before_month[t.tm_mon] + (t.tm_mon >= 2 && is_leap(year) ? 1 : 0) + (day - 1);
    *seconds_out = ((days * 24 + hour) * 60 + t.tm_min) * 60 + t.tm_sec;
    return QEL_OK;
}

QelStatus ut2tm(const QelUTCTime *utctime, struct tm **broken_down_out) {
    if (broken_down_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *broken_down_out = nullptr;
    if (utctime == nullptr)
        return QEL_ERR_BAD_PARAM;
    auto *t = qel::allocate<struct tm>();
    if (t == nullptr)
        return QEL_ERR_NO_MEMORY;
    t->tm_sec = utctime->second;
    t->tm_min = utctime->minute;
    t->tm_hour = utctime->hour;
    t->tm_mday = utctime->day;
    t->tm_mon = utctime->month - 1;
    t->tm_year = utctime->year;
    t->tm_wday = makewkday(utctime);
    carry(t);
    *broken_down_out = t;
    return QEL_OK;
}

QelStatus tm2ut(const struct tm *broken_down, QelUTCTime **utctime_out) {
    if (utctime_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *utctime_out = nullptr;
    if (broken_down == nullptr)
        return QEL_ERR_BAD_PARAM;
    auto *utctime = qel::allocate<QelUTCTime>();
    if (utctime == nullptr)
        return QEL_ERR_NO_MEMORY;
    utctime->year = static_cast<int16_t>(broken_down->tm_year);
    utctime->month = static_cast<int16_t>(broken_down->tm_mon + 1);
    utctime->day = static_cast<int16_t>(broken_down->tm_mday);
    utctime->hour = static_cast<int16_t>(broken_down->tm_hour);
    utctime->minute = static_cast<int16_t>(broken_down->tm_min);
    utctime->second = static_cast<int16_t>(broken_down->tm_sec);
    utctime->utc = 1;
    *utctime_out = utctime;
    return QEL_OK;
}

QelStatus utctime2time_t(const QelUTCTime *utctime, int64_t *seconds_out) {
    if (seconds_out != nullptr)
        *seconds_out = 0;
    if (utctime == nullptr || seconds_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    struct tm *t = nullptr;
    if (const QelStatus status = ut2tm(utctime, &t); status != QEL_OK)
        return status;
    const qel::Owned<struct tm> owner(t);
    return gtime(t, seconds_out);
}

int makewkday(const QelUTCTime *utctime) {
    if (utctime == nullptr)
        return 0;
    const int64_t year = full_year(utctime->year);
    int64_t days = year + (year + 3) / 4 + 4;
    if (year > 1800)
        days += (year - 1601) / 400 - (year - 1701) / 100;
    if (year > 1752)
        days += 3;
    if (is_leap(year) && utctime->month >= 4)
        ++days;
    if (in_range(utctime->month, 1, 12))
        days += days_before_month[utctime->month - 1];
    days += utctime->day - 1;
    return static_cast<int>((days % 7 + 7) % 7);
}

QelStatus __qel_set_validity(int unit, int32_t count, QelValidity **validity_out) {
    if (validity_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *validity_out = nullptr;
    int64_t now = 0;
    if (const QelStatus status = read_clock(&now); status != QEL_OK)
        return status;
    QelUTCTime *made = nullptr;
    if (const QelStatus status = utctime_at(now, &made); status != QEL_OK)
        return status;
    qel::Owned<QelUTCTime> not_before(made);
    if (unit != 1)
        return QEL_ERR_BAD_PARAM;
    if (const QelStatus status = utctime_at(end_of_validity(now, count), &made); status != QEL_OK)
        return status;
    qel::Owned<QelUTCTime> not_after(made);
    auto *validity = qel::allocate<QelValidity>();
    if (validity == nullptr)
        return QEL_ERR_NO_MEMORY;
    validity->notBefore = not_before.release();
    validity->notAfter = not_after.release();
    *validity_out = validity;
    return QEL_OK;
}

QelStatus __qel_is_current(const QelValidity *validity) {
    if (validity == nullptr)
        return QEL_OK;
    int64_t now = 0;
    int64_t not_before = 0;
    int64_t not_after = 0;
    if (const QelStatus status = read_clock(&now); status != QEL_OK)
        return status;
    if (const QelStatus status = utctime2time_t(validity->notBefore, &not_before); status != QEL_OK)
        return status;
    if (const QelStatus status = utctime2time_t(validity->notAfter, &not_after); status != QEL_OK)
        return status;
    return not_before < now && now < not_after ? QEL_OK : QEL_ERR_KEY_EXPIRED;
}

QelStatus __qel_printable_time(const QelUTCTime *utctime, char **text_out) {
    if (text_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *text_out = nullptr;
    int64_t seconds = 0;
    if (const QelStatus status = utctime2time_t(utctime, &seconds); status != QEL_OK)
        return status;
    const auto clock = static_cast<time_t>(seconds);
    struct tm t;
    tzset();
    if (clock != seconds || localtime_r(&clock, &t) == nullptr)
        return QEL_ERR_BUFFER_SIZE;

    char form[64]; // as ctime writes it, which has no room for a year of five digits
    std::snprintf(form, sizeof form, "%.3s %.3s%3d %.2d:%.2d:%.2d %d", weekday_names[t.tm_wday],
                  month_names[t.tm_mon], t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec,
                  1900 + t.tm_year);
    qel::Owned<char> text(reinterpret_cast<char *>(qel::allocate_bytes(printable_size)));
    if (!text)
        return QEL_ERR_NO_MEMORY;
    std::snprintf(text.get(), printable_size, "%-24.24s", form);
    *text_out = text.release();
    return QEL_OK;
}

QelStatus __qel_get_current_time(char **text_out) {
    if (text_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *text_out = nullptr;
    int64_t now = 0;
    if (const QelStatus status = read_clock(&now); status != QEL_OK)
        return status;
    QelUTCTime *made = nullptr;
    if (const QelStatus status = utctime_at(now, &made); status != QEL_OK)
        return status;
    const qel::Owned<QelUTCTime> owner(made);
    return __qel_printable_time(made, text_out);
}
