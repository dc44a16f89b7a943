// The fetching half: connects and hands on what arrives.
#ifndef FILECOPY_CFILEFETCHER_H
#define FILECOPY_CFILEFETCHER_H

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "CExample.h"
#include "CFileWriter.h"
#include "CSilence.h"

// Thread: the user thread that made it; all its callbacks come there.
class CFileFetcher : public CExampleSink
{
public:
    // How far it is, or has come.
    struct CState
    {
        std::string m_strError = "not finished";  // empty: everything has arrived, whatever its digests
        std::uint64_t m_qwBytes = 0;              // of files
        std::uint64_t m_qwTotal = 0;
        long long m_llMicroseconds = 0;  // since the connect; in the end, to the last byte
    };
    using FProgress = std::function<void(const CState& state)>;
    using FDone = std::function<void()>;

    // `progress` is called from time to time, `done` once, after which the state stays. A server that is silent for
    // `seconds`, or can't be reached in that time, is given up.
    CFileFetcher(std::filesystem::path folder, unsigned int seconds, FProgress progress, FDone done);
    ~CFileFetcher() override;

    MNResult Start(const uxport::CMNInetAddr& address);
    const CState& GetState() const { return m_State; }

    // What has been written; null until the list is there.
    const CFileWriter* GetWriter() const { return m_pWriter ? &*m_pWriter : nullptr; }

    MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                 uxport::IPSAcceptorConnectorId* id) override;
    MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport* transport,
                       uxport::CPSTransportParameter* param) override;
    MNResult OnDisconnect(long reason, uxport::IPSTransport* transport) override;

private:
    void Take(const char* data, std::size_t length);
    bool TakeList(const char*& data, std::size_t& length);
    bool HasAll() const { return m_pWriter && m_pWriter->IsComplete(); }
    void Update();
    void Answer();
    void Finish(const std::string& error);

    const std::filesystem::path m_Folder;
    const unsigned int m_dwSeconds;
    FProgress m_fProgress;
    FDone m_fDone;
    CState m_State;
    std::string m_strHead;  // of the stream, until the list is whole
    std::optional<CFileWriter> m_pWriter;
    std::uint64_t m_qwTaken = 0;  // of the stream
    std::uint64_t m_qwAnswers = 0;
    long long m_llStart = 0;
    mantle::CMNAutoPtr<uxport::IPSConnector> m_pConnector;
    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
    CSilence m_Silence;
};

#endif
