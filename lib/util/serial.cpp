// serial.cpp: serial numbers for the certificates that the family issues.

#include <cinttypes>
#include <cstdio>
#include <time.h>

#include <qel/qelp.h>

namespace {

// A count of nanoseconds that only goes up, from an arbitrary start.
bool read_monotonic_clock(uint64_t *nanoseconds) {
    struct timespec clock;
    if (clock_gettime(CLOCK_MONOTONIC, &clock) != 0)
        return false;
    *nanoseconds =
        static_cast<uint64_t>(clock.tv_sec) * 1000000000 + static_cast<uint64_t>(clock.tv_nsec);
    return true;
}

} // namespace

QelStatus __qel_gen_serial(QelContext *context, uint8_t **serial_bytes_out,
                           uint16_t *serial_length_out) {
    if (serial_bytes_out != nullptr)
        *serial_bytes_out = nullptr;
    if (serial_length_out != nullptr)
        *serial_length_out = 0;
    if (context == nullptr || serial_bytes_out == nullptr || serial_length_out == nullptr)
        return QEL_ERR_BAD_PARAM;

    uint64_t nanoseconds = 0;
    if (!read_monotonic_clock(&nanoseconds))
        return QEL_ERR_GENERAL;
    char digits[1024];
    if (std::snprintf(digits, sizeof digits, "%" PRIx64, nanoseconds) < 0)
        return QEL_ERR_BUFFER_SIZE;
    uint32_t length = 0;
    if (const QelStatus status = __qel_hex_2_binary(digits, serial_bytes_out, &length);
        status != QEL_OK)
        return status;
    *serial_length_out = static_cast<uint16_t>(length);
    return QEL_OK;
}
