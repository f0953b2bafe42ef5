#include "Src/Sync/LocalDifferences.h"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Client/VYClient/History.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Sync/DifferenceMesh.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub {

namespace {

using NameMap = std::map<ImmutableString, std::string>;  // enclosure id -> name

/// The markers of one kind, by the id of what they mark.
std::map<ImmutableString, dto::ConflictMarker> MarkersOf(const SessionDifferences& inStored,
                                                         ConflictChange::Kind inKind)
{
    std::map<ImmutableString, dto::ConflictMarker> markers;
    for (const ConflictChange& conflict : inStored.mConflicts) {
        if (conflict.mKind == inKind) markers.emplace(conflict.mID, conflict.mMarker);
    }
    return markers;
}

template <class Difference>
void SetConflict(const dto::ConflictMarker& inMarker, Difference& ioDifference)
{
    ioDifference.mConflictsWithContentID = inMarker.mConflictsWithContentID;
    ioDifference.mBaseCommitID = inMarker.mBaseCommitID;
}

void Append(const std::vector<AssetChange>& inChanges, const ImmutableString& inType,
            const std::map<ImmutableString, dto::ConflictMarker>& inMarkers, std::vector<dto::AssetDifference>& ioList)
{
    for (const AssetChange& change : inChanges) {
        dto::AssetDifference& difference = ioList.emplace_back();
        difference.mAssetID = change.mID;
        difference.mDifferenceType = inType;
        if (const auto marker = inMarkers.find(change.mID); marker != inMarkers.end()) {
            SetConflict(marker->second, difference);
        }
    }
}

void Append(const std::vector<AssetChange>& inChanges, const ImmutableString& inType, const NameMap& inNames,
            const std::map<ImmutableString, dto::ConflictMarker>& inMarkers,
            std::vector<dto::EnclosureDifference>& ioList)
{
    for (const AssetChange& change : inChanges) {
        dto::EnclosureDifference& difference = ioList.emplace_back();
        // One without a name is known by its id alone.
        const auto name = inNames.find(change.mID);
        difference.mName = name == inNames.end() || name->second.empty() ? change.mID.Text() : name->second;
        difference.mDifferenceType = inType;
        if (const auto marker = inMarkers.find(change.mID); marker != inMarkers.end()) {
            SetConflict(marker->second, difference);
        }
    }
}

int ReadNames(ProjectBox& inBox, const ImmutableString& inSessionID, const ImmutableString& inRevision,
              NameMap& outNames)
{
    std::vector<dto::Enclosure> enclosures;
    const int status = inBox.GetProductionEnclosures(inSessionID, inRevision, enclosures);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    for (dto::Enclosure& enclosure : enclosures)
        outNames.emplace(std::move(enclosure.mEnclosureID), std::move(enclosure.mName));
    return status;
}

/// Clients know production enclosures by name, which stands with the enclosure: of what is gone, on the left side.
int AddEnclosures(ProjectBox& inBox, const ImmutableString& inSessionID, const SessionDifferences& inStored,
                  std::vector<dto::EnclosureDifference>& ioList)
{
    NameMap left;
    NameMap right;
    int status = noxnet::kHTTPStatus_OK;
    if (!inStored.mDeletedEnclosures.empty()) status = ReadNames(inBox, inSessionID, inStored.mFromRevision, left);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    if (!inStored.mAddedEnclosures.empty() || !inStored.mEditedEnclosures.empty()) {
        status = ReadNames(inBox, inSessionID, inStored.mToRevision, right);
    }
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    const auto markers = MarkersOf(inStored, ConflictChange::Kind::ProductionEnclosure);
    Append(inStored.mAddedEnclosures, VYCL::GetDifferenceType_Added(), right, markers, ioList);
    Append(inStored.mEditedEnclosures, VYCL::GetDifferenceType_Updated(), right, markers, ioList);
    Append(inStored.mDeletedEnclosures, VYCL::GetDifferenceType_Removed(), left, markers, ioList);
    return status;
}

void AddAssets(const SessionDifferences& inStored, std::vector<dto::AssetDifference>& ioList)
{
    ioList.reserve(inStored.mAddedAssets.size() + inStored.mEditedAssets.size() + inStored.mDeletedAssets.size());
    const auto markers = MarkersOf(inStored, ConflictChange::Kind::Asset);
    Append(inStored.mAddedAssets, VYCL::GetDifferenceType_Added(), markers, ioList);
    Append(inStored.mEditedAssets, VYCL::GetDifferenceType_Updated(), markers, ioList);
    Append(inStored.mDeletedAssets, VYCL::GetDifferenceType_Removed(), markers, ioList);
}

std::optional<dto::PropertiesDifference> PropertiesOf(const SessionDifferences& inStored)
{
    if (inStored.mFromProperties == inStored.mToProperties) return std::nullopt;
    dto::PropertiesDifference difference;
    difference.mDifferenceType = inStored.mFromProperties.empty() ? VYCL::GetDifferenceType_Added()
                                 : inStored.mToProperties.empty() ? VYCL::GetDifferenceType_Removed()
                                                                  : VYCL::GetDifferenceType_Updated();
    const auto markers = MarkersOf(inStored, ConflictChange::Kind::SessionProperties);
    if (!markers.empty()) SetConflict(markers.begin()->second, difference);
    return difference;
}

}  // namespace

int ReadLocalDifferences(ProjectBox& inBox, const ImmutableString& inSessionID, const ImmutableString& inFrom,
                         const ImmutableString& inTo, dto::DifferencesResource& outDifferences)
{
    SessionDifferences stored;
    int status = inBox.GetDifferences(inSessionID, inFrom, inTo, stored);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    dto::DifferencesResource resource;
    resource.mLeftSideCommitID = stored.mFromRevision;
    resource.mRightSideCommitID = stored.mToRevision;
    AddAssets(stored, resource.mDifferences.mAssets);
    resource.mDifferences.mProperties = PropertiesOf(stored);
    status = AddEnclosures(inBox, inSessionID, stored, resource.mDifferences.mEnclosures);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    SortByIdentifier(resource.mDifferences);
    StoredVersion version;
    // What differs is told all the same where the history cannot be walked.
    if (noxnet::IsSuccessfulHTTPStatus(inBox.GetHistoryRevision(inSessionID, stored.mToRevision, version))) {
        resource.mInfo.mMessage = VYCL::GetCommitMessageFromTitle(version.mMessage);
    }
    outDifferences = std::move(resource);
    return noxnet::kHTTPStatus_OK;
}

}  // namespace VantryLocalHub
