#include "CFileList.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <stdexcept>

#include "CFileProtocol.h"
#include "CSha256.h"

namespace fs = std::filesystem;

namespace
{

// "digest size path".
bool Parse(const std::string& line, CFileEntry& entry)
{
    constexpr std::size_t size = CSha256::s_nDigits + 1;
    const std::size_t path = line.find(' ', size);
    if (path == std::string::npos || line[size - 1] != ' ')
        return false;
    const char* const end = line.data() + path;
    const auto [stopped, error] = std::from_chars(line.data() + size, end, entry.m_qwSize);
    entry.m_strSha256 = line.substr(0, CSha256::s_nDigits);
    entry.m_strPath = line.substr(path + 1);
    return stopped == end && error == std::errc();
}

}  // namespace

CFileList::CFileList(const fs::path& root) : m_Base(root)
{
    if (!fs::is_directory(root)) {
        m_Base = fs::absolute(root).parent_path();
        Add(fs::absolute(root));
        return;
    }
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
        if (entry.is_regular_file() && !entry.is_symlink())
            files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files)
        Add(file);
}

void CFileList::Add(const fs::path& file)
{
    std::ifstream source(file, std::ios::binary);
    if (!source || !fs::is_regular_file(file))
        throw std::runtime_error("cannot read " + file.string());
    CFileEntry entry;
    entry.m_strPath = file.lexically_relative(m_Base).generic_string();
    CSha256 sha256;
    std::vector<char> buffer(CFileProtocol::s_nSendSize);
    while (source.read(buffer.data(), static_cast<std::streamsize>(buffer.size())), source.gcount() > 0) {
        sha256.Add(buffer.data(), static_cast<std::size_t>(source.gcount()));
        entry.m_qwSize += static_cast<std::uint64_t>(source.gcount());
    }
    entry.m_strSha256 = sha256.Finish();
    m_Files.push_back(entry);
}

std::string CFileList::Encode() const
{
    std::string text;
    for (const CFileEntry& file : m_Files)
        text += file.m_strSha256 + ' ' + std::to_string(file.m_qwSize) + ' ' + file.m_strPath + '\0';
    return text;
}

CFileList CFileList::Decode(const std::string& text)
{
    constexpr std::uint64_t mostBytes = INT64_MAX;  // of a file's offset, and so of all of them
    CFileList list;
    std::uint64_t left = mostBytes;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text.find('\0', at);
        CFileEntry entry;
        if (end == std::string::npos || !Parse(text.substr(at, end - at), entry) || entry.m_qwSize > left)
            throw std::runtime_error("the server's list of files makes no sense");
        left -= entry.m_qwSize;
        list.m_Files.push_back(entry);
        at = end + 1;
    }
    return list;
}

std::uint64_t CFileList::GetBytes() const
{
    std::uint64_t bytes = 0;
    for (const CFileEntry& file : m_Files)
        bytes += file.m_qwSize;
    return bytes;
}
