#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Client/Wire/RawJSON.h"
#include "Inc/Service/VantryAPIService.h"

namespace VantryLocalHub {

using noxcore::utility::ConstRecycledMemoryPtr;

/// The expression that a form key must match as a whole.
inline constexpr std::string_view kTransactionFormKeyExpression =
    R"(([\w\-]+)?\+([^+]+)?\+?([\w\-]+)?\+?([\w\-]+)?\+?([\w\-]*))";

/// The five groups of that expression, as parts of the key; empty where one took no part.
struct TransactionFormKey
{
    std::string_view mKind;
    std::string_view mRow;
    std::string_view mPart;
    std::string_view mAssetRow;
    std::string_view mContentID;
    friend bool operator==(const TransactionFormKey&, const TransactionFormKey&) = default;
};

/// Matches a key in one pass, with the groups that the expression gives.
bool MatchTransactionFormKey(std::string_view inKey, TransactionFormKey& outKey);

/// What a form says of one enclosure. Views point into the form's fields.
struct TransactionEnclosureRow
{
    std::string_view mRow;             ///< its id where that is a guid, else a temporary index
    std::optional<std::string> mName;  ///< without white space at its ends
    ConstRecycledMemoryPtr mPayload;   ///< a part of the request's payload; null for none
    std::string_view mContentID;       ///< of a payload that the store has
};

/// What a form says of one asset and its enclosures, or of one enclosure of the production.
struct TransactionRow
{
    bool mIsAsset = false;
    std::string_view mRow;  ///< of an asset: its id where that is a guid, else a temporary index
    std::optional<dto::RawJSON> mProperties;
    std::optional<std::string> mName;
    std::vector<TransactionEnclosureRow> mEnclosures;  ///< exactly one for an enclosure of the production
};

/// A form of rows to create or edit. The rows stand in the order in which the fields first name them.
struct TransactionForm
{
    std::vector<noxnet::http::server::FormField> mFields;
    std::vector<TransactionRow> mRows;
};

/// One row to delete, or to check before an upload.
struct TransactionKeyRow
{
    TransactionFormKey mKey;
    const noxnet::http::server::FormField* mField = nullptr;
};

/// The same for rows that are keys alone.
struct TransactionKeyForm
{
    std::vector<noxnet::http::server::FormField> mFields;
    std::vector<TransactionKeyRow> mRows;
};

// Each reads the form of a request whole, in one pass. 200; 400 with one record for a form that is empty or broken, or
// for the first field that is not understood.
int ParseFormForCreateOrEdit(const noxnet::http::server::Request& inRequest, TransactionForm& outForm);
int ParseFormForDelete(const noxnet::http::server::Request& inRequest, TransactionKeyForm& outForm);
int ParseFormForPreflight(const noxnet::http::server::Request& inRequest, TransactionKeyForm& outForm);

/// Whether an asset row of a key means the production itself.
bool IsOfProduction(std::string_view inAssetRow);

}  // namespace VantryLocalHub
