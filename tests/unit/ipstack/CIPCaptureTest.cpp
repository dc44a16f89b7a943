#include "ipstack/CIPCapture.h"

#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "mantle/CMNClock.h"
#include "mantle/IMNTraceManager.h"
#include "mantle/MNDefines.h"
#include "platform/ipstack/CIPCounters.h"

namespace
{

using ipstack::CIPCapture;
using ipstack::CIPCounters;

class CBelow : public ipstack::IIPStackLowLevel
{
public:
    unsigned long IPStackLowLevelOutput(const char* data, unsigned long length, unsigned char flag) override
    {
        m_strLast.assign(data, length);
        m_bFlag = flag;
        ++m_nPackets;
        return 77;
    }
    std::string m_strLast;
    unsigned char m_bFlag = 0;
    int m_nPackets = 0;
};

// Keeps the trace while it lives.
class CSink : public mantle::IMNTraceSink
{
public:
    CSink() { mantle::IMNTraceManager::Instance()->SetSink(this); }
    ~CSink() override { mantle::IMNTraceManager::Instance()->SetSink(nullptr); }
    CSink(const CSink&) = delete;
    CSink& operator=(const CSink&) = delete;
    void OnTrace(int, const char* text) override { m_Lines.emplace_back(text); }

    std::vector<std::string> m_Lines;
};

class CAbove : public ipstack::IIPStack
{
public:
    unsigned long Input(const char* data, unsigned long length) override
    {
        m_strLast.assign(data, length);
        return 88;
    }
    std::string m_strLast;
};

struct CRecord
{
    std::uint32_t m_dwSeconds;
    std::uint32_t m_dwNanoseconds;
    std::string m_strPacket;
};

class CIPCaptureTest : public testing::Test
{
protected:
    CIPCaptureTest() { m_Capture.SetStack(&m_Above); }
    ~CIPCaptureTest() override
    {
        m_Capture.Stop();
        std::remove(m_strPath.c_str());
    }

    void Out(const std::string& packet) { m_Capture.IPStackLowLevelOutput(packet.data(), packet.size(), 0); }
    void In(const std::string& packet) { m_Capture.Input(packet.data(), packet.size()); }

