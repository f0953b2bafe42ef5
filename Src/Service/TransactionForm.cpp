#include "Inc/Service/TransactionForm.h"

#include <stdexcept>
#include <unordered_map>
#include <utility>

#include "Client/Wire/FormKeys.h"
#include "Client/Wire/OpaqueMembers.h"
#include "Inc/Model/StoreRecords.h"
#include "Inc/Service/ServiceUtils.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

namespace FormKeys = VYCL::FormKeys;
using noxcore::logging::LogWarning;
using noxcore::utility::RecycledMemory;
using noxnet::http::server::FormField;
using noxnet::http::server::Request;

namespace {

constexpr std::size_t kGroupsAfterRow = 3;

bool IsWordCharacter(char inCharacter)
{
    return (inCharacter >= 'a' && inCharacter <= 'z') || (inCharacter >= 'A' && inCharacter <= 'Z') ||
           (inCharacter >= '0' && inCharacter <= '9') || inCharacter == '_' || inCharacter == '-';
}

/// Takes the word characters at the beginning.
std::string_view TakeWord(std::string_view& ioText)
{
    std::size_t size = 0;
    while (size < ioText.size() && IsWordCharacter(ioText[size]))
        ++size;
    const std::string_view word = ioText.substr(0, size);
    ioText.remove_prefix(size);
    return word;
}

bool TakeJoint(std::string_view& ioText)
{
    if (!ioText.starts_with(FormKeys::kJoint)) return false;
    ioText.remove_prefix(1);
    return true;
}

std::string_view Trimmed(std::string_view inText)
{
    constexpr std::string_view kBlanks = " \t\r\n\v\f";
    const auto begin = inText.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) return {};
    return inText.substr(begin, inText.find_last_not_of(kBlanks) - begin + 1);
}

int RefuseElement(const FormField& inField)
{
    LogWarning(kServiceLogCategory, "TransactionService: Bad form element", {{"key", inField.mName}});
    return noxnet::kHTTPStatus_BadRequest;
}

int RefuseEmptyName(const FormField& inField)
{
    LogWarning(kServiceLogCategory, "TransactionService: Bad request - empty name property.", {{"key", inField.mName}});
    return noxnet::kHTTPStatus_BadRequest;
}

/// The keys that the hub itself reads are texts, and a name is not empty.
int CheckProperties(const dto::RawJSON& inProperties, const FormField& inField)
{
    constexpr std::string_view kTexts[] = {"name", "vy:parent", "lumo:assetType", "mediaLocator"};
    for (const std::string_view key : kTexts) {
        const std::string_view value = dto::FindMember(inProperties.Text(), key);
        if (value.empty()) continue;
        if (!value.starts_with('"')) return RefuseElement(inField);
        if (key == "name" && dto::TextOf(value).empty()) return RefuseEmptyName(inField);
    }
    return noxnet::kHTTPStatus_OK;
}

/// An enclosure is the pair of its own row and its asset's.
using EnclosurePair = std::pair<std::string_view, std::string_view>;
struct HashOfPair
{
    std::size_t operator()(const EnclosurePair& inPair) const
    {
        const std::hash<std::string_view> hash;
        return hash(inPair.first) * 31 + hash(inPair.second);
    }
};

/// Builds the rows of a form while its fields pass by.
class FormBuilder
{
public:
    explicit FormBuilder(std::vector<TransactionRow>& outRows) : mRows(outRows) {}

