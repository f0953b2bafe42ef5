#include "Inc/Sync/PosterFrameManifold.h"

#include <string>
#include <utility>

#include "Client/Wire/OpaqueMembers.h"
#include "Inc/Model/ProjectBox.h"
#include "Inc/Model/SystemDb.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub {

using noxcore::utility::ConstRecycledMemoryPtr;
using noxcore::utility::ImmutableString;

namespace {

constexpr std::string_view kCategory = "HubSync";
constexpr std::string_view kFrameKey = "PosterFrameProperties";
constexpr std::string_view kImageKey = "PosterFrameRendition";

/// There is one frame. Its metadata may say whose it is: nobody else gets it then.
bool IsOfAnother(const dto::PosterFrame& inFrame, const dto::Session& inProduction)
{
    const std::string owner = dto::TextOf(dto::FindMember(inFrame.mMetadata.Text(), "vy:productionId"));
    return !owner.empty() && inProduction.mProductionID.View() != owner;
}

}  // namespace

int PosterFrameManifold::LoadPosterFrame(const ImmutableString& inProductionID, dto::PosterFrame& outFrame)
{
    const auto box = ProjectBox::Instance();
    if (!box) return noxnet::kHTTPStatus_InternalServerError;
    dto::Session production;
    int status = box->GetSession(inProductionID, production);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    std::string text;
    status = SystemDb::GetSystemEnclosure(kFrameKey, text);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    dto::PosterFrame frame;
    if (!dto::FromJSON(text, frame)) {
        noxcore::logging::LogError(kCategory, "PosterFrameService: Bad frame properties enclosure",
                                   {{"productionID", inProductionID.View()}, {"enclosureID", kFrameKey}});
        return noxnet::kHTTPStatus_InternalServerError;
    }
    if (IsOfAnother(frame, production)) return noxnet::kHTTPStatus_NotFound;
    frame.mLinks.clear();
    outFrame = std::move(frame);
    return noxnet::kHTTPStatus_OK;
}

int PosterFrameManifold::LoadPosterFrameRendition(const ImmutableString& inProductionID,
                                                  ConstRecycledMemoryPtr& outImage)
{
    dto::PosterFrame frame;
    int status = LoadPosterFrame(inProductionID, frame);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    std::string image;
    status = SystemDb::GetSystemEnclosure(kImageKey, image);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    if (image.empty()) return noxnet::kHTTPStatus_NotFound;
    outImage = noxcore::utility::MakeRecycledMemory(std::move(image));
    return noxnet::kHTTPStatus_OK;
}

}  // namespace VantryLocalHub
