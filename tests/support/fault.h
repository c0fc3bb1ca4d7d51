// fault.h: platform functions that fail when told to. They are replaced at link time (see
// tests/CMakeLists.txt); the product knows nothing of it.
#ifndef TESTS_SUPPORT_FAULT_H
#define TESTS_SUPPORT_FAULT_H

#include <cstddef>
#include <functional>

namespace fault {

enum class Call { allocate, open, read, write, close, time, getrandom };

// The nth call (1 is the next) of this kind fails, once. Allocations of every kind count together.
// error is the errno it leaves, 0 for the usual one; a close that fails with EINTR has not closed.
void fail(Call call, std::size_t nth, int error = 0);
// All calls of this kind fail, from the next on.
void fail_always(Call call);
// Nothing fails any more. Returns whether the fault that was asked for was met.
bool clear(Call call);

// Runs scenario with the 1st, 2nd, 3rd... allocation failing, until a run meets no fault. scenario
// must check its own outcome; it is told whether the fault was met through the return value of
// met(), which it may ask after the call under test.
void each_allocation(const std::function<void()> &scenario);
// Within each_allocation: whether the fault has struck in this run.
bool met();

// Called with every block that free() is given by the code under test, until null is set: a secret
// must be gone from it. size is what the block can hold; what was not used of it is zero.
using FreeWatcher = void (*)(const unsigned char *block, std::size_t size);
void watch_free(FreeWatcher watcher);

} // namespace fault

#endif
