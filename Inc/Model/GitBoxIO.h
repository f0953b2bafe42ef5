#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Inc/Model/StoreRecords.h"
#include "Platform/noxstorage/Git.h"
#include "Platform/noxstorage/SQLite.h"

/// What a session folder and its repository hold, read and written. The tree at a commit:
///
///     properties, productionid, sessionid                             blobs: JSON; the two ids as plain text
///     assets/<xx>/<assetID>/properties                                blob: JSON
///     assets/<xx>/<assetID>/enclosures/<enclosureID>/name, content    blobs
///     enclosures/<xx>/<enclosureID>/name, content                     blobs; no name entry where the name is empty
///     conflict/conflict                                               blob: marker of the properties
///     conflict/assets/<xx>/<assetID>/conflict                         blob: marker of an asset
///     conflict/enclosures/<xx>/<enclosureID>/conflict                 blob: marker of a production enclosure
///
/// <xx> are the first two characters of the id. An asset's content id is the id of its tree, an enclosure's that of its
/// payload's blob, a revision that of a commit. History is linear; branch `session` is the working history, branch
/// `production` what has been agreed with the production.
///
/// Functions give true on success; a failure is logged where it is seen, and out arguments keep their values.
/// Threading: any thread. Locks: none; whoever writes `session` holds the sandbox's write mutex.
namespace VantryLocalHub::GitBox::IO {

using noxstorage::git::CommitPtr;
using noxstorage::git::Oid;
using noxstorage::git::RepoPtr;
using noxstorage::git::TreePtr;
using DbPtr = std::shared_ptr<noxstorage::sqlite::Db>;

constexpr std::string_view kFolderSuffix = "lyra2";
constexpr std::string_view kDataModelVersion = "2.0.1";
constexpr std::string_view kDataModelVersion_1 = "1.0.1";
constexpr std::string_view kSuiteClientVersion = "2025";

/// Formats of a repository; the numbers are the format's own.
enum class RepositoryFormat
{
    Unknown = 0,
    Version_1_0_1 = 257,
    Version_2_0_1 = 513
};
RepositoryFormat RepositoryFormatFromText(std::string_view inDataModel);

/// The two texts of a session's `version` file.
struct VersionRecord
{
    ImmutableString mDataModel;
    ImmutableString mSuiteClient;

