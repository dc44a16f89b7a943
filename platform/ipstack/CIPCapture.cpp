#include "ipstack/CIPCapture.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>

#include "CIPCounters.h"
#include "mantle/CMNClock.h"
#include "mantle/CMNMutexThread.h"
#include "mantle/IMNTraceManager.h"
#include "mantle/MNDefines.h"

namespace ipstack
{

namespace
{

// The file format of libpcap (pcap-savefile), in this machine's byte order.
constexpr std::uint32_t s_dwMagicNanoseconds = 0xA1B23C4D;
constexpr std::uint16_t s_wVersionMajor = 2;
constexpr std::uint16_t s_wVersionMinor = 4;
constexpr std::uint32_t s_dwLinkTypeRaw = 101;
constexpr std::uint32_t s_dwSnapLength = 65535;

struct CFileHeader
{
    std::uint32_t m_dwMagic = s_dwMagicNanoseconds;
    std::uint16_t m_wMajor = s_wVersionMajor;
    std::uint16_t m_wMinor = s_wVersionMinor;
    std::uint32_t m_dwZone = 0;
    std::uint32_t m_dwAccuracy = 0;
    std::uint32_t m_dwSnapLength = s_dwSnapLength;
    std::uint32_t m_dwLinkType = s_dwLinkTypeRaw;
};
static_assert(sizeof(CFileHeader) == 24);

struct CPacketHeader
{
    std::uint32_t m_dwSeconds;
    std::uint32_t m_dwNanoseconds;
    std::uint32_t m_dwStored;
    std::uint32_t m_dwLength;
};
static_assert(sizeof(CPacketHeader) == 16);

constexpr std::size_t s_nFileBuffer = 256 * 1024;
constexpr std::size_t s_nTextLength = 128;  // a trace line
constexpr long long s_llNsPerSecond = 1000000000;
constexpr long long s_llNsPerUs = 1000;

// The time of day; a hand-moved clock's own time while one is in force, so that a run repeats exactly.
long long NowNs()
{
    if (mantle::CMNClock::IsManual()) {
        return mantle::CMNClock::NowUs() * s_llNsPerUs;
    }
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace

class CIPCapture::CImpl
{
public:
    explicit CImpl(IIPStackLowLevel& below) : m_Below(below) {}
    ~CImpl() { Stop(); }

    unsigned long Start(const std::string& path)
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        if (m_pFile) {
            return mantle::MN_ERROR_ALREADY_INITIALIZED;
        }
        m_nState.store(Off);
        m_pFile = std::fopen(path.c_str(), "wbe");
        if (!m_pFile) {
            m_nError.store(errno);
            return mantle::MN_ERROR_FAILURE;
        }
        std::setvbuf(m_pFile, nullptr, _IOFBF, s_nFileBuffer);
        const CFileHeader header;
        if (std::fwrite(&header, sizeof(header), 1, m_pFile) != 1 || std::fflush(m_pFile) != 0) {
            m_nError.store(errno);
            Close();
            return mantle::MN_ERROR_FAILURE;
        }
        m_nError.store(0);
        m_qwPackets.store(0);
        m_llFlushed = NowNs();
        m_nState.store(On);
        return mantle::MN_OK;
    }

    void Stop()
    {
        int error = 0;
        {
            mantle::CMNMutexGuard guard(m_Mutex);
            m_nState.store(Off);
            error = Close();
            if (error != 0) {
                m_nError.store(error);
            }
        }
        if (error != 0) {
            CIPCounters::Add(CIPCounters::CaptureFailed);
            Tell(error);
        }
    }

    void Write(const char* data, unsigned long length)
    {
        const EState state = m_nState.load(std::memory_order_relaxed);
        if (state == Off) {
            return;
        }
        int error = 0;
        if (state == On) {
            mantle::CMNMutexGuard guard(m_Mutex);
            if (m_pFile) {
                if (WriteRecord(data, length)) {
                    m_qwPackets.fetch_add(1, std::memory_order_relaxed);
                    return;
                }
                error = errno;
                m_nError.store(error);
                m_nState.store(Failed);
                Close();
            } else if (m_nState.load() != Failed) {
                return;
            }
        }
        CIPCounters::Add(CIPCounters::CaptureFailed);
        if (error != 0) {
            Tell(error);
        }
    }

    enum EState : int
    {
        Off,
        On,
        Failed  // until Stop or Start
    };

    IIPStackLowLevel& m_Below;
    std::atomic<IIPStack*> m_pStack{nullptr};
    std::atomic<EState> m_nState{Off};
    std::atomic<int> m_nError{0};
    std::atomic<std::uint64_t> m_qwPackets{0};

private:
    bool WriteRecord(const char* data, unsigned long length) MN_REQUIRES(m_Mutex)
    {
        const long long now = NowNs();
        const auto stored = static_cast<std::uint32_t>(length < s_dwSnapLength ? length : s_dwSnapLength);
        const CPacketHeader header{static_cast<std::uint32_t>(now / s_llNsPerSecond),
                                   static_cast<std::uint32_t>(now % s_llNsPerSecond), stored,
                                   static_cast<std::uint32_t>(length)};
        if (std::fwrite(&header, sizeof(header), 1, m_pFile) != 1 ||
            (stored != 0 && std::fwrite(data, stored, 1, m_pFile) != 1)) {
            return false;
        }
        // Whoever reads along need not wait longer than this.
        if (now - m_llFlushed >= s_llNsPerSecond) {
            m_llFlushed = now;
            return std::fflush(m_pFile) == 0;
        }
        return true;
    }

    // Returns: 0, or the system's error number.
    int Close() MN_REQUIRES(m_Mutex)
    {
        const int error = m_pFile && std::fclose(m_pFile) != 0 ? errno : 0;
        m_pFile = nullptr;
        return error;
    }

    // No lock is held: the sink is a stranger's.
    static void Tell(int error)
    {
        char text[s_nTextLength];
        mantle::Text_Formator(text, sizeof(text)) << "ipstack: capture ended by the system's error " << error;
        mantle::IMNTraceManager::Instance()->Trace(0, text);
    }

    mantle::CMNMutexThread m_Mutex;
    std::FILE* m_pFile MN_GUARDED_BY(m_Mutex) = nullptr;
    long long m_llFlushed MN_GUARDED_BY(m_Mutex) = 0;
};

CIPCapture::CIPCapture(IIPStackLowLevel& below) : m_pImpl(new CImpl(below)) {}

CIPCapture::~CIPCapture() = default;

void CIPCapture::SetStack(IIPStack* stack)
{
    m_pImpl->m_pStack.store(stack);
}

unsigned long CIPCapture::Start(const std::string& path)
{
    return m_pImpl->Start(path);
}

void CIPCapture::Stop()
{
    m_pImpl->Stop();
}

bool CIPCapture::IsOn() const
{
    return m_pImpl->m_nState.load() == CImpl::On;
}

int CIPCapture::GetSystemError() const
{
    return m_pImpl->m_nError.load();
}

std::uint64_t CIPCapture::GetPackets() const
{
    return m_pImpl->m_qwPackets.load();
}

unsigned long CIPCapture::IPStackLowLevelOutput(const char* data, unsigned long length, unsigned char flag)
{
    m_pImpl->Write(data, length);
    return m_pImpl->m_Below.IPStackLowLevelOutput(data, length, flag);
}

unsigned long CIPCapture::Input(const char* data, unsigned long length)
{
    m_pImpl->Write(data, length);
    IIPStack* stack = m_pImpl->m_pStack.load();
    return stack ? stack->Input(data, length) : mantle::MN_ERROR_NOT_INITIALIZED;
}

}  // namespace ipstack
