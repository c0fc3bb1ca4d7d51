#include "support/fault.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <malloc.h>
#include <sys/types.h>

namespace fault {
namespace {

struct Plan {
    std::size_t countdown = 0; // 0: no fault planned
    bool always = false;
    bool met = false;
    int error = 0;
};

thread_local Plan plans[7];
thread_local FreeWatcher free_watcher = nullptr;

// Whether this call fails; errno is set then.
bool strikes(Call call, int usual_error = ENOMEM) {
    Plan &plan = plans[static_cast<std::size_t>(call)];
    if (!plan.always && (plan.countdown == 0 || --plan.countdown != 0))
        return false;
    plan.met = true;
    errno = plan.error != 0 ? plan.error : usual_error;
    return true;
}

} // namespace

void fail(Call call, std::size_t nth, int error) {
    plans[static_cast<std::size_t>(call)] = {nth, false, false, error};
}

void fail_always(Call call) {
    plans[static_cast<std::size_t>(call)] = {0, true, false, 0};
}

bool clear(Call call) {
    Plan &plan = plans[static_cast<std::size_t>(call)];
    const bool struck = plan.met;
    plan = {};
    return struck;
}

void watch_free(FreeWatcher watcher) {
    free_watcher = watcher;
}

bool met() {
    return plans[static_cast<std::size_t>(Call::allocate)].met;
}

void each_allocation(const std::function<void()> &scenario) {
    for (std::size_t nth = 1;; ++nth) {
        SCOPED_TRACE("allocation " + std::to_string(nth) + " fails");
        fail(Call::allocate, nth);
        scenario();
        if (!clear(Call::allocate))
            return;
        if (::testing::Test::HasFailure() || nth > 100000)
            FAIL() << "stopped";
    }
}

} // namespace fault

using fault::Call;

extern "C" {

void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *block, size_t size);
void __real_free(void *block);
char *__real_strdup(const char *string);
char *__real_strndup(const char *string, size_t size);
int __real_open(const char *path, int flags, ...);
ssize_t __real_read(int descriptor, void *buffer, size_t size);
ssize_t __real_write(int descriptor, const void *buffer, size_t size);
int __real_close(int descriptor);
time_t __real_time(time_t *result);
ssize_t __real_getrandom(void *buffer, size_t size, unsigned flags);

// A watcher must not see what the test itself left in this memory before: it is cleared, from the
// given byte to the last that the block can hold.
static void *cleared(void *block, size_t from) {
    if (block != nullptr && fault::free_watcher != nullptr && from < malloc_usable_size(block))
        std::memset(static_cast<char *>(block) + from, 0, malloc_usable_size(block) - from);
    return block;
}

void *__wrap_malloc(size_t size) {
    return fault::strikes(Call::allocate) ? nullptr : cleared(__real_malloc(size), 0);
}

void *__wrap_calloc(size_t count, size_t size) {
    return fault::strikes(Call::allocate) ? nullptr : cleared(__real_calloc(count, size), 0);
}

void *__wrap_realloc(void *block, size_t size) {
    if (fault::strikes(Call::allocate))
        return nullptr;
    const size_t before = block != nullptr ? malloc_usable_size(block) : 0;
    return cleared(__real_realloc(block, size), before);
}

void __wrap_free(void *block) {
    if (block != nullptr && fault::free_watcher != nullptr)
        fault::free_watcher(static_cast<const unsigned char *>(block), malloc_usable_size(block));
    __real_free(block);
}

char *__wrap_strdup(const char *string) {
    return fault::strikes(Call::allocate) ? nullptr : __real_strdup(string);
}

char *__wrap_strndup(const char *string, size_t size) {
    return fault::strikes(Call::allocate) ? nullptr : __real_strndup(string, size);
}

// Weak: a test may have one of its own.
__attribute__((weak)) int __wrap_open(const char *path, int flags, ...) {
    if (fault::strikes(Call::open, EACCES))
        return -1;
    va_list arguments;
    va_start(arguments, flags);
    const int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0;
    va_end(arguments);
    return __real_open(path, flags, mode);
}

ssize_t __wrap_read(int descriptor, void *buffer, size_t size) {
    if (fault::strikes(Call::read, EIO))
        return -1;
    return __real_read(descriptor, buffer, size);
}

ssize_t __wrap_write(int descriptor, const void *buffer, size_t size) {
    if (fault::strikes(Call::write, ENOSPC))
        return -1;
    return __real_write(descriptor, buffer, size);
}

int __wrap_close(int descriptor) {
    if (!fault::strikes(Call::close, EIO))
        return __real_close(descriptor);
    const int error = errno;
    if (error != EINTR)
        __real_close(descriptor);
    errno = error;
    return -1;
}

time_t __wrap_time(time_t *result) {
    if (fault::strikes(Call::time))
        return static_cast<time_t>(-1);
    return __real_time(result);
}

#if __SIZEOF_POINTER__ == 4
int64_t __real___time64(int64_t *result);

int64_t __wrap___time64(int64_t *result) {
    if (fault::strikes(Call::time))
        return -1;
    return __real___time64(result);
}
#endif

ssize_t __wrap_getrandom(void *buffer, size_t size, unsigned flags) {
    if (fault::strikes(Call::getrandom, ENOSYS))
        return -1;
    return __real_getrandom(buffer, size, flags);
}

} // extern "C"
