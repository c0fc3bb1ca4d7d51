// made.h: calls that make text or bytes, and what holds for all of them: a failure makes nothing.
#ifndef TESTS_SUPPORT_MADE_H
#define TESTS_SUPPORT_MADE_H

#include "support/fault.h"
#include "support/files.h"

#include <lib/memory.h>
#include <qel/qel.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <type_traits>
#include <utility>

// The status, and the text or the bytes.
using Made = std::pair<QelStatus, std::string>;

// Calls function(char **), function(char **, uint32_t *) or function(uint8_t **, uint32_t *).
template <class Function> Made made_by(const Function &function) {
    using Unit =
        std::conditional_t<std::is_invocable_v<Function, uint8_t **, uint32_t *>, uint8_t, char>;
    auto *made = reinterpret_cast<Unit *>(1);
    uint32_t length = 77;
    QelStatus status;
    if constexpr (std::is_invocable_v<Function, Unit **, uint32_t *>) {
        status = function(&made, &length);
        EXPECT_TRUE(status == QEL_OK || length == 0) << length;
    } else {
        status = function(&made);
        length = status == QEL_OK ? static_cast<uint32_t>(std::strlen(made)) : 0;
    }
    EXPECT_EQ(made != nullptr, status == QEL_OK);
    const qel::Owned<Unit> owner(made);
    return {status, made != nullptr ? std::string(made, made + length) : ""};
}

// Without any one of its allocations the call makes nothing.
template <class Function>
void each_allocation_of(const Function &function, const std::string &result) {
    fault::each_allocation([&] {
        const Made made = made_by(function);
        EXPECT_EQ(made, fault::met() ? Made(QEL_ERR_NO_MEMORY, "") : Made(QEL_OK, result));
    });
}

#endif