    static constexpr auto kFields = std::tuple{dto::Always("dataModel", &VersionRecord::mDataModel),
                                               dto::Always("suiteClient", &VersionRecord::mSuiteClient)};
    static constexpr bool kMayBeWrapped = true;
    friend bool operator==(const VersionRecord&, const VersionRecord&) = default;
};
inline const VersionRecord kVersionRecord_1_0_1{"1.0.1", "2017"};
inline const VersionRecord kVersionRecord_2_0_1{"2.0.1", "2017"};

/// Whether a session with this record can be read by this program.
bool IsSupportedVersion(const VersionRecord& inVersion);
bool WriteVersion(const std::string& inFolder, const VersionRecord& inVersion);
bool ReadVersion(const std::string& inFolder, VersionRecord& outVersion);

/// The largest row of a repository of the current data model, as configured: above 0 and at most 500 MB, else the
/// default.
std::size_t MaxBlobSize();

/// A folder with `git` and `sessionid`, without `deleted`, and the suffix in its name.
bool IsLiveSessionFolder(const std::string& inFolder);

// ---- Sessions

/// Makes a session's folder, databases, repository and first commit. Durable on return.
bool InitSession(const std::string& inFolder, const ImmutableString& inSessionID, const ImmutableString& inProductionID,
                 const dto::RawJSON& inProperties, RepoPtr& outRepo, DbPtr& outDb, dto::Session& outSession);
/// The same over a folder that holds an extracted repository already: it gets the new ids and becomes a session.
bool InitSessionFromSnapshot(const std::string& inFolder, const ImmutableString& inSessionID,
                             const ImmutableString& inProductionID, RepoPtr& outRepo, DbPtr& outDb,
                             dto::Session& outSession);
/// Opens a session's repository and reads its record. Refuses one of another version, or whose files and blobs name
/// different ids.
bool ReadSessionRepo(const std::string& inFolder, RepoPtr& outRepo, dto::Session& outSession);
/// Gives a copied repository new identifiers: one commit, on both branches.
bool ReInitRepo(const std::string& inFolder, const ImmutableString& inSessionID, const ImmutableString& inProductionID);
/// The tree of a revision, with the identifiers that the head has where those of the revision are others: a session
/// that was made of a packed one has revisions from before it got its own. Zero when it cannot be read or written.
noxstorage::git::Oid TreeUnderOwnIDs(const RepoPtr& inRepo, const CommitPtr& inRevision);
/// The properties at a revision, and the commit's time. Refuses properties that are no JSON object.
bool ReadSessionProperties(const RepoPtr& inRepo, std::string_view inRevision, dto::RawJSON& outProperties,
                           RFC3339DateTime& outTime);

// ---- History

/// How a read went; a failure is never told as absence.
using ReadResult = noxstorage::git::Answer;

/// The commit of a revision: a commit id, a branch name, or "HEAD" and the empty text for branch `session`. What is
/// absent is logged as a failed storage operation.
ReadResult ResolveCommit(const RepoPtr& inRepo, std::string_view inRevision, CommitPtr& outCommit);
/// The same; null for either reason.
CommitPtr ResolveCommit(const RepoPtr& inRepo, std::string_view inRevision);
/// What one commit says of itself; its number in the history is not counted.
StoredVersion ReadVersion(const CommitPtr& inCommit);
/// Versions from a place of a branch's chain, newest first; outTotal is the length of the chain. A commit with several
/// parents ends the walk with a record; what was collected stays.
bool ReadSessionHistory(const RepoPtr& inRepo, std::string_view inBranch, std::size_t inStart, std::size_t inCount,
                        std::vector<StoredVersion>& outVersions, std::size_t& outTotal);
/// From a commit along first parents until the root or the stop revision. False when a commit cannot be read.
bool ListVersionsFromCommit(const RepoPtr& inRepo, const CommitPtr& inFrom, std::string_view inStop,
                            const std::function<bool(const CommitPtr&)>& inVisitor);
/// Writes a commit with the tree and message of a revision on branch `production`.
bool SetProductionCommitContentHash(const RepoPtr& inRepo, std::string_view inRevision, bool inUseBackup,
                                    ImmutableString& outRevision, RFC3339DateTime& outTime);
/// True unless both revisions exist and have the same tree; two that do not exist count as equal, one that cannot be
/// read as another.
bool DifferInContent(const RepoPtr& inRepo, std::string_view inLeft, std::string_view inRight);

// ---- Reading

/// The tree of a revision, with which every read by revision begins, and its commit for who asks. Either both are set
/// or neither.
ReadResult GetTreeAtRevision(const RepoPtr& inRepo, std::string_view inRevision, TreePtr& outTree,
                             CommitPtr* outCommit = nullptr);
/// The object of a content id, where it is one of the type.
ReadResult FindContent(const RepoPtr& inRepo, std::string_view inContentID, noxstorage::git::ObjectType inType,
                       Oid& outOid);
ReadResult ReadAsset(const RepoPtr& inRepo, std::string_view inRevision, const ImmutableString& inAssetID,
                     dto::Asset& outAsset);
/// Absent: no tree of an asset has this id.
ReadResult ReadAssetByContentHash(const RepoPtr& inRepo, const ImmutableString& inContentID,
                                  const ImmutableString& inAssetID, dto::Asset& outAsset);
/// All assets of a revision, in the order of their ids' buckets.
ReadResult ReadAssets(const RepoPtr& inRepo, std::string_view inRevision, bool inWithEnclosures,
                      std::vector<dto::Asset>& outAssets);
/// Calls the visitor with each asset, enclosures and all, one at a time on each of several threads; false stops.
ReadResult VisitAssets(const RepoPtr& inRepo, std::string_view inRevision, std::size_t inHelpers,
                       const std::function<bool(dto::Asset&&)>& inVisitor);
/// Whether the properties of a revision and of its assets are JSON objects, as who reads them takes for granted: looked
/// at where a repository comes from elsewhere.
bool HasReadableProperties(const RepoPtr& inRepo, std::string_view inRevision);
/// The ids of all assets of a revision, in the same order.
ReadResult ReadAssetIDs(const RepoPtr& inRepo, std::string_view inRevision, std::vector<ImmutableString>& outIDs);
/// Number of assets of type bin.
bool CountBins(const RepoPtr& inRepo, std::string_view inRevision, std::int64_t& outCount);
ReadResult ReadAssetEnclosure(const RepoPtr& inRepo, std::string_view inRevision, const ImmutableString& inAssetID,
                              const ImmutableString& inEnclosureID, ConstRecycledMemoryPtr& outPayload);
ReadResult ReadProductionEnclosure(const RepoPtr& inRepo, std::string_view inRevision,
                                   const ImmutableString& inEnclosureID, dto::Enclosure& outEnclosure,
                                   ConstRecycledMemoryPtr& outPayload);
ReadResult ReadProductionEnclosures(const RepoPtr& inRepo, std::string_view inRevision,
                                    std::vector<dto::Enclosure>& outEnclosures);
ReadResult ReadPayloadByContentHash(const RepoPtr& inRepo, const ImmutableString& inContentID,
                                    ConstRecycledMemoryPtr& outPayload);
/// Names and content ids of the enclosures of an asset, without payloads.
bool ReadEnclosuresProperties(const RepoPtr& inRepo, const TreePtr& inTree, std::vector<dto::Enclosure>& outEnclosures);
/// The same for the fan-out level of the production enclosures.
bool ReadEnclosuresPropertiesWithPrefixSubtree(const RepoPtr& inRepo, const TreePtr& inTree,
                                               std::vector<dto::Enclosure>& outEnclosures);

// ---- Content

/// Stores a payload and gives its id; empty for an empty payload, which is not stored, and on failure.
ImmutableString ComputeContentHash(const RepoPtr& inRepo, const ConstRecycledMemoryPtr& inPayload);
/// One tree for several assets. Each replaces the entry of the one before, so the id depends on the last.
ImmutableString ComputeContentHash(const RepoPtr& inRepo, const std::vector<dto::Asset>& inAssets);
/// Writes the asset's tree and sets its content id and etag.
bool ComputeContentHashAndEmbedInAsset(const RepoPtr& inRepo, dto::Asset& ioAsset);
/// The etag of an asset with this content.
inline ImmutableString EtagOfContent(const ImmutableString& inContentID)
{
    return inContentID;
}

// ---- Writing

/// The only way by which edits reach the repository: one commit on `session` with the changes. With inKeepBackup the
/// previous head stays reachable (single-file projects). outBinDelta: how many more assets of type bin there are now.
bool Write(const RepoPtr& inRepo, const TransactionChanges& inChanges, bool inClearConflicts, bool inKeepBackup,
           std::string_view inMessage, CommitPtr& outCommit, std::int64_t& outBinDelta);

/// What a session is to consist of, as trees that its repository has.
struct WholeContent
{
    Oid mAssets;                ///< zero: there are none
    Oid mProductionEnclosures;  ///< likewise
    dto::RawJSON mProperties;
};

/// The same for a session that is to consist of this and nothing else.
bool WriteWhole(const RepoPtr& inRepo, const WholeContent& inContent, bool inKeepBackup, std::string_view inMessage,
                CommitPtr& outCommit);

/// "<prefix>/<subtree>/<xx>/<id>/<leaf>", without the parts that are empty.
std::string MakeObjectPath(std::string_view inPrefix, std::string_view inSubtree, std::string_view inID,
                           std::string_view inLeaf = {});

/// Where the conflict marker of the session's properties stands, and that of a thing below "assets" or "enclosures".
constexpr std::string_view kSessionMarkerPath = "conflict/conflict";
inline std::string MarkerPath(std::string_view inSubtree, std::string_view inID)
{
    return MakeObjectPath("conflict", inSubtree, inID, "conflict");
}

}  // namespace VantryLocalHub::GitBox::IO
