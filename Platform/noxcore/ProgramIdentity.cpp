#include "Platform/noxcore/ProgramIdentity.h"

#include "Platform/noxcore/HubContext.h"

namespace noxcore {

std::shared_ptr<const ProgramIdentity> ProgramIdentity::Current()
{
    return HubContext::Current()->GetOrCreateInstance<ProgramIdentity>();
}

}  // namespace noxcore
