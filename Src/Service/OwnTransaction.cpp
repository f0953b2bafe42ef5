#include "Inc/Service/OwnTransaction.h"

#include "Client/Wire/Transaction.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Sync/SyncBox.h"

namespace VantryLocalHub {

NamedTransaction ReadNamedTransaction(const noxcore::serialization::JSONValue& inBody, ImmutableString& outID)
{
    if (!inBody.IsObject()) return NamedTransaction::Unreadable;
    const auto value = inBody["vy:transactionId"];
    if (!value.Exists()) return NamedTransaction::None;
    std::string text;
    if (!value.GetString(text)) return NamedTransaction::Unreadable;
    outID = text;
    return text.empty() ? NamedTransaction::None : NamedTransaction::Given;
}

int CheckNamedTransaction(ProjectBox& inProjectBox, const ImmutableString& inSessionID,
                          const ImmutableString& inTransactionID)
{
    dto::Session session;
    dto::TransactionResource transaction;
    int status = inProjectBox.GetSession(inSessionID, session);
    if (noxnet::IsSuccessfulHTTPStatus(status)) status = inProjectBox.GetTransaction(inTransactionID, transaction);
    if (noxnet::IsSuccessfulHTTPStatus(status) && !(transaction.mSessionID == session.mIdentifier))
        status = noxnet::kHTTPStatus_BadRequest;
    return status;
}

int ApplyInOwnTransaction(const ImmutableString& inSessionID, const TransactionChange& inChange,
                          CommitOutcome& outOutcome)
{
    const auto projectBox = ProjectBox::Instance();
    const auto syncBox = SyncBox::Instance();
    if (projectBox == nullptr || syncBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    dto::TransactionResource transaction;
    int status = projectBox->OpenTransaction(inSessionID, {}, VYCL::GetTransactionType_Edit(), {}, transaction);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    status = inChange(transaction.mTransactionID);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) {
        projectBox->CloseTransaction(transaction.mTransactionID);
        return status;
    }
    return syncBox->CommitTransaction(transaction.mTransactionID, {}, {}, outOutcome);
}

}  // namespace VantryLocalHub
