#include "Inc/Model/GitBoxIOCopy.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <set>
#include <thread>

#include "Client/Wire/AssetProperties.h"
#include "Client/Wire/MediaLocator.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/CommitMessages.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/WorkSharing.h"
#include "Src/Model/WalkAndCopy.h"

namespace VantryLocalHub::GitBox::IO {

namespace git = noxstorage::git;
using noxcore::filesupport::Files;
using noxcore::filesupport::Join;
using noxcore::logging::LogError;
using noxcore::serialization::JSONValue;
using noxcore::threads::LockRank;
using noxcore::threads::RecursiveMutex;
using noxcore::threads::ScopedLock;

namespace {

/// What a copy that is limited to a root asset follows.
struct AssetReferences
{
    std::vector<std::string> mMediaLocators;
    std::vector<std::string> mDependentAssetIDs;
};

bool IsNothing(const JSONValue& inValue)
{
    return !inValue.Exists() || inValue.GetKind() == JSONValue::Kind::Null;
}

/// Adds one text, or a list of them. False for anything else; nothing is added then.
bool AddIDs(const JSONValue& inValue, bool inIsList, std::vector<std::string>& ioIDs)
{
    if (IsNothing(inValue)) return true;
    if (inValue.IsArray() != inIsList) return false;
    std::vector<std::string> ids;
    for (const JSONValue& value : inIsList ? inValue.Children() : std::vector{inValue})
        if (!value.GetString(ids.emplace_back())) return false;
    ioIDs.insert(ioIDs.end(), ids.begin(), ids.end());
    return true;
}

/// Each key by itself: one that is of another type costs what it names, and nothing else. False where that are the
/// assets that have to be copied too.
bool ReadReferences(const ImmutableString& inAssetID, const dto::RawJSON& inProperties, AssetReferences& outReferences)
{
    noxcore::serialization::JSONDocument properties;
    const bool isRead = properties.Parse(inProperties.Text()) &&
                        AddIDs(properties.Root()["dependentAssetIDs"], true, outReferences.mDependentAssetIDs);
    if (!isRead) {
        LogError("GitBox", "What an asset depends on is not readable", {{"assetID", inAssetID}});
        return false;
    }
    for (const auto& [key, isList] : {std::pair{"mediaLocator", false}, {"mergedClipAndProxyMediaLocators", true}}) {
        if (AddIDs(properties.Root()[key], isList, outReferences.mMediaLocators)) continue;
        noxcore::logging::LogWarning("GitBox", "The media locators of an asset are not readable",
                                     {{"assetID", inAssetID}, {"key", key}});
    }
    return true;
}

enum class Transfer
{
    Done,
    Unreadable,
    Mismatch
};

/// One payload from repository to repository. What is there already was held against its id when it came.
Transfer TransferPayload(const RepoPtr& inSource, const RepoPtr& inRepo, const ImmutableString& inContentID,
                         ImmutableString& outComputed)
{
    Oid id;
    ConstRecycledMemoryPtr payload;
    if (Oid::FromText(inContentID, id) && git::HasObject(inRepo, id)) return Transfer::Done;
    if (ReadPayloadByContentHash(inSource, inContentID, payload) != ReadResult::Found) return Transfer::Unreadable;
    // An empty payload has an id as well, though a client cannot give one.
    outComputed = payload->empty() ? ImmutableString(git::WriteBlob(inRepo, payload).Text())
                                   : ComputeContentHash(inRepo, payload);
    return outComputed == inContentID ? Transfer::Done : Transfer::Mismatch;
}

std::size_t Helpers()
{
    return std::max(2U, std::thread::hardware_concurrency()) - 1;
}

/// A copy under way. Assets come from several threads at once.
class ContentTransfer
{
public:
    ContentTransfer(const CopySource& inSource, RepoPtr inRepo) : mSource(inSource), mRepo(std::move(inRepo)) {}

