#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Tools/hubctl/HubAPI.h"
#include "Tools/hubctl/ProgressBar.h"
#include "Tools/hubctl/Rows.h"

namespace hubctl {

struct ImportSettings
{
    std::string mName;                             ///< of the new production
    std::size_t mMaxRows = 1000;                   ///< assets in one request
    std::uint64_t mMaxBytes = 8ULL * 1024 * 1024;  ///< of one request, unless a single asset has more
    std::function<bool()> mShouldStop;             ///< asked between requests; true gives the import up
};

enum class ChangeKind
{
    Added,
    Edited,
    Removed
};

/// What became of one asset between two commits.
struct Change
{
    ChangeKind mKind = ChangeKind::Added;
    std::string mAssetID;
    std::string mName;
};

/// "added", "edited", "removed".
const char* TextOf(ChangeKind inKind);

/// The assets whose content differs, in the order of the later list, removed ones last. Names are left empty.
std::vector<Change> CompareAssets(const std::vector<dto::CondensedAsset>& inBefore,
                                  const std::vector<dto::CondensedAsset>& inAfter);

struct ImportOutcome
{
    std::string mSessionID;
    std::string mProductionID;
    std::string mImportCommit;
    std::string mEditCommit;
    std::size_t mBins = 0;
    std::size_t mClips = 0;  ///< all that are no bins
    std::size_t mPayloads = 0;
    std::uint64_t mPayloadBytes = 0;
    std::vector<Remark> mRemarks;  ///< of the source first, then of files that failed while they were sent
    std::vector<Change> mChanges;  ///< from the first commit to the second
};

/// Makes a production of rows: all of them in one transaction, sent in requests of bounded size; then edits one asset
/// in a second transaction and compares the two commits.
///
/// A failure rolls the open transaction back: what was not committed leaves nothing in the production, which itself
/// stays. Threading: one thread.
class Importer
{
public:
    Importer(HubAPI& inAPI, ProgressBar& inProgress) : mAPI(inAPI), mProgress(inProgress) {}

    /// False with the reason, and what became of the transaction, in outError; outOutcome then tells how far it came.
    bool Run(RowSource& inRows, const ImportSettings& inSettings, ImportOutcome& outOutcome, std::string& outError);

private:
    class Batch;
    using Fill = std::function<bool(const std::string& inTransaction, std::string& outError)>;

    bool CreateProduction(const ImportSettings& inSettings, ImportOutcome& ioOutcome, std::string& outError);
    bool InTransaction(const std::string& inSession, const char* inMessage, const Fill& inFill, std::string& outCommit,
                       std::string& outError);
    std::string RollBack(const std::string& inTransaction, bool inCommitMayHaveRun);
    bool SendRows(const std::string& inTransaction, RowSource& inRows, const ImportSettings& inSettings,
                  ImportOutcome& ioOutcome, std::string& outError);
    bool SendBatch(const std::string& inTransaction, Batch& ioBatch, ImportOutcome& ioOutcome, std::string& outError);
    static bool CountTaken(const Batch& inBatch, const dto::TransactionResult& inResult, ImportOutcome& ioOutcome,
                           std::string& outError);
    bool EditOne(const std::string& inTransaction, const ImportOutcome& inOutcome, std::string& outError);
    bool CompareCommits(ImportOutcome& ioOutcome, std::string& outError);

    HubAPI& mAPI;
    ProgressBar& mProgress;
    std::string mAssetToEdit;
};

}  // namespace hubctl
