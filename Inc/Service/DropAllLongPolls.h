#pragma once

#include <memory>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Messaging.h"

namespace VantryLocalHub {

/// A client has gone: every request that waits for a change is to be answered, so that who left holds nothing and who
/// is still there asks again. Posted to the station below; the long polls listen on the main thread.
class DropAllLongPollsMessage : public noxcore::messaging::MessageBase<DropAllLongPollsMessage>
{
public:
    static constexpr std::string_view kTypeName = "VantryLocalHub::DropAllLongPollsMessage";

    /// Where the message is posted; one a hub, made on first use.
    static std::shared_ptr<noxcore::messaging::MessageStation> Station()
    {
        return noxcore::HubContext::Current()->GetOrCreateInstance<StationOfLongPolls>()->mStation;
    }
    static void Post()
    {
        noxcore::messaging::PostMessageToUIThread(Station(), std::make_shared<DropAllLongPollsMessage>());
    }

private:
    struct StationOfLongPolls
    {
        std::shared_ptr<noxcore::messaging::MessageStation> mStation =
            std::make_shared<noxcore::messaging::MessageStation>();
    };
};

}  // namespace VantryLocalHub
