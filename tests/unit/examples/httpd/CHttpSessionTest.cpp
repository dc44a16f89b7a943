#include "examples/httpd/CHttpSession.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/unit/examples/CScriptedTransport.h"

using mantle::CMNTimeValue;

namespace
{

constexpr std::size_t FILE_LENGTH = 1000000;
constexpr std::size_t PLENTY = 100000000;
const std::string GET_SMALL = "GET /small HTTP/1.1\r\nHost: a\r\n\r\n";
const std::string GET_LARGE = "GET /large HTTP/1.1\r\nHost: a\r\n\r\n";

std::string Times(std::size_t count, const std::string& text)
{
    std::string all;
    for (std::size_t i = 0; i < count; ++i)
        all += text;
    return all;
}

std::size_t Count(const std::string& text, const std::string& what)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size()))
        ++count;
    return count;
}

class CHttpSessionTest : public testing::Test
{
protected:
    CHttpSessionTest()
    {
        std::ofstream(m_Root / "small") << "small";
        for (std::size_t i = 0; i < FILE_LENGTH; ++i)
            m_strLarge += static_cast<char>('a' + i % 23);
        std::ofstream(m_Root / "large") << m_strLarge;
        m_Folder = std::make_unique<CFolder>(m_Root.string());
        m_pSession = std::make_unique<CHttpSession>(*m_Folder);
        m_pSession->OnConnectIndication(0, &m_Transport, nullptr);
    }
    ~CHttpSessionTest() override
    {
        m_pSession.reset();
        EXPECT_EQ(0u, m_Transport.m_dwReferences);
        EXPECT_EQ(0u, m_Timers.GetTimers());
        std::filesystem::remove_all(m_Root);
    }

    static std::filesystem::path MakeRoot()
    {
        std::string name = (std::filesystem::temp_directory_path() / "httpd-test-XXXXXX").string();
        if (!mkdtemp(name.data()))
            throw std::runtime_error("no folder for files");
        return name;
    }
    void Pass(long seconds) { m_Timers.Pass(CMNTimeValue(seconds, 0)); }
    std::size_t GetAnswers() const { return Count(m_Transport.m_strSent, "HTTP/1.1 "); }
    bool EndsWith(const std::string& end) const
    {
        const std::string& sent = m_Transport.m_strSent;
        return sent.size() >= end.size() && sent.compare(sent.size() - end.size(), end.size(), end) == 0;
    }

    const std::filesystem::path m_Root = MakeRoot();
    std::string m_strLarge;
    CHandMovedTimers m_Timers;
    CScriptedTransport m_Transport;
    std::unique_ptr<CFolder> m_Folder;
    std::unique_ptr<CHttpSession> m_pSession;
};

TEST_F(CHttpSessionTest, Room_RequestsPipelined_AllAnsweredAndStillOpen)
{
    m_Transport.m_nRoom = PLENTY;
    m_Transport.Receive(Times(5000, GET_SMALL));
    EXPECT_EQ(5000u, Count(m_Transport.m_strSent, "HTTP/1.1 200 OK\r\n"));
    EXPECT_EQ(5000u, m_pSession->GetAnswered());
    EXPECT_TRUE(EndsWith("\r\n\r\nsmall"));
    EXPECT_FALSE(m_pSession->IsOver());
}

TEST_F(CHttpSessionTest, RequestInPieces_LastComes_AnsweredOnce)
{
    m_Transport.m_nRoom = PLENTY;
    for (const char character : GET_SMALL) {
        EXPECT_EQ("", m_Transport.m_strSent);
        m_Transport.Receive(std::string(1, character));
    }
    EXPECT_EQ(1u, GetAnswers());
}

// A client that sent requests and read nothing had every one of them answered into a queue without a limit.
TEST_F(CHttpSessionTest, AnswerUnsent_FurtherRequests_NotAnsweredBeforeIt)
{
    m_Transport.Receive(GET_SMALL);
    m_Transport.Receive(Times(100, GET_SMALL));
    EXPECT_EQ(0u, m_pSession->GetAnswered());
    m_Transport.MakeRoom(20);
    EXPECT_EQ("HTTP/1.1 200 OK\r\nDat", m_Transport.m_strSent);
    EXPECT_EQ(0u, m_pSession->GetAnswered());
    m_Transport.MakeRoom(PLENTY);
    EXPECT_EQ(101u, m_pSession->GetAnswered());
    EXPECT_EQ(101u, GetAnswers());
}

TEST_F(CHttpSessionTest, LargeFile_RoomBitByBit_ReadPieceByPieceAndWhole)
{
    m_Transport.Receive(GET_LARGE);
    for (std::size_t i = 0; i < FILE_LENGTH / 1000 + 2; ++i)
        m_Transport.MakeRoom(1000);
    EXPECT_EQ(1u, m_pSession->GetAnswered());
    EXPECT_TRUE(EndsWith("\r\n\r\n" + m_strLarge));
    EXPECT_LT(m_Transport.m_nLongest, 20000u);
}

