// Every order in which two sides can take their steps.
#ifndef TESTS_UNIT_PROXY_CORDERS_H
#define TESTS_UNIT_PROXY_CORDERS_H

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

// One run of a scenario is a sequence of choices; the next run differs from it in the last choice that had another
// possibility, and so on until all have been made.
class COrders
{
public:
    // Calls `scenario(orders)` once for each sequence of choices, until one fails. Fails when there are more than
    // `limit`. Returns: how many there were.
    template <class Scenario>
    static unsigned long Explore(unsigned long limit, Scenario scenario)
    {
        COrders orders;
        unsigned long runs = 0;
        do {
            orders.m_nDepth = 0;
            orders.m_strTrace.clear();
            scenario(orders);
            ++runs;
            if (testing::Test::HasFailure()) {
                ADD_FAILURE() << "run " << runs << ", steps " << orders.m_strTrace;
                return runs;
            }
        } while (runs <= limit && orders.Next());
        EXPECT_LE(runs, limit) << "not every order was tried";
        testing::Test::RecordProperty("orders", std::to_string(runs));
        return runs;
    }

    // One of the steps that are possible now, each known by a letter.
    char Choose(const std::string& possible)
    {
        if (m_nDepth == m_Choices.size())
            m_Choices.emplace_back(0, possible.size());
        EXPECT_EQ(m_Choices[m_nDepth].second, possible.size()) << "a run that does not repeat: " << m_strTrace;
        const char step = possible[m_Choices[m_nDepth].first];
        ++m_nDepth;
        m_strTrace += step;
        return step;
    }

    const std::string& GetTrace() const { return m_strTrace; }

private:
    bool Next()
    {
        m_Choices.resize(m_nDepth);
        while (!m_Choices.empty() && ++m_Choices.back().first == m_Choices.back().second)
            m_Choices.pop_back();
        return !m_Choices.empty();
    }

    std::vector<std::pair<std::size_t, std::size_t>> m_Choices;  // which one, of how many
    std::size_t m_nDepth = 0;
    std::string m_strTrace;
};

#endif
