#include "CFileWriter.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

CFileWriter::CFileWriter(CFileList list, const fs::path& folder) : m_List(std::move(list))
{
    fs::create_directories(folder);
    m_Folder = fs::canonical(folder);
    for (const CFileEntry& file : m_List.GetFiles()) {
        if (!IsInside(file.m_strPath))
            throw std::runtime_error("refuses " + file.m_strPath + ", which leads out of " + folder.string());
    }
    Begin();
}

// Neither by dots nor by a link that lies in the folder already.
bool CFileWriter::IsInside(const std::string& path) const
{
    const fs::path relative(path);
    if (!relative.has_filename() || relative.is_absolute() ||
        std::any_of(relative.begin(), relative.end(), [](const fs::path& part) { return part == ".." || part == "."; }))
        return false;
    const fs::path target = fs::weakly_canonical(m_Folder / relative);
    return std::mismatch(m_Folder.begin(), m_Folder.end(), target.begin(), target.end()).first == m_Folder.end() &&
           !fs::is_symlink(fs::symlink_status(m_Folder / relative));
}

void CFileWriter::Take(const char* data, std::size_t length)
{
    while (length != 0 && !IsComplete()) {
        const std::uint64_t left = m_List.GetFiles()[m_nFile].m_qwSize - m_qwInFile;
        const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(left, length));
        m_Sha256.Add(data, piece);
        if (!m_File.write(data, static_cast<std::streamsize>(piece)))
            throw std::runtime_error("cannot write " + m_Target.string());
        data += piece;
        length -= piece;
        m_qwInFile += piece;
        m_qwTaken += piece;
        if (piece == left) {
            End();
            Begin();
        }
    }
    if (length != 0)
        throw std::runtime_error("the server sends more than it has listed");
}

// Opens the next file; empty ones end at once.
void CFileWriter::Begin()
{
    for (; !IsComplete(); End()) {
        const CFileEntry& file = m_List.GetFiles()[m_nFile];
        m_Target = m_Folder / file.m_strPath;
        fs::create_directories(m_Target.parent_path());
        m_File.open(m_Target, std::ios::binary | std::ios::trunc);
        if (!m_File)
            throw std::runtime_error("cannot write " + m_Target.string());
        m_Sha256 = CSha256();
        m_qwInFile = 0;
        if (file.m_qwSize != 0)
            return;
    }
}

void CFileWriter::End()
{
    m_File.close();
    if (!m_File)
        throw std::runtime_error("cannot write " + m_Target.string());
    const CFileEntry& file = m_List.GetFiles()[m_nFile++];
    if (m_Sha256.Finish() != file.m_strSha256) {
        fs::remove(m_Target);
        m_Different.push_back(file.m_strPath);
    }
}
