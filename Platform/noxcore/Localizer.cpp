#include "Platform/noxcore/Localizer.h"

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/PlatformCall.h"

namespace noxcore::config {

namespace {

struct CurrentLocalizer
{
    Localizer* mLocalizer = nullptr;
};

Localizer*& Current()
{
    return HubContext::Current()->GetOrCreateInstance<CurrentLocalizer>()->mLocalizer;
}

}  // namespace

Localizer::~Localizer()
{
    if (Current() == this) Current() = nullptr;
}

void Localizer::Set(Localizer* inLocalizer)
{
    logging::LogDetail(
        debug::kPlatformCategory, debug::kPlatformCall,
        {{"name", "Localizer::Set"}, {"table", inLocalizer != nullptr && inLocalizer->mTable != nullptr}});
    Current() = inLocalizer;
}

Localizer* Localizer::Get()
{
    return Current();
}

std::string Localizer::Localize(std::string_view inKey) const
{
    if (mTable) {
        if (const auto found = mTable->find(inKey); found != mTable->end()) return found->second;
    }
    return std::string(inKey);
}

}  // namespace noxcore::config
