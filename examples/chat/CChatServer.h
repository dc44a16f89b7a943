// The chat server: a thread that owns the connections of everybody in the room.
#ifndef CHAT_CCHATSERVER_H
#define CHAT_CCHATSERVER_H

#include <map>
#include <memory>
#include <vector>

#include <mantle/mantle.h>
#include <uxport/uxport.h>

class CChatMember;
class CChatWorker;

// Who hears what is said. Its last holder must be the owner thread, where the references go back.
using CChatRoom = std::shared_ptr<const std::vector<mantle::CMNAutoPtr<uxport::IPSTransport>>>;

// Receives for all connections and hands what has arrived to the workers, to one and the same for each connection, so
// that its lines stay in order. Workers answer by themselves; to disconnect somebody they ask the owner.
class CChatServer : public mantle::CMNThreadUser, public uxport::IPSAcceptorConnectorSink
{
public:
    CChatServer(const uxport::CMNInetAddr& address, int workers);
    ~CChatServer() override;

    // Thread: any. Shows the member the door; unknown ones are passed over.
    void PostKick(unsigned long member);

    // Thread: any. Brings a room back to where its references may be released.
    void PostRoom(CChatRoom room);

    // Whether the owner thread has begun to listen, known when Create has returned. That the address is taken is not
    // told: nobody gets in.
    bool IsListening() const { return m_bListening; }

    void OnThreadInit() override;
    void OnThreadRun() override;

    uxport::MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                         uxport::IPSAcceptorConnectorId* id) override;

    // From the members.
    void OnText(unsigned long member, const uxport::CMNMessageBlock& data);
    void OnLeft(unsigned long member);

private:
    CChatWorker& WorkerOf(unsigned long member) { return *m_Workers[member % m_Workers.size()]; }
    void Changed();

    uxport::CMNInetAddr m_Address;
    bool m_bListening = false;
    std::vector<CChatWorker*> m_Workers;  // the manager's, until the end of the process
    // The owner thread's.
    mantle::CMNAutoPtr<uxport::IPSAcceptor> m_pAcceptor;
    std::map<unsigned long, std::unique_ptr<CChatMember>> m_Members;
    unsigned long m_dwNextMember = 0;
    CChatRoom m_Room;  // of the members now
};

#endif
