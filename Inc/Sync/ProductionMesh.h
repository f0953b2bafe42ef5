#pragma once

#include "Inc/Sync/SyncBox.h"

namespace VantryLocalHub {

/// Presents the user's productions as one, though they come from local sessions and from the remote hub's list. Also
/// the way by which a commit reaches the engine.
///
/// Threading: any thread. Locks: none; a rollback runs under its session's job lock.
class ProductionMesh : public virtual SyncBox
{
public:
    void GetProductionList(SessionListCompletion inCompletion) override;
    using SyncBox::GetProductionList;
    void GetArchivedProductionList(SessionListCompletion inCompletion) override;
    using SyncBox::GetArchivedProductionList;
    int GetProduction(const ImmutableString& inProductionID, dto::Session& outProduction) override;
    int CreateSession(const dto::ProductionProperties& inProperties, const ImmutableString& inUserEmail,
                      bool inLocalOnly, dto::Session& outSession) override;
    int OpenSnapshot(const std::string& inZipFile, const ImmutableString& inRootAssetID,
                     const dto::ProductionProperties& inProperties, bool inCreateSession,
                     dto::Session& outSession) override;
    int CloseSnapshot(const ImmutableString& inSessionID) override;
    int CommitTransaction(const ImmutableString& inTransactionID, const CommitMessage& inMessage,
                          const ImmutableString& inResolveStrategy, CommitOutcome& outOutcome) override;
    void RollbackSessionToRevision(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                   SessionCompletion inCompletion) override;
    /// Thins the history of a single-file project to its head, its sync points and the revisions that a client gave a
    /// message of its own. 400: not a single-file project; 423: somebody else uses it now.
    void CompactSession(const ImmutableString& inSessionID, StatusCompletion inCompletion) override;

    /// 201 and the copy. To the remote hub, or a file: 501.
    void CopyProduction(const ImmutableString& inProductionID, const ImmutableString& inRevision,
                        const dto::ProductionProperties& inProperties, const std::string& inLocation, bool inLocalOnly,
                        SessionCompletion inCompletion) override;

private:
    class Copy;
    class Rollback;

    static void WeakCopySession(const std::weak_ptr<SyncBox>& inEngine, ProductionMesh* inMesh,
                                const std::shared_ptr<Copy>& inCopy);
    void CopySession(const std::shared_ptr<Copy>& inCopy);

    static void WeakTryRollbackSessionToRevision(const std::weak_ptr<SyncBox>& inEngine, ProductionMesh* inMesh,
                                                 const std::shared_ptr<Rollback>& inRollback);
    void TryRollbackSessionToRevision(const std::shared_ptr<Rollback>& inRollback);
    int RunRollbackJob(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                       const std::shared_ptr<JobLock>& inLock, ImmutableString& outRevision);
    void PushAfterRollback(const ImmutableString& inSessionID, std::shared_ptr<JobLock> inLock);
    void HideFromViewer(std::vector<dto::Session>& ioSessions);
    void ShareCommit(const CommitOutcome& inOutcome);
};

}  // namespace VantryLocalHub
