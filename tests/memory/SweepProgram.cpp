// Fails one allocation after the other while servers serve and clients fetch: the process goes on, nothing is left over,
// and every attempt has one outcome. Each run is a process of its own.
//
// Arguments: none, for the first allocation of every place, on the first path that has it; --all, for every allocation, of a place that allocates often
// the first few; --fail-at=PATH:PLACE.NUMBER, for one, as the list of what went wrong names it; --list, to list them.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/memory/CAllocationFault.h"
#include "tests/memory/CRun.h"

namespace
{

constexpr unsigned int LIMIT_SECONDS = 120;   // of one run, real ones
constexpr unsigned int MOST_OF_A_PLACE = 12;  // with --all
constexpr double LEAST_REACHED = 0.8;         // of the allocations that were to fail
constexpr int PLACE_DIGITS = 16;
constexpr unsigned int RUNS_PER_CORE = 4;  // they wait most of their time

struct CChoice
{
    int m_nPath;
    std::uint64_t m_qwHash;
    unsigned int m_dwOccurrence;
};

struct CChild
{
    CChoice m_Choice;
    CAllocationFault::CRecord* m_pRecord;
    std::FILE* m_pOutput;
};

std::string NameOf(const CChoice& choice)
{
    char text[64];
    std::snprintf(text, sizeof text, "%s:%0*" PRIx64 ".%u", CRun::GetPathName(choice.m_nPath), PLACE_DIGITS,
                  choice.m_qwHash, choice.m_dwOccurrence);
    return text;
}

[[noreturn]] void RunChild(const CChild& child)
{
    dup2(fileno(child.m_pOutput), STDOUT_FILENO);
    dup2(fileno(child.m_pOutput), STDERR_FILENO);
    alarm(LIMIT_SECONDS);
    const CChoice& choice = child.m_Choice;
    const bool well = CRun::Do(choice.m_nPath, *child.m_pRecord, choice.m_qwHash, choice.m_dwOccurrence);
    std::fflush(stdout);
    std::exit(well ? 0 : 1);
}

pid_t StartChild(const CChild& child)
{
    std::fflush(stdout);
    const pid_t process = fork();
    if (process == 0)
        RunChild(child);
    return process;
}

void PrintOutput(std::FILE* output)
{
    std::rewind(output);
    char line[512];
    while (std::fgets(line, sizeof line, output))
        std::fputs(line, stdout);
}

// Runs of the program, some at a time.
class CSweep
{
public:
    explicit CSweep(unsigned int atOnce) : m_dwAtOnce(atOnce) {}

    void Add(const CChoice& choice)
    {
        while (m_Children.size() >= m_dwAtOnce)
            AwaitOne();
        CChild child{choice, GetRecord(), std::tmpfile()};
        m_Children.emplace(StartChild(child), child);
    }

    // Returns: whether all went well.
    bool Finish()
    {
        while (!m_Children.empty())
            AwaitOne();
        std::printf("%u allocations were to fail, %u did, %u times it went wrong\n", m_dwRuns, m_dwReached, m_dwWrong);
        for (const std::string& name : m_Wrong)
            std::printf("  --fail-at=%s\n", name.c_str());
        return m_dwWrong == 0 && m_dwReached >= LEAST_REACHED * m_dwRuns;
    }

private:
    CAllocationFault::CRecord* GetRecord()
    {
        if (m_Free.empty())
            return CAllocationFault::MakeRecord();
        CAllocationFault::CRecord* const record = m_Free.back();
        m_Free.pop_back();
        std::memset(static_cast<void*>(record), 0, sizeof *record);
        return record;
    }

