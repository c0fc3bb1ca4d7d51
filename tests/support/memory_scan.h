// memory_scan.h: copies of secrets, wherever in the memory of a process they are left.
#ifndef TESTS_SUPPORT_MEMORY_SCAN_H
#define TESTS_SUPPORT_MEMORY_SCAN_H

#include "support/files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <set>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool memory_can_be_scanned = false; // sanitizers keep what is freed, and much else
#else
constexpr bool memory_can_be_scanned = true;
#endif

// Secrets are looked for, and wait for their use, under a veil, so that nothing but the operation
// between makes the copies that are found. Veiling twice gives back the bytes. No more than one of
// them is in a register at a time.
inline void veil(uint8_t *bytes, std::size_t size) {
    volatile uint8_t *const veiled = bytes;
    for (std::size_t i = 0; i < size; ++i)
        veiled[i] = veiled[i] ^ 0xa5;
}

inline Bytes veiled(Bytes bytes) {
    veil(bytes.data(), bytes.size());
    return bytes;
}

// What the caller of an operation holds, and what is then looked for.
class Holder {
public:
    // The plain bytes, until the operation is over. Any 8 of them are looked for.
    uint8_t *take(const Bytes &secret) {
        look_for(secret);
        return take_unwatched(secret);
    }
    uint8_t *take_unwatched(const Bytes &secret) {
        uint8_t *const place = held_ + used_;
        used_ += secret.size() + 1; // and a zero byte behind a phrase
        if (used_ > sizeof held_)
            std::abort();
        memcpy(place, secret.data(), secret.size());
        veil(place, secret.size());
        return place;
    }
    // A secret that the operation has made: it is looked for, and wiped.
    void made(uint8_t *bytes, std::size_t size) {
        if (bytes == nullptr)
            return;
        veil(bytes, size);
        look_for(Bytes(bytes, bytes + size));
        explicit_bzero(bytes, size);
    }
    void look_for(const Bytes &secret) {
        for (std::size_t at = 0; at + 8 <= secret.size(); ++at) {
            uint64_t word;
            memcpy(&word, &secret[at], 8);
            words_.insert(word);
            word = __builtin_bswap64(word); // as numbers are held
            words_.insert(word);
            words_.insert(digit(word, 0));
            words_.insert(digit(word, 4));
        }
    }

    void wipe() { explicit_bzero(held_, sizeof held_); }

    // The mappings with copies, one in a line, with how many pieces of 8 bytes each has. Nothing
    // counts that lies between own_stack and this function's frame.
    std::string scan(const uint8_t *own_stack) const {
        const auto *const frame = static_cast<const uint8_t *>(__builtin_frame_address(0));
        static char maps[1 << 16];
        std::size_t size = 0;
        const int file = open("/proc/self/maps", O_RDONLY);
        for (ssize_t count; (count = read(file, maps + size, sizeof maps - 1 - size)) > 0;)
            size += static_cast<std::size_t>(count);
        close(file);
        std::string result;
        for (const char *line = maps; *line != '\0'; line = std::strchr(line, '\n') + 1) {
            unsigned long begin = 0, end = 0;
            char rights[5] = "", name[100] = "";
            std::sscanf(line, "%lx-%lx %4s %*s %*s %*s%99[^\n]", &begin, &end, rights, name);
            if (rights[0] != 'r' || rights[1] != 'w')
                continue;
            const auto *from = reinterpret_cast<const uint8_t *>(begin);
            const auto *const to = reinterpret_cast<const uint8_t *>(end);
            std::size_t found = 0;
            if (from <= own_stack && own_stack < to) {
                found = count_in(from, own_stack);
                from = frame;
            }
            found += count_in(from, to);
            if (found != 0)
                result += std::to_string(found) + " pieces in" + name + "\n";
        }
        return result;
    }

private:
    // A digit of 52 bits, which some arithmetic has in a word of its own, from this bit on.
    static uint64_t digit(uint64_t veiled_word, int bit) {
        constexpr uint64_t digit_bits = (uint64_t{1} << 52) - 1, veil_word = 0xa5a5a5a5a5a5a5a5;
        return ((veiled_word >> bit) & digit_bits) ^ ((veil_word >> bit) & digit_bits) ^ veil_word;
    }

    std::size_t count_in(const uint8_t *at, const uint8_t *end) const {
        std::size_t found = 0;
        static bool may_start[1 << 16];
        for (const uint64_t word : words_)
            may_start[word & 0xffff] = true;
        for (; at + 8 <= end; ++at) {
            uint64_t word;
            memcpy(&word, at, 8);
            word ^= 0xa5a5a5a5a5a5a5a5;
            if (may_start[word & 0xffff] && words_.contains(word))
                ++found;
        }
        return found;
    }

    static inline uint8_t held_[8192];
    std::size_t used_ = 0;
    std::set<uint64_t> words_;
};

// What work gives, from a process of its own in which it stays alone.
inline std::vector<Bytes> made_elsewhere(const std::function<std::vector<Bytes>()> &work) {
    int ends[2];
    if (pipe(ends) != 0)
        std::abort();
    const bool has_failed = testing::Test::HasFailure();
    const pid_t child = fork();
    if (child == 0) {
        for (const Bytes &bytes : work()) {
            const auto size = static_cast<uint32_t>(bytes.size());
            if (write(ends[1], &size, 4) != 4 ||
                write(ends[1], bytes.data(), size) != static_cast<ssize_t>(size))
                _exit(1);
        }
        _exit(testing::Test::HasFailure() && !has_failed ? 1 : 0);
    }
    close(ends[1]);
    std::vector<Bytes> all;
    for (uint32_t size; read(ends[0], &size, 4) == 4;) {
        all.emplace_back(size);
        for (std::size_t got = 0; got < size;) {
            const ssize_t count = read(ends[0], &all.back()[got], size - got);
            if (count <= 0)
                std::abort();
            got += static_cast<std::size_t>(count);
        }
    }
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << "in the child";
    return all;
}

// Runs an operation, with room between its frames and those of the caller.
[[gnu::noinline]] inline void run_deeper(const std::function<void(Holder &)> &operation,
                                         Holder &holder) {
    uint8_t above[1 << 15];
    asm volatile("" : : "r"(above) : "memory");
    operation(holder);
    asm volatile("" : : "r"(above) : "memory");
}

// Runs an operation, wipes what its caller holds, and scans. A signal's handler does that, on a
// stack of its own: the registers are in memory then, and what the operation left below its end on
// the stack is as it was.
inline std::string scan_after(const std::function<void(Holder &)> &operation) {
    alignas(64) static uint8_t stack[1 << 17];
    static Holder holder;
    static std::string found;
    struct sigaction action = {};
    action.sa_handler = [](int) {
        holder.wipe();
        found = holder.scan(stack);
    };
    action.sa_flags = SA_ONSTACK;
    stack_t own_stack = {};
    own_stack.ss_sp = stack;
    own_stack.ss_size = sizeof stack;
    if (sigaltstack(&own_stack, nullptr) != 0 || sigaction(SIGUSR1, &action, nullptr) != 0)
        std::abort();
    run_deeper(operation, holder);
    raise(SIGUSR1);
    return found;
}

// Where an operation in a new process leaves copies of its secrets.
inline std::string left_by(const std::function<void(Holder &)> &operation) {
    const std::vector<Bytes> found =
        made_elsewhere([&] { return std::vector<Bytes>{bytes_of(scan_after(operation))}; });
    return found.empty() ? "no answer" : text_of(found[0]);
}

#endif
