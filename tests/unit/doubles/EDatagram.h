// The two datagram protocols, as a parameter of tests.
#ifndef TESTS_UNIT_DOUBLES_EDATAGRAM_H
#define TESTS_UNIT_DOUBLES_EDATAGRAM_H

#include <gtest/gtest.h>

#include <ostream>

enum class EDatagram
{
    UDP,
    RAW
};

inline std::ostream& operator<<(std::ostream& stream, EDatagram kind)
{
    return stream << (kind == EDatagram::UDP ? "Udp" : "Raw");
}

// Runs every case of a suite with both.
#define INSTANTIATE_DATAGRAM_SUITE(suite)                                                    \
  INSTANTIATE_TEST_SUITE_P(Protocol, suite, testing::Values(EDatagram::UDP, EDatagram::RAW), \
                           testing::PrintToStringParamName())

#endif
