// What the cases of the UDP transport share.
#ifndef TESTS_CONNHUB_UDPTRANSPORTTEST_H
#define TESTS_CONNHUB_UDPTRANSPORTTEST_H

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "connhub/connhub.h"
#include "mantle/CMNInetAddr.h"
#include "mantle/CMNMessageBlock.h"
#include "unit/connhub/SystemCalls.h"

namespace connhub
{

// Keeps what arrives; a case may have something done inside the callback.
class CRecordingSink : public IMNUDPTransportSink
{
public:
    struct CDatagram
    {
        std::string m_strData;
        mantle::CMNInetAddr m_From;
    };

    unsigned long OnReceive(mantle::CMNMessageBlock& data, const mantle::CMNInetAddr& from) override
    {
        if (m_fOnReceive)
            m_fOnReceive(std::string(data.GetReadPtr(), data.GetLength()));
        const std::lock_guard<std::mutex> guard(m_Mutex);
        m_Datagrams.push_back(CDatagram{std::string(data.GetReadPtr(), data.GetLength()), from});
        m_Condition.notify_all();
        return 0;
    }

    // Whether `count` datagrams are there within the limit.
    bool WaitFor(std::size_t count)
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        return m_Condition.wait_for(lock, std::chrono::seconds(30), [=] { return m_Datagrams.size() >= count; });
    }

    std::vector<CDatagram> Get()
    {
        const std::lock_guard<std::mutex> guard(m_Mutex);
        return m_Datagrams;
    }

    std::function<void(const std::string&)> m_fOnReceive;  // set before anything can arrive

private:
    std::mutex m_Mutex;
    std::condition_variable m_Condition;
    std::vector<CDatagram> m_Datagrams;
};

using CTransportPtr = mantle::CMNAutoPtr<IMNUDPTransport>;

class UDPTransportTest : public testing::Test
{
protected:
    UDPTransportTest() { CSystemCalls::Reset(); }

    static void Make(IMNUDPTransportSink& sink, CTransportPtr& transport)
    {
        ASSERT_EQ(CMNConnectionManager::Instance()->CreateUDPTransport(&sink, transport.ParaOut()), mantle::MN_OK);
    }

    // Made and opened; `address` receives where.
    static void MakeOpen(IMNUDPTransportSink& sink, CTransportPtr& transport, mantle::CMNInetAddr& address,
                         const char* host = "127.0.0.1")
    {
        Make(sink, transport);
        ASSERT_EQ(transport->Open(mantle::CMNInetAddr(host, 0)), mantle::MN_OK);
        ASSERT_EQ(transport->GetLocalAddress(address), mantle::MN_OK);
    }

    static mantle::MNResult Send(CTransportPtr& transport, const std::string& data, const mantle::CMNInetAddr& to)
    {
        return transport->SendTo(data.data(), data.size(), to);
    }

    CRecordingSink m_SinkA;
    CRecordingSink m_SinkB;
    CTransportPtr m_A;
    CTransportPtr m_B;
    mantle::CMNInetAddr m_AddressA;
    mantle::CMNInetAddr m_AddressB;
};

}  // namespace connhub

#endif
