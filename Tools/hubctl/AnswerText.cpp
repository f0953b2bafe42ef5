#include "Tools/hubctl/AnswerText.h"

#include <algorithm>
#include <ostream>
#include <sstream>
#include <vector>

#include "Client/Wire/AssetLists.h"
#include "Client/Wire/Discovery.h"
#include "Client/Wire/History.h"
#include "Client/Wire/OpaqueMembers.h"
#include "Client/Wire/Production.h"
#include "Client/Wire/Record.h"
#include "Client/Wire/SessionResource.h"
#include "Client/Wire/Transaction.h"
#include "Platform/noxcore/JSON.h"
#include "Tools/hubctl/Table.h"
#include "Tools/hubctl/UTF8Text.h"

namespace hubctl {

namespace dto = VantryLocalHub::dto;

namespace {

using noxcore::serialization::JSONDocument;
using noxcore::serialization::JSONValue;

std::string TextMember(const dto::RawJSON& inObject, std::string_view inKey)
{
    return dto::TextOf(dto::FindMember(inObject.Text(), inKey));
}

std::string NameOf(const dto::RawJSON& inProperties)
{
    return TextMember(inProperties, "name");
}

const char* YesOrNo(bool inFlag)
{
    return inFlag ? "yes" : "no";
}

bool PrintProductions(std::string_view inBody, std::ostream& outStream)
{
    dto::ProductionsResource resource;
    if (!dto::FromJSON(inBody, resource)) return false;
    Table table({"PRODUCTION", "LOCAL", "BINS", "MODIFIED", "NAME"});
    for (const auto& production : resource.mProductions) {
        table.Add({production.mProductionID.Text(), YesOrNo(production.mLocalOnly), YesOrNo(production.mHasBin),
                   production.mLastModified.Text(), NameOf(production.mProperties)});
    }
    table.Print(outStream);
    return true;
}

bool PrintSessions(std::string_view inBody, std::ostream& outStream)
{
    dto::SessionsResource resource;
    if (!dto::FromJSON(inBody, resource)) return false;
    Table table({"SESSION", "HEAD", "SHARED", "LOCAL", "NAME"});
    for (const auto& session : resource.mSessions) {
        table.Add({session.mSessionID.Text(), session.mCommitID.Text(), session.mBaseCommitID.Text(),
                   YesOrNo(session.mLocalOnly), NameOf(session.mProperties)});
    }
    table.Print(outStream);
    return true;
}

bool PrintAssets(std::string_view inBody, std::ostream& outStream)
{
    dto::AssetsResource resource;
    if (!dto::FromJSON(inBody, resource)) return false;
    Table table({"ASSET", "CONTENT", "TYPE", "ENCLOSURES", "NAME"});
    for (const auto& asset : resource.mAssets) {
        table.Add({asset.mAssetID.Text(), asset.mAssetContentID.Text(), TextMember(asset.mProperties, "lumo:assetType"),
                   std::to_string(asset.mEnclosures.size()), NameOf(asset.mProperties)});
    }
    table.Print(outStream);
    return true;
}

void PrintMembers(const dto::RawJSON& inProperties, std::ostream& outStream)
{
    dto::ForEachMember(inProperties.Text(), [&](std::string_view inKey, std::string_view inValue) {
        outStream << "  " << Printable(inKey) << ": " << Printable(inValue) << '\n';
        return true;
    });
}

bool PrintAsset(std::string_view inBody, std::ostream& outStream)
{
    dto::Asset asset;
    if (!dto::FromJSON(inBody, asset)) return false;
    outStream << "asset:   " << asset.mAssetID.Text() << "\ncontent: " << asset.mAssetContentID.Text()
              << "\nproperties:\n";
    PrintMembers(asset.mProperties, outStream);
    if (asset.mEnclosures.empty()) return true;
    Table table({"ENCLOSURE", "CONTENT", "NAME"});
    for (const auto& enclosure : asset.mEnclosures)
        table.Add({enclosure.mEnclosureID.Text(), enclosure.mEnclosureContentID.Text(), enclosure.mName});
    table.Print(outStream);
    return true;
}

bool PrintProperties(std::string_view inBody, std::ostream& outStream)
{
    dto::ProductionPropertiesResource resource;
    if (!dto::FromJSON(inBody, resource)) return false;
    outStream << "properties:\n";
    PrintMembers(resource.mProperties, outStream);
    return true;
}

bool PrintTransactions(std::string_view inBody, std::ostream& outStream)
{
    dto::TransactionsResource resource;
    if (!dto::FromJSON(inBody, resource)) return false;
    Table table({"TRANSACTION", "OPENED AT", "MODIFIED", "OWNER", "MESSAGE"});
    for (const auto& transaction : resource.mTransactions) {
        table.Add({transaction.mTransactionID.Text(), transaction.mCommitID.Text(), transaction.mLastModified.Text(),
                   transaction.mOwner, transaction.mMetadata.mCommitMessage});
    }
    table.Print(outStream);
    return true;
}

bool PrintDiscovery(std::string_view inBody, std::ostream& outStream)
{
    dto::DiscoveryResource resource;
    if (!dto::FromJSON(inBody, resource)) return false;
    outStream << "server:  " << Printable(resource.mServer.mName) << " (" << Printable(resource.mServer.mDescription)
              << ")\nversion: " << Printable(resource.mServer.mVersion) << "\nAPI:     " << resource.mMajorVersion
              << '.' << resource.mMinorVersion << '\n';
    Table table({"RELATION", "URL"});
    for (const auto& link : resource.mEndpoints)
        table.Add({link.mRel.Text(), link.mHref});
    table.Print(outStream);
    return true;
}

bool PrintHistory(std::string_view inBody, std::ostream& outStream)
{
    dto::HistoryResource resource;
    if (!dto::FromJSON(inBody, resource)) return false;
    Table table({"VERSION", "COMMIT", "TIME", "NAME", "MESSAGE"});
    for (const auto& version : resource.mVersions)
        table.Add({std::to_string(version.mVersionNumber), version.mCommitID.Text(), version.mTimestamp.Text(),
                   version.mName, version.mInfo.mMessage});
    table.Print(outStream);
    const auto shown = static_cast<std::int64_t>(resource.mVersions.size());
    if (shown < resource.mStats.mTotalResults) outStream << shown << " of " << resource.mStats.mTotalResults << '\n';
    return true;
}

/// Answers that are worth a form of their own.
struct RecordText
{
    std::string_view mRecord;
    bool (*mPrint)(std::string_view inBody, std::ostream& outStream);
};

constexpr RecordText kRecordTexts[] = {
    {"ProductionsResource", &PrintProductions},
    {"SessionsResource", &PrintSessions},
    {"AssetsResource", &PrintAssets},
    {"Asset", &PrintAsset},
    {"ProductionPropertiesResource", &PrintProperties},
    {"TransactionsResource", &PrintTransactions},
    {"DiscoveryResource", &PrintDiscovery},
    {"HistoryResource", &PrintHistory},
};

/// Hypermedia is for programs.
bool IsForPrograms(std::string_view inKey)
{
    return inKey == "links" || inKey == "stats";
}

/// Without the prefix that tells whose key it is.
std::string ShortKey(const std::string& inKey)
{
    const auto colon = inKey.find(':');
    return colon == std::string::npos || colon + 1 == inKey.size() ? inKey : inKey.substr(colon + 1);
}

bool IsScalar(const JSONValue& inValue)
{
    return !inValue.IsObject() && !inValue.IsArray();
}

/// Empty for null.
std::string ScalarText(const JSONValue& inValue)
{
    std::string text;
    if (inValue.GetString(text)) return text;
    return inValue.GetKind() == JSONValue::Kind::Null ? std::string() : std::string(inValue.Raw());
}

bool HasOnlyScalars(const std::vector<JSONValue>& inValues)
{
    return std::ranges::all_of(inValues, IsScalar);
}

std::string Joined(const std::vector<JSONValue>& inValues)
{
    std::string text;
    for (const JSONValue& value : inValues)
        text += (text.empty() ? "" : ", ") + ScalarText(value);
    return text;
}

/// A row of a table as it fills: column -> cell, the columns in the order in which the rows bring them.
class Rows
{
public:
    void Add(const JSONValue& inValue)
    {
        mRows.emplace_back();
        if (inValue.IsObject())
            AddMembers(inValue, {});
        else
            Set("value", inValue.IsArray() ? std::string(inValue.Raw()) : ScalarText(inValue));
    }
    /// Columns without any text are left out.
    void Print(std::ostream& outStream) const
    {
        std::vector<std::string> headings;
        for (const std::string& column : mColumns) {
            headings.push_back(column);
            for (char& letter : headings.back())
                letter = letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
        }
        Table table(std::move(headings));
        for (const auto& row : mRows) {
            std::vector<std::string> cells;
            for (const std::string& column : mColumns) {
                const auto cell = std::ranges::find(row, column, &std::pair<std::string, std::string>::first);
                cells.push_back(cell == row.end() ? std::string() : cell->second);
            }
            table.Add(std::move(cells));
        }
        table.Print(outStream);
    }

private:
    void Set(const std::string& inColumn, std::string inText)
    {
        if (inText.empty()) return;
        if (std::ranges::find(mColumns, inColumn) == mColumns.end()) mColumns.push_back(inColumn);
        mRows.back().emplace_back(inColumn, std::move(inText));
    }
    void AddMembers(const JSONValue& inObject, const std::string& inPrefix)
    {
        for (const JSONValue& member : inObject.Children()) {
            const std::string key = member.Key();
            if (IsForPrograms(key)) continue;
            const std::string column = inPrefix + ShortKey(key);
            // Properties are the application's, and may be many: a row has room for the name.
            if (key == "properties" && member.IsObject())
                Set(inPrefix + "name", ScalarText(member["name"].Exists() ? member["name"] : JSONValue()));
            else if (member.IsObject())
                AddMembers(member, column + ".");
            else if (member.IsArray())
                AddArray(column, member.Children());
            else
                Set(column, ScalarText(member));
        }
    }
    void AddArray(const std::string& inColumn, const std::vector<JSONValue>& inValues)
    {
        Set(inColumn, HasOnlyScalars(inValues) ? Joined(inValues) : std::to_string(inValues.size()));
    }

