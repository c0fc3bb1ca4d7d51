// arguments.h: calls in which an argument is missing.
#ifndef TESTS_SUPPORT_ARGUMENTS_H
#define TESTS_SUPPORT_ARGUMENTS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <type_traits>
#include <utility>

// Calls function once for each argument, with a zero or a null pointer in its place, and expects the
// status. Those in optional, by their number from 1, are never left out.
template <class Status, class... Parameters>
void each_missing(std::type_identity_t<Status> expected, Status (*function)(Parameters...),
                  std::initializer_list<std::size_t> optional,
                  std::type_identity_t<Parameters>... arguments) {
    const auto call = [&]<std::size_t... at>(std::size_t missing, std::index_sequence<at...>) {
        return function((at + 1 == missing ? Parameters{} : arguments)...);
    };
    for (std::size_t missing = 1; missing <= sizeof...(Parameters); ++missing)
        if (std::find(optional.begin(), optional.end(), missing) == optional.end()) {
            EXPECT_EQ(call(missing, std::index_sequence_for<Parameters...>()), expected)
                << "without argument " << missing;
        }
}

#endif
