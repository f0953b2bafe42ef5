#include "Platform/noxcore/AppStateManager.h"

#include <atomic>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/PlatformCall.h"

namespace noxcore::appstatemanager {

namespace {

struct AppState
{
    std::atomic<int> mState{0};
};

}  // namespace

void SetState(int inState)
{
    logging::LogDetail(debug::kPlatformCategory, debug::kPlatformCall, {{"name", "SetState"}, {"state", inState}});
    HubContext::Current()->GetOrCreateInstance<AppState>()->mState = inState;
}

int GetState()
{
    return HubContext::Current()->GetOrCreateInstance<AppState>()->mState;
}

}  // namespace noxcore::appstatemanager
