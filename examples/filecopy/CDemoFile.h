// The file that is copied when none is named.
#ifndef FILECOPY_CDEMOFILE_H
#define FILECOPY_CDEMOFILE_H

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

// A tar archive (ustar) of whole directories, several times over, until it is large enough.
class CDemoFile
{
public:
    // The archive `path`, made now unless it is there: what lies under each of `directories`, again and again
    // under a numbered folder, until there are `size` bytes. Throws std::runtime_error.
    static void Make(const std::filesystem::path& path, const std::vector<std::filesystem::path>& directories,
                     std::uint64_t size);

private:
    explicit CDemoFile(const std::filesystem::path& path);

    void AddDirectory(const std::filesystem::path& directory, const std::string& prefix);
    void AddFile(const std::filesystem::path& file, const std::string& name);
    void Finish();

    std::ofstream m_File;
};

#endif
