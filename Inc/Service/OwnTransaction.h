#pragma once

#include <functional>
#include <string_view>

#include "Inc/Model/ProjectBox.h"
#include "Inc/Service/VantryAPIService.h"
#include "Platform/noxcore/JSON.h"

namespace VantryLocalHub {

/// A change of a session, told the transaction that it belongs to. Gives a status.
using TransactionChange = std::function<int(const ImmutableString& inTransactionID)>;

/// What a body says of the transaction of its change.
enum class NamedTransaction
{
    None,
    Given,
    Unreadable  ///< the body is no JSON object, or the key no text
};

/// Reads `vy:transactionId` of a parsed body.
NamedTransaction ReadNamedTransaction(const noxcore::serialization::JSONValue& inBody, ImmutableString& outID);

/// Whether a named transaction is one of the session of the URL. 200; 404: there is no such session or transaction;
/// 400: it is another session's.
int CheckNamedTransaction(ProjectBox& inProjectBox, const ImmutableString& inSessionID,
                          const ImmutableString& inTransactionID);

/// Applies a change in a transaction of its own and commits it through the sync engine, so that sync takes note. The
/// first status that is no success is the result, and nothing of the change stays then. 500 without store or engine.
int ApplyInOwnTransaction(const ImmutableString& inSessionID, const TransactionChange& inChange,
                          CommitOutcome& outOutcome);

}  // namespace VantryLocalHub
