#include "mantle/IMNTraceManager.h"

#include <atomic>
#include <climits>
#include <cstring>
#include <thread>

#include "MantleTest.h"

namespace mantle
{
namespace
{

class CSink : public IMNTraceSink
{
public:
    void OnTrace(int level, const char* text) override
    {
        if (m_bInside.exchange(true))
            m_bOverlap = true;
        m_Lines.push_back(std::to_string(level) + " " + text);
        if (m_Inside)
            m_Inside();
        m_bInside = false;
    }

    std::vector<std::string> m_Lines;
    std::function<void()> m_Inside;
    std::atomic<bool> m_bInside{false};
    std::atomic<bool> m_bOverlap{false};
};

TEST(IMNTraceManagerTest, NoSink_Trace_OneLineOnStandardError)
{
    testing::internal::CaptureStderr();
    IMNTraceManager::Instance()->Trace(0, "a line");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "[0] a line\n");
}

TEST(IMNTraceManagerTest, SinkSet_Trace_GoesThereOnlyUntilPutBack)
{
    CSink sink;
    testing::internal::CaptureStderr();
    EXPECT_EQ(IMNTraceManager::Instance()->SetSink(&sink), nullptr);
    IMNTraceManager::Instance()->Trace(3, "to the sink");
    IMNTraceManager::Instance()->Trace(3, nullptr);
    EXPECT_EQ(IMNTraceManager::Instance()->SetSink(nullptr), &sink);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_THAT(sink.m_Lines, testing::ElementsAre("3 to the sink"));
}

TEST(IMNTraceManagerTest, SinkTracesItself_Trace_ItsLineGoesToStandardError)
{
    CSink sink;
    sink.m_Inside = [] { IMNTraceManager::Instance()->Trace(1, "inner"); };
    IMNTraceManager::Instance()->SetSink(&sink);
    testing::internal::CaptureStderr();
    IMNTraceManager::Instance()->Trace(0, "outer");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "[1] inner\n");
    IMNTraceManager::Instance()->SetSink(nullptr);
    EXPECT_THAT(sink.m_Lines, testing::ElementsAre("0 outer"));
}

TEST(IMNTraceManagerTest, FourThreads_Trace_OneLineAtATime)
{
    CSink sink;
    IMNTraceManager::Instance()->SetSink(&sink);
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back([] {
            for (int count = 0; count < 200; ++count)
                IMNTraceManager::Instance()->Trace(0, "x");
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    IMNTraceManager::Instance()->SetSink(nullptr);
    EXPECT_FALSE(sink.m_bOverlap);
    EXPECT_EQ(sink.m_Lines.size(), 800u);
}

TEST(TextFormatorTest, EveryKind_Formatted_AsText)
{
    char buffer[256];
    Text_Formator text(buffer, sizeof(buffer));
    text << "s" << 'c' << -1 << 2u << LONG_MIN << 3ul << LLONG_MAX << ULLONG_MAX << static_cast<const char*>(nullptr);
    const std::string expected =
        "sc-12" + std::to_string(LONG_MIN) + "3" + std::to_string(LLONG_MAX) + std::to_string(ULLONG_MAX);
    EXPECT_EQ(std::string(text.GetText()), expected);
    EXPECT_EQ(text.GetLength(), expected.size());
}

TEST(TextFormatorTest, Pointer_Formatted_Hexadecimal)
{
    char buffer[64];
    Text_Formator text(buffer, sizeof(buffer));
    text << reinterpret_cast<const void*>(0xabc1) << ' ' << static_cast<const void*>(nullptr);
    EXPECT_STREQ(text.GetText(), "0xabc1 0x0");
}

TEST(TextFormatorTest, BufferTooSmall_Formatted_CutAndNothingWrittenBehind)
{
    for (std::size_t size = 0; size <= 12; ++size) {
        char buffer[32];
        std::memset(buffer, '#', sizeof(buffer));
        Text_Formator text(buffer, size);
        text << "abc" << 12345 << 'd' << "efghij" << reinterpret_cast<const void*>(0x1234);
        const std::string whole = "abc12345defghij0x1234";
        EXPECT_EQ(std::string(text.GetText()), whole.substr(0, size == 0 ? 0 : size - 1));
        for (std::size_t index = size; index < sizeof(buffer); ++index)
            ASSERT_EQ(buffer[index], '#') << "size " << size;
    }
}

TEST(TextFormatorTest, NoBuffer_Formatted_Empty)
{
    Text_Formator text(nullptr, 100);
    text << "abc";
    EXPECT_STREQ(text.GetText(), "");
    EXPECT_EQ(text.GetLength(), 0u);
}

}  // namespace
}  // namespace mantle
