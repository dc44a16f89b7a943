// Another process of the demo.
#ifndef FILECOPY_CCHILD_H
#define FILECOPY_CCHILD_H

#include <string>
#include <vector>

#include <sys/types.h>

class CChild
{
public:
    // Starts the program arguments[0]. It has the standard error of this process, and ends with it, however that ends.
    // Throws std::runtime_error. Thread: main, before any other is started.
    explicit CChild(const std::vector<std::string>& arguments);

    // Asks it to end, and makes it end when that takes too long.
    ~CChild();
    CChild(const CChild&) = delete;
    CChild& operator=(const CChild&) = delete;

    // The next line of its standard output. Returns: whether there was one before its end.
    bool ReadLine(std::string& line);

    // Waits for its end. Returns: its exit status; -1 when a signal ended it.
    int Wait();

private:
    static constexpr int s_nPatience = 500;  // hundredths of a second

    bool HasEnded(int options);

    pid_t m_nProcess = -1;
    int m_nStatus = 0;
    int m_nOutput = -1;
};

#endif
