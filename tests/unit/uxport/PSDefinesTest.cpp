#include "uxport/PSDefines.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <type_traits>

namespace uxport
{
namespace
{

struct CRow
{
    const char* m_szName;
    MNResult m_dwCode;
};

// What applications are told, number by number.
constexpr CRow ROWS[] = {{"MN_OK", 0},
                         {"MN_ERROR_FAILURE", 10001},
                         {"MN_ERROR_NOT_INITIALIZED", 10002},
                         {"MN_ERROR_ALREADY_INITIALIZED", 10003},
                         {"MN_ERROR_NOT_IMPLEMENTED", 10004},
                         {"MN_ERROR_NULL_POINTER", 10005},
                         {"MN_ERROR_UNEXPECTED", 10006},
                         {"MN_ERROR_INVALID_ARG", 10008},
                         {"MN_ERROR_NOT_AVAILABLE", 10009},
                         {"MN_ERROR_NOT_FOUND", 10011},
                         {"MN_ERROR_FOUND", 10012},
                         {"MN_ERROR_PARTIAL_DATA", 10013},
                         {"MN_ERROR_NETWORK_SOCKET_ERROR", 20001}};

#define TEST_NAME_AND_CODE(name, number, text) {#name, uxport::name},
constexpr CRow TABLE[] = {MN_RESULT_MAP(TEST_NAME_AND_CODE)};
#undef TEST_NAME_AND_CODE

TEST(PSDefines, ResultTable_Walked_HasEveryCodeUnderItsName)
{
    ASSERT_EQ(std::size(TABLE), std::size(ROWS));
    for (std::size_t i = 0; i < std::size(ROWS); ++i) {
        EXPECT_STREQ(TABLE[i].m_szName, ROWS[i].m_szName);
        EXPECT_EQ(TABLE[i].m_dwCode, ROWS[i].m_dwCode) << ROWS[i].m_szName;
    }
}

TEST(PSDefines, ResultTable_Walked_EveryCodeHasANameAndATextOfItsOwn)
{
    std::set<std::string> texts;
    std::set<MNResult> codes;
    for (const CRow& row : TABLE) {
        EXPECT_STREQ(mantle::MNResultName(row.m_dwCode), row.m_szName);
        EXPECT_STRNE(mantle::MNResultText(row.m_dwCode), mantle::MNResultText(12345));
        texts.insert(mantle::MNResultText(row.m_dwCode));
        codes.insert(row.m_dwCode);
    }
    EXPECT_EQ(texts.size(), std::size(TABLE));
    EXPECT_EQ(codes.size(), std::size(TABLE));
}

TEST(PSDefines, ResultTable_OtherNumbers_AreUnknown)
{
    for (const MNResult code : {1ul, 10000ul, 10007ul, 10010ul, 10014ul, 20000ul, 20002ul, ~0ul})
        EXPECT_STREQ(mantle::MNResultName(code), mantle::MNResultName(12345)) << code;
}

TEST(PSDefines, ConnectFailed_AsASignedNumber_IsMinusOneAndNoResultCode)
{
    EXPECT_EQ(static_cast<long>(PS_CONNECT_FAILED), -1);
    EXPECT_STREQ(mantle::MNResultName(PS_CONNECT_FAILED), mantle::MNResultName(12345));
}

TEST(PSDefines, Numbers_OfTheInterface_AreTheAgreedOnes)
{
    EXPECT_EQ(PS_INVALID_HANDLE, -1);
    EXPECT_EQ(CONNECTION_TYPE_RAW, 1u);
    EXPECT_EQ(CONNECTION_TYPE_TCP, 2u);
    EXPECT_EQ(CONNECTION_TYPE_UDP, 8u);
    EXPECT_EQ(ACCEPT_MASK, 1);
    EXPECT_EQ(CONNECT_MASK, 2);
    EXPECT_EQ(READ_MASK, 4);
    EXPECT_EQ(WRITE_MASK, 8);
    EXPECT_EQ(ALL_EVENTS_MASK, 63);
    EXPECT_EQ(SHOULD_CALL, 64);
    EXPECT_EQ(CLOSE_MASK, 128);
    EXPECT_EQ(EVENTQUEUE_MASK, 256);
}

TEST(PSDefines, Options_OfTheInterface_AreTheAgreedOnes)
{
    EXPECT_EQ(OPT_BYTES_TO_READ, 101u);
    EXPECT_EQ(OPT_RESERVED_102, 102u);
    EXPECT_EQ(OPT_FD, 103u);
    EXPECT_EQ(OPT_LOCAL_ADDR, 104u);
    EXPECT_EQ(OPT_PEER_ADDR, 105u);
    EXPECT_EQ(OPT_ALIVE, 106u);
    EXPECT_EQ(OPT_TYPE, 107u);
    EXPECT_EQ(OPT_KEEPALIVE, 108u);
    EXPECT_EQ(OPT_SEND_BUFFER, 109u);
    EXPECT_EQ(OPT_RECEIVE_BUFFER, 110u);
    EXPECT_EQ(OPT_NETWORK_TRANSPORT, 112u);
    EXPECT_EQ(OPT_RAW_HEADER_INCLUDED, 136u);
}

static_assert(std::is_same_v<decltype(CONNECTION_TYPE_TCP), const unsigned long>);
static_assert(std::is_same_v<decltype(READ_MASK), const long>);
static_assert(std::is_same_v<decltype(PS_INVALID_HANDLE), const int>);

}  // namespace
}  // namespace uxport
