#include "Inc/Sync/SharingRelay.h"

#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub {

void SharingRelay::AutoShare(const ImmutableString&, StatusCompletion inCompletion)
{
    if (inCompletion) inCompletion(noxnet::kHTTPStatus_NotModified);
}

}  // namespace VantryLocalHub
