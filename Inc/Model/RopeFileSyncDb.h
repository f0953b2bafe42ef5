#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Inc/Model/ProjectBoxSyncDb.h"
#include "Inc/Model/RopeFile.h"
#include "Inc/Model/RopeFileBranches.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace VantryLocalHub::GitBox::RopeFile {

/// Says in a repository whether its project stays here.
bool WriteMode(const RepoPtr& inRepo, bool inLocalOnly);

/// The sync points of a repository, oldest first, and another one behind them; nothing is written for a pair of
/// revisions that is the last already.
bool ReadSyncPoints(const RepoPtr& inRepo, std::vector<SyncPoint>& outPoints);
bool AppendSyncPoint(const RepoPtr& inRepo, const SyncPoint& inPoint);
/// Says of all points that are there that they belong to earlier associations: those have no remote session to name,
/// and none of them is the latest one.
bool CloseSyncPoints(const RepoPtr& inRepo);

/// Who has the repository of a single-file project, open or to be opened.
class RepoSource
{
public:
    virtual ~RepoSource() = default;
    virtual bool RetainRepo(RepoPtr& outRepo) = 0;
};

/// What a single-file project knows about its counterpart on a remote hub, in branches of its repository. It has at
/// most one association; a sync point is a commit, and which of them are newer is the order of their chain.
///
/// Threading: any thread. mMutex is held over each operation, once the repository is open (rank SyncDb).
class SyncDb final : public ProjectBoxSyncDb
{
public:
    explicit SyncDb(std::weak_ptr<RepoSource> inSource) : mSource(std::move(inSource)) {}

    /// The remote session of the association; false where there is none.
    bool GetRemoteSessionID(ImmutableString& outSessionID);

    /// The repository is the session's to close.
    void ReleaseDb() override {}
    bool ReadCurrentRemoteAssociation(RemoteAssociation& outAssociation) override;
    bool ReadLatestSyncPoint(SyncPoint& outPoint) override;
    bool WriteUserID(const ImmutableString& inUserID, const ImmutableString& inCorvaneID) override;
    /// Takes the place of the one before.
    bool WriteAssociationForSync(const AssociationForSync& inAssociation) override;
    bool InvalidateAssociationForSync(const AssociationForSync& inAssociation) override;
    /// True as well, with nothing written, for a pair of revisions that is the latest already. There is no change
    /// count.
    bool WriteSyncPoint(const SyncPoint& inPoint, std::int64_t& outChangeCount) override;
    bool ReadSyncPointForLocalRevision(const ImmutableString& inRevision, SyncPoint& outPoint) override;
    bool ReadSyncPointForRemoteRevision(const ImmutableString& inRevision, SyncPoint& outPoint) override;
    bool ReadSyncPointRevisions(std::vector<ImmutableString>& outLocal,
                                std::vector<ImmutableString>& outRemote) override;
    bool SetMediaLocatorSyncChangeCount(const SyncChangeCount& inCount) override;
    bool ResetMediaLocatorSyncChangeCount() override;
    bool SetUserEnclosureSyncChangeCount(const SyncChangeCount& inCount) override;
    bool ResetUserEnclosureSyncChangeCount() override;
    bool SetUserEnclosureSyncEtag(const ImmutableString& inEtag) override;
    bool ReadDeletedDate(std::string& outDate) override;
    bool WriteDeletedDate(const std::string& inDate) override;
    bool RemoveDeletedDate() override;
    bool ResolveRestoredRemoteRevision(const ImmutableString& inRemoteRevision,
                                       ImmutableString& outLatestRemoteRevision) override;
    bool IsLocalOnly() override;
    bool WriteSynchronizedMode() override;
    bool WriteLocalOnlyMode() override;
    bool ReadLocalOnly(bool& outLocalOnly) override;
    bool ReadLinkState(LinkState& outState) override;

    /// Forgets whose the project is.
    bool RemoveUserIDs();

private:
    template <class Function>
    bool WithRepo(const Function& inFunction);

    const std::weak_ptr<RepoSource> mSource;
    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::SyncDb};
};

}  // namespace VantryLocalHub::GitBox::RopeFile
