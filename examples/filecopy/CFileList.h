// The files that are served, with their digests.
#ifndef FILECOPY_CFILELIST_H
#define FILECOPY_CFILELIST_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

struct CFileEntry
{
    std::string m_strPath;  // relative, with slashes
    std::uint64_t m_qwSize = 0;
    std::string m_strSha256;

    bool operator==(const CFileEntry& other) const
    {
        return m_strPath == other.m_strPath && m_qwSize == other.m_qwSize && m_strSha256 == other.m_strSha256;
    }
};

class CFileList
{
public:
    CFileList() = default;

    // All regular files under `root`, links left out, ordered by path; or `root` itself when that is a file. Reads all
    // of them. Throws std::runtime_error.
    explicit CFileList(const std::filesystem::path& root);

    // The list as it is sent: for each file digest, size, path and a NUL. Decode throws std::runtime_error for what
    // is no list.
    std::string Encode() const;
    static CFileList Decode(const std::string& text);

    const std::vector<CFileEntry>& GetFiles() const { return m_Files; }

    // Where a file of the list lies here. State: not a decoded list.
    std::filesystem::path GetSource(const CFileEntry& file) const { return m_Base / file.m_strPath; }
    std::uint64_t GetBytes() const;

private:
    void Add(const std::filesystem::path& file);

    std::filesystem::path m_Base;
    std::vector<CFileEntry> m_Files;
};

#endif
