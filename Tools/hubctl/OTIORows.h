#pragma once

#include <memory>
#include <string_view>

#include "Platform/noxcore/JSON.h"
#include "Tools/hubctl/Rows.h"

namespace hubctl {

/// A timeline in OpenTimelineIO's JSON as rows: the timeline a sequence; collections, stacks and tracks bins; clips
/// clips. What holds others keeps, in their order, the assets' ids in their place; gaps, transitions and whatever else
/// is no asset stay there as they came.
///
/// An asset's properties hold its object under "otio", each member as its text was, digit for digit: numbers are never
/// read. JSON has no word for numbers that are not finite: they become texts ("NaN", "-Infinity"), with a remark. The
/// file as a whole is the first asset's enclosure "otio".
class OTIORows final : public RowSource
{
public:
    /// Null, with the reason, for a text that is no such timeline. A text of more than inLimit bytes is not enclosed.
    static std::unique_ptr<OTIORows> Read(std::string_view inText, const std::string& inFileName, std::uint64_t inLimit,
                                          std::string& outError);

    [[nodiscard]] std::size_t Count() const override { return mRows.size(); }
    bool Next(AssetRow& outRow) override;
    [[nodiscard]] const std::vector<Remark>& Remarks() const override { return mRemarks; }
    /// The name of the outermost object.
    [[nodiscard]] const std::string& RootName() const { return mRows.front().mName; }

private:
    struct Schema;

    OTIORows() = default;
    static const Schema* SchemaOf(const noxcore::serialization::JSONValue& inObject);
    std::string AddAsset(const noxcore::serialization::JSONValue& inObject, const Schema& inSchema,
                         const std::string& inParentID, const std::string& inFallbackName);
    void WriteChildren(const noxcore::serialization::JSONValue& inChildren, const std::string& inAssetID,
                       noxcore::serialization::JSONWriter& ioWriter);

    std::vector<AssetRow> mRows;
    std::size_t mNext = 0;
    std::vector<Remark> mRemarks;
};

/// The text with "NaN", "Inf" and "Infinity", signed or not, in quotation marks where they stand as values.
std::string QuoteNonFiniteNumbers(std::string_view inText, std::size_t& outCount);

}  // namespace hubctl
