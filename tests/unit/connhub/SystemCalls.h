// The system's calls that send, seen through a test's eyes.
#ifndef TESTS_CONNHUB_SYSTEMCALLS_H
#define TESTS_CONNHUB_SYSTEMCALLS_H

// The program's own sendto and sendmmsg, which go on to the system's unless they are told to refuse.
class CSystemCalls
{
public:
    // The next `calls` calls answer -1 with `error`; the first of a gathered call counts. Thread: any.
    static void RefuseNext(int calls, int error);

    // Every call that holds a segmented piece in front answers -1 with `error`; 0: none. Thread: any.
    static void RefuseSegmented(int error);

    // Nothing is refused, nothing counted.
    static void Reset();

    // Calls answered with -1 since then.
    static int GetRefused();
};

#endif
