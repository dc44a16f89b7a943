// Sends forged packets to a stack on the other side of a device of the system's, or of a UDP path. For network
// namespaces of a test's own.
//
//     uxport_sender (--device NAME | --udp PORT) --from ADDRESS --from-port PORT --to ADDRESS --to-port PORT ATTACK
#include <arpa/inet.h>
#include <cinttypes>
#include <cstdio>
#include <exception>
#include <map>
#include <string>

#include <CLI/CLI.hpp>

#include "CForger.h"
#include "CSenderPath.h"

namespace
{

struct CChoice
{
    std::string m_strDevice;
    std::uint16_t m_wUdpPort = 0;
    CForgedEnd m_From;
    CForgedEnd m_To;
    unsigned int m_dwRate = 60000;
    unsigned int m_dwSeconds = 10;
    std::uint32_t m_dwSeed = 1;
};

std::string CheckAddress(const std::string& text)
{
    in6_addr room{};
    return inet_pton(AF_INET, text.c_str(), &room) == 1 || inet_pton(AF_INET6, text.c_str(), &room) == 1
               ? std::string()
               : text + " is no address";
}

void AddOptions(CLI::App& app, CChoice& choice)
{
    CLI::Option* device = app.add_option("--device", choice.m_strDevice, "out of which the packets go");
    app.add_option("--udp", choice.m_wUdpPort, "or the end of a UDP path on 127.0.0.1")->excludes(device);
    app.add_option("--from", choice.m_From.m_strAddress, "address that they claim to come from")->check(CheckAddress);
    app.add_option("--from-port", choice.m_From.m_wPort, "and its port");
    app.add_option("--to", choice.m_To.m_strAddress, "address that is attacked")->required()->check(CheckAddress);
    app.add_option("--to-port", choice.m_To.m_wPort, "and its port");
    app.add_option("--rate", choice.m_dwRate, "packets a second")->capture_default_str()->check(CLI::Range(1, 1000000));
    app.add_option("--seconds", choice.m_dwSeconds, "at the most")->capture_default_str()->check(CLI::Range(1, 60));
    app.add_option("--seed", choice.m_dwSeed, "of what is random")->capture_default_str();
    app.require_subcommand(1)->fallthrough();
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app("Sends forged packets, bounded in number and time.");
    CChoice choice;
    AddOptions(app, choice);

    unsigned int count = 300;
    CLI::App* window =
        app.add_subcommand("window", "bare acknowledgements with window 0, in pairs half the numbers apart");
    window->add_option("--pairs", count, "of them")->capture_default_str();
    CLI::App* windows = app.add_subcommand("windows", "such a pair to each port");
    CLI::App* everywhere =
        app.add_subcommand("everywhere", "segments over all sequence numbers, acknowledging at random");
    std::uint32_t step = 60000;
    std::size_t bytes = 0;
    std::string flags;
    everywhere->add_option("--step", step, "from one to the next")
        ->capture_default_str()
        ->check(CLI::Range(1, INT32_MAX));
    everywhere->add_option("--bytes", bytes, "of data in each")->capture_default_str()->check(CLI::Range(0, 1340));
    everywhere->add_option("--flags", flags, "some of the letters AFPRS")->capture_default_str();
    CLI::App* requests = app.add_subcommand("requests", "for connections, from anywhere");
    requests->add_option("--count", count, "of them")->capture_default_str();
    CLI11_PARSE(app, argc, argv);

    const std::map<char, std::uint8_t> bits = {{'A', packetmaker::Ack},
                                               {'F', packetmaker::Fin},
                                               {'P', packetmaker::Psh},
                                               {'R', packetmaker::Rst},
                                               {'S', packetmaker::Syn}};
    try {
        std::uint8_t set = 0;
        for (const char letter : flags)
            set = static_cast<std::uint8_t>(set | bits.at(letter));
        CSenderPath path(choice.m_dwRate, choice.m_dwSeconds);
        if (choice.m_strDevice.empty())
            path.OpenUdp("127.0.0.1", choice.m_wUdpPort);
        else
            path.OpenDevice(choice.m_strDevice);
        CForger forger(path, choice.m_From, choice.m_To, choice.m_dwSeed);
        if (window->parsed())
            forger.ShutWindow(count);
        else if (windows->parsed())
            forger.ShutWindowsOfAllPorts();
        else if (everywhere->parsed())
            forger.SendEverywhere(set, step, bytes);
        else if (requests->parsed())
            forger.Request(count);
        std::printf("uxport_sender: %" PRIu64 " packets\n", path.GetSent());
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "uxport_sender: %s\n", error.what());
        return 2;
    }
}
