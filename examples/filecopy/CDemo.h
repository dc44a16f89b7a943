// Two processes, a server and a client, and what came of it.
#ifndef FILECOPY_CDEMO_H
#define FILECOPY_CDEMO_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

// Serves and fetches in a folder of its own for temporary files, which goes with it. Thread: main.
class CDemo
{
public:
    // `program`: this one. Throws std::runtime_error, as the others do.
    explicit CDemo(std::string program);
    ~CDemo();
    CDemo(const CDemo&) = delete;
    CDemo& operator=(const CDemo&) = delete;

    // A folder of real files, `bytes` of them at least: what lies under `directories`, again and again.
    std::filesystem::path MakeFiles(const std::vector<std::filesystem::path>& directories, std::uint64_t bytes) const;

    // Copies `source`, a folder or a file; the byte at `corruptAt` is sent changed. Prints the result as the last line.
    // Returns whether all that has arrived is equal.
    bool Copy(const std::filesystem::path& source, std::uint64_t corruptAt) const;

private:
    const std::string m_strProgram;
    std::filesystem::path m_Folder;
};

#endif
