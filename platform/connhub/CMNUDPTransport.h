// A UDP transport as its holders see it.
#ifndef CONNHUB_CMNUDPTRANSPORT_H
#define CONNHUB_CMNUDPTRANSPORT_H

#include <memory>
#include <utility>

#include "CMNUDPChannel.h"
#include "connhub/IMNUDPTransport.h"

namespace connhub
{

// The counted half: its last release ends the channel.
class CMNUDPTransport : public IMNUDPTransport, public mantle::CMNReferenceControlT<mantle::CMNMutexThread>
{
public:
    explicit CMNUDPTransport(std::shared_ptr<CMNUDPChannel> channel) : m_pChannel(std::move(channel)) {}

    unsigned long AddReference() override { return AddReference_i(); }
    unsigned long ReleaseReference() override { return ReleaseReference_i(); }

    mantle::MNResult Open(const mantle::CMNInetAddr& local) override { return m_pChannel->Open(local); }
    mantle::MNResult SendTo(const char* data, unsigned long length, const mantle::CMNInetAddr& to) override
    {
        return m_pChannel->SendTo(data, length, to);
    }
    mantle::MNResult GetLocalAddress(mantle::CMNInetAddr& local) override { return m_pChannel->GetLocalAddress(local); }
    void SetQueueLimit(unsigned long bytes) override { m_pChannel->SetQueueLimit(bytes); }
    CMNUDPTransportCounters GetCounters() override { return m_pChannel->GetCounters(); }

    void OnReferenceDestory() override
    {
        m_pChannel->Detach();
        delete this;
    }

private:
    const std::shared_ptr<CMNUDPChannel> m_pChannel;
};

}  // namespace connhub

#endif
