#include "CFileReader.h"

#include <algorithm>

std::size_t CFileReader::Read(char* data, std::size_t length)
{
    std::size_t read = 0;
    while (read < length && m_nFile < m_List.GetFiles().size()) {
        const CFileEntry& file = m_List.GetFiles()[m_nFile];
        if (m_qwInFile == file.m_qwSize) {
            m_File.close();
            m_qwInFile = 0;
            ++m_nFile;
            continue;
        }
        if (!m_File.is_open())
            m_File.open(m_List.GetSource(file), std::ios::binary);
        const std::uint64_t wanted = std::min<std::uint64_t>(length - read, file.m_qwSize - m_qwInFile);
        if (!m_File.read(data + read, static_cast<std::streamsize>(wanted)))
            break;
        m_qwInFile += wanted;
        read += wanted;
    }
    if (m_qwCorruptAt >= m_qwRead && m_qwCorruptAt - m_qwRead < read) {
        char& byte = data[m_qwCorruptAt - m_qwRead];
        byte = static_cast<char>(~byte);
    }
    m_qwRead += read;
    return read;
}
