#include "CLibraryRound.h"

#include <string>

#include "CFuzzStack.h"
#include "ipstack/ps_socket.h"

using namespace uxport;

namespace
{

constexpr unsigned short FirstPort = 7100;
constexpr unsigned short NobodysPort = 7190;
constexpr unsigned short Ports = 3;
constexpr unsigned short Protocol = 89;
constexpr unsigned long Types[] = {CONNECTION_TYPE_TCP, CONNECTION_TYPE_TCP, CONNECTION_TYPE_UDP, CONNECTION_TYPE_RAW};
constexpr unsigned int MostDepth = 3;

const char* Host(bool six)
{
    return six ? "::1" : "127.0.0.1";
}

}  // namespace

CLibraryRound::CLibraryRound(const std::uint8_t* data, std::size_t size, bool proxies, std::function<void()> done)
    : m_Input(data, size), m_bProxies(proxies), m_fDone(std::move(done))
{
}

CLibraryRound::~CLibraryRound() = default;

void CLibraryRound::Begin()
{
    Yield(0);
}

void CLibraryRound::Yield(long milliseconds)
{
    m_bWaits = true;
    m_Timer.Schedule(this, CMNTimeValue::FromUsec(milliseconds * 1000), 1);
}

void CLibraryRound::OnTimer(mantle::CMNTimerWrapperID*)
{
    m_bWaits = false;
    while (!m_bWaits && !m_bFinishing) {
        m_bFinishing = m_Input.IsOver() || m_dwOperations >= s_dwMostOperations;
        if (!m_bFinishing) {
            Operate();
        }
    }
    if (m_bFinishing && !m_bWaits) {
        Finish();
    }
}

void CLibraryRound::React()
{
    if (m_bFinishing || m_dwDepth >= MostDepth) {
        return;
    }
    ++m_dwDepth;
    for (unsigned int left = m_Input.Byte() % 4; left != 0 && m_dwOperations < s_dwMostOperations; --left) {
        Operate();
    }
    --m_dwDepth;
}

void CLibraryRound::Operate()
{
    constexpr long steps[] = {0, 0, 0, 1, 200, 3000, 30000, 70000};
    ++m_dwOperations;
    const unsigned int operation = m_Input.Byte() % 16;
    const unsigned int slot = operation < 8 ? m_Input.Byte() % s_nSlots : 0;
    switch (operation) {
    case 0:
    case 1:
        Listen(m_Servers[slot]);
        break;
    case 2:
        Stop(m_Servers[slot]);
        break;
    case 3:
        if (m_Servers[slot].m_pSink) {
            m_Servers[slot].m_pSink->Ignore();
            m_OldSinks.push_back(std::move(m_Servers[slot].m_pSink));
        }
        m_Servers[slot].m_pAcceptor = nullptr;
        break;
    case 4:
    case 5:
        Connect(m_Clients[slot]);
        break;
    case 6:
        Cancel(m_Clients[slot]);
        break;
    case 7:
        if (m_Clients[slot].m_pAttempt) {
            m_Clients[slot].m_pAttempt->Ignore();
            m_OldAttempts.push_back(std::move(m_Clients[slot].m_pAttempt));
        }
        m_Clients[slot].m_pConnector = nullptr;
        break;
    case 8:
    case 9:
        if (m_dwDepth == 0) {
            Yield(steps[m_Input.Byte() % 8]);
        }
        break;
    default:
        OperateEnd(operation);
        break;
    }
}

void CLibraryRound::Listen(CServer& server)
{
    const unsigned int form = m_Input.Byte();
    if (!server.m_pAcceptor) {
        server.m_dwType = Types[form % 4];
        IPSAcceptor* acceptor = nullptr;
        Require(IPSConnectionManager::Instance()->CreateConnectionServer(server.m_dwType, acceptor) == MN_OK,
                "a server can be made");
        server.m_pAcceptor.ParaOut() = acceptor;
    }
    const bool six = (form & 0x80) != 0;
    const CMNInetAddr address(Host(six), static_cast<unsigned short>(FirstPort + form / 4 % Ports));
    auto sink = std::make_unique<CFuzzServerSink>(*this);
    const MNResult result =
        server.m_pAcceptor->StartListen(sink.get(), address, six ? PS_AF_INET6 : PS_AF_INET, Protocol);
    Require(!server.m_pSink || result == MN_ERROR_ALREADY_INITIALIZED, "who listens can't start to");
    if (result == MN_OK) {
        server.m_pSink = std::move(sink);
    } else {
        sink->Silence();
        m_OldSinks.push_back(std::move(sink));
    }
}

