#include "Inc/Sync/SyncBox.h"

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

namespace {

constexpr std::string_view kCategory = "VantryLocalHub";

/// Keeps the context's one station of the engine.
struct StationHolder
{
    std::shared_ptr<noxcore::messaging::MessageStation> mStation =
        std::make_shared<noxcore::messaging::MessageStation>();
};

}  // namespace

std::shared_ptr<SyncBox> SyncBox::Instance()
{
    auto instance = noxcore::HubContext::Current()->GetInstance<SyncBox>();
    if (!instance) noxcore::logging::LogInformation(kCategory, "SyncBox is shut");
    return instance;
}

void SyncBox::SetInstance(std::shared_ptr<SyncBox> inInstance)
{
    noxcore::HubContext::Current()->SetInstance(std::move(inInstance));
}

std::shared_ptr<noxcore::messaging::MessageStation> SyncBox::Station()
{
    return noxcore::HubContext::Current()->GetOrCreateInstance<StationHolder>()->mStation;
}

void SyncBox::Close()
{
    noxcore::logging::LogInformation(kCategory, "Closing SyncBox");
    const auto context = noxcore::HubContext::Current();
    if (auto instance = context->GetInstance<SyncBox>()) {
        const auto gone = instance->mLifetime.GetToken();
        context->SetInstance<SyncBox>(nullptr);
        // Who keeps the engine keeps the hub from ending: said before the wait, which may be without end.
        if (const long others = instance.use_count() - 1; others > 0) {
            noxcore::logging::LogDetail(kCategory, "SyncBox is still in use", {{"count", others}});
        }
        instance.reset();
        gone->wait();
    }
    noxcore::messaging::DisposeStation(Station());
    context->SetInstance<StationHolder>(nullptr);
    noxcore::logging::LogInformation(kCategory, "SyncBox is shut");
}

}  // namespace VantryLocalHub
