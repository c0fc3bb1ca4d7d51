// stack.h: what a call leaves on the stack.
#ifndef TESTS_SUPPORT_STACK_H
#define TESTS_SUPPORT_STACK_H

#include "support/files.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <pthread.h>
#include <sys/mman.h>

// Runs scenario on a fresh stack, and gives that stack as it then is.
inline Bytes stack_after(const std::function<void()> &scenario) {
    constexpr std::size_t size = 1 << 20; // a thread sanitizer keeps its own data there, too
    void *stack = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, stack, size);
    const auto run = [](void *argument) -> void * {
        (*static_cast<const std::function<void()> *>(argument))();
        return nullptr;
    };
    pthread_t thread;
    if (stack == MAP_FAILED || pthread_create(&thread, &attributes, run,
                                              const_cast<std::function<void()> *>(&scenario)) != 0)
        std::abort();
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    const auto *bytes = static_cast<const uint8_t *>(stack);
    Bytes contents(bytes, bytes + size);
    munmap(stack, size);
    return contents;
}

// Those of the words that lie somewhere in the stack.
inline std::vector<uint32_t> words_in(const Bytes &stack, const std::vector<uint32_t> &words) {
    std::vector<uint32_t> found;
    for (const uint32_t word : words) {
        const auto *bytes = reinterpret_cast<const uint8_t *>(&word);
        if (std::search(stack.begin(), stack.end(), bytes, bytes + sizeof word) != stack.end())
            found.push_back(word);
    }
    return found;
}

#endif
