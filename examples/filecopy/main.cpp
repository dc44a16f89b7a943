// filecopy: serves a file over TCP on the embedded stack, fetches it there and compares the two by SHA-256.
#include <cinttypes>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

#include <CLI/CLI.hpp>

#include "CDemoFile.h"
#include "CFileFetcher.h"
#include "CFileNetwork.h"
#include "CFileProtocol.h"
#include "CServerThread.h"

namespace
{

constexpr int EXIT_EQUAL = 0;
constexpr int EXIT_DIFFERENT = 1;
constexpr int EXIT_TROUBLE = 2;
constexpr std::uint64_t DEFAULT_SIZE = 50 * 1024 * 1024;
constexpr double MEGABYTE = 1e6;

struct CSource
{
    std::uint64_t m_qwBytes = 0;
    std::string m_strSha256;
};

CSource Digest(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file || !std::filesystem::is_regular_file(path))
        throw std::runtime_error("cannot read " + path);
    CSource source;
    CSha256 sha256;
    std::vector<char> buffer(CFileProtocol::s_nSendSize);
    while (file.read(buffer.data(), static_cast<std::streamsize>(buffer.size())), file.gcount() > 0) {
        sha256.Add(buffer.data(), static_cast<std::size_t>(file.gcount()));
        source.m_qwBytes += static_cast<std::uint64_t>(file.gcount());
    }
    source.m_strSha256 = sha256.Finish();
    return source;
}

// One line on standard error: rewritten in place on a terminal, one for each quarter elsewhere.
class CProgressLine
{
public:
    explicit CProgressLine(std::uint64_t total) : m_qwTotal(total), m_bTerminal(isatty(STDERR_FILENO) != 0) {}

    void Show(std::uint64_t bytes)
    {
        const auto percent = m_qwTotal == 0 ? 100 : static_cast<int>(bytes * 100 / m_qwTotal);
        if (!m_bTerminal && percent / 25 == m_nPercent / 25)
            return;
        m_nPercent = percent;
        std::fprintf(stderr, "%s%.1f of %.1f MB (%d %%)%s", m_bTerminal ? "\r" : "",
                     static_cast<double>(bytes) / MEGABYTE, static_cast<double>(m_qwTotal) / MEGABYTE, percent,
                     m_bTerminal ? "" : "\n");
    }

    void End(std::uint64_t bytes)
    {
        Show(bytes);
        if (m_bTerminal)
            std::fputc('\n', stderr);
    }

private:
    std::uint64_t m_qwTotal;
    bool m_bTerminal;
    int m_nPercent = 0;
};

// Serves the file on a thread of its own and fetches it on this one.
CFileFetcher::COutcome Transfer(const std::string& path, std::uint64_t corruptAt, CFileFetcher::FProgress progress)
{
    mantle::CMNThreadUser* thread = mantle::CMNThreadUser::AdoptCurrentThread();
    if (CFileNetwork::Start() != mantle::MN_OK)
        throw std::runtime_error("the network thread does not start");
    CServerThread server;
    if (server.Start(path, corruptAt, CFileNetwork::GetServerAddress()) != mantle::MN_OK)
        throw std::runtime_error("the server does not start");
    CFileFetcher fetcher(std::move(progress), [thread] { thread->Stop(); });
    if (fetcher.Start(CFileNetwork::GetServerAddress()) != mantle::MN_OK)
        throw std::runtime_error("the client does not start");
    thread->RunEventLoop();
    return fetcher.GetOutcome();
}

int Copy(const std::string& path, std::uint64_t corruptAt)
{
    const CSource source = Digest(path);
    CProgressLine progress(source.m_qwBytes);
    const CFileFetcher::COutcome arrived =
        Transfer(path, corruptAt, [&progress](std::uint64_t bytes) { progress.Show(bytes); });
    if (!arrived.m_strError.empty())
        throw std::runtime_error(arrived.m_strError);
    progress.End(arrived.m_qwBytes);

    const bool equal = arrived.m_qwBytes == source.m_qwBytes && arrived.m_strSha256 == source.m_strSha256;
    const double seconds = static_cast<double>(arrived.m_llMicroseconds) / 1e6;
    const double rate = seconds > 0 ? static_cast<double>(arrived.m_qwBytes) / MEGABYTE / seconds : 0;
    std::printf("demo: %" PRIu64 " bytes, sha256 %s, %.1f MB/s\n", arrived.m_qwBytes, equal ? "equal" : "differs",
                rate);
    return equal ? EXIT_EQUAL : EXIT_DIFFERENT;
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app("Serves a file over TCP on the embedded stack, fetches it there and compares the two by SHA-256.");
    std::string path;
    std::uint64_t corruptAt = CFileSession::s_qwNowhere;
    app.add_option("file", path, "the file; without it, a tar archive that is made once in the build directory");
    app.add_option("--corrupt", corruptAt, "send the byte at this offset changed, to see that it is noticed");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_EQUAL : EXIT_TROUBLE;
    }
    try {
        if (path.empty()) {
            path = UXPORT_BUILD_DIR "/demo/filecopy.tar";
            CDemoFile::Make(path, {UXPORT_LWIP_DIR, UXPORT_BUILD_DIR "/lib"}, DEFAULT_SIZE);
        }
        return Copy(path, corruptAt);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "filecopy: %s\n", error.what());
        return EXIT_TROUBLE;
    }
}
