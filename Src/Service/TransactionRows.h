#pragma once

#include "Client/Wire/Transaction.h"
#include "Inc/Model/ProjectBox.h"
#include "Inc/Service/TransactionForm.h"

namespace VantryLocalHub {

/// Adds the rows of a form to a transaction, in their order; the first that the store refuses ends it, with the store's
/// status, and the rows before it stay.
///
/// An edit changes what the form names: enclosures and properties that it does not name stay as they are.
int CreateRows(ProjectBox& inProjectBox, const ImmutableString& inTransactionID, const TransactionForm& inForm,
               dto::TransactionResult& outResult);
int EditRows(ProjectBox& inProjectBox, const ImmutableString& inTransactionID, const TransactionForm& inForm,
             dto::TransactionResult& outResult);
int DeleteRows(ProjectBox& inProjectBox, const ImmutableString& inTransactionID, const TransactionKeyForm& inForm,
               dto::TransactionResult& outResult);

/// Finds the rows whose content the store has not got yet. A row names its content by id, in its key or as its value;
/// any other value is the content itself, and is stored.
int FindMissingContent(ProjectBox& inProjectBox, const ImmutableString& inTransactionID,
                       const TransactionKeyForm& inForm, std::vector<dto::UploadTicket>& outTickets);

}  // namespace VantryLocalHub
