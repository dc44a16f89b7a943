// A case that runs again in a process of its own.
#ifndef TESTS_UNIT_DOUBLES_CCHILDPROCESS_H
#define TESTS_UNIT_DOUBLES_CCHILDPROCESS_H

#include <functional>

// For what only the end of a process shows.
class CChildProcess
{
public:
    // Starts this program again with nothing but the running case. There, `body` runs and then the case, and with it
    // main, returns. Here: waits for the child's end and fails the case unless its exit status is 0 and its output
    // tells of no failure, no sanitizer's finding and no thread that the clean-up gave up waiting for.
    static void Run(const std::function<void()>& body);

private:
    static int RunChild(int output);
};

#endif
