// A working reactor that writes what it is asked into the record.
#ifndef TESTS_UNIT_DOUBLES_CRECORDINGREACTOR_H
#define TESTS_UNIT_DOUBLES_CRECORDINGREACTOR_H

#include <map>
#include <string>

#include "mantle/CMNTimeValue.h"
#include "reactor/CPSReactorPoll.h"
#include "tests/unit/scripted/CScriptedStack.h"
#include "uxport/IPSEventHandler.h"

// "RegisterHandler(7,4)=0", "RemoveHandler(7,63)=0", "NotifyHandler(7,8)=0", "CancelTimer=0" and
// "ScheduleTimer(10001,1s0us,1)=0": the argument as a number, the interval, the count.
class CRecordingReactor : public uxport::CPSReactorPoll
{
public:
    // Answers the next call of an operation with `result` without doing it.
    void Refuse(const std::string& operation, uxport::MNResult result) { m_Refusals[operation] = result; }

    uxport::MNResult RegisterHandler(uxport::IPSEventHandler* handler, long mask) override
    {
        return Run("RegisterHandler", Arguments(handler, mask),
                   [&] { return CPSReactorPoll::RegisterHandler(handler, mask); });
    }

    uxport::MNResult RemoveHandler(uxport::IPSEventHandler* handler, long mask) override
    {
        return Run("RemoveHandler", Arguments(handler, mask),
                   [&] { return CPSReactorPoll::RemoveHandler(handler, mask); });
    }

    uxport::MNResult NotifyHandler(uxport::IPSEventHandler* handler, long mask) override
    {
        return Run("NotifyHandler", Arguments(handler, mask),
                   [&] { return CPSReactorPoll::NotifyHandler(handler, mask); });
    }

    uxport::MNResult ScheduleTimer(uxport::IMNTimerHandler* handler, void* arg, const uxport::CMNTimeValue& interval,
                                   unsigned long count) override
    {
        const std::string arguments = "(" + std::to_string(reinterpret_cast<unsigned long>(arg)) + "," +
                                      std::to_string(interval.GetSec()) + "s" + std::to_string(interval.GetUsec()) +
                                      "us," + std::to_string(count) + ")";
        return Run("ScheduleTimer", arguments,
                   [&] { return CPSReactorPoll::ScheduleTimer(handler, arg, interval, count); });
    }

    uxport::MNResult CancelTimer(uxport::IMNTimerHandler* handler) override
    {
        return Run("CancelTimer", std::string(), [&] { return CPSReactorPoll::CancelTimer(handler); });
    }

private:
    static std::string Arguments(const uxport::IPSEventHandler* handler, long mask)
    {
        return "(" + (handler ? std::to_string(handler->GetHandle()) : "null") + "," + std::to_string(mask) + ")";
    }

    template <class Operation>
    uxport::MNResult Run(const std::string& name, const std::string& arguments, Operation operation)
    {
        uxport::MNResult result = uxport::MN_OK;
        const auto refusal = m_Refusals.find(name);
        if (refusal != m_Refusals.end()) {
            result = refusal->second;
            m_Refusals.erase(refusal);
        } else {
            result = operation();
        }
        CScriptedStack::Instance().Note(name + arguments + "=" + std::to_string(result));
        return result;
    }

    std::map<std::string, uxport::MNResult> m_Refusals;
};

#endif
