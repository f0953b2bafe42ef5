#include "Platform/noxcore/ProcessNotification.h"

#include <utility>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/PlatformCall.h"

namespace noxcore::config {

namespace {

using Registry = ProcessBeginEndNotificationRegistry;

struct ProcessConstants
{
    Registry::Table mTable;
};

std::string TextOf(const Registry::Value& inValue)
{
    if (const auto* text = std::get_if<std::string>(&inValue)) return *text;
    if (const auto* number = std::get_if<int>(&inValue)) return std::to_string(*number);
    return std::get<bool>(inValue) ? "true" : "false";
}

std::string TextOf(const Registry::Table& inTable)
{
    std::string text;
    for (const auto& constant : inTable) {
        if (!text.empty()) text += "; ";
        text += constant.mKey + "=" + TextOf(constant.mValue);
    }
    return text;
}

}  // namespace

void ProcessBeginEndNotificationRegistry::NotifyProcessBegin(Table inTable)
{
    logging::LogDetail(debug::kPlatformCategory, debug::kPlatformCall,
                       {{"name", "NotifyProcessBegin"}, {"table", TextOf(inTable)}});
    HubContext::Current()->GetOrCreateInstance<ProcessConstants>()->mTable = std::move(inTable);
}

std::string ProcessBeginEndNotificationRegistry::GetText(std::string_view inKey)
{
    const auto constants = HubContext::Current()->GetOrCreateInstance<ProcessConstants>();
    for (const auto& constant : constants->mTable) {
        if (constant.mKey == inKey) return TextOf(constant.mValue);
    }
    return {};
}

}  // namespace noxcore::config
