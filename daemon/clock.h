// clock.h: the clock of deadlines.
#ifndef DAEMON_CLOCK_H
#define DAEMON_CLOCK_H

#include <chrono>
#include <ctime>

// Time that goes on while the host is suspended.
struct BootClock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<BootClock>;
    static constexpr bool is_steady = true;
    static time_point now() {
        timespec time = {};
        clock_gettime(CLOCK_BOOTTIME, &time);
        return time_point(std::chrono::seconds(time.tv_sec) +
                          std::chrono::nanoseconds(time.tv_nsec));
    }
};
using Instant = BootClock::time_point;

#endif