    int AddField(const TransactionFormKey& inKey, const FormField& inField)
    {
        if (inKey.mRow.empty() || !IsUTF8(inKey.mRow)) return RefuseElement(inField);
        if (inKey.mKind == FormKeys::kKindAssets) return AddAssetField(inKey, inField);
        if (inKey.mKind == FormKeys::kKindEnclosures) return AddEnclosureField(inKey, inField);
        return RefuseElement(inField);
    }

private:
    int AddAssetField(const TransactionFormKey& inKey, const FormField& inField)
    {
        if (!inKey.mAssetRow.empty() || !inKey.mContentID.empty()) return RefuseElement(inField);
        if (inKey.mPart == FormKeys::kPartName) {
            if (inField.mValue.empty()) return RefuseEmptyName(inField);
            if (!IsUTF8(inField.mValue.View())) return RefuseElement(inField);
            AssetRow(inKey.mRow).mName = std::string(inField.mValue.View());
            return noxnet::kHTTPStatus_OK;
        }
        dto::RawJSON properties;
        if (inKey.mPart != FormKeys::kPartProperties || !dto::RawJSON::FromText(inField.mValue.View(), properties))
            return RefuseElement(inField);
        const int status = CheckProperties(properties, inField);
        if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
        AssetRow(inKey.mRow).mProperties = std::move(properties);
        return noxnet::kHTTPStatus_OK;
    }

    int AddEnclosureField(const TransactionFormKey& inKey, const FormField& inField)
    {
        if (inKey.mPart == FormKeys::kPartName) return AddEnclosureName(inKey, inField);
        if (inKey.mPart != FormKeys::kPartContent) return RefuseElement(inField);
        if (inKey.mContentID.empty()) {
            EnclosureRow(inKey).mPayload = std::make_shared<const RecycledMemory>(inField.mValue);
            return noxnet::kHTTPStatus_OK;
        }
        // Content is either sent or named: a payload under another's id must not get into the store.
        if (!inField.mValue.empty()) return RefuseElement(inField);
        EnclosureRow(inKey).mContentID = inKey.mContentID;
        return noxnet::kHTTPStatus_OK;
    }

    int AddEnclosureName(const TransactionFormKey& inKey, const FormField& inField)
    {
        if (!inKey.mContentID.empty() || !IsUTF8(inField.mValue.View())) return RefuseElement(inField);
        const std::string_view name = Trimmed(inField.mValue.View());
        if (name.empty()) return RefuseEmptyName(inField);
        if (name.size() != inField.mValue.size())
            LogWarning(kServiceLogCategory, "TransactionService: trimmed enclosure name",
                       {{"assetID", inKey.mAssetRow}, {"name", name}, {"expression", "value.length() != origLen"}});
        EnclosureRow(inKey).mName = std::string(name);
        return noxnet::kHTTPStatus_OK;
    }

    std::size_t AssetRowIndex(std::string_view inRow)
    {
        const auto [place, isNew] = mAssets.try_emplace(inRow, mRows.size());
        if (isNew) {
            mRows.emplace_back();
            mRows.back().mIsAsset = true;
            mRows.back().mRow = inRow;
        }
        return place->second;
    }
    TransactionRow& AssetRow(std::string_view inRow) { return mRows[AssetRowIndex(inRow)]; }

    TransactionEnclosureRow& EnclosureRow(const TransactionFormKey& inKey)
    {
        const bool isOfProduction = IsOfProduction(inKey.mAssetRow);
        const EnclosurePair pair(inKey.mRow, isOfProduction ? std::string_view() : inKey.mAssetRow);
        if (const auto found = mEnclosures.find(pair); found != mEnclosures.end())
            return mRows[found->second.first].mEnclosures[found->second.second];
        std::size_t row = mRows.size();
        if (isOfProduction)
            mRows.emplace_back();
        else
            row = AssetRowIndex(inKey.mAssetRow);
        auto& enclosures = mRows[row].mEnclosures;
        mEnclosures.emplace(pair, std::make_pair(row, enclosures.size()));
        enclosures.emplace_back().mRow = inKey.mRow;
        return enclosures.back();
    }

    std::vector<TransactionRow>& mRows;
    std::unordered_map<std::string_view, std::size_t> mAssets;  // asset row -> place in mRows
    std::unordered_map<EnclosurePair, std::pair<std::size_t, std::size_t>, HashOfPair> mEnclosures;  // -> places
};

