// What holds for the options of every transport.
#ifndef TESTS_UNIT_DOUBLES_OPTIONCHECKS_H
#define TESTS_UNIT_DOUBLES_OPTIONCHECKS_H

#include <gtest/gtest.h>

#include <cstdint>
#include <set>

#include "uxport/IPSTransport.h"

constexpr unsigned long BEYOND_LAST_OPTION = 200;

// A null value is refused for every option, open or closed.
inline void ExpectNullRefused(uxport::IPSTransport& transport)
{
    for (unsigned long option = 0; option < BEYOND_LAST_OPTION; ++option) {
        EXPECT_EQ(transport.SetOption(option, nullptr), uxport::MN_ERROR_INVALID_ARG) << option;
        EXPECT_EQ(transport.GetOption(option, nullptr), uxport::MN_ERROR_INVALID_ARG) << option;
    }
}

// Options other than these are refused; a get leaves the value alone.
inline void ExpectOthersNotSettable(uxport::IPSTransport& transport, const std::set<unsigned long>& settable)
{
    for (unsigned long option = 0; option < BEYOND_LAST_OPTION; ++option) {
        for (std::uint64_t value : {1ull, ~0ull}) {
            if (settable.count(option) == 0) {
                EXPECT_EQ(transport.SetOption(option, &value), uxport::MN_ERROR_INVALID_ARG) << option;
            }
        }
    }
}

inline void ExpectOthersNotReadable(uxport::IPSTransport& transport, const std::set<unsigned long>& readable)
{
    for (unsigned long option = 0; option < BEYOND_LAST_OPTION; ++option) {
        std::uint64_t value = 4711;
        if (readable.count(option) == 0) {
            EXPECT_EQ(transport.GetOption(option, &value), uxport::MN_ERROR_INVALID_ARG) << option;
            EXPECT_EQ(value, 4711u) << option;
        }
    }
}

#endif
