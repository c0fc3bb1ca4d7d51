// traces.h: what functions that have returned leave behind, in registers and below the stack.
#ifndef TOOLKIT_TRACES_H
#define TOOLKIT_TRACES_H

namespace toolkit {

// Zeroes the vector registers, through which copies go and which a signal puts on the stack, and
// the stack below the caller, where functions kept what they had no registers for: as deep as this
// library reaches with secrets. Elsewhere than on x86, registers stay as they are.
void wipe_traces();

// Stands first in a function that callers hand secrets to: wipes after all else when it returns.
struct TracesWiped {
    TracesWiped() = default;
    TracesWiped(const TracesWiped &) = delete;
    TracesWiped &operator=(const TracesWiped &) = delete;
    ~TracesWiped() { wipe_traces(); }
};

} // namespace toolkit

#endif
