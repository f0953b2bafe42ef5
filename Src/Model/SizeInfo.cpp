#include "Inc/Model/SizeInfo.h"

#include <tuple>
#include <utility>

#include "Platform/noxcore/JSON.h"

namespace VantryLocalHub {

namespace {

using noxcore::serialization::JSONDocument;
using noxcore::serialization::JSONValue;
using noxcore::serialization::JSONWriter;

template <class T>
using Field = std::pair<std::string_view, T SizeInfo::*>;

constexpr std::tuple kFields{
    Field<std::string>{"productionId", &SizeInfo::mProductionID},
    Field<std::string>{"sessionId", &SizeInfo::mSessionID},
    Field<std::string>{"commitId", &SizeInfo::mCommitID},
    Field<std::int64_t>{"sizeOnDisk", &SizeInfo::mSizeOnDisk},
    Field<std::int64_t>{"sizeOfHead", &SizeInfo::mSizeOfHead},
    Field<std::int64_t>{"autosaves", &SizeInfo::mAutosaves},
    Field<std::int64_t>{"assets", &SizeInfo::mAssets},
    Field<std::int64_t>{"assetEnclosures", &SizeInfo::mAssetEnclosures},
    Field<std::int64_t>{"productionEnclosures", &SizeInfo::mProductionEnclosures},
    Field<std::int64_t>{"mediaLocators", &SizeInfo::mMediaLocators},
    Field<std::string>{"pathOnDisk", &SizeInfo::mPathOnDisk},
};

void WriteValue(JSONWriter& inWriter, const std::string& inText)
{
    inWriter.String(inText);
}
void WriteValue(JSONWriter& inWriter, std::int64_t inNumber)
{
    inWriter.Int(inNumber);
}
bool ReadValue(const JSONValue& inValue, std::string& outText)
{
    return inValue.GetString(outText);
}
bool ReadValue(const JSONValue& inValue, std::int64_t& outNumber)
{
    return inValue.GetInt64(outNumber);
}

template <class T>
void WriteField(JSONWriter& inWriter, const SizeInfo& inInfo, const Field<T>& inField)
{
    inWriter.Key(inField.first);
    WriteValue(inWriter, inInfo.*inField.second);
}

template <class T>
bool ReadField(const JSONValue& inRoot, SizeInfo& outInfo, const Field<T>& inField)
{
    const JSONValue value = inRoot[inField.first];
    return !value.Exists() || ReadValue(value, outInfo.*inField.second);
}

}  // namespace

std::string SizeInfoToJSON(const SizeInfo& inInfo)
{
    JSONWriter writer;
    writer.BeginObject();
    std::apply([&](const auto&... inField) { (WriteField(writer, inInfo, inField), ...); }, kFields);
    writer.EndObject();
    return writer.TakeText();
}

bool SizeInfoFromJSON(std::string_view inJSON, SizeInfo& outInfo)
{
    JSONDocument document;
    if (!document.Parse(inJSON) || !document.Root().IsObject()) return false;
    SizeInfo info;
    if (!std::apply([&](const auto&... inField) { return (ReadField(document.Root(), info, inField) && ...); },
                    kFields)) {
        return false;
    }
    outInfo = std::move(info);
    return true;
}

}  // namespace VantryLocalHub
