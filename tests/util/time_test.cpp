#include "support/arguments.h"
#include "support/made.h"

#include <util/time.h>

#include <qel/qelp.h>

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

TEST(Time, counts_seconds) {
    constexpr int64_t refused = -1;
    const struct {
        const char *reason;
        QelUTCTime time;
        int64_t seconds;
    } rows[] = {
        {"2100 is no leap year", utctime(200, 3, 1), 4107542400},
        {"a year since 2000", utctime(1, 1, 1), 978307200},
        {"68 is 2068", utctime(68, 1, 1), 3092601600},
        {"69 is 1969, whose days count from 1970", utctime(69, 1, 2), 86400},
        {"a negative year counts from 2000", utctime(-1, 1, 1), 915148800},
        {"hour 24 is midnight of the next day", utctime(96, 1, 31, 24), 823132800},
        {"hour 24 at the end of February", utctime(96, 2, 29, 24), 825638400},
        {"hour 24 at the end of a year", utctime(99, 12, 31, 24), 946684800},
        {"hour 24 at the end of 2068", utctime(68, 12, 31, 24), 3124224000},
        {"minute 60 is the next hour", utctime(96, 1, 1, 0, 60), 820458000},
        {"minute 60 after hour 23", utctime(95, 12, 31, 23, 60), 820454400},
        {"minute -1 is the hour before", utctime(96, 1, 1, 1, -1), 820457940},
        {"minute -1 at midnight, 1 January", utctime(96, 1, 1, 0, -1), 820454340},
        {"minute -1 at midnight, 1 March, leap", utctime(96, 3, 1, 0, -1), 825638340},
        {"minute -1 at midnight, 1 March", utctime(97, 3, 1, 0, -1), 857174340},
        {"hour -1", utctime(96, 1, 2, -1), 820537200},
        {"hour -1 on 1 January 1969 is of 1968", utctime(69, 1, 1, -1), 31618800},
        {"minute two steps out", utctime(96, 1, 1, 0, 120), refused},
        {"hour two steps out", utctime(96, 1, 1, 50), refused},
        {"second 60", utctime(96, 1, 1, 0, 0, 60), refused},
        {"second -1", utctime(96, 1, 1, 0, 0, -1), refused},
        {"day 0", utctime(96, 1, 0), refused},
        {"day 31 of a short month runs on", utctime(97, 2, 31), 857347200},
        {"day 32", utctime(96, 1, 32), refused},
        {"month 0", utctime(96, 0, 1), refused},
        {"month 13", utctime(96, 13, 1), refused},
        {"hour -1 does not make month 13 a month", utctime(96, 13, 1, -1), refused},
        {"nor month 0", utctime(96, 0, 1, -1), refused},
        {"month 0 and hour 24", utctime(96, 0, 31, 24), refused},
        {"month 13 and hour 24", utctime(96, 13, 31, 24), refused},
        {"extreme fields", utctime(-32768, -32768, -32768, -32768, -32768), refused},
        {"the last year of the record", utctime(32767, 1, 1), 1031817657600},
    };
    for (const auto &row : rows) {
        const bool good = row.seconds != refused;
        int64_t seconds = 77;
        EXPECT_EQ(utctime2time_t(&row.time, &seconds), good ? QEL_OK : QEL_ERR_BAD_PARAM)
            << row.reason;
        EXPECT_EQ(seconds, good ? row.seconds : 0) << row.reason;
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

// The start and length, in seconds, of a period from now on.
std::pair<int64_t, int64_t> period_of_days(int32_t count) {
    QelValidity *validity = nullptr;
    EXPECT_EQ(__qel_set_validity(1, count, &validity), QEL_OK);
    const OwnedValidity owner(validity);
    int64_t start = 0;
    int64_t end = 0;
    EXPECT_EQ(utctime2time_t(validity->notBefore, &start), QEL_OK);
    EXPECT_EQ(utctime2time_t(validity->notAfter, &end), QEL_OK);
    return {start, end - start};
}

TEST(Validity, lasts_so_many_days) {
    // The present of this test is far enough from the end of the 32-bit clock for these.
    for (const int32_t count : {0, 1, 30, 365, 3650, -1}) {
        const int64_t before = time(nullptr);
        const auto [start, length] = period_of_days(count);
        EXPECT_GE(start, before);
        EXPECT_LE(start, int64_t{time(nullptr)});
        EXPECT_EQ(length, int64_t{count} * 86400);
    }
    for (const int32_t count : {24000, 24855, 24856, 25000, 1000000, INT32_MAX}) {
        const auto [start, length] = period_of_days(count);
        EXPECT_EQ(start + length, INT32_MAX) << count << ", to the end of the 32-bit clock";
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

TEST(Validity, holds_strictly_between_its_ends) {
    const struct {
        const char *reason;
        int start, end; // seconds from now
        bool is_current = false;
    } rows[] = {
        {"now is between", -1, 1, true}, {"it starts now", 0, 1},
        {"it ends now", -1, 0},          {"it is over", -2, -1},
        {"it is still to come", 1, 2},   {"it ends before it starts", 1, -1},
    };
    for (const auto &row : rows) {
        QelStatus status = QEL_OK;
        for (time_t now = 0; now != time(nullptr);) { // until no second ended meanwhile
            now = time(nullptr);
            QelUTCTime start = at(now + row.start);
            QelUTCTime end = at(now + row.end);
            const QelValidity validity = {&start, &end};
            status = __qel_is_current(&validity);
        }
        EXPECT_EQ(status, row.is_current ? QEL_OK : QEL_ERR_KEY_EXPIRED) << row.reason;
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

Made printed(const QelUTCTime *time) {
    return made_by([&](char **text) { return __qel_printable_time(time, text); });
}

TEST(PrintableTime, is_that_of_ctime_in_the_local_zone) {
    for (const char *zone : {"UTC0", "EST5EDT,M3.2.0,M11.1.0", "XXX-5:45"}) {
        SCOPED_TRACE(zone);
        setenv("TZ", zone, 1);
        for (const int64_t seconds : {0LL, 86399LL, 116874232LL, 951868800LL, 2147483647LL}) {
            const auto clock = static_cast<time_t>(seconds);
            const QelUTCTime time = at(seconds);
            tzset();
            EXPECT_EQ(printed(&time), Made(QEL_OK, std::string(ctime(&clock), 24)));
        }
    }
    setenv("TZ", "UTC0", 1);
    const QelUTCTime last = utctime(32767, 1, 1);
    if (sizeof(time_t) > 4) {
        EXPECT_EQ(printed(&last).second.size(), 24U); // a year of five digits is cut
    }
}

TEST(PrintableTime, reports_failures) {
    const QelUTCTime bad = utctime(96, 13, 1);
    EXPECT_EQ(printed(&bad), Made(QEL_ERR_BAD_PARAM, ""));
    EXPECT_EQ(printed(nullptr), Made(QEL_ERR_BAD_PARAM, ""));
    EXPECT_EQ(__qel_printable_time(&bad, nullptr), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_get_current_time(nullptr), QEL_ERR_BAD_PARAM);
    fault::fail(fault::Call::time, 1);
    EXPECT_EQ(made_by(__qel_get_current_time), Made(QEL_ERR_GENERAL, ""));
    EXPECT_TRUE(fault::clear(fault::Call::time));
    fault::each_allocation([] {
        const auto [status, text] = made_by(__qel_get_current_time);
        EXPECT_EQ(status, fault::met() ? QEL_ERR_NO_MEMORY : QEL_OK);
        EXPECT_EQ(text.size(), fault::met() ? 0U : 24U);
    });
}

} // namespace
