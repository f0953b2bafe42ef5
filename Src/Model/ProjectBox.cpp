#include "Inc/Model/ProjectBox.h"

#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

namespace {

/// A station is made when first asked for, and a new one after the store was closed.
struct StationHolder
{
    std::shared_ptr<noxcore::messaging::MessageStation> mStation =
        std::make_shared<noxcore::messaging::MessageStation>();
};

}  // namespace

std::shared_ptr<ProjectBox> ProjectBox::Instance()
{
    return noxcore::HubContext::Current()->GetInstance<ProjectBox>();
}

void ProjectBox::SetInstance(std::shared_ptr<ProjectBox> inInstance)
{
    noxcore::HubContext::Current()->SetInstance<ProjectBox>(std::move(inInstance));
}

std::shared_ptr<noxcore::messaging::MessageStation> ProjectBox::Station()
{
    return noxcore::HubContext::Current()->GetOrCreateInstance<StationHolder>()->mStation;
}

void ProjectBox::Close()
{
    noxcore::logging::LogInformation("VantryLocalHub", "Closing ProjectBox");
    const auto context = noxcore::HubContext::Current();
    if (auto instance = context->GetInstance<ProjectBox>()) {
        const auto gone = instance->mLifetime.GetToken();
        context->SetInstance<ProjectBox>(nullptr);
        instance.reset();
        gone->wait();
    }
    noxcore::messaging::DisposeStation(Station());
    context->SetInstance<StationHolder>(nullptr);
    noxcore::logging::LogInformation("VantryLocalHub", "ProjectBox is shut");
}

}  // namespace VantryLocalHub
