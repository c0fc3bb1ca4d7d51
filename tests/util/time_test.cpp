#include "support/fault.h"

#include <util/time.h>

#include <gtest/gtest.h>

#include <lib/memory.h>
#include <qel/qelp.h>

#include <cstdlib>
#include <string>
#include <utility>

namespace {

void free_validity(QelValidity **validity) {
    if (*validity != nullptr) {
        std::free((*validity)->notBefore);
        std::free((*validity)->notAfter);
    }
    std::free(*validity);
}
using OwnedValidity = qel::Record<QelValidity, free_validity>;

QelUTCTime utctime(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    const auto narrow = [](int field) { return static_cast<int16_t>(field); };
    return {narrow(year),
            narrow(month),
            narrow(day),
            narrow(hour),
            narrow(minute),
            narrow(second),
            0,
            0,
            1};
}

struct SecondsCase {
    const char *reason;
    QelUTCTime time;
    QelStatus status;
    int64_t seconds;
};

const SecondsCase seconds_cases[] = {
    {"the epoch", utctime(70, 1, 1), QEL_OK, 0},
    {"1 March of a leap year", utctime(100, 3, 1), QEL_OK, 951868800},
    {"29 February of a leap year", utctime(100, 2, 29), QEL_OK, 951782400},
    {"2100 is no leap year", utctime(200, 3, 1), QEL_OK, 4107542400},
    {"a year since 2000", utctime(1, 1, 1), QEL_OK, 978307200},
    {"the same year since 1900", utctime(101, 1, 1), QEL_OK, 978307200},
    {"68 is 2068", utctime(68, 1, 1), QEL_OK, 3092601600},
    {"69 is 1969, whose days count from 1970", utctime(69, 1, 2), QEL_OK, 86400},
    {"a negative year counts from 2000", utctime(-1, 1, 1), QEL_OK, 915148800},
    {"hour 24 is midnight of the next day", utctime(96, 1, 31, 24), QEL_OK, 823132800},
    {"hour 24 at the end of February", utctime(96, 2, 29, 24), QEL_OK, 825638400},
    {"hour 24 at the end of a year", utctime(99, 12, 31, 24), QEL_OK, 946684800},
    {"hour 24 at the end of 2068", utctime(68, 12, 31, 24), QEL_OK, 3124224000},
    {"minute 60 is the next hour", utctime(96, 1, 1, 0, 60), QEL_OK, 820458000},
    {"minute 60 after hour 23", utctime(95, 12, 31, 23, 60), QEL_OK, 820454400},
    {"minute -1 is the hour before", utctime(96, 1, 1, 1, -1), QEL_OK, 820457940},
    {"minute -1 at midnight, 1 January", utctime(96, 1, 1, 0, -1), QEL_OK, 820454340},
    {"minute -1 at midnight, 1 March, leap", utctime(96, 3, 1, 0, -1), QEL_OK, 825638340},
    {"minute -1 at midnight, 1 March", utctime(97, 3, 1, 0, -1), QEL_OK, 857174340},
    {"hour -1", utctime(96, 1, 2, -1), QEL_OK, 820537200},
    {"hour -1 on 1 January 1969 is of 1968", utctime(69, 1, 1, -1), QEL_OK, 31618800},
    {"minute two steps out", utctime(96, 1, 1, 0, 120), QEL_ERR_BAD_PARAM, 0},
    {"hour two steps out", utctime(96, 1, 1, 50), QEL_ERR_BAD_PARAM, 0},
    {"second 60", utctime(96, 1, 1, 0, 0, 60), QEL_ERR_BAD_PARAM, 0},
    {"second -1", utctime(96, 1, 1, 0, 0, -1), QEL_ERR_BAD_PARAM, 0},
    {"day 0", utctime(96, 1, 0), QEL_ERR_BAD_PARAM, 0},
    {"day 31 of a short month runs on", utctime(97, 2, 31), QEL_OK, 857347200},
    {"day 32", utctime(96, 1, 32), QEL_ERR_BAD_PARAM, 0},
    {"month 0", utctime(96, 0, 1), QEL_ERR_BAD_PARAM, 0},
    {"month 13", utctime(96, 13, 1), QEL_ERR_BAD_PARAM, 0},
    {"hour -1 does not make month 13 a month", utctime(96, 13, 1, -1), QEL_ERR_BAD_PARAM, 0},
    {"nor month 0", utctime(96, 0, 1, -1), QEL_ERR_BAD_PARAM, 0},
    {"month 0 and hour 24", utctime(96, 0, 31, 24), QEL_ERR_BAD_PARAM, 0},
    {"month 13 and hour 24", utctime(96, 13, 31, 24), QEL_ERR_BAD_PARAM, 0},
    {"extreme fields", utctime(-32768, -32768, -32768, -32768, -32768), QEL_ERR_BAD_PARAM, 0},
    {"the last year of the record", utctime(32767, 1, 1), QEL_OK, 1031817657600},
};

TEST(Time, counts_seconds) {
    for (const SecondsCase &row : seconds_cases) {
        int64_t seconds = 77;
        EXPECT_EQ(utctime2time_t(&row.time, &seconds), row.status) << row.reason;
        EXPECT_EQ(seconds, row.seconds) << row.reason;
    }
}

// Every day of the years that a certificate of two-digit years can name, against the C library.
TEST(Time, agrees_with_the_c_library_on_every_day) {
    for (int64_t day = 0; day < 50 * 365 * 2; ++day) {
        const int64_t seconds = day * 86400 + day % 86400;
        const auto clock = static_cast<time_t>(seconds);
        if (clock != seconds)
            break; // a 32-bit clock ends in 2038
        struct tm expected;
        ASSERT_NE(gmtime_r(&clock, &expected), nullptr);
        int64_t back = 0;
        ASSERT_EQ(gtime(&expected, &back), QEL_OK);
        ASSERT_EQ(back, seconds);

        QelUTCTime *record = nullptr;
        ASSERT_EQ(tm2ut(&expected, &record), QEL_OK);
        const qel::Owned<QelUTCTime> record_owner(record);
        const bool early = expected.tm_mon == 2 && expected.tm_year % 4 == 0;
        EXPECT_EQ(makewkday(record), (expected.tm_wday + (early ? 6 : 0)) % 7) << "day " << day;
        ASSERT_EQ(utctime2time_t(record, &back), QEL_OK);
        ASSERT_EQ(back, seconds);
        if (testing::Test::HasFailure())
            return;
    }
}

TEST(Time, hour_24_of_a_broken_down_time_does_not_carry_into_the_month) {
    struct tm t = {};
    t.tm_year = 96;
    t.tm_mday = 31;
    t.tm_hour = 24;
    int64_t seconds = 0;
    EXPECT_EQ(gtime(&t, &seconds), QEL_OK);
    EXPECT_EQ(seconds, 823132800); // 1 February 1996
    t.tm_hour = 25;
    EXPECT_EQ(gtime(&t, &seconds), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(seconds, 0);
}

// The start and length, in seconds, of a new validity period.
std::pair<int64_t, int64_t> period(const QelValidity *validity) {
    int64_t start = 0;
    int64_t end = 0;
    EXPECT_EQ(utctime2time_t(validity->notBefore, &start), QEL_OK);
    EXPECT_EQ(utctime2time_t(validity->notAfter, &end), QEL_OK);
    return {start, end - start};
}

TEST(Validity, lasts_so_many_days) {
    // The present of this test is far enough from the end of the 32-bit clock for these.
    for (const int32_t count : {0, 1, 30, 365, 3650, -1}) {
        SCOPED_TRACE(count);
        const int64_t before = time(nullptr);
        QelValidity *validity = nullptr;
        ASSERT_EQ(__qel_set_validity(1, count, &validity), QEL_OK);
        const OwnedValidity owner(validity);
        const auto [start, length] = period(validity);
        EXPECT_GE(start, before);
        EXPECT_LE(start, int64_t{time(nullptr)});
        EXPECT_EQ(length, int64_t{count} * 86400);
    }
}

TEST(Validity, ends_with_the_32_bit_clock) {
    for (const int32_t count : {24000, 24855, 24856, 25000, 1000000, INT32_MAX}) {
        QelValidity *validity = nullptr;
        ASSERT_EQ(__qel_set_validity(1, count, &validity), QEL_OK);
        const OwnedValidity owner(validity);
        const auto [start, length] = period(validity);
        EXPECT_EQ(start + length, INT32_MAX) << count;
    }
}

TEST(Validity, reports_failures) {
    auto *validity = reinterpret_cast<QelValidity *>(1);
    EXPECT_EQ(__qel_set_validity(2, 1, &validity), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(validity, nullptr);
    EXPECT_EQ(__qel_set_validity(1, 1, nullptr), QEL_ERR_BAD_PARAM);

    fault::fail(fault::Call::time, 1); // the clock is read before the unit is looked at
    EXPECT_EQ(__qel_set_validity(2, 1, &validity), QEL_ERR_GENERAL);
    EXPECT_TRUE(fault::clear(fault::Call::time));

    fault::each_allocation([] {
        QelValidity *made = nullptr;
        const QelStatus status = __qel_set_validity(1, 1, &made);
        const OwnedValidity owner(made);
        EXPECT_EQ(status, fault::met() ? QEL_ERR_NO_MEMORY : QEL_OK);
        EXPECT_EQ(made == nullptr, fault::met());
    });
}

QelUTCTime at(int64_t seconds) {
    const auto clock = static_cast<time_t>(seconds);
    struct tm t;
    gmtime_r(&clock, &t);
    return utctime(t.tm_year, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec);
}

struct CurrentCase {
    const char *reason;
    int start, end; // seconds from now
    QelStatus status;
};

const CurrentCase current_cases[] = {
    {"now is between", -1, 1, QEL_OK},
    {"it starts now", 0, 1, QEL_ERR_KEY_EXPIRED},
    {"it ends now", -1, 0, QEL_ERR_KEY_EXPIRED},
    {"it is over", -2, -1, QEL_ERR_KEY_EXPIRED},
    {"it is still to come", 1, 2, QEL_ERR_KEY_EXPIRED},
    {"it ends before it starts", 1, -1, QEL_ERR_KEY_EXPIRED},
};

TEST(Validity, holds_strictly_between_its_ends) {
    for (const CurrentCase &row : current_cases) {
        SCOPED_TRACE(row.reason);
        QelStatus status = QEL_OK;
        for (time_t now = 0; now != time(nullptr);) { // until no second ended meanwhile
            now = time(nullptr);
            QelUTCTime start = at(now + row.start);
            QelUTCTime end = at(now + row.end);
            const QelValidity validity = {&start, &end};
            status = __qel_is_current(&validity);
        }
        EXPECT_EQ(status, row.status);
    }
}

TEST(Validity, the_offset_is_not_applied) {
    QelUTCTime start = at(time(nullptr) - 60);
    QelUTCTime end = at(time(nullptr) + 60);
    start.mindiff = end.mindiff = 480;
    start.utc = end.utc = 0;
    const QelValidity validity = {&start, &end};
    EXPECT_EQ(__qel_is_current(&validity), QEL_OK);
}

TEST(Validity, is_not_current_when_it_cannot_be_told) {
    EXPECT_EQ(__qel_is_current(nullptr), QEL_OK);
    QelUTCTime past = utctime(96, 1, 1);
    QelUTCTime future = utctime(130, 1, 1);
    QelUTCTime bad = utctime(96, 13, 1);
    const QelValidity good = {&past, &future};
    EXPECT_EQ(__qel_is_current(&good), QEL_OK);
    for (const QelValidity &validity : {QelValidity{&bad, &future}, QelValidity{&past, &bad},
                                        QelValidity{nullptr, &future}, QelValidity{&past, nullptr}})
        EXPECT_EQ(__qel_is_current(&validity), QEL_ERR_BAD_PARAM);

    fault::fail(fault::Call::time, 1);
    EXPECT_EQ(__qel_is_current(&good), QEL_ERR_GENERAL);
    EXPECT_TRUE(fault::clear(fault::Call::time));
    fault::fail(fault::Call::time, 1);
    EXPECT_EQ(__qel_is_current(nullptr), QEL_OK); // without a look at the clock
    EXPECT_FALSE(fault::clear(fault::Call::time));
    fault::each_allocation([&] {
        const QelStatus status = __qel_is_current(&good);
        EXPECT_EQ(status, fault::met() ? QEL_ERR_NO_MEMORY : QEL_OK);
    });
}

std::string printed(const QelUTCTime &time) {
    char *text = nullptr;
    EXPECT_EQ(__qel_printable_time(&time, &text), QEL_OK);
    const qel::Owned<char> owner(text);
    return text != nullptr ? text : "";
}

TEST(PrintableTime, is_that_of_ctime_in_the_local_zone) {
    for (const char *zone : {"UTC0", "EST5EDT,M3.2.0,M11.1.0", "XXX-5:45"}) {
        SCOPED_TRACE(zone);
        setenv("TZ", zone, 1);
        for (const int64_t seconds : {0LL, 86399LL, 116874232LL, 951868800LL, 2147483647LL}) {
            const auto clock = static_cast<time_t>(seconds);
            tzset();
            const std::string expected(ctime(&clock), 24);
            EXPECT_EQ(printed(at(seconds)), expected);
        }
    }
    setenv("TZ", "UTC0", 1);
    EXPECT_EQ(printed(utctime(73, 9, 16, 1, 3, 52)), "Sun Sep 16 01:03:52 1973");
    if (sizeof(time_t) > 4) {
        EXPECT_EQ(printed(utctime(32767, 1, 1)).size(), 24U); // a year of five digits is cut
    }
}

TEST(PrintableTime, reports_failures) {
    auto *text = reinterpret_cast<char *>(1);
    const QelUTCTime bad = utctime(96, 13, 1);
    EXPECT_EQ(__qel_printable_time(&bad, &text), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(__qel_printable_time(nullptr, &text), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_printable_time(&bad, nullptr), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_get_current_time(nullptr), QEL_ERR_BAD_PARAM);
    fault::fail(fault::Call::time, 1);
    EXPECT_EQ(__qel_get_current_time(&text), QEL_ERR_GENERAL);
    EXPECT_TRUE(fault::clear(fault::Call::time));
    EXPECT_EQ(text, nullptr);
    fault::each_allocation([] {
        char *made = nullptr;
        const QelStatus status = __qel_get_current_time(&made);
        const qel::Owned<char> owner(made);
        EXPECT_EQ(status, fault::met() ? QEL_ERR_NO_MEMORY : QEL_OK);
        EXPECT_EQ(made != nullptr && std::strlen(made) == 24, !fault::met());
    });
}

} // namespace