TEST_F(CHttpSessionTest, AnswerUnsent_MoreRequestsThanMayWait_ThoseAnsweredThenRefused)
{
    const std::string request = "GET /small HTTP/1.1\r\nHost: ab\r\n\r\n";
    const std::size_t fit = CHttpSession::s_nMostWaiting / request.size();
    ASSERT_NE(0u, CHttpSession::s_nMostWaiting % request.size()) << "the last is to be cut in two";
    m_Transport.Receive(request);
    m_Transport.Receive(Times(fit / 2, request));
    m_Transport.Receive(Times(fit, request));
    EXPECT_FALSE(m_pSession->IsOver());
    m_Transport.MakeRoom(PLENTY);
    EXPECT_EQ(1 + fit, Count(m_Transport.m_strSent, "HTTP/1.1 200 OK\r\n"));
    EXPECT_EQ(1u, Count(m_Transport.m_strSent, "HTTP/1.1 429 Too Many Requests\r\n"));
    EXPECT_EQ(2 + fit, GetAnswers());
    EXPECT_TRUE(EndsWith("429 Too Many Requests\n"));
    // What comes behind the close would be answered by a reset: it is awaited for a while.
    m_Transport.Receive(GET_SMALL);
    EXPECT_EQ(2 + fit, GetAnswers());
    EXPECT_FALSE(m_pSession->IsOver());
    Pass(CHttpSession::s_lLingerSeconds);
    EXPECT_TRUE(m_pSession->IsOver());
}

TEST_F(CHttpSessionTest, AnswerUnsent_RequestsWithoutEnd_Disconnected)
{
    std::size_t received = 0;
    for (; !m_pSession->IsOver() && received < PLENTY; received += 33000)
        m_Transport.Receive(Times(1000, GET_SMALL));
    EXPECT_TRUE(m_pSession->IsOver());
    EXPECT_EQ(1, m_Transport.m_nDisconnects);
    EXPECT_LT(received, CHttpSession::s_nMostWaiting + CHttpSession::s_nMostThrownAway + 2 * 33000);
}

// "Connection: close" was honoured two seconds later.
TEST_F(CHttpSessionTest, CloseAskedFor_AnswerTaken_DisconnectedAtOnceAndNotBefore)
{
    m_Transport.Receive("GET /small HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n");
    m_Transport.MakeRoom(100);
    EXPECT_FALSE(m_pSession->IsOver());
    m_Transport.MakeRoom(PLENTY);
    EXPECT_TRUE(m_pSession->IsOver());
    EXPECT_EQ(1, m_Transport.m_nDisconnects);
    EXPECT_EQ(1u, Count(m_Transport.m_strSent, "\r\nConnection: close\r\n"));
    EXPECT_TRUE(EndsWith("\r\n\r\nsmall"));
}

TEST_F(CHttpSessionTest, Version10_Answered_DisconnectedUnlessKeptAlive)
{
    m_Transport.m_nRoom = PLENTY;
    m_Transport.Receive("GET /small HTTP/1.0\r\nConnection: keep-alive\r\n\r\n");
    EXPECT_EQ(1u, m_pSession->GetAnswered());
    EXPECT_FALSE(m_pSession->IsOver());
    m_Transport.Receive("GET /small HTTP/1.0\r\n\r\n");
    EXPECT_EQ(2u, m_pSession->GetAnswered());
    EXPECT_TRUE(m_pSession->IsOver());
}

TEST_F(CHttpSessionTest, CloseAskedFor_MoreBehindIt_NotAnsweredAndAwaited)
{
    m_Transport.m_nRoom = PLENTY;
    m_Transport.Receive("GET /small HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n" + GET_SMALL);
    EXPECT_EQ(1u, GetAnswers());
    EXPECT_FALSE(m_pSession->IsOver());
    Pass(CHttpSession::s_lLingerSeconds);
    EXPECT_TRUE(m_pSession->IsOver());
}

TEST_F(CHttpSessionTest, NoHttp_Received_RefusedAndAwaited)
{
    m_Transport.m_nRoom = PLENTY;
    m_Transport.Receive("nonsense\r\n\r\n");
    EXPECT_EQ(1u, Count(m_Transport.m_strSent, "HTTP/1.1 400 Bad Request\r\n"));
    EXPECT_FALSE(m_pSession->IsOver());
    Pass(CHttpSession::s_lLingerSeconds);
    EXPECT_TRUE(m_pSession->IsOver());
}

// A reader of 4 KB/s was cut off in the middle.
TEST_F(CHttpSessionTest, ReaderOfFourKilobytesASecond_LargeFile_GetsAllOfIt)
{
    m_Transport.m_nRoom = 65535;
    m_Transport.Receive(GET_LARGE);
    for (int second = 0; second < 240; ++second) {
        Pass(1);
        m_Transport.MakeRoom(4096);
    }
    EXPECT_FALSE(m_pSession->IsOver());
    EXPECT_TRUE(EndsWith("\r\n\r\n" + m_strLarge));
}

TEST_F(CHttpSessionTest, ReaderThatNeverReads_TimePasses_Disconnected)
{
    m_Transport.m_nRoom = 65535;
    m_Transport.Receive(GET_LARGE);
    Pass(CHttpSession::s_lStallSeconds - 1);
    m_Transport.MakeRoom(0);
    EXPECT_FALSE(m_pSession->IsOver());
    Pass(1);
    EXPECT_TRUE(m_pSession->IsOver());
}

TEST_F(CHttpSessionTest, NoRequest_TimePasses_Disconnected)
{
    m_Transport.m_nRoom = PLENTY;
    Pass(CHttpSession::s_lIdleSeconds - 1);
    m_Transport.Receive(GET_SMALL);
    Pass(CHttpSession::s_lIdleSeconds - 1);
    m_Transport.Receive("GET /sm");
    EXPECT_FALSE(m_pSession->IsOver());
    Pass(1);
    EXPECT_TRUE(m_pSession->IsOver());
}

TEST_F(CHttpSessionTest, TransportFails_Sending_Over)
{
    m_Transport.m_bFails = true;
    m_Transport.Receive(GET_SMALL);
    EXPECT_TRUE(m_pSession->IsOver());
}

}  // namespace