// The sink is gone once StopListen has returned.
void CLibraryRound::Stop(CServer& server)
{
    if (server.m_pAcceptor) {
        Require(server.m_pAcceptor->StopListen(0) == MN_OK, "a stop succeeds");
        if (server.m_pSink) {
            server.m_pSink->Silence();
            m_OldSinks.push_back(std::move(server.m_pSink));
        }
    }
}

void CLibraryRound::Connect(CClient& client)
{
    constexpr long timeouts[] = {0, 1, 500, 5000};
    const unsigned int form = m_Input.Byte();
    if (!client.m_pConnector) {
        client.m_dwType = Types[form % 4];
        IPSConnector* connector = nullptr;
        Require(IPSConnectionManager::Instance()->CreateConnectionClient(client.m_dwType, connector) == MN_OK,
                "a client can be made");
        client.m_pConnector.ParaOut() = connector;
    }
    if (client.m_dwType != CONNECTION_TYPE_TCP) {
        Cancel(client);  // such an attempt on the network thread is not superseded
    }
    const bool six = (form & 0x80) != 0;
    const unsigned int where = form / 4 % 8;
    const char* const host = where == 7 ? (six ? CFuzzStack::s_szPeer6 : CFuzzStack::s_szPeer) : Host(six);
    const CMNInetAddr peer(host, where >= Ports ? NobodysPort : static_cast<unsigned short>(FirstPort + where));
    const unsigned int kind = m_Input.Byte();
    CMNTimeValue timeout = CMNTimeValue::FromUsec(timeouts[kind / 2 % 4] * 1000);
    CMNInetAddr any(six ? "::" : "0.0.0.0", 0);
    auto attempt = std::make_unique<CFuzzAttempt>(*this);
    const MNResult result =
        client.m_pConnector->AsycConnect(attempt.get(), peer, (kind & 1) != 0 ? &timeout : nullptr,
                                         six ? &any : nullptr, six ? PS_AF_INET6 : PS_AF_INET, Protocol);
    Require(result == MN_OK, "an attempt can be made");
    if (client.m_pAttempt) {
        client.m_pAttempt->Silence();
        m_OldAttempts.push_back(std::move(client.m_pAttempt));
    }
    client.m_pAttempt = std::move(attempt);
}

void CLibraryRound::Cancel(CClient& client)
{
    if (client.m_pConnector) {
        const MNResult result = client.m_pConnector->CancelConnect();
        Require(client.m_pAttempt ? result == MN_OK : result == 1, "a cancel says whether there was an attempt");
        if (client.m_pAttempt) {
            client.m_pAttempt->Silence();
            m_OldAttempts.push_back(std::move(client.m_pAttempt));
        }
    }
}

void CLibraryRound::EndAttempt(CFuzzAttempt* attempt)
{
    for (CClient& client : m_Clients) {
        if (client.m_pAttempt.get() == attempt) {
            attempt->Silence();
            m_OldAttempts.push_back(std::move(client.m_pAttempt));
            return;
        }
    }
    Require(false, "an outcome belongs to an attempt");
}

// Opens it, keeps it closed for now, or lets it go.
void CLibraryRound::TakeEnd(IPSTransport* transport)
{
    const unsigned int how = m_bFinishing ? 7 : m_Input.Byte() % 8;
    if (how != 7 && m_Ends.size() < s_nMostEnds) {
        m_Ends.push_back(std::make_unique<CFuzzEnd>(*this, transport));
        // Behind a proxy what arrives before is lost.
        if (how != 6 || m_bProxies) {
            m_Ends.back()->Open();
        }
    }
    React();
}

void CLibraryRound::OperateEnd(unsigned int operation)
{
    if (m_Ends.empty()) {
        return;
    }
    const std::size_t index = m_Input.Byte() % m_Ends.size();
    CFuzzEnd& end = *m_Ends[index];
    switch (operation) {
    case 10:
    case 11:
        Send(end);
        break;
    case 12:
        Drop(index, true);
        break;
    case 13:
        if (m_Input.Byte() % 4 == 0) {
            Drop(index, false);
        } else {
            Options(end);
        }
        break;
    case 14:
        if (m_Input.Byte() % 2 == 0) {
            Reset(end);
        } else if (!end.IsEnded()) {
            auto next = std::make_unique<CFuzzEnd>(*this, end.Get());
            next->Inherit(end);
            m_Released.push_back(std::move(m_Ends[index]));
            m_Ends[index] = std::move(next);
        }
        break;
    default:
        if (!end.IsOpen() && !end.IsEnded()) {
            end.Open();
        }
        break;
    }
}

