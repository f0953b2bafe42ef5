#pragma once

#include <array>
#include <string>
#include <string_view>

#include "Client/Wire/FormKeys.h"

/// The keys of a transaction's forms, as patterns.
namespace VantryLocalHub::API {

struct TransactionKey
{
    std::string_view mKind;
    std::string_view mPart;  ///< empty in a key that only names a row
    bool mHasAssetRow = false;
    bool mHasContentID = false;
    std::string_view mMeaning;
    bool mDeletes = false;  ///< a key of bulkDelete; the others are those of all the other forms

    /// As people write it: "enclosures+<enclosure>+content+<asset row>".
    [[nodiscard]] std::string Shown() const
    {
        const char joint = VYCL::FormKeys::kJoint;
        const bool isEnclosure = mKind == VYCL::FormKeys::kKindEnclosures;
        std::string key = std::string(mKind) + joint + (isEnclosure ? "<enclosure>" : "<row>");
        if (!mPart.empty() || mHasAssetRow) key.append(1, joint).append(mPart);
        if (mHasAssetRow) key.append(1, joint).append("<asset row>");
        if (mHasContentID) key.append(1, joint).append("<contentId>");
        return key;
    }
    /// The same as an expression that the whole key matches.
    [[nodiscard]] std::string Expression() const
    {
        const std::string joint = std::string("\\") + VYCL::FormKeys::kJoint;
        std::string expression = "^" + std::string(mKind) + joint + "[^+]+";
        if (!mPart.empty() || mHasAssetRow) expression.append(joint).append(mPart);
        if (mHasAssetRow) expression.append(joint).append("[\\w\\-]+");
        if (mHasContentID) expression.append(joint).append("[\\w\\-]+");
        return expression.append("$");
    }
};

inline constexpr auto kTransactionKeys = [] {
    using namespace VYCL::FormKeys;
    return std::to_array<TransactionKey>({
        {kKindAssets, kPartProperties, false, false, "JSON of the asset's properties, with the `name` in it"},
        {kKindAssets, kPartName, false, false, "the asset's name, instead of the properties or over them"},
        {kKindEnclosures, kPartName, true, false, "name of an enclosure of that asset; blanks at its ends are cut off"},
        {kKindEnclosures, kPartName, false, false, "name of an enclosure of the production"},
        {kKindEnclosures, kPartContent, true, false,
         "payload of an enclosure, as a file part; in a preflight its content id"},
        {kKindEnclosures, kPartContent, true, true,
         "a payload that the store already has, with an empty value; \"-\" as the asset row means the production"},
        {kKindAssets, {}, false, false, "an asset to delete; the value does not matter", true},
        {kKindEnclosures, {}, true, false, "an enclosure of an asset to delete; the value does not matter", true},
    });
}();

}  // namespace VantryLocalHub::API
