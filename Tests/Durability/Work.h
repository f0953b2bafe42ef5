#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Inc/Model/GitBox.h"
#include "Tests/Durability/Ledger.h"

namespace durability {

using VantryLocalHub::GitBox::GitBox;

constexpr std::string_view kInitialProperties = R"({"name":"Feature"})";
constexpr std::string_view kProductionEnclosure = "eeeeeeee-0000-4000-8000-000000000001";
constexpr int kLocatorsOfABatch = 5;
constexpr std::string_view kUser = "ann";
constexpr const char* kKey = "key";

/// An asset as a commit's number tells it.
struct NumberedAsset
{
    std::string mID;
    std::string mProperties;
    std::map<std::string, std::string> mEnclosures;  ///< name -> payload
};

/// A commit of several assets: new ones with small and large enclosures, one that every commit changes, one that is
/// deleted again, a production enclosure, and the session's properties.
struct NumberedCommit
{
    explicit NumberedCommit(int inNumber);
    std::vector<NumberedAsset> mAssets;
    std::string mDeletedAsset;  ///< of an earlier commit; may not be there
    std::string mProductionPayload;
    std::string mProperties;
};

std::string HashOf(std::string_view inPayload);
std::string LocatorID(int inBatch, int inIndex);
std::string EnclosureID(int inNumber);
std::string EnclosurePayload(int inNumber);

/// Writes into a store, and into the ledger before and after each write: what was begun, and what was answered.
/// A write answers true when the store answered success. Threading: one thread.
class Work
{
public:
    enum class Phase
    {
        Begun,
        Done,
        Refused
    };
    using Listener = std::function<void(Phase, const Write&)>;

    Work(GitBox& inStore, Ledger& ioLedger) : mStore(inStore), mLedger(ioLedger) {}
    /// Called after each change of the ledger.
    void OnChange(Listener inListener) { mListener = std::move(inListener); }

    bool Create();
    bool Commit(const std::string& inSession);
    bool Revert(const std::string& inSession, std::size_t inVersion);
    bool AdvanceProduction(const std::string& inSession, std::size_t inVersion);
    bool ResetProduction(const std::string& inSession, std::size_t inVersion);
    bool Link(const std::string& inSession);
    bool AddSyncPoint(const std::string& inSession);
    bool AddLocators(const std::string& inSession);
    bool Delete(const std::string& inSession);
    /// Of the user, in the system database; the name is one word.
    bool SetPreference(const std::string& inName);
    bool RemovePreference(const std::string& inName);
    /// Where the snapshot lies: among the hub's data.
    static std::string SnapshotFile();
    bool TakeSnapshot(const std::string& inSession);
    bool Copy(const std::string& inSession);
    bool MakeOfSnapshot();
    bool ApplySnapshot(const std::string& inSession);

    // ---- Projects in single files, in the autosave location
    bool CreateFile();
    bool AddUserEnclosure(const std::string& inSession);
    bool SetValue(const std::string& inSession);
    /// Every second revision stays, the first one with them, and the heads.
    bool Thin(const std::string& inSession);
    /// A new project takes the place of one that is there.
    bool OverwriteFile(const std::string& inSession);
    bool CopyOverFile(const std::string& inSource, const std::string& inSession);

    /// One more session is made, every one that is there takes one more write of each kind, and a preference is set;
    /// what is not, else empty.
    std::string GoOn();

private:
    SessionLedger& Of(const std::string& inSession) { return mLedger.mSessions.at(inSession); }
    bool Do(Write inWrite);
    bool Ask(Write& ioWrite);
    bool AskForCreation(Write& ioWrite);
    bool AskForCommit(Write& ioWrite);
    bool AskForLink(const Write& inWrite);
    bool AskForSyncPoint(const Write& inWrite);
    bool AskForCopy(Write& ioWrite);
    bool AskForLocators(const Write& inWrite);
    bool AskForUserEnclosure(const Write& inWrite);
    bool AskForThinning(Write& ioWrite);
    bool AskForFile(Write& ioWrite);

    GitBox& mStore;
    Ledger& mLedger;
    Listener mListener;
};

}  // namespace durability
