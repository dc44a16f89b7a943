#include "CDemoFile.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace fs = std::filesystem;

namespace
{

// POSIX.1-1988 ustar: blocks of 512 bytes, numbers as octal text.
constexpr std::size_t BLOCK = 512;

struct CTarHeader
{
    char m_szName[100];
    char m_szMode[8];
    char m_szUid[8];
    char m_szGid[8];
    char m_szSize[12];
    char m_szTime[12];
    char m_szChecksum[8];
    char m_cType;
    char m_szLinkName[100];
    char m_szMagic[6];
    char m_szVersion[2];
    char m_szRest[247];
};
static_assert(sizeof(CTarHeader) == BLOCK);

}  // namespace

void CDemoFile::Make(const fs::path& path, const std::vector<fs::path>& directories, std::uint64_t size)
{
    if (fs::exists(path))
        return;
    fs::create_directories(path.parent_path());
    const fs::path unfinished = path.string() + ".new";
    {
        CDemoFile archive(unfinished);
        for (int copy = 1; static_cast<std::uint64_t>(archive.m_File.tellp()) < size; ++copy) {
            const auto before = archive.m_File.tellp();
            for (const fs::path& directory : directories)
                archive.AddDirectory(directory, "copy-" + std::to_string(copy) + "/");
            if (archive.m_File.tellp() == before)
                throw std::runtime_error("nothing to pack in " + directories.front().string());
        }
        archive.Finish();
    }
    fs::rename(unfinished, path);
}

CDemoFile::CDemoFile(const fs::path& path) : m_File(path, std::ios::binary)
{
    if (!m_File)
        throw std::runtime_error("cannot write " + path.string());
}

void CDemoFile::AddDirectory(const fs::path& directory, const std::string& prefix)
{
    std::vector<fs::path> files;
    if (fs::is_directory(directory)) {
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(directory)) {
            if (entry.is_regular_file() && !entry.is_symlink())
                files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files)
        AddFile(file, prefix + fs::relative(file, directory.parent_path()).generic_string());
}

void CDemoFile::AddFile(const fs::path& file, const std::string& name)
{
    std::ifstream source(file, std::ios::binary);
    const std::uintmax_t size = fs::file_size(file);
    CTarHeader header{};
    if (!source || name.size() >= sizeof header.m_szName)
        return;
    std::memcpy(header.m_szName, name.data(), name.size());
    std::snprintf(header.m_szMode, sizeof header.m_szMode, "%07o", 0644U);
    std::snprintf(header.m_szUid, sizeof header.m_szUid, "%07o", 0U);
    std::snprintf(header.m_szGid, sizeof header.m_szGid, "%07o", 0U);
    std::snprintf(header.m_szSize, sizeof header.m_szSize, "%011jo", size);
    std::snprintf(header.m_szTime, sizeof header.m_szTime, "%011o", 0U);
    header.m_cType = '0';
    std::memcpy(header.m_szMagic, "ustar", sizeof header.m_szMagic);
    std::memcpy(header.m_szVersion, "00", sizeof header.m_szVersion);

    // The checksum counts its own field as blanks.
    std::memset(header.m_szChecksum, ' ', sizeof header.m_szChecksum);
    unsigned int sum = 0;
    for (std::size_t i = 0; i < BLOCK; ++i)
        sum += reinterpret_cast<const unsigned char*>(&header)[i];
    std::snprintf(header.m_szChecksum, sizeof header.m_szChecksum, "%06o", sum);

    m_File.write(reinterpret_cast<const char*>(&header), BLOCK);
    if (size != 0)
        m_File << source.rdbuf();
    const std::string padding((BLOCK - size % BLOCK) % BLOCK, '\0');
    m_File.write(padding.data(), static_cast<std::streamsize>(padding.size()));
}

void CDemoFile::Finish()
{
    const std::string end(2 * BLOCK, '\0');
    m_File.write(end.data(), static_cast<std::streamsize>(end.size()));
    m_File.close();
    if (!m_File)
        throw std::runtime_error("cannot write the whole archive");
}
