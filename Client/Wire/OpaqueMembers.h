#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Client/Wire/RawJSON.h"

namespace VantryLocalHub::dto {

/// Looks at the members of an opaque object in one pass, without indexing what lies below them.
///
/// The function gets each key, escapes resolved, and the raw text of the value. False from it ends the pass. The text
/// must be well-formed and without blanks, as every RawJSON's is; any other text ends the pass early and is never read
/// past its end.
void ForEachMember(std::string_view inObject,
                   const std::function<bool(std::string_view inKey, std::string_view inValue)>& inFunction);

/// The raw value of a key, the last one where the key repeats; empty when there is none.
[[nodiscard]] std::string_view FindMember(std::string_view inObject, std::string_view inKey);

/// The text of a raw string value, escapes resolved; empty for a value of another kind.
[[nodiscard]] std::string TextOf(std::string_view inValue);

/// Puts a value in place of what the key had, or at the end. All other members stay as they are, in their order.
/// inValue is JSON.
void SetMember(RawJSON& ioObject, std::string_view inKey, std::string_view inValue);
/// The same with a text as the value.
void SetTextMember(RawJSON& ioObject, std::string_view inKey, std::string_view inText);

/// Many members that are to be set, gathered from objects that follow one another, and set in one pass: of a key that
/// repeats the last value counts. Values must outlive this.
class MemberEdits
{
public:
    void Set(std::string_view inKey, std::string_view inValue);
    /// All members of an object.
    void Add(const RawJSON& inObject);
    /// What is SetMember for each.
    void ApplyTo(RawJSON& ioObject) const;

private:
    std::vector<std::pair<std::string, std::string_view>> mMembers;  ///< key and value, in the order they came first
    std::unordered_map<std::string, std::size_t> mPlaces;            ///< key -> place in mMembers
};

}  // namespace VantryLocalHub::dto
