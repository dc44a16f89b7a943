#include "CChild.h"

#include <csignal>
#include <stdexcept>

#include <sys/wait.h>
#include <unistd.h>
#ifdef __linux__
#  include <sys/prctl.h>
#endif

CChild::CChild(const std::vector<std::string>& arguments)
{
    std::vector<char*> list;
    for (const std::string& argument : arguments)
        list.push_back(const_cast<char*>(argument.c_str()));
    list.push_back(nullptr);
    int output[2];
    const pid_t parent = getpid();
    if (pipe(output) != 0 || (m_nProcess = fork()) < 0)
        throw std::runtime_error("no process can be started");
    if (m_nProcess == 0) {
#ifdef __linux__
        prctl(PR_SET_PDEATHSIG, SIGKILL);
#endif
        if (getppid() != parent || dup2(output[1], STDOUT_FILENO) < 0)
            _exit(2);
        close(output[0]);
        close(output[1]);
        execv(list[0], list.data());
        _exit(2);
    }
    close(output[1]);
    m_nOutput = output[0];
}

CChild::~CChild()
{
    if (m_nProcess > 0)
        kill(m_nProcess, SIGTERM);
    for (int i = 0; i < s_nPatience && !HasEnded(WNOHANG); ++i)
        usleep(10000);
    if (m_nProcess > 0)
        kill(m_nProcess, SIGKILL);
    Wait();
    close(m_nOutput);
}

bool CChild::ReadLine(std::string& line)
{
    line.clear();
    for (char character = 0; read(m_nOutput, &character, 1) == 1;) {
        if (character == '\n')
            return true;
        line += character;
    }
    return false;
}

int CChild::Wait()
{
    while (!HasEnded(0)) {
    }
    return WIFEXITED(m_nStatus) ? WEXITSTATUS(m_nStatus) : -1;
}

bool CChild::HasEnded(int options)
{
    if (m_nProcess > 0 && waitpid(m_nProcess, &m_nStatus, options) == m_nProcess)
        m_nProcess = -1;
    return m_nProcess < 0;
}