    bool TransferAll()
    {
        const auto take = [this](dto::Asset&& inAsset) { return TakeAsset(std::move(inAsset)); };
        return VisitAssets(mSource.mRepo, mSource.mRevision, Helpers(), take) == ReadResult::Found &&
               TransferProductionEnclosures();
    }

    /// In waves: an asset, those that it depends on, those that these depend on.
    bool TransferFromRoot()
    {
        std::vector<ImmutableString> wave{mSource.mRootAssetID};
        std::set<ImmutableString> seen{mSource.mRootAssetID};
        bool isRoot = true;
        while (!wave.empty()) {
            std::vector<ImmutableString> dependent;
            if (!TransferWave(wave, isRoot, dependent)) return false;
            wave.clear();
            for (const ImmutableString& id : dependent) {
                if (seen.insert(id).second) wave.push_back(id);
            }
            isRoot = false;
        }
        return true;
    }

    TransactionChanges TakeChanges()
    {
        const ScopedLock lock(mMutex);
        return std::move(mChanges);
    }
    /// By the assets of a copy from a root.
    [[nodiscard]] std::set<std::string> UsedLocators() const
    {
        const ScopedLock lock(mMutex);
        return mUsedLocators;
    }

private:
    bool TakeAsset(dto::Asset&& inAsset)
    {
        if (!PrepareAsset(mSource.mRepo, mRepo, inAsset)) return false;
        const bool isBin = dto::ReadAssetTraits(inAsset.mProperties).mAssetType == VYCL::GetAssetType_Bin();
        const ScopedLock lock(mMutex);
        mChanges.mAssets.push_back({inAsset.mAssetID, inAsset.mAssetContentID, {}, {}, isBin});
        return true;
    }

    bool TransferWave(const std::vector<ImmutableString>& inWave, bool inIsRoot,
                      std::vector<ImmutableString>& outDependent)
    {
        std::atomic<bool> failed{false};
        noxcore::threads::ShareWork(
            noxcore::threads::IOBoundExecutor(), Helpers(), inWave.size(), [&](std::size_t inIndex) {
                dto::Asset asset;
                if (failed || !IsUsableID(inWave[inIndex])) return;
                const ReadResult result = ReadAsset(mSource.mRepo, mSource.mRevision, inWave[inIndex], asset);
                // What an asset names as its dependents need not be there.
                if (result == ReadResult::Absent && !inIsRoot) return;
                const dto::RawJSON properties = asset.mProperties;
                if (result != ReadResult::Found || !TakeAsset(std::move(asset)) ||
                    !NoteReferences(inWave[inIndex], properties, outDependent)) {
                    failed = true;
                }
            });
        return !failed && (!inIsRoot || IsUsableID(mSource.mRootAssetID));
    }

    bool NoteReferences(const ImmutableString& inAssetID, const dto::RawJSON& inProperties,
                        std::vector<ImmutableString>& outDependent)
    {
        AssetReferences references;
        if (!ReadReferences(inAssetID, inProperties, references)) return false;
        const ScopedLock lock(mMutex);
        for (const std::string& id : references.mDependentAssetIDs)
            outDependent.emplace_back(id);
        mUsedLocators.insert(references.mMediaLocators.begin(), references.mMediaLocators.end());
        return true;
    }

    bool TransferProductionEnclosures()
    {
        std::vector<dto::Enclosure> enclosures;
        if (ReadProductionEnclosures(mSource.mRepo, mSource.mRevision, enclosures) != ReadResult::Found) return false;
        std::atomic<bool> failed{false};
        noxcore::threads::ShareWork(
            noxcore::threads::IOBoundExecutor(), Helpers(), enclosures.size(), [&](std::size_t inIndex) {
                if (!failed && !PrepareProductionEnclosure(mSource.mRepo, mRepo, enclosures[inIndex])) failed = true;
            });
        const ScopedLock lock(mMutex);
        mChanges.mProductionEnclosures = std::move(enclosures);
        return !failed;
    }

