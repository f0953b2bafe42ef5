#include "Tools/hubctl/OTIORows.h"

#include <algorithm>

#include "Client/Wire/Vocabulary.h"
#include "Platform/noxcore/Guid.h"

namespace hubctl {

using noxcore::serialization::JSONDocument;
using noxcore::serialization::JSONValue;
using noxcore::serialization::JSONWriter;
using noxcore::utility::Guid;
using noxcore::utility::ImmutableString;

/// A kind of object that becomes an asset.
struct OTIORows::Schema
{
    std::string_view mName;
    const ImmutableString& (*mAssetType)();
    std::string_view mChildrenKey;  ///< empty: it holds no others
};

namespace {

constexpr std::string_view kSchemaKey = "OTIO_SCHEMA";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

bool IsLetter(char inChar)
{
    return (inChar >= 'a' && inChar <= 'z') || (inChar >= 'A' && inChar <= 'Z');
}

/// Bytes of the non-finite number that the text begins with; 0 for none.
std::size_t NonFiniteSize(std::string_view inText)
{
    const std::size_t sign = !inText.empty() && (inText[0] == '-' || inText[0] == '+') ? 1 : 0;
    std::size_t end = sign;
    while (end < inText.size() && IsLetter(inText[end]))
        ++end;
    const std::string_view word = inText.substr(sign, end - sign);
    return word == "NaN" || word == "Inf" || word == "Infinity" || word == "nan" || word == "inf" ? end : 0;
}

/// The place behind the string that begins at inBegin.
std::size_t EndOfString(std::string_view inText, std::size_t inBegin)
{
    for (std::size_t i = inBegin + 1; i < inText.size(); ++i) {
        if (inText[i] == '\\') {
            ++i;
        } else if (inText[i] == '"') {
            return i + 1;
        }
    }
    return inText.size();
}

std::size_t EndOfWord(std::string_view inText, std::size_t inBegin)
{
    std::size_t end = inBegin;
    while (end < inText.size() && IsLetter(inText[end]))
        ++end;
    return std::max(end, inBegin + 1);
}

}  // namespace

std::string QuoteNonFiniteNumbers(std::string_view inText, std::size_t& outCount)
{
    std::string text;
    text.reserve(inText.size());
    outCount = 0;
    for (std::size_t place = 0; place < inText.size();) {
        const std::size_t size = inText[place] == '"' ? 0 : NonFiniteSize(inText.substr(place));
        std::size_t end = place + size;
        if (size > 0) {
            text += '"';
            ++outCount;
        } else {
            end = inText[place] == '"' ? EndOfString(inText, place) : EndOfWord(inText, place);
        }
        text += inText.substr(place, end - place);
        if (size > 0) text += '"';
        place = end;
    }
    return text;
}

const OTIORows::Schema* OTIORows::SchemaOf(const JSONValue& inObject)
{
    static const Schema kSchemas[] = {
        {"Timeline", &VYCL::GetAssetType_Sequence, "tracks"},
        {"SerializableCollection", &VYCL::GetAssetType_Bin, "children"},
        {"Stack", &VYCL::GetAssetType_Bin, "children"},
        {"Track", &VYCL::GetAssetType_Bin, "children"},
        {"Clip", &VYCL::GetAssetType_Clip, ""},
    };
    std::string text;
    if (!inObject[kSchemaKey].GetString(text)) return nullptr;
    const std::string_view name = std::string_view(text).substr(0, text.rfind('.'));  // what follows is a version
    const auto* const found = std::find_if(std::begin(kSchemas), std::end(kSchemas),
                                           [&](const Schema& inSchema) { return inSchema.mName == name; });
    return found == std::end(kSchemas) ? nullptr : found;
}

std::unique_ptr<OTIORows> OTIORows::Read(std::string_view inText, const std::string& inFileName, std::uint64_t inLimit,
                                         std::string& outError)
{
    std::size_t nonFinite = 0;
    const std::string_view text = inText.starts_with(kByteOrderMark) ? inText.substr(kByteOrderMark.size()) : inText;
    JSONDocument document;
    if (!document.Parse(QuoteNonFiniteNumbers(text, nonFinite))) {
        outError = "not well-formed JSON in UTF-8, or nested deeper than " +
                   std::to_string(noxcore::serialization::JSONBounds::Current().mMaxDepth) + " levels";
        return nullptr;
    }
    const JSONValue root = document.Root();
    const Schema* const schema = root.IsObject() ? SchemaOf(root) : nullptr;
    if (schema == nullptr) {
        outError = "no OpenTimelineIO timeline: the outermost object has no OTIO_SCHEMA of one";
        return nullptr;
    }
    std::unique_ptr<OTIORows> rows(new OTIORows());
    rows->AddAsset(root, *schema, {}, inFileName);
    if (inText.size() <= inLimit) {
        rows->mRows.front().mPayload =
            Payload{.mID = Guid::CreateUnique().Text(), .mName = "otio", .mBytes = std::string(inText), .mPath = {}};
    }
    if (nonFinite > 0) {
        rows->mRemarks.push_back(
            {inFileName, std::to_string(nonFinite) + " numbers that are not finite are kept as texts"});
    }
    return rows;
}

/// The row goes in before those of its children, which its properties name: it is filled afterwards.
std::string OTIORows::AddAsset(const JSONValue& inObject, const Schema& inSchema, const std::string& inParentID,
                               const std::string& inFallbackName)
{
    AssetRow row;
    row.mID = Guid::CreateUnique().Text();
    row.mIsBin = !inSchema.mChildrenKey.empty();
    if (!inObject["name"].GetString(row.mName) || row.mName.empty()) row.mName = inFallbackName;
    const std::string id = row.mID;
    const std::size_t place = mRows.size();
    JSONWriter writer;
    writer.BeginObject();
    writer.Member("name", row.mName);
    if (!inParentID.empty()) writer.Member("vy:parent", inParentID);
    writer.Member("lumo:assetType", inSchema.mAssetType());
    mRows.push_back(std::move(row));
    const JSONValue children = inSchema.mChildrenKey.empty() ? JSONValue() : inObject[inSchema.mChildrenKey];
    writer.Key("otio");
    writer.BeginObject();
    for (const JSONValue& member : inObject.Children()) {
        writer.Key(member.Key());
        // A key may repeat: the last one counts, the others are kept as they are.
        if (children.Exists() && member.Raw().data() == children.Raw().data()) {
            WriteChildren(children, id, writer);
        } else {
            writer.Raw(member.Raw());
        }
    }
    writer.EndObject();
    writer.EndObject();
    mRows[place].mProperties = writer.TakeText();
    return id;
}

void OTIORows::WriteChildren(const JSONValue& inChildren, const std::string& inAssetID, JSONWriter& ioWriter)
{
    const auto writeOne = [&](const JSONValue& inChild) {
        const Schema* const schema = inChild.IsObject() ? SchemaOf(inChild) : nullptr;
        if (schema == nullptr) return ioWriter.Raw(inChild.Raw());
        const std::string id = AddAsset(inChild, *schema, inAssetID, std::string(schema->mName));
        ioWriter.BeginObject();
        ioWriter.Member("vy:assetId", id);
        ioWriter.EndObject();
    };
    if (!inChildren.IsArray()) return writeOne(inChildren);
    ioWriter.BeginArray();
    for (const JSONValue& child : inChildren.Children())
        writeOne(child);
    ioWriter.EndArray();
}

bool OTIORows::Next(AssetRow& outRow)
{
    if (mNext == mRows.size()) return false;
    outRow = mRows[mNext++];  // the rows stay for their count
    return true;
}

}  // namespace hubctl
