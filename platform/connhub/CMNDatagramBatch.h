// Datagrams that wait to be sent.
#ifndef CONNHUB_CMNDATAGRAMBATCH_H
#define CONNHUB_CMNDATAGRAMBATCH_H

#include <cstddef>
#include <vector>

#include "mantle/CMNInetAddr.h"

namespace connhub
{

// Datagrams in the order of their sending, their bytes one behind the other, so that a run of equal ones to one
// address is one piece of memory. Taken from the front; the memory is kept for the next ones.
class CMNDatagramBatch
{
public:
    // Equal-sized datagrams to one address; the last one may be shorter.
    struct CRun
    {
        const char* m_pData;
        std::size_t m_nBytes;
        std::size_t m_nEach;  // size of all but the last
        std::size_t m_nCount;
        const mantle::CMNInetAddr* m_pTo;
    };

    // Returns: false when there is no memory; nothing is added then.
    bool Add(const char* data, std::size_t length, const mantle::CMNInetAddr& to) noexcept;

    bool IsEmpty() const noexcept { return m_nFirst == m_Entries.size(); }
    std::size_t GetCount() const noexcept { return m_Entries.size() - m_nFirst; }
    std::size_t GetBytes() const noexcept { return m_Bytes.size() - m_nFirstByte; }

    // The run that begins `skip` datagrams behind the front, of `maxCount` datagrams and `maxBytes` bytes at most but
    // of one datagram at least. State: there is one there.
    CRun GetRun(std::size_t skip, std::size_t maxCount, std::size_t maxBytes) const noexcept;

    // Takes datagrams off the front.
    void Pop(std::size_t count) noexcept;
    void Clear() noexcept { Pop(GetCount()); }

    void Swap(CMNDatagramBatch& other) noexcept;

private:
    struct CEntry
    {
        std::size_t m_nOffset;
        std::size_t m_nLength;
        std::size_t m_nTo;  // index of the address
    };

    std::vector<char> m_Bytes;
    std::vector<CEntry> m_Entries;
    std::vector<mantle::CMNInetAddr> m_To;  // each differs from the one before
    std::size_t m_nFirst = 0;
    std::size_t m_nFirstByte = 0;
};

}  // namespace connhub

#endif