    std::vector<std::string> mColumns;
    std::vector<std::vector<std::pair<std::string, std::string>>> mRows;
};

void PrintObject(const JSONValue& inObject, const std::string& inIndent, std::ostream& outStream);

void PrintArray(const JSONValue& inArray, const std::string& inIndent, std::ostream& outStream)
{
    Rows rows;
    for (const JSONValue& element : inArray.Children())
        rows.Add(element);
    std::stringstream lines;
    rows.Print(lines);
    for (std::string line; std::getline(lines, line);)
        outStream << inIndent << line << '\n';
}

/// The list of an answer that holds nothing else; missing for any other.
JSONValue OnlyList(const JSONValue& inObject)
{
    JSONValue only;
    for (const JSONValue& member : inObject.Children()) {
        if (IsForPrograms(member.Key())) continue;
        if (only.Exists() || !member.IsArray() || HasOnlyScalars(member.Children())) return {};
        only = member;
    }
    return only;
}

void PrintMember(const JSONValue& inMember, const std::string& inIndent, std::ostream& outStream)
{
    const std::string label = inIndent + Printable(ShortKey(inMember.Key())) + ":";
    if (IsScalar(inMember)) {
        const std::string text = Printable(ScalarText(inMember));
        outStream << label << (text.empty() ? "" : " ") << text << '\n';
    } else if (inMember.IsObject()) {
        outStream << label << '\n';
        PrintObject(inMember, inIndent + "  ", outStream);
    } else if (const auto elements = inMember.Children(); HasOnlyScalars(elements)) {
        outStream << label << (elements.empty() ? " none" : " ") << Printable(Joined(elements)) << '\n';
    } else {
        outStream << label << '\n';
        PrintArray(inMember, inIndent + "  ", outStream);
    }
}

void PrintObject(const JSONValue& inObject, const std::string& inIndent, std::ostream& outStream)
{
    for (const JSONValue& member : inObject.Children())
        if (!IsForPrograms(member.Key())) PrintMember(member, inIndent, outStream);
}

/// How much of a long list this is; nothing where it is all.
void PrintStats(const JSONValue& inObject, std::ostream& outStream)
{
    std::int64_t total = 0;
    std::int64_t count = 0;
    const auto stats = inObject["stats"];
    if (!stats.IsObject() || !stats["totalResults"].GetInt64(total) || !stats["count"].GetInt64(count)) return;
    if (count < total) outStream << count << " of " << total << '\n';
}

}  // namespace

bool PrintAnswer(std::string_view inRecord, std::string_view inBody, std::ostream& outStream)
{
    for (const RecordText& row : kRecordTexts)
        if (row.mRecord == inRecord) return row.mPrint(inBody, outStream);
    JSONDocument document;
    if (!document.Parse(inBody)) return false;
    const auto root = document.Root();
    if (root.IsArray()) {
        PrintArray(root, {}, outStream);
    } else if (root.IsObject()) {
        const auto list = OnlyList(root);
        list.Exists() ? PrintArray(list, {}, outStream) : PrintObject(root, {}, outStream);
        PrintStats(root, outStream);
    } else {
        outStream << Printable(ScalarText(root)) << '\n';
    }
    return true;
}

}  // namespace hubctl
