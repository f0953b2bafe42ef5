#pragma once

#include "Inc/Model/ProjectBox.h"

namespace VantryLocalHub {

/// What differs between two revisions that the store has, as clients read it: each entry once, sorted by identifier,
/// with the conflict that the right side has on it. No links. The store's status; out keeps its value after a failure.
int ReadLocalDifferences(ProjectBox& inBox, const ImmutableString& inSessionID, const ImmutableString& inFrom,
                         const ImmutableString& inTo, dto::DifferencesResource& outDifferences);

}  // namespace VantryLocalHub
