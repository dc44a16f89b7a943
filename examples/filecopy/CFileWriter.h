// The files of a list as they arrive.
#ifndef FILECOPY_CFILEWRITER_H
#define FILECOPY_CFILEWRITER_H

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "CFileList.h"
#include "CSha256.h"

// Writes them below a folder and nowhere else, and compares each with the digest of the list; one that differs is
// removed again.
class CFileWriter
{
public:
    // Makes the folder. Throws std::runtime_error, also when a path of the list leads out of the folder: nothing has
    // been written then.
    CFileWriter(CFileList list, const std::filesystem::path& folder);

    // The next bytes. Throws std::runtime_error.
    void Take(const char* data, std::size_t length);

    bool IsComplete() const { return m_nFile == m_List.GetFiles().size(); }
    const CFileList& GetList() const { return m_List; }
    std::uint64_t GetTaken() const { return m_qwTaken; }

    // The paths of those that differed.
    const std::vector<std::string>& GetDifferent() const { return m_Different; }

private:
    bool IsInside(const std::string& path) const;
    void Begin();
    void End();

    const CFileList m_List;
    std::filesystem::path m_Folder;
    std::size_t m_nFile = 0;
    std::filesystem::path m_Target;
    std::ofstream m_File;
    std::uint64_t m_qwInFile = 0;
    std::uint64_t m_qwTaken = 0;
    CSha256 m_Sha256;
    std::vector<std::string> m_Different;
};

#endif