void CLibraryRound::Send(CFuzzEnd& end)
{
    const unsigned int form = m_Input.Byte();
    std::string text((form & 0x80) != 0 ? (form & 0x7FU) * 600 : form, '\0');
    for (std::size_t i = 0; i < text.size(); ++i) {
        text[i] = CFuzzEnd::ByteAt(end.m_qwSent + i);
    }
    CMNMessageBlock block(text.size());
    block.Write(text.data(), text.size());
    CPSTransportParameter param;
    const MNResult result = end.Get()->SendData(block, &param);
    if (end.IsStream()) {
        Require(param.SentLength + block.GetChainedLength() == text.size(), "what is not taken stays");
        Require(result != MN_OK || block.GetChainedLength() == 0, "all is taken when it says so");
        end.m_qwSent += param.SentLength;
    }
    Require(!end.IsEnded() || result != MN_ERROR_PARTIAL_DATA, "who has ended promises no OnSend");
}

void CLibraryRound::Reset(CFuzzEnd& end)
{
    std::int32_t handle = PS_INVALID_HANDLE;
    if (end.IsStream() && end.Get()->GetOption(OPT_FD, &handle) == MN_OK && handle != PS_INVALID_HANDLE) {
        const std::int32_t linger[] = {1, 0};  // on, no time: the close aborts
        ps_setsockopt(handle, PS_SOL_SOCKET, PS_SO_LINGER, linger, sizeof linger);
    }
    end.Disconnect();
}

void CLibraryRound::Options(CFuzzEnd& end)
{
    CMNInetAddr address;
    Require(end.Get()->GetPeerAddr(address) == MN_OK && end.Get()->GetLocalAddr(address) == MN_OK,
            "addresses are answered");
    std::int32_t number = 0;
    end.Get()->GetOption(OPT_BYTES_TO_READ, &number);
    end.Get()->GetOption(OPT_ALIVE, &number);
    std::uint64_t value = m_Input.Word();
    constexpr unsigned long settable[] = {OPT_KEEPALIVE, OPT_SEND_BUFFER, OPT_RECEIVE_BUFFER};
    end.Get()->SetOption(settable[m_Input.Byte() % 3], &value);
    Require(end.Get()->SetOption(OPT_RESERVED_102, &value) != MN_OK, "there is no option 102");
}

// After a disconnect the sink may go at once, from inside its own callback too.
void CLibraryRound::Drop(std::size_t index, bool disconnect)
{
    std::unique_ptr<CFuzzEnd> end = std::move(m_Ends[index]);
    m_Ends.erase(m_Ends.begin() + static_cast<std::ptrdiff_t>(index));
    if (disconnect) {
        end->Disconnect();
    }
    end->Release();
    if (!disconnect) {
        m_Released.push_back(std::move(end));
    }
}

bool CLibraryRound::IsAnyPending() const
{
    for (const CClient& client : m_Clients) {
        if (client.m_pAttempt) {
            return true;
        }
    }
    return false;
}

// Waits for the outcomes, lets all go, waits until it is gone.
void CLibraryRound::Finish()
{
    if (IsAnyPending()) {
        Require(++m_nTurns <= s_nMostSilence, "every attempt has an outcome");
        Yield(1000);
        return;
    }
    if (!m_bLetGo) {
        m_bLetGo = true;
        m_nTurns = 0;
        LetAllGo();
    }
    if (mantle::CMNLiveObjects::Count() != m_lLiveBefore) {
        Require(++m_nTurns <= s_nMostTurns, "what is let go dies");
        Yield(m_nTurns < s_nMostTurns / 2 ? 0 : 1000);
        return;
    }
    const auto done = m_fDone;  // which may destroy this
    done();
}

void CLibraryRound::LetAllGo()
{
    for (CServer& server : m_Servers) {
        Stop(server);
        server.m_pAcceptor = nullptr;
    }
    for (CClient& client : m_Clients) {
        client.m_pConnector = nullptr;
    }
    while (!m_Ends.empty()) {
        Drop(m_Ends.size() - 1, true);
    }
}