/// Calls the function with each field and its key, until one is refused.
template <class Function>
int ForEachField(const Request& inRequest, std::vector<FormField>& outFields, const Function& inFunction)
{
    try {
        outFields = ReadFormFields(inRequest);
        if (outFields.empty()) throw std::invalid_argument("ReadForm: invalid input");
    } catch (const std::invalid_argument& exception) {
        LogWarning(kServiceLogCategory, exception.what(), {{"url", inRequest.URL()}});
        return noxnet::kHTTPStatus_BadRequest;
    }
    for (const FormField& field : outFields) {
        TransactionFormKey key;
        if (!MatchTransactionFormKey(field.mName, key)) {
            LogWarning(kServiceLogCategory, "TransactionService: Regex mismatch error", {{"key", field.mName}});
            return noxnet::kHTTPStatus_BadRequest;
        }
        const int status = inFunction(key, field);
        if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    }
    return noxnet::kHTTPStatus_OK;
}

/// The rows of a form of keys: those that the function takes, others are refused.
template <class Function>
int ParseKeys(const Request& inRequest, TransactionKeyForm& outForm, const Function& inIsRow)
{
    return ForEachField(inRequest, outForm.mFields, [&](const TransactionFormKey& inKey, const FormField& inField) {
        if (inKey.mRow.empty() || !IsUTF8(inKey.mRow) || !inIsRow(inKey)) return RefuseElement(inField);
        outForm.mRows.push_back({inKey, &inField});
        return noxnet::kHTTPStatus_OK;
    });
}

}  // namespace

bool IsOfProduction(std::string_view inAssetRow)
{
    return inAssetRow.empty() || inAssetRow == FormKeys::kNoAsset;
}

bool MatchTransactionFormKey(std::string_view inKey, TransactionFormKey& outKey)
{
    TransactionFormKey key;
    std::string_view rest = inKey;
    key.mKind = TakeWord(rest);
    if (!TakeJoint(rest)) return false;
    // The row takes all up to the next joint. Giving some of it back to the words that follow never helps: what
    // follows is at most three words, each behind an optional joint, and every joint left needs one of those.
    key.mRow = rest.substr(0, rest.find(FormKeys::kJoint));
    rest.remove_prefix(key.mRow.size());
    std::string_view words[kGroupsAfterRow];
    for (std::string_view& word : words) {
        TakeJoint(rest);
        word = TakeWord(rest);
    }
    if (!rest.empty()) return false;
    key.mPart = words[0];
    key.mAssetRow = words[1];
    key.mContentID = words[2];
    outKey = key;
    return true;
}

int ParseFormForCreateOrEdit(const Request& inRequest, TransactionForm& outForm)
{
    FormBuilder builder(outForm.mRows);
    return ForEachField(inRequest, outForm.mFields, [&](const TransactionFormKey& inKey, const FormField& inField) {
        return builder.AddField(inKey, inField);
    });
}

int ParseFormForDelete(const Request& inRequest, TransactionKeyForm& outForm)
{
    return ParseKeys(inRequest, outForm, [](const TransactionFormKey& inKey) {
        if (!inKey.mPart.empty() || !inKey.mContentID.empty()) return false;
        if (inKey.mKind == FormKeys::kKindAssets) return inKey.mAssetRow.empty() && IsUsableID(inKey.mRow);
        return inKey.mKind == FormKeys::kKindEnclosures && IsUsableID(inKey.mAssetRow);
    });
}

int ParseFormForPreflight(const Request& inRequest, TransactionKeyForm& outForm)
{
    return ParseKeys(inRequest, outForm, [](const TransactionFormKey& inKey) {
        return inKey.mKind == FormKeys::kKindAssets || inKey.mKind == FormKeys::kKindEnclosures;
    });
}

}  // namespace VantryLocalHub
