// filecopy: serves a folder from one user-space stack and fetches it from another, over a UDP path between the two.
// Without a subcommand: starts itself as both and compares.
#include <cinttypes>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>

#include <CLI/CLI.hpp>

#include "CDemo.h"
#include "CExamplePath.h"
#include "CFileFetcher.h"
#include "CFileProtocol.h"
#include "CFileServer.h"
#include "CProgressLine.h"

using namespace uxport;

namespace
{

constexpr int EXIT_EQUAL = 0;
constexpr int EXIT_DIFFERENT = 1;
constexpr int EXIT_TROUBLE = 2;
constexpr std::uint64_t DEFAULT_SIZE = 50 * 1024 * 1024;
const char* const SERVER_ADDRESS = "10.77.0.1";
const char* const CLIENT_ADDRESS = "10.77.0.2";
const char* const SERVER_UDP = "127.0.0.1:7001";
const char* const CLIENT_UDP = "127.0.0.1:7002";

// Both subcommands: the path, the server's port, patience.
class CCommand
{
public:
    CCommand(CLI::App& app, const char* name, const char* description, const char* address, const char* local,
             const char* remote)
        : m_pApp(app.add_subcommand(name, description))
    {
        m_Path.m_strAddress = address;
        m_Path.m_strUdpLocal = local;
        m_Path.m_strUdpRemote = remote;
        m_Path.AddOptions(*m_pApp);
        m_pApp->get_option("--udp-local")->capture_default_str();
        m_pApp->get_option("--udp-remote")->capture_default_str();
        m_pApp->add_option("--port", m_wPort, "of the server, on its stack")
            ->capture_default_str()
            ->check(CLI::Range(1, 65535));
        m_pApp->add_option("--timeout", m_dwSeconds, "seconds without a word until the other side is given up")
            ->capture_default_str()
            ->check(CLI::Range(1, 3600));
    }

    bool Start() { return CExample::Start() && m_Path.Open(); }

    CLI::App* m_pApp;
    CExamplePath m_Path;
    unsigned short m_wPort = CFileProtocol::s_wPort;
    unsigned int m_dwSeconds = 10;
};

int Serve(CCommand& command, const std::string& folder, std::uint64_t corruptAt)
{
    const CFileList list(folder);
    if (!command.Start())
        return EXIT_TROUBLE;
    CFileServer server(list, corruptAt, command.m_dwSeconds);
    const CMNInetAddr address(command.m_Path.m_strAddress.c_str(), command.m_wPort);
    if (const MNResult result = server.Start(address); result != MN_OK)
        return CExample::Fail("filecopy: the server", result);
    std::printf("filecopy: serves %zu files, %" PRIu64 " bytes, on %s\n", list.GetFiles().size(), list.GetBytes(),
                address.ToString().c_str());
    std::fflush(stdout);
    CExample::Run();
    return EXIT_EQUAL;
}

int Get(CCommand& command, const std::string& server, const std::string& into)
{
    if (!command.Start())
        return EXIT_TROUBLE;
    CProgressLine progress;
    CFileFetcher fetcher(
        into, command.m_dwSeconds, [&progress](const CFileFetcher::CState& state) { progress.Show(state); },
        [] { CExample::Stop(); });
    const CMNInetAddr address(server.c_str(), command.m_wPort);
    if (const MNResult result = fetcher.Start(address); result != MN_OK)
        return CExample::Fail("filecopy: the client", result);
    CExample::Run();

    const CFileFetcher::CState& state = fetcher.GetState();
    progress.End(state);
    if (!state.m_strError.empty()) {
        std::fprintf(stderr, "filecopy: %s (%s, %" PRIu64 " of %" PRIu64 " bytes)\n", state.m_strError.c_str(),
                     address.ToString().c_str(), state.m_qwBytes, state.m_qwTotal);
        return EXIT_TROUBLE;
    }
    const CFileWriter& files = *fetcher.GetWriter();
    for (const std::string& path : files.GetDifferent())
        std::fprintf(stderr, "filecopy: %s differs, removed\n", path.c_str());
    const bool equal = files.GetDifferent().empty();
    std::printf("filecopy: %zu files, %" PRIu64 " bytes, sha256 %s, %.1f MB/s\n", files.GetList().GetFiles().size(),
                state.m_qwBytes, equal ? "equal" : "differs", CProgressLine::GetRate(state));
    return equal ? EXIT_EQUAL : EXIT_DIFFERENT;
}

int Demo(const char* program, const std::string& source, std::uint64_t corruptAt)
{
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    const CDemo demo(error ? program : self.string());
    const std::filesystem::path files = source.empty()
                                            ? demo.MakeFiles({UXPORT_LWIP_DIR, UXPORT_BUILD_DIR "/lib"}, DEFAULT_SIZE)
                                            : std::filesystem::path(source);
    return demo.Copy(files, corruptAt) ? EXIT_EQUAL : EXIT_DIFFERENT;
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app(
        "Serves a folder from one user-space stack and fetches it from another, over UDP. Without a subcommand: starts "
        "itself as both on this machine and compares what arrives.");
    app.require_subcommand(0, 1);
    std::string source;
    std::string server = SERVER_ADDRESS;
    std::string into = "fetched";
    std::uint64_t corruptAt = CFileReader::s_qwNowhere;
    const char* const corruptHelp = "send the byte at this offset of all files changed, to see that it is noticed";
    app.add_option("file", source, "folder or file to copy; without it, 50 MiB of sources and libraries");
    app.add_option("--corrupt", corruptAt, corruptHelp);
    CCommand serve(app, "serve", "Serves until it is interrupted.", SERVER_ADDRESS, SERVER_UDP, CLIENT_UDP);
    serve.m_pApp->add_option("folder", source, "folder or file to serve")->required()->check(CLI::ExistingPath);
    serve.m_pApp->add_option("--corrupt", corruptAt, corruptHelp);
    CCommand get(app, "get", "Fetches all that is served.", CLIENT_ADDRESS, CLIENT_UDP, SERVER_UDP);
    get.m_pApp->add_option("--into", into, "folder for the files")->capture_default_str();
    get.m_pApp->add_option("--server", server, "the server's address")->capture_default_str()->check(CLI::ValidIPV4);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_EQUAL : EXIT_TROUBLE;
    }
    try {
        if (serve.m_pApp->parsed())
            return Serve(serve, source, corruptAt);
        return get.m_pApp->parsed() ? Get(get, server, into) : Demo(argv[0], source, corruptAt);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "filecopy: %s\n", error.what());
        return EXIT_TROUBLE;
    }
}
