#include "CMNDatagramBatch.h"

#include <algorithm>
#include <new>
#include <utility>

namespace connhub
{

namespace
{

template <class T>
void MakeRoom(std::vector<T>& items, std::size_t more)
{
    const std::size_t needed = items.size() + more;
    if (needed > items.capacity()) {
        items.reserve(std::max(needed, 2 * items.size()));
    }
}

}  // namespace

bool CMNDatagramBatch::Add(const char* data, std::size_t length, const mantle::CMNInetAddr& to) noexcept
{
    try {
        MakeRoom(m_To, 1);
        MakeRoom(m_Entries, 1);
        MakeRoom(m_Bytes, length);
    } catch (const std::bad_alloc&) {
        return false;
    }
    if (m_To.empty() || m_To.back() != to) {
        m_To.push_back(to);
    }
    m_Entries.push_back(CEntry{m_Bytes.size(), length, m_To.size() - 1});
    if (length != 0) {
        m_Bytes.insert(m_Bytes.end(), data, data + length);
    }
    return true;
}

CMNDatagramBatch::CRun CMNDatagramBatch::GetRun(std::size_t skip, std::size_t maxCount,
                                                std::size_t maxBytes) const noexcept
{
    const std::size_t begin = m_nFirst + skip;
    const CEntry& first = m_Entries[begin];
    std::size_t bytes = first.m_nLength;
    std::size_t end = begin + 1;
    bool shorter = first.m_nLength == 0;
    while (!shorter && end < m_Entries.size() && end - begin < maxCount) {
        const CEntry& next = m_Entries[end];
        if (next.m_nTo != first.m_nTo || next.m_nLength > first.m_nLength || next.m_nLength == 0 ||
            bytes + next.m_nLength > maxBytes) {
            break;
        }
        shorter = next.m_nLength < first.m_nLength;
        bytes += next.m_nLength;
        ++end;
    }
    return CRun{m_Bytes.data() + first.m_nOffset, bytes, first.m_nLength, end - begin, &m_To[first.m_nTo]};
}

void CMNDatagramBatch::Pop(std::size_t count) noexcept
{
    m_nFirst += std::min(count, GetCount());
    if (m_nFirst == m_Entries.size()) {
        m_Bytes.clear();
        m_Entries.clear();
        m_To.clear();
        m_nFirst = 0;
        m_nFirstByte = 0;
    } else {
        m_nFirstByte = m_Entries[m_nFirst].m_nOffset;
    }
}

void CMNDatagramBatch::Swap(CMNDatagramBatch& other) noexcept
{
    m_Bytes.swap(other.m_Bytes);
    m_Entries.swap(other.m_Entries);
    m_To.swap(other.m_To);
    std::swap(m_nFirst, other.m_nFirst);
    std::swap(m_nFirstByte, other.m_nFirstByte);
}

}  // namespace connhub
