// The files of a list as one stretch of bytes.
#ifndef FILECOPY_CFILEREADER_H
#define FILECOPY_CFILEREADER_H

#include <cstdint>
#include <fstream>

#include "CFileList.h"

class CFileReader
{
public:
    static constexpr std::uint64_t s_qwNowhere = ~std::uint64_t{0};

    // `list` outlives the reader. `corruptAt`: the offset of a byte that is read changed, s_qwNowhere for none.
    CFileReader(const CFileList& list, std::uint64_t corruptAt) : m_List(list), m_qwCorruptAt(corruptAt) {}

    // Reads the next `length` bytes. Returns how many there were: fewer at the end, or where a file is no longer as
    // long as the list says.
    std::size_t Read(char* data, std::size_t length);

    std::uint64_t GetRead() const { return m_qwRead; }

private:
    const CFileList& m_List;
    std::uint64_t m_qwCorruptAt;
    std::size_t m_nFile = 0;
    std::ifstream m_File;
    std::uint64_t m_qwInFile = 0;
    std::uint64_t m_qwRead = 0;
};

#endif