    const CopySource& mSource;
    const RepoPtr mRepo;
    mutable RecursiveMutex mMutex{LockRank::Leaf};
    TransactionChanges mChanges GUARDED_BY(mMutex);
    std::set<std::string> mUsedLocators GUARDED_BY(mMutex);
};

/// The revision as a commit's id: a branch may move on while it is read.
bool FixRevision(const CopySource& inSource, CopySource& outFixed)
{
    const CommitPtr commit = ResolveCommit(inSource.mRepo, inSource.mRevision);
    if (!commit) return false;
    outFixed = inSource;
    outFixed.mRevision = commit->ID().Text();
    return true;
}

/// The trees of a revision that a copy takes over; zero where there is none.
bool FindWholeTrees(const CopySource& inSource, WholeContent& outContent)
{
    TreePtr tree;
    if (GetTreeAtRevision(inSource.mRepo, inSource.mRevision, tree) != ReadResult::Found) return false;
    git::TreeEntry entry;
    if (tree->Find("assets", entry)) outContent.mAssets = entry.mOid;
    if (tree->Find("enclosures", entry)) outContent.mProductionEnclosures = entry.mOid;
    return true;
}

bool WriteCopiedLocators(const LocatorRows& inLocators, Lyra2Db::Db& inDb, const RepoPtr& inRepo)
{
    constexpr std::int64_t kFirstChangeCount = 0;  // nothing of the session was exchanged with anybody yet
    if (inLocators.empty()) return true;
    // Beside a commit that lasts, locators that a power cut takes would be missing for ever.
    if (Lyra2Db::WriteMediaLocators(inDb, inLocators, kFirstChangeCount) &&
        inDb.ExecuteCmd("PRAGMA wal_checkpoint(TRUNCATE)") == noxstorage::sqlite::kOK)
        return true;
    LogError("GitBox", "WriteCopiedSessionData: Write media locators failed", {{"path", inRepo->Path()}});
    return false;
}

/// Commits what a whole revision's content was brought over as.
bool WriteCopiedWhole(const WholeContent& inContent, const LocatorRows& inLocators, const RepoPtr& inRepo,
                      Lyra2Db::Db& inDb, CommitPtr& outCommit)
{
    if (WriteWhole(inRepo, inContent, false, MakeCommitMessage(CommitMessageCode::CopiedFromSession), outCommit))
        return WriteCopiedLocators(inLocators, inDb, inRepo);
    LogError("GitBox", "WriteCopiedSessionData: Write failed",
             {{"assets", inContent.mAssets.Text()},
              {"mediaLocatorList", inLocators.size()},
              {"enclosures", inContent.mProductionEnclosures.Text()}});
    return false;
}

bool CopyPreparedData(const CopySource& inSource, LocatorRows inLocators, const dto::RawJSON& inProperties,
                      const RepoPtr& inRepo, const DbPtr& inDb, CommitPtr& outCommit)
{
    CopySource source;
    TransactionChanges changes;
    dto::ProductionProperties properties{inProperties, {}};
    RFC3339DateTime ignored;
    if (!FixRevision(inSource, source) ||
        (inProperties.empty() &&
         !ReadSessionProperties(source.mRepo, source.mRevision, properties.mProperties, ignored)))
        return false;
    WholeContent whole{{}, {}, properties.mProperties};
    if (source.mRootAssetID.empty() && TransferWhole(source, inRepo, Destination::New, whole))
        return WriteCopiedWhole(whole, inLocators, inRepo, *inDb, outCommit);
    // What cannot be brought over as a whole fails asset by asset as well, which tells at which.
    if (!PrepareContent(source, inRepo, changes, inLocators)) return false;
    changes.mProperties = std::move(properties);
    return WriteCopiedSessionData(inRepo, inDb, changes, inLocators,
                                  MakeCommitMessage(CommitMessageCode::CopiedFromSession), outCommit);
}

}  // namespace

bool TransferWhole(const CopySource& inSource, const RepoPtr& inRepo, Destination inDestination,
                   WholeContent& outContent)
{
    WalkAndCopyContext context(inSource.mRepo, inRepo, inDestination == Destination::Filled);
    return FindWholeTrees(inSource, outContent) && (outContent.mAssets.IsZero() || context.Copy(outContent.mAssets)) &&
           (outContent.mProductionEnclosures.IsZero() || context.Copy(outContent.mProductionEnclosures));
}

SessionIDs SessionIDs::Create()
{
    const std::string id = noxcore::utility::Guid::CreateUnique().Text();
    return {ImmutableString(id), ImmutableString("p-" + id)};
}

LocatorRows ToLocatorRows(std::vector<Lyra2Db::StoredRecord> inRecords)
{
    LocatorRows rows;
    rows.reserve(inRecords.size());
    for (Lyra2Db::StoredRecord& record : inRecords) {
        dto::MediaLocator locator;
        if (dto::FromJSON(record.mDTO, locator) && !locator.mMediaLocatorID.empty()) {
            rows.push_back({locator.mMediaLocatorID.Text(), std::move(record.mDTO)});
        } else {
            LogError("GitBox", "Stored media locator is not readable", {{"record", record.mDTO}});
        }
    }
    return rows;
}

bool ReadLocatorRows(Lyra2Db::Db& inDb, LocatorRows& outRows)
{
    std::vector<Lyra2Db::StoredRecord> records;
    if (!Lyra2Db::ReadMediaLocators(inDb, records)) return false;
    outRows = ToLocatorRows(std::move(records));
    return true;
}

bool PrepareAsset(const RepoPtr& inSource, const RepoPtr& inRepo, dto::Asset& ioAsset)
{
    for (const dto::Enclosure& enclosure : ioAsset.mEnclosures) {
        ImmutableString computed;
        switch (TransferPayload(inSource, inRepo, enclosure.mEnclosureContentID, computed)) {
            case Transfer::Done:
                continue;
            case Transfer::Unreadable:
                LogError("GitBox", "PrepareAsset: Cannot read asset enclosure",
                         {{"asset", ioAsset.mAssetID},
                          {"enclosure", enclosure.mEnclosureID},
                          {"contentID", enclosure.mEnclosureContentID}});
                return false;
            case Transfer::Mismatch:
                LogError("GitBox", "PrepareAsset: Asset enclosure content hash mismatch",
                         {{"computedHash", computed},
                          {"expectedHash", enclosure.mEnclosureContentID},
                          {"assetId", ioAsset.mAssetID},
                          {"expression", "computedHash != enclosure.contentId"}});
                return false;
        }
    }
    return ComputeContentHashAndEmbedInAsset(inRepo, ioAsset);
}

bool PrepareProductionEnclosure(const RepoPtr& inSource, const RepoPtr& inRepo, const dto::Enclosure& inEnclosure)
{
    ImmutableString computed;
    const Transfer transfer = TransferPayload(inSource, inRepo, inEnclosure.mEnclosureContentID, computed);
    if (transfer == Transfer::Unreadable) {
        LogError("GitBox", "PrepareProductionEnclosure: Cannot read enclosure",
                 {{"enclosure", inEnclosure.mEnclosureID}, {"contentID", inEnclosure.mEnclosureContentID}});
    } else if (transfer == Transfer::Mismatch) {
        LogError("GitBox", "PrepareProductionEnclosure: Production enclosure content hash mismatch",
                 {{"computedHash", computed},
                  {"expectedHash", inEnclosure.mEnclosureContentID},
                  {"enclosureId", inEnclosure.mEnclosureID},
                  {"expression", "computedHash != inEnclosure.contentId"}});
    }
    return transfer == Transfer::Done;
}

bool PrepareContent(const CopySource& inSource, const RepoPtr& inRepo, TransactionChanges& outChanges,
                    LocatorRows& ioLocators)
{
    CopySource source;
    if (!FixRevision(inSource, source)) return false;
    const bool fromRoot = !source.mRootAssetID.empty();
    WholeContent ignored;
    // What is there already is not transferred again; what fails here fails there, and tells at which asset.
    if (!fromRoot) TransferWhole(source, inRepo, Destination::Filled, ignored);
    ContentTransfer transfer(source, inRepo);
    if (fromRoot ? !transfer.TransferFromRoot() : !transfer.TransferAll()) return false;
    outChanges = transfer.TakeChanges();
    if (fromRoot) {
        const std::set<std::string> used = transfer.UsedLocators();
        std::erase_if(ioLocators, [&](const auto& inRow) { return !used.contains(inRow.mID); });
    }
    return true;
}

bool WriteCopiedSessionData(const RepoPtr& inRepo, const DbPtr& inDb, const TransactionChanges& inChanges,
                            const LocatorRows& inLocators, std::string_view inMessage, CommitPtr& outCommit)
{
    CommitPtr commit;
    std::int64_t bins = 0;
    if (!Write(inRepo, inChanges, false, false, inMessage, commit, bins)) {
        LogError("GitBox", "WriteCopiedSessionData: Write failed",
                 {{"assets", inChanges.mAssets.size()},
                  {"mediaLocatorList", inLocators.size()},
                  {"enclosures", inChanges.mProductionEnclosures.size()}});
        return false;
    }
    if (!WriteCopiedLocators(inLocators, *inDb, inRepo)) return false;
    outCommit = std::move(commit);
    return true;
}

bool CopySessionData(const CopySource& inSource, const LocatorRows& inLocators, const dto::RawJSON& inProperties,
                     const RepoPtr& inRepo, const DbPtr& inDb, CommitPtr& outCommit)
{
    std::string exception;
    try {
        if (CopyPreparedData(inSource, inLocators, inProperties, inRepo, inDb, outCommit)) return true;
    } catch (const std::exception& caught) {
        exception = caught.what();
    }
    LogError("GitBox", "CopySessionData: Unable to copy local session",
             {{"destRepo", inRepo->Path()}, {"srcRepo", inSource.mRepo->Path()}, {"exception", exception}});
    return false;
}

bool CopySession(const CopySource& inSource, const LocatorRows& inLocators, const std::string& inFolder,
                 const SessionIDs& inIDs, const dto::RawJSON& inProperties, RepoPtr& outRepo, DbPtr& outDb,
                 dto::Session& outSession)
{
    CopySource source;
    dto::RawJSON properties = inProperties;
    RFC3339DateTime ignored;
    RepoPtr repo;
    DbPtr db;
    dto::Session session;
    if (!FixRevision(inSource, source) ||
        (properties.empty() && !ReadSessionProperties(source.mRepo, source.mRevision, properties, ignored)) ||
        !InitSession(inFolder, inIDs.mSessionID, inIDs.mProductionID, properties, repo, db, session)) {
        LogError("GitBox", "Unable to initialize new local session for copy",
                 {{"destFolder", inFolder}, {"srcRepo", inSource.mRepo->Path()}});
        return false;
    }
    const ImmutableString& root = source.mRootAssetID.empty() ? source.mNotedRootAssetID : source.mRootAssetID;
    if (!root.empty() && !Files().WriteFileDurably(Join(inFolder, "rootassetid"), root)) {
        LogError("GitBox", "Unable to write the root asset of a copy", {{"destFolder", inFolder}});
        return false;
    }
    CommitPtr commit;
    if (!CopySessionData(source, inLocators, properties, repo, db, commit)) return false;
    // Else they are counted when somebody asks for them.
    if (source.mBinCount && source.mRootAssetID.empty())
        Lyra2Db::WriteBinCount(*db, commit->ID().Text(), *source.mBinCount);
    session.mRevision = commit->ID().Text();
    session.mModified = RFC3339DateTime::FromSeconds(commit->Time());
    session.mSnapshotRootAssetID = root;
    outRepo = std::move(repo);
    outDb = std::move(db);
    outSession = std::move(session);
    return true;
}

}  // namespace VantryLocalHub::GitBox::IO