    void AwaitOne()
    {
        int status = 0;
        const pid_t process = wait(&status);
        const auto at = m_Children.find(process);
        if (at == m_Children.end())
            return;
        const CChild child = at->second;
        m_Children.erase(at);
        ++m_dwRuns;
        const bool reached = child.m_pRecord->m_bFailed.load() != 0;
        m_dwReached += reached;
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            ++m_dwWrong;
            m_Wrong.push_back(NameOf(child.m_Choice));
            const bool late = WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM;
            std::printf("%s: %s, status 0x%x; the allocation that failed%s:\n", NameOf(child.m_Choice).c_str(),
                        late                  ? "hangs"
                        : WIFSIGNALED(status) ? strsignal(WTERMSIG(status))
                                              : "goes wrong",
                        status, reached ? "" : " was not reached");
            CAllocationFault::Print(child.m_pRecord->m_Failed);
            PrintOutput(child.m_pOutput);
        }
        std::fclose(child.m_pOutput);
        m_Free.push_back(child.m_pRecord);
    }

    const unsigned int m_dwAtOnce;
    std::map<pid_t, CChild> m_Children;
    std::vector<CAllocationFault::CRecord*> m_Free;
    std::vector<std::string> m_Wrong;
    unsigned int m_dwRuns = 0;
    unsigned int m_dwReached = 0;
    unsigned int m_dwWrong = 0;
};

// The places of a run in which nothing fails; empty when it goes wrong.
std::vector<CChoice> FindChoices(int path, unsigned int mostOfAPlace, bool list)
{
    CAllocationFault::CRecord* const record = CAllocationFault::MakeRecord();
    const CChild child{CChoice{path, 0, 0}, record, std::tmpfile()};
    const pid_t process = StartChild(child);
    int status = 0;
    waitpid(process, &status, 0);
    std::vector<CChoice> choices;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::printf("%s: the run in which nothing fails goes wrong, status 0x%x\n", CRun::GetPathName(path), status);
        PrintOutput(child.m_pOutput);
        return choices;
    }
    std::printf("%s: %u allocations at %u places\n", CRun::GetPathName(path), record->m_dwAllocations.load(),
                record->m_dwPlaces.load());
    for (const CAllocationFault::CPlace& place : record->m_Places) {
        if (place.m_qwHash == 0)
            continue;
        for (unsigned int i = 1; i <= place.m_dwCount && i <= mostOfAPlace; ++i)
            choices.push_back(CChoice{path, place.m_qwHash, i});
        if (list) {
            std::printf("%s, %u times\n", NameOf(CChoice{path, place.m_qwHash, 1}).c_str(), place.m_dwCount.load());
            CAllocationFault::Print(place);
        }
    }
    return choices;
}

bool ReadChoice(const std::string& text, CChoice& choice)
{
    for (int path = 0; path < CRun::PATHS; ++path) {
        const std::string lead = std::string(CRun::GetPathName(path)) + ":";
        if (text.compare(0, lead.size(), lead) != 0)
            continue;
        choice.m_nPath = path;
        return std::sscanf(text.c_str() + lead.size(), "%" SCNx64 ".%u", &choice.m_qwHash, &choice.m_dwOccurrence) == 2;
    }
    return false;
}

}  // namespace

int main(int argc, char** argv)
{
    CAllocationFault::Start();
    bool all = false;
    bool list = false;
    const std::string failAt = "--fail-at=";
    CSweep sweep(RUNS_PER_CORE * std::max(1u, std::thread::hardware_concurrency()));
    bool one = false;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        CChoice choice{};
        if (argument == "--all") {
            all = true;
        } else if (argument == "--list") {
            list = true;
        } else if (argument.compare(0, failAt.size(), failAt) == 0 &&
                   ReadChoice(argument.substr(failAt.size()), choice)) {
            one = true;
            sweep.Add(choice);
        } else {
            std::printf("unknown: %s\n", argv[i]);
            return 2;
        }
    }
    if (!one) {
        std::set<std::uint64_t> done;
        for (int path = 0; path < CRun::PATHS; ++path) {
            const std::vector<CChoice> choices = FindChoices(path, all ? MOST_OF_A_PLACE : 1, list);
            if (choices.empty())
                return 1;
            if (list)
                continue;
            for (const CChoice& choice : choices) {
                if (all || done.insert(choice.m_qwHash).second)
                    sweep.Add(choice);
            }
        }
    }
    return list || sweep.Finish() ? 0 : 1;
}
