#include "socket/PSStackAddress.h"

#include <gtest/gtest.h>

#include <cstring>

namespace uxport
{
namespace
{

TEST(PSStackAddress, PSStackAddress_BytesSpoilt_WritesThemAgain)
{
    mantle::CMNInetAddr address("10.0.0.1", 80);
    std::memset(address.GetPtr(), 0xff, 2);
    const mantle::CMNInetAddr& constant = address;
    const ps_sockaddr* record = PSStackAddress(constant);
    EXPECT_EQ(static_cast<const void*>(record), constant.GetPtr());
    EXPECT_EQ(record->sa_len, 16);
    EXPECT_EQ(record->sa_family, 2);
}

TEST(PSStackAddress, PSStackAddress_Ipv6_WritesItsLengthAndFamily)
{
    mantle::CMNInetAddr address("::1", 80);
    ps_sockaddr* record = PSStackAddress(address);
    EXPECT_EQ(static_cast<void*>(record), address.GetPtr());
    EXPECT_EQ(record->sa_len, 28);
    EXPECT_EQ(record->sa_family, 10);
}

TEST(CPSAddressBuffer, Constructor_Fresh_IsZeroWithTheWholeRoom)
{
    const mantle::CMNInetAddr receiver;
    const CPSAddressBuffer buffer(receiver);
    EXPECT_EQ(buffer.m_nLength, 28);
    const ps_sockaddr zero{};
    EXPECT_EQ(std::memcmp(&buffer.m_Record, &zero, sizeof zero), 0);
}

TEST(CPSAddressBuffer, StoreTo_LengthTooShortForTheFamily_LeavesTheAddress)
{
    mantle::CMNInetAddr receiver("9.9.9.9", 99);
    CPSAddressBuffer buffer(receiver);
    buffer.m_Record.sa_family = PS_AF_INET6;
    buffer.m_nLength = 16;
    buffer.StoreTo(receiver);
    EXPECT_EQ(receiver.ToString(), "9.9.9.9:99");
}

}  // namespace
}  // namespace uxport
