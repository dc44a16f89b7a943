// The stack manager of the scripted stack.
#include "ipstack/IIPStackManager.h"

#include "tests/unit/scripted/CScriptedRun.h"

namespace ipstack
{

namespace
{

class CScriptedStackManager : public IIPStackManager
{
public:
    unsigned long Startup(const CIPStackSettings& settings) override
    {
        CScriptedRun run("Manager::Startup", -1, std::to_string(settings.m_dwMaxSockets));
        return static_cast<unsigned long>(run.Finish(0));
    }

    unsigned long AttachThread() override
    {
        CScriptedRun run("Manager::AttachThread", -1, std::string());
        return static_cast<unsigned long>(run.Finish(0));
    }

    bool IsInitialized() override
    {
        CScriptedRun run("Manager::IsInitialized", -1, std::string());
        return run.Finish(1) != 0;
    }

    unsigned long CreateStack(const CIPStackConfig& config, IIPStackLowLevel*, IIPStack*&) override
    {
        CScriptedRun run("Manager::CreateStack", -1, config.m_strAddress);
        return static_cast<unsigned long>(run.Finish(0));
    }

    unsigned long DestroyStack(IIPStack*) override
    {
        CScriptedRun run("Manager::DestroyStack", -1, std::string());
        return static_cast<unsigned long>(run.Finish(0));
    }

    std::size_t GetCounters(CIPStackCounter*, std::size_t room) override
    {
        CScriptedRun run("Manager::GetCounters", -1, std::to_string(room));
        return static_cast<std::size_t>(run.Finish(0));
    }
};

}  // namespace

IIPStackManager* IIPStackManager::Instance()
{
    static CScriptedStackManager& s_Manager = *new CScriptedStackManager;
    return &s_Manager;
}

}  // namespace ipstack
