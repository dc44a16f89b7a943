#include "reactor/CPSEventHandlerRepository.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "ipstack/ps_defines.h"
#include "tests/unit/reactor/ReactorSupport.h"

using namespace uxport;
using CElement = CPSEventHandlerRepository::CElement;

namespace
{

constexpr unsigned int POLL_CAPACITY = 8192;

// Many handlers bound under their handles.
class CCrowd
{
public:
    CCrowd(CPSEventHandlerRepository& repository, int count, long mask)
    {
        for (int i = 0; i < count; ++i) {
            m_Handlers.push_back(std::make_unique<CTestHandler>(i + 1));
            EXPECT_EQ(repository.Bind(i + 1, CElement{m_Handlers.back().get(), mask}), MN_OK);
        }
    }

private:
    std::vector<std::unique_ptr<CTestHandler>> m_Handlers;
};

CTexts Lists(const ps_fdsets& sets)
{
    const auto text = [](const ps_fdlist& list) {
        std::vector<int> handles(list.handles, list.handles + list.count);
        std::sort(handles.begin(), handles.end());
        std::string result;
        for (const int handle : handles)
            result += std::to_string(handle) + " ";
        return result;
    };
    return {text(sets.read), text(sets.write), text(sets.except)};
}

TEST(CPSEventHandlerRepositoryTest, Bind_HandleMinusOne_Refused)
{
    CPSEventHandlerRepository repository;
    CTestHandler handler(5);
    EXPECT_EQ(repository.Bind(-1, CElement{&handler, READ_MASK}), MN_ERROR_INVALID_ARG);
    CElement found;
    EXPECT_FALSE(repository.Find(-1, found));
}

TEST(CPSEventHandlerRepositoryTest, Bind_NullHandler_RefusedAndKeepsTheOldOne)
{
    CPSEventHandlerRepository repository;
    EXPECT_EQ(repository.Bind(5, CElement{nullptr, READ_MASK}), MN_ERROR_INVALID_ARG);
    CElement found;
    EXPECT_FALSE(repository.Find(5, found));
    CTestHandler handler(5);
    repository.Bind(5, CElement{&handler, READ_MASK});
    EXPECT_EQ(repository.Bind(5, CElement{nullptr, WRITE_MASK}), MN_ERROR_INVALID_ARG);
    ASSERT_TRUE(repository.Find(5, found));
    EXPECT_EQ(found.m_pEh, &handler);
    EXPECT_EQ(found.m_Mask, READ_MASK);
}

TEST(CPSEventHandlerRepositoryTest, Bind_Free_StoresAndReturnsOk)
{
    CPSEventHandlerRepository repository;
    EXPECT_EQ(repository.Open(), MN_OK);
    CTestHandler handler(5);
    EXPECT_EQ(repository.Bind(5, CElement{&handler, 12}), MN_OK);
    CElement found;
    ASSERT_TRUE(repository.Find(5, found));
    EXPECT_EQ(found.m_pEh, &handler);
    EXPECT_EQ(found.m_Mask, 12);
}

TEST(CPSEventHandlerRepositoryTest, Bind_Taken_ReplacesAndReturnsFound)
{
    CPSEventHandlerRepository repository;
    CTestHandler first(5);
    CTestHandler second(5);
    repository.Bind(5, CElement{&first, 4});
    EXPECT_EQ(repository.Bind(5, CElement{&second, 8}), MN_ERROR_FOUND);
    EXPECT_EQ(repository.Bind(5, CElement{&second, 8}), MN_ERROR_FOUND);
    CElement found;
    ASSERT_TRUE(repository.Find(5, found));
    EXPECT_EQ(found.m_pEh, &second);
    EXPECT_EQ(found.m_Mask, 8);
}

TEST(CPSEventHandlerRepositoryTest, Bind_HandleZero_IsAHandle)
{
    CPSEventHandlerRepository repository;
    CTestHandler handler(0);
    EXPECT_EQ(repository.Bind(0, CElement{&handler, 4}), MN_OK);
    EXPECT_EQ(repository.Bind(0, CElement{&handler, 4}), MN_ERROR_FOUND);
}

TEST(CPSEventHandlerRepositoryTest, UnBind_PresentAbsentMinusOne_TellsOnlyMinusOne)
{
    CPSEventHandlerRepository repository;
    CTestHandler handler(5);
    repository.Bind(5, CElement{&handler, 4});
    EXPECT_EQ(repository.UnBind(5), MN_OK);
    CElement found;
    EXPECT_FALSE(repository.Find(5, found));
    EXPECT_EQ(repository.UnBind(5), MN_OK);
    EXPECT_EQ(repository.UnBind(-1), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(handler.TakeCalls(), CTexts());
}

TEST(CPSEventHandlerRepositoryTest, UnBindHandler_OtherHandler_StaysBound)
{
    CPSEventHandlerRepository repository;
    CTestHandler handler(5);
    CTestHandler other(5);
    repository.Bind(5, CElement{&handler, 4});
    repository.UnBindHandler(5, &other);
    repository.UnBindHandler(6, &handler);
    CElement found;
    EXPECT_TRUE(repository.Find(5, found));
    repository.UnBindHandler(5, &handler);
    EXPECT_FALSE(repository.Find(5, found));
}

TEST(CPSEventHandlerRepositoryTest, Close_WithElements_ForgetsThemSilently)
{
    CPSEventHandlerRepository repository;
    CTestHandler handler(5);
    repository.Bind(5, CElement{&handler, 4});
    EXPECT_EQ(repository.Close(), MN_OK);
    CElement found;
    EXPECT_FALSE(repository.Find(5, found));
    EXPECT_EQ(handler.TakeCalls(), CTexts());
}

TEST(CPSEventHandlerRepositoryTest, FillFdSets_EmptyTable_MinusOneAndEmptyLists)
{
    CPSEventHandlerRepository repository;
    ps_fdsets sets{};
    EXPECT_EQ(repository.FillFdSets(sets), -1);
    EXPECT_EQ(Lists(sets), (CTexts{"", "", ""}));
}

TEST(CPSEventHandlerRepositoryTest, FillFdSets_EachMask_GoesIntoItsLists)
{
    CPSEventHandlerRepository repository;
    std::vector<std::unique_ptr<CTestHandler>> handlers;
    for (const long mask : {1, 2, 4, 8, 12, 16, 32}) {
        const int handle = 100 + static_cast<int>(mask);
        handlers.push_back(std::make_unique<CTestHandler>(handle));
        repository.Bind(handle, CElement{handlers.back().get(), mask});
    }
    ps_fdsets sets{};
    EXPECT_EQ(repository.FillFdSets(sets), 132);
    EXPECT_EQ(Lists(sets), (CTexts{"101 102 104 112 ", "102 108 112 ", ""}));
}

TEST(CPSEventHandlerRepositoryTest, FillFdSets_KeyIsNotTheHandle_AsksTheHandler)
{
    CPSEventHandlerRepository repository;
    CTestHandler handler(5);
    repository.Bind(5, CElement{&handler, READ_MASK});
    handler.m_nHandle = 9;
    ps_fdsets sets{};
    EXPECT_EQ(repository.FillFdSets(sets), 9);
    EXPECT_EQ(Lists(sets), (CTexts{"9 ", "", ""}));
    ps_pollfd entries[2];
    unsigned int count = 0;
    repository.FillPollSets(entries, 1, count);
    EXPECT_EQ(entries[0].fd, 9);
}

TEST(CPSEventHandlerRepositoryTest, FillFdSets_MoreThanAListHolds_StopsAtEachListsEnd)
{
    CPSEventHandlerRepository repository;
    CCrowd crowd(repository, PS_FD_SETSIZE + 76, READ_MASK | WRITE_MASK);
    const auto sets = std::make_unique<ps_fdsets>();
    sets->except.count = 77;  // lies behind the write list
    EXPECT_EQ(repository.FillFdSets(*sets), PS_FD_SETSIZE + 76);
    EXPECT_EQ(sets->read.count, 1024u);
    EXPECT_EQ(sets->write.count, 1024u);
    EXPECT_EQ(sets->except.count, 77u);
}

TEST(CPSEventHandlerRepositoryTest, FillFdSets_BitSets_ReadAndWriteOnly)
{
    CPSEventHandlerRepository repository;
    CTestHandler reader(3);
    CTestHandler connecting(4);
    CTestHandler writer(5);
    CTestHandler far(FD_SETSIZE);
    CTestHandler none(6);
    repository.Bind(3, CElement{&reader, ACCEPT_MASK});
    repository.Bind(4, CElement{&connecting, CONNECT_MASK});
    repository.Bind(5, CElement{&writer, WRITE_MASK});
    repository.Bind(6, CElement{&none, READ_MASK});
    none.m_nHandle = -1;
    fd_set readSet;
    fd_set writeSet;
    fd_set exceptSet;
    FD_ZERO(&readSet);
    FD_ZERO(&writeSet);
    FD_ZERO(&exceptSet);
    FD_SET(7, &exceptSet);
    EXPECT_EQ(repository.FillFdSets(readSet, writeSet, exceptSet), 5);
    repository.Bind(FD_SETSIZE, CElement{&far, READ_MASK | WRITE_MASK});
    EXPECT_EQ(repository.FillFdSets(readSet, writeSet, exceptSet), FD_SETSIZE);
    for (int handle = 0; handle < FD_SETSIZE; ++handle) {
        EXPECT_EQ(FD_ISSET(handle, &readSet) != 0, handle == 3 || handle == 4) << handle;
        EXPECT_EQ(FD_ISSET(handle, &writeSet) != 0, handle == 4 || handle == 5) << handle;
        EXPECT_EQ(FD_ISSET(handle, &exceptSet) != 0, handle == 7) << handle;
    }
    CPSEventHandlerRepository empty;
    EXPECT_EQ(empty.FillFdSets(readSet, writeSet, exceptSet), -1);
}

TEST(CPSEventHandlerRepositoryTest, FillPollSets_EmptyTable_ZeroAndNothingWritten)
{
    CPSEventHandlerRepository repository;
    ps_pollfd entry{77, 77, 77};
    unsigned int count = 9;
    EXPECT_EQ(repository.FillPollSets(&entry, 0, count), 0u);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(entry.fd, 77);
}

TEST(CPSEventHandlerRepositoryTest, FillPollSets_EachMask_AsksForItsEvents)
{
    const struct
    {
        long m_Mask;
        short m_Events;
    } cases[] = {{ACCEPT_MASK, PS_POLLIN},
                 {CONNECT_MASK, PS_POLLIN | PS_POLLOUT},
                 {READ_MASK, PS_POLLIN},
                 {WRITE_MASK, PS_POLLOUT},
                 {READ_MASK | WRITE_MASK, PS_POLLIN | PS_POLLOUT},
                 {ALL_EVENTS_MASK, PS_POLLIN | PS_POLLOUT},
                 {16, 0},
                 {32, 0}};
    for (const auto& one : cases) {
        CPSEventHandlerRepository repository;
        CTestHandler handler(5);
        repository.Bind(5, CElement{&handler, one.m_Mask});
        ps_pollfd entries[2] = {{0, 99, 99}, {0, 99, 99}};
        unsigned int count = 0;
        EXPECT_EQ(repository.FillPollSets(entries, 1, count), 1u);
        EXPECT_EQ(count, 1u);
        EXPECT_EQ(entries[0].fd, 5);
        EXPECT_EQ(entries[0].events, one.m_Events) << one.m_Mask;
        EXPECT_EQ(entries[0].revents, 0);
        EXPECT_EQ(entries[1].events, 99);
    }
}

TEST(CPSEventHandlerRepositoryTest, FillPollSets_AsManyAsTheCapacity_WritesJustThose)
{
    CPSEventHandlerRepository repository;
    CCrowd crowd(repository, POLL_CAPACITY, READ_MASK);
    std::vector<ps_pollfd> entries(POLL_CAPACITY + 1, ps_pollfd{-7, 0, 0});
    unsigned int count = 0;
    EXPECT_EQ(repository.FillPollSets(entries.data(), POLL_CAPACITY, count), POLL_CAPACITY);
    EXPECT_EQ(count, POLL_CAPACITY);
    EXPECT_EQ(entries[POLL_CAPACITY].fd, -7);
}

TEST(CPSEventHandlerRepositoryTest, FillPollSets_MoreThanTheCapacity_WritesOneEntryBeyondAndStops)
{
    for (const unsigned int more : {1u, 2u, 100u}) {
        CPSEventHandlerRepository repository;
        CCrowd crowd(repository, static_cast<int>(POLL_CAPACITY + more), READ_MASK);
        std::vector<ps_pollfd> entries(POLL_CAPACITY + 2, ps_pollfd{-7, 0, 0});
        unsigned int count = 0;
        EXPECT_EQ(repository.FillPollSets(entries.data(), POLL_CAPACITY, count), POLL_CAPACITY + 1);
        EXPECT_EQ(count, 8193u);
        EXPECT_NE(entries[POLL_CAPACITY].fd, -7);
        EXPECT_EQ(entries[POLL_CAPACITY + 1].fd, -7);
    }
}

}  // namespace