    // The records of the file, whose header must be right.
    std::vector<CRecord> Read() const
    {
        std::ifstream file(m_strPath, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        const auto word = [&bytes](std::size_t at) {
            std::uint32_t value = 0;
            std::memcpy(&value, bytes.data() + at, sizeof(value));
            return value;
        };
        std::vector<CRecord> records;
        EXPECT_GE(bytes.size(), 24u);
        if (bytes.size() < 24) {
            return records;
        }
        EXPECT_EQ(word(0), 0xA1B23C4Du);  // nanoseconds, this machine's byte order
        EXPECT_EQ(word(4), 4u << 16 | 2u);
        EXPECT_EQ(word(16), 65535u);
        EXPECT_EQ(word(20), 101u);  // raw IP
        std::size_t at = 24;
        while (at + 16 <= bytes.size()) {
            EXPECT_EQ(word(at + 8), word(at + 12));
            EXPECT_LE(at + 16 + word(at + 8), bytes.size());
            records.push_back(CRecord{word(at), word(at + 4), bytes.substr(at + 16, word(at + 8))});
            at += 16 + word(at + 8);
        }
        EXPECT_EQ(at, bytes.size());
        return records;
    }

    const std::string m_strPath = testing::TempDir() + "capture_" + std::to_string(getpid()) + ".pcap";
    CBelow m_Below;
    CAbove m_Above;
    CIPCapture m_Capture{m_Below};
};

TEST_F(CIPCaptureTest, Off_PacketsPass_BothWaysUnchanged)
{
    EXPECT_EQ(m_Capture.IPStackLowLevelOutput("out", 3, 5), 77u);
    EXPECT_EQ(m_Below.m_strLast, "out");
    EXPECT_EQ(m_Below.m_bFlag, 5);
    EXPECT_EQ(m_Capture.Input("into", 4), 88u);
    EXPECT_EQ(m_Above.m_strLast, "into");
    EXPECT_EQ(m_Capture.GetPackets(), 0u);
}

TEST_F(CIPCaptureTest, NoStack_PacketFromBelow_NotInitialized)
{
    CIPCapture alone(m_Below);
    EXPECT_EQ(alone.Input("x", 1), mantle::MN_ERROR_NOT_INITIALIZED);
}

TEST_F(CIPCaptureTest, On_PacketsPass_WrittenInOrder)
{
    ASSERT_EQ(m_Capture.Start(m_strPath), 0u);
    EXPECT_TRUE(m_Capture.IsOn());
    Out("first");
    In("the second");
    In("");
    Out(std::string(1400, 'L'));
    m_Capture.Stop();
    const std::vector<CRecord> records = Read();
    ASSERT_EQ(records.size(), 4u);
    EXPECT_EQ(records[0].m_strPacket, "first");
    EXPECT_EQ(records[1].m_strPacket, "the second");
    EXPECT_EQ(records[2].m_strPacket, "");
    EXPECT_EQ(records[3].m_strPacket, std::string(1400, 'L'));
    for (std::size_t index = 1; index < records.size(); ++index) {
        const auto time = [](const CRecord& record) {
            return record.m_dwSeconds * 1000000000ull + record.m_dwNanoseconds;
        };
        EXPECT_LT(records[index].m_dwNanoseconds, 1000000000u);
        EXPECT_LE(time(records[index - 1]), time(records[index]));
    }
}

TEST_F(CIPCaptureTest, HandMovedClock_PacketPasses_WrittenWithItsTime)
{
    mantle::CMNManualClock clock;
    ASSERT_EQ(m_Capture.Start(m_strPath), 0u);
    Out("now");
    clock.Advance(mantle::CMNTimeValue(3, 250000));
    Out("later");
    m_Capture.Stop();
    const std::vector<CRecord> records = Read();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[1].m_dwSeconds * 1000000000ull + records[1].m_dwNanoseconds -
                  (records[0].m_dwSeconds * 1000000000ull + records[0].m_dwNanoseconds),
              3250000000ull);
}

TEST_F(CIPCaptureTest, SwitchedOffAndOn_PacketsPass_OnlyTheLastFileStays)
{
    ASSERT_EQ(m_Capture.Start(m_strPath), 0u);
    EXPECT_EQ(m_Capture.Start(m_strPath), mantle::MN_ERROR_ALREADY_INITIALIZED);
    Out("before");
    m_Capture.Stop();
    EXPECT_FALSE(m_Capture.IsOn());
    Out("between");
    ASSERT_EQ(m_Capture.Start(m_strPath), 0u);
    EXPECT_EQ(m_Capture.GetPackets(), 0u);
    Out("after");
    m_Capture.Stop();
    m_Capture.Stop();
    ASSERT_EQ(Read().size(), 1u);
    EXPECT_EQ(Read()[0].m_strPacket, "after");
    EXPECT_EQ(m_Below.m_nPackets, 3);
}

TEST_F(CIPCaptureTest, PathThatIsNone_Started_FailsAndPacketsStillPass)
{
    EXPECT_EQ(m_Capture.Start("/no/such/folder/file.pcap"), mantle::MN_ERROR_FAILURE);
    EXPECT_FALSE(m_Capture.IsOn());
    Out("x");
    EXPECT_EQ(m_Below.m_nPackets, 1);
}

TEST_F(CIPCaptureTest, PathThatIsNone_Started_ReasonIsTold)
{
    EXPECT_EQ(m_Capture.Start("/no/such/folder/file.pcap"), mantle::MN_ERROR_FAILURE);
    EXPECT_EQ(m_Capture.GetSystemError(), ENOENT);
    ASSERT_EQ(m_Capture.Start(m_strPath), 0u);
    EXPECT_EQ(m_Capture.GetSystemError(), 0);
}

TEST_F(CIPCaptureTest, FullDevice_Started_FailsWithNoSpaceAndPacketsStillPass)
{
    if (access("/dev/full", W_OK) != 0) {
        GTEST_SKIP() << "no /dev/full here";
    }
    EXPECT_EQ(m_Capture.Start("/dev/full"), mantle::MN_ERROR_FAILURE);
    EXPECT_EQ(m_Capture.GetSystemError(), ENOSPC);
    EXPECT_FALSE(m_Capture.IsOn());
    Out("x");
    In("y");
    EXPECT_EQ(m_Below.m_strLast, "x");
    EXPECT_EQ(m_Above.m_strLast, "y");
}

TEST_F(CIPCaptureTest, NoMoreRoom_PacketsPass_EndsAndIsCounted)
{
    CSink sink;
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small{100000, before.rlim_max};
    const std::uint64_t failed = CIPCounters::Get(CIPCounters::CaptureFailed);
    ASSERT_EQ(m_Capture.Start(m_strPath), 0u);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    int packets = 0;
    while (m_Capture.IsOn() && packets < 10000) {
        Out(std::string(1000, 'p'));
        ++packets;
    }
    EXPECT_FALSE(m_Capture.IsOn());
    EXPECT_EQ(m_Capture.GetSystemError(), EFBIG);
    EXPECT_EQ(CIPCounters::Get(CIPCounters::CaptureFailed), failed + 1);
    Out("missed");
    In("missed");
    EXPECT_EQ(CIPCounters::Get(CIPCounters::CaptureFailed), failed + 3);
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(m_Below.m_nPackets, packets + 1);
    EXPECT_EQ(m_Above.m_strLast, "missed");
    ASSERT_EQ(sink.m_Lines.size(), 1u);
    EXPECT_NE(sink.m_Lines[0].find("capture"), std::string::npos) << sink.m_Lines[0];
    m_Capture.Stop();
    Out("off");
    EXPECT_EQ(CIPCounters::Get(CIPCounters::CaptureFailed), failed + 3);
    EXPECT_EQ(m_Capture.GetSystemError(), EFBIG);
    EXPECT_EQ(m_Capture.Start(m_strPath), 0u);
    EXPECT_EQ(m_Capture.GetSystemError(), 0);
    EXPECT_EQ(sink.m_Lines.size(), 1u);
}

// What waits in the file's buffer fails when it ends.
TEST_F(CIPCaptureTest, NoMoreRoom_Stopped_ToldOnce)
{
    CSink sink;
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small{24, before.rlim_max};  // the file's header
    const std::uint64_t failed = CIPCounters::Get(CIPCounters::CaptureFailed);
    ASSERT_EQ(m_Capture.Start(m_strPath), 0u);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    Out("lost");
    EXPECT_EQ(m_Capture.GetSystemError(), 0);
    m_Capture.Stop();
    m_Capture.Stop();
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(m_Capture.GetSystemError(), EFBIG);
    EXPECT_EQ(CIPCounters::Get(CIPCounters::CaptureFailed), failed + 1);
    EXPECT_EQ(sink.m_Lines.size(), 1u);
}

TEST_F(CIPCaptureTest, PacketsOfTwoThreads_SwitchedAllTheTime_EveryRecordIsWhole)
{
    std::atomic<bool> stop{false};
    std::thread output([&] {
        while (!stop.load()) {
            Out(std::string(300, 'o'));
            std::this_thread::yield();
        }
    });
    std::thread input([&] {
        while (!stop.load()) {
            In(std::string(700, 'i'));
            std::this_thread::yield();
        }
    });
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(m_Capture.Start(m_strPath), 0u);
        while (m_Capture.GetPackets() < 20) {
            std::this_thread::yield();
        }
        m_Capture.Stop();
        for (const CRecord& record : Read()) {
            EXPECT_TRUE(record.m_strPacket == std::string(300, 'o') || record.m_strPacket == std::string(700, 'i'));
        }
    }
    stop.store(true);
    output.join();
    input.join();
}

}  // namespace
