#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Client/Wire/Asset.h"
#include "Client/Wire/Differences.h"
#include "Client/Wire/Session.h"
#include "Client/Wire/Transaction.h"
#include "Platform/noxcore/ImmutableString.h"
#include "Platform/noxcore/RecycledMemory.h"

namespace VantryLocalHub {

using noxappsupport::cloudservice::RFC3339DateTime;
using noxcore::utility::ConstRecycledMemoryPtr;
using noxcore::utility::ImmutableString;

/// Whether a text may be the id of an asset: word characters and hyphens, which are safe as a name in a tree, and more
/// than two of them, for a folder of two is the level above the assets.
[[nodiscard]] inline bool IsUsableID(std::string_view inID)
{
    constexpr std::size_t kFanOut = 2;
    return inID.size() > kFanOut && std::all_of(inID.begin(), inID.end(), [](char inCharacter) {
               return (inCharacter >= 'a' && inCharacter <= 'z') || (inCharacter >= 'A' && inCharacter <= 'Z') ||
                      (inCharacter >= '0' && inCharacter <= '9') || inCharacter == '_' || inCharacter == '-';
           });
}

/// An enclosure on its way into the store: with its payload, or naming by content id one that the store has.
struct EnclosureContent
{
    dto::Enclosure mEnclosure;
    ConstRecycledMemoryPtr mPayload;  ///< null where the content id alone is given
    /// Of a production enclosure that was put together from what there was: the transaction's own, or an empty record
    /// where it had none. It is taken only while that is still so.
    std::optional<dto::Enclosure> mMergedFrom = std::nullopt;
};

/// An asset on its way into the store. The enclosures stand here, not in the record.
struct AssetContent
{
    dto::Asset mAsset;
    std::vector<EnclosureContent> mEnclosures;
    /// Of an edit that was put together from what there was: the content id of the transaction's own asset, or an empty
    /// one where it had none. The edit is taken only while that is still so.
    std::optional<ImmutableString> mMergedFrom = std::nullopt;
};

/// What kind of session is to be made.
enum class SessionKind
{
    LocalOnly,     ///< a folder under `local`
    Synchronized,  ///< a folder under `synchronized`
    RopeFile       ///< a single file
};

/// Who changes a media locator or user enclosure.
enum class WriteMode
{
    LocalEdit = 0,  ///< counts as a change and stamps times and users
    SyncEngine = 1  ///< keeps the record's own times and users, does not touch the change counter, and counts as known
                    ///< to the remote side
};

/// Tells whether anything of a kind of side data was written since: equal while nothing was. The session's change count
/// at the last write, with a number after it where several writes left the counter where it was.
struct SideDataTags
{
    ImmutableString mMediaLocators;
    ImmutableString mUserEnclosures;
};

/// Message of a commit, as text for the repository.
struct CommitMessage
{
    std::string mText;
};

/// One asset or production enclosure in a difference, with the id of its tree on each side (an asset's content id);
/// empty where it is absent.
struct AssetChange
{
    ImmutableString mID;
    ImmutableString mFromContentID;
    ImmutableString mToContentID;
};

/// A thing in conflict that was seen in a range of history.
struct ConflictChange
{
    enum class Kind
    {
        Asset,
        ProductionEnclosure,
        SessionProperties
    };
    Kind mKind = Kind::Asset;
    ImmutableString mID;  ///< empty for the session's properties
    dto::ConflictMarker mMarker;
};

/// The assets of a revision: a list of many megabytes that everybody who reads it shares.
using AssetList = std::vector<dto::Asset>;
using AssetListPtr = std::shared_ptr<const AssetList>;

/// What changed between two revisions of a session.
struct SessionDifferences
{
    std::vector<AssetChange> mAddedAssets;
    std::vector<AssetChange> mEditedAssets;
    std::vector<AssetChange> mDeletedAssets;
    std::vector<AssetChange> mAddedEnclosures;
    std::vector<AssetChange> mEditedEnclosures;
    std::vector<AssetChange> mDeletedEnclosures;
    std::vector<ConflictChange> mConflicts;
    ImmutableString mFromRevision;
    ImmutableString mToRevision;
    ImmutableString mFromProperties;  ///< blob ids; both empty where the properties are equal
    ImmutableString mToProperties;
};

/// One version of a session's history, as the store keeps it.
struct StoredVersion
{
    ImmutableString mCommitID;
    std::string mAuthorName;
    std::string mAuthorEmail;
    std::string mCommitter;
    std::string mMessage;
    RFC3339DateTime mTime;
    std::vector<ImmutableString> mParents;
    std::int64_t mVersionNumber = 0;  ///< 1 for the first of the session; 0 for one that was read without its history
};

/// An asset that a transaction added, edited or restored. There may be very many: all else is in the store already,
/// under the content id.
struct ChangedAsset
{
    ImmutableString mAssetID;
    ImmutableString mAssetContentID;
    ImmutableString mBaseCommitID;            ///< of an asset in conflict
    ImmutableString mConflictsWithContentID;  ///< of an asset in conflict
    bool mIsBin = false;
};

/// What a closed transaction hands to its commit.
struct TransactionChanges
{
    std::vector<ChangedAsset> mAssets;
    std::set<ImmutableString> mDeletedAssets;
    std::vector<dto::Enclosure> mProductionEnclosures;
    std::optional<dto::ProductionProperties> mProperties;
    std::set<ImmutableString> mDeletedProductionEnclosures = {};
};

/// What the sync engine learns of a commit.
struct CommitOutcome
{
    dto::Session mSession;
    ImmutableString mPreviousRevision;
    std::string mMessage;
    std::set<ImmutableString> mRestoredAssets;
};

}  // namespace VantryLocalHub
