// A system that gives no thread.
#ifndef TESTS_UNIT_DOUBLES_CNONEWTHREADS_H
#define TESTS_UNIT_DOUBLES_CNONEWTHREADS_H

#include <gtest/gtest.h>
#include <pthread.h>

// Between Begin and End (or the destructor) every start of a thread with the default attributes fails, as it does
// when the system is out of resources: the default stack is larger than the address space.
class CNoNewThreads
{
public:
    CNoNewThreads() { EXPECT_EQ(::pthread_getattr_default_np(&m_Before), 0); }
    ~CNoNewThreads()
    {
        End();
        ::pthread_attr_destroy(&m_Before);
    }
    CNoNewThreads(const CNoNewThreads&) = delete;
    CNoNewThreads& operator=(const CNoNewThreads&) = delete;

    void Begin()
    {
        pthread_attr_t attributes;
        EXPECT_EQ(::pthread_getattr_default_np(&attributes), 0);
        EXPECT_EQ(::pthread_attr_setstacksize(&attributes, s_nStack), 0);
        EXPECT_EQ(::pthread_setattr_default_np(&attributes), 0);
        ::pthread_attr_destroy(&attributes);
    }
    void End() { EXPECT_EQ(::pthread_setattr_default_np(&m_Before), 0); }

private:
    static constexpr std::size_t s_nStack = std::size_t{1} << 46;

    pthread_attr_t m_Before;
};

#endif
