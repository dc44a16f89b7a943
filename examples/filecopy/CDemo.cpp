#include "CDemo.h"

#include <cinttypes>
#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <unistd.h>

#include "CChild.h"
#include "CFileList.h"
#include "CUdpPorts.h"

namespace fs = std::filesystem;

namespace
{

// The client's last line: "filecopy: 3 files, 1000 bytes, sha256 equal, 10.0 MB/s".
void ReadOutcome(const std::string& line, std::uint64_t& bytes, double& rate)
{
    std::istringstream words(line);
    std::string word;
    std::uint64_t files = 0;
    std::uint64_t length = 0;
    double speed = 0;
    if (words >> word >> files >> word >> length >> word >> word >> word >> speed) {
        bytes = length;
        rate = speed;
    }
}

}  // namespace

CDemo::CDemo(std::string program) : m_strProgram(std::move(program))
{
    std::string folder = (fs::temp_directory_path() / "filecopy-XXXXXX").string();
    if (!mkdtemp(folder.data()))
        throw std::runtime_error("no folder for temporary files");
    m_Folder = folder;
}

CDemo::~CDemo()
{
    std::error_code error;
    fs::remove_all(m_Folder, error);
}

fs::path CDemo::MakeFiles(const std::vector<fs::path>& directories, std::uint64_t bytes) const
{
    fs::path all = m_Folder / "from";
    std::uint64_t made = 0;
    for (int copy = 1; made < bytes; ++copy) {
        const std::uint64_t before = made;
        for (const fs::path& directory : directories) {
            const fs::path target = all / ("copy-" + std::to_string(copy)) / directory.filename();
            fs::create_directories(target);
            fs::copy(directory, target, fs::copy_options::recursive | fs::copy_options::skip_symlinks);
            for (const fs::directory_entry& entry : fs::recursive_directory_iterator(target))
                made += entry.is_regular_file() ? entry.file_size() : 0;
        }
        if (made == before)
            throw std::runtime_error("no files in " + directories.front().string());
    }
    return all;
}

bool CDemo::Copy(const fs::path& source, std::uint64_t corruptAt) const
{
    const CUdpPorts ports;
    const fs::path into = m_Folder / "into";
    std::vector<std::string> serve{m_strProgram,   "serve",        source.string(),
                                   "--udp-local",  ports.m_strOne, "--udp-remote",
                                   ports.m_strTwo, "--corrupt",    std::to_string(corruptAt)};
    CChild server(serve);
    std::string line;
    if (!server.ReadLine(line))
        throw std::runtime_error("the server does not start");
    std::fprintf(stderr, "%s\n", line.c_str());
    CChild client(
        {m_strProgram, "get", "--into", into.string(), "--udp-local", ports.m_strTwo, "--udp-remote", ports.m_strOne});
    std::uint64_t bytes = 0;
    double rate = -1;
    while (client.ReadLine(line))
        ReadOutcome(line, bytes, rate);
    const int status = client.Wait();
    if (status < 0 || status > 1 || rate < 0)
        throw std::runtime_error("the files have not been fetched");
    // The client has compared what came with what the server said; this compares what lies on the disk.
    const bool equal =
        status == 0 && CFileList(fs::is_directory(source) ? into : into / source.filename()).GetFiles() ==
                           CFileList(source).GetFiles();
    std::printf("demo: %" PRIu64 " bytes, sha256 %s, %.1f MB/s\n", bytes, equal ? "equal" : "differs", rate);
    return equal;
}
