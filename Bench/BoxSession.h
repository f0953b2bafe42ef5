#pragma once

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

#include "Bench/GeneratedAssets.h"
#include "Client/VYClient/Environment.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/GitBox.h"
#include "Inc/Model/GitBoxSandboxes.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxstorage/SQLite3OdbBackend.h"

namespace bench {

using namespace VantryLocalHub;

inline void Check(bool inHolds, const char* inWhat)
{
    if (inHolds) return;
    std::fprintf(stderr, "%s failed\n", inWhat);
    std::exit(1);
}

/// The store of a home, with the sessions that lie there.
inline std::shared_ptr<GitBox::GitBox> OpenStore(const std::string& inHome)
{
    noxcore::HubContext::Current()->SetInstance<VYCL::Environment>(std::make_shared<VYCL::FixedEnvironment>(inHome));
    return std::make_shared<GitBox::GitBox>(true);
}

/// The store's form of an asset; without its enclosure for an edit of the properties alone.
inline AssetContent ToContent(GeneratedAsset inAsset, bool inWithEnclosure)
{
    AssetContent content;
    content.mAsset.mProperties = dto::RawJSON(std::move(inAsset.mProperties));
    if (!inWithEnclosure) return content;
    EnclosureContent enclosure;
    enclosure.mEnclosure.mEnclosureID = inAsset.mEnclosureID;
    enclosure.mEnclosure.mName = std::move(inAsset.mEnclosureName);
    enclosure.mPayload = noxcore::utility::MakeRecycledMemory(std::move(inAsset.mContent));
    content.mEnclosures.push_back(std::move(enclosure));
    return content;
}

/// A session of its own in a store, and what contenders do to it.
class BoxSession
{
public:
    explicit BoxSession(GitBox::GitBox& inStore) : mStore(inStore)
    {
        Check(mStore.CreateSession({}, {dto::RawJSON(R"({"name":"Bench"})"), {}}, SessionKind::LocalOnly, mSession) ==
                  201,
              "creation");
    }

    /// One that is there.
    BoxSession(GitBox::GitBox& inStore, dto::Session inSession) : mStore(inStore), mSession(std::move(inSession)) {}

    [[nodiscard]] const ImmutableString& ID() const { return mSession.mIdentifier; }

    ImmutableString Open()
    {
        dto::TransactionResource transaction;
        Check(mStore.OpenTransaction(ID(), {}, VYCL::GetTransactionType_Edit(), {}, transaction) == 201, "opening");
        return transaction.mTransactionID;
    }

    void Add(const ImmutableString& inTransaction, GeneratedAsset inAsset)
    {
        const ImmutableString id(inAsset.mID);
        dto::Asset added;
        Check(mStore.AddAsset(inTransaction, id, ToContent(std::move(inAsset), true), added) == 200, "adding");
    }

    void Edit(const ImmutableString& inTransaction, GeneratedAsset inAsset)
    {
        const ImmutableString id(inAsset.mID);
        dto::Asset edited;
        Check(mStore.EditAsset(inTransaction, id, ToContent(std::move(inAsset), false), edited) == 200, "editing");
    }

    /// Durable when it returns. The new revision.
    ImmutableString Commit(const ImmutableString& inTransaction)
    {
        CommitOutcome outcome;
        Check(mStore.FlushTransactionContent(inTransaction) == 200, "flushing");
        Check(mStore.CommitTransaction(inTransaction, {"bench"}, false, outcome) == 200, "committing");
        return outcome.mSession.mRevision;
    }

private:
    GitBox::GitBox& mStore;
    dto::Session mSession;
};

/// Seconds for one commit of that many assets.
inline double CommitAll(BoxSession& ioSession, std::size_t inAssets)
{
    const GeneratedAssets assets;
    const double start = Now();
    const ImmutableString transaction = ioSession.Open();
    for (std::size_t index = 0; index < inAssets; ++index)
        ioSession.Add(transaction, assets.Make(index));
    ioSession.Commit(transaction);
    return Now() - start;
}

/// What a hub does by itself in the idle time after a commit: the log goes into the file, the index is whole.
inline void Settle(const BoxSession& inSession)
{
    GitBox::Sandbox::Handles handles;
    Check(GitBox::Sandboxes::Instance()->FindSandbox(inSession.ID())->RetainDB(handles), "opening a session");
    Check(noxstorage::git::SQLite3OdbBackend::Checkpoint(handles.mRepo), "maintenance");
}

}  // namespace bench
