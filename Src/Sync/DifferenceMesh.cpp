#include "Inc/Sync/DifferenceMesh.h"

#include <algorithm>
#include <string_view>

#include "Client/Wire/Vocabulary.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

using namespace noxcore::logging;
using noxcore::utility::ImmutableString;

namespace {

constexpr std::string_view kCategory = "HubSync";

std::string_view IdentifierOf(const dto::AssetDifference& inDifference)
{
    return inDifference.mAssetID.View();
}

std::string_view IdentifierOf(const dto::EnclosureDifference& inDifference)
{
    return inDifference.mName;
}

/// A session has its properties once.
std::string_view IdentifierOf(const dto::PropertiesDifference&)
{
    return "properties";
}

template <class Difference>
void Log(std::string_view inMessage, const Difference& inFirst, const Difference& inSecond)
{
    LogWarning(kCategory, inMessage, {{"diff1", dto::ToJSON(inFirst)}, {"diff2", dto::ToJSON(inSecond)}});
}

template <class Difference>
std::optional<Difference> Mesh(const Difference& inFirst, const Difference& inSecond)
{
    const auto first = IdentifierOf(inFirst);
    const auto second = IdentifierOf(inSecond);
    if (!first.empty() && !second.empty() && first != second) {
        Log("Differentiator::MeshDifference: mismatched differences", inFirst, inSecond);
    }
    if (first.empty() || inFirst.mDifferenceType.empty() || inSecond.mDifferenceType.empty()) return inSecond;

    const auto are = [&](const ImmutableString& inThen, const ImmutableString& inNow) {
        return inFirst.mDifferenceType == inThen && inSecond.mDifferenceType == inNow;
    };
    const auto& added = VYCL::GetDifferenceType_Added();
    const auto& updated = VYCL::GetDifferenceType_Updated();
    const auto& removed = VYCL::GetDifferenceType_Removed();
    if (are(added, removed) || are(removed, added)) return std::nullopt;
    if (are(added, updated) || are(updated, removed) || are(updated, updated)) return inSecond;
    Log("Differentiator::MeshDifference: unhandled difference case", inFirst, inSecond);
    return std::nullopt;
}

template <class Difference>
std::vector<Difference> MeshLists(const std::vector<Difference>& inFirst, const std::vector<Difference>& inSecond)
{
    std::vector<Difference> result;
    result.reserve(std::max(inFirst.size(), inSecond.size()));
    auto first = inFirst.begin();
    auto second = inSecond.begin();
    while (first != inFirst.end() && second != inSecond.end()) {
        const int order = IdentifierOf(*first).compare(IdentifierOf(*second));
        if (order < 0) {
            result.push_back(*first++);
        } else if (order > 0) {
            result.push_back(*second++);
        } else if (auto meshed = Mesh(*first++, *second++)) {
            result.push_back(*std::move(meshed));
        }
    }
    result.insert(result.end(), first, inFirst.end());
    result.insert(result.end(), second, inSecond.end());
    return result;
}

template <class Difference>
void SortList(std::vector<Difference>& ioDifferences)
{
    std::ranges::sort(ioDifferences, {}, [](const Difference& inDifference) { return IdentifierOf(inDifference); });
}

}  // namespace

std::optional<dto::AssetDifference> MeshDifference(const dto::AssetDifference& inFirst,
                                                   const dto::AssetDifference& inSecond)
{
    return Mesh(inFirst, inSecond);
}

std::optional<dto::EnclosureDifference> MeshDifference(const dto::EnclosureDifference& inFirst,
                                                       const dto::EnclosureDifference& inSecond)
{
    return Mesh(inFirst, inSecond);
}

std::optional<dto::PropertiesDifference> MeshDifference(const dto::PropertiesDifference& inFirst,
                                                        const dto::PropertiesDifference& inSecond)
{
    return Mesh(inFirst, inSecond);
}

dto::DifferenceLists MeshDifferences(const dto::DifferenceLists& inFirst, const dto::DifferenceLists& inSecond)
{
    dto::DifferenceLists result;
    result.mAssets = MeshLists(inFirst.mAssets, inSecond.mAssets);
    result.mEnclosures = MeshLists(inFirst.mEnclosures, inSecond.mEnclosures);
    if (inFirst.mProperties && inSecond.mProperties) {
        result.mProperties = Mesh(*inFirst.mProperties, *inSecond.mProperties);
    } else {
        result.mProperties = inFirst.mProperties ? inFirst.mProperties : inSecond.mProperties;
    }
    return result;
}

void SortByIdentifier(dto::DifferenceLists& ioDifferences)
{
    SortList(ioDifferences.mAssets);
    SortList(ioDifferences.mEnclosures);
}

}  // namespace VantryLocalHub
