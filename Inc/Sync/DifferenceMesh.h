#pragma once

#include <optional>
#include <vector>

#include "Client/Wire/Differences.h"

namespace VantryLocalHub {

/// What two changes of one thing come to, the first one older. No value: they cancel out, or do not follow one another,
/// which is logged.
std::optional<dto::AssetDifference> MeshDifference(const dto::AssetDifference& inFirst,
                                                   const dto::AssetDifference& inSecond);
std::optional<dto::EnclosureDifference> MeshDifference(const dto::EnclosureDifference& inFirst,
                                                       const dto::EnclosureDifference& inSecond);
std::optional<dto::PropertiesDifference> MeshDifference(const dto::PropertiesDifference& inFirst,
                                                        const dto::PropertiesDifference& inSecond);

/// What the changes of two ranges come to, the first one ending where the second begins. What only one of them has is
/// taken as it stands. The result is sorted by identifier; so must the arguments be.
dto::DifferenceLists MeshDifferences(const dto::DifferenceLists& inFirst, const dto::DifferenceLists& inSecond);

/// By asset id, and by enclosure name.
void SortByIdentifier(dto::DifferenceLists& ioDifferences);

}  // namespace VantryLocalHub
