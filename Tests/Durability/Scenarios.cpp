#include "Tests/Durability/Scenarios.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "Client/VYClient/Environment.h"
#include "Inc/Model/GitBoxSandboxes.h"
#include "Inc/Model/SessionDeletion.h"
#include "Platform/noxcore/DebugDatabase.h"
#include "Platform/noxstorage/SQLite3OdbBackend.h"

namespace durability {

using testing_support::FolderImage;

namespace {

constexpr const char* kMaxBlobSize = "400000";  ///< the largest payloads are split
constexpr int kLargestNext = 9;                 ///< after this number comes a commit with a largest payload
constexpr const char* kKnownPreference = "known";

/// The files as they lie while the store is open.
Beginning Leave(TestHub& inHub)
{
    Beginning beginning;
    beginning.mHome = testing_support::ReadFolderImage(inHub.Home());
    beginning.mLedger = inHub.GetLedger();
    beginning.mLedger.mLastNumber = std::max(beginning.mLedger.mLastNumber, kLargestNext);
    if (!beginning.mLedger.mSessions.empty()) beginning.mSession = beginning.mLedger.mSessions.begin()->first;
    return beginning;
}

std::string OtherSession(const Ledger& inLedger, const std::string& inSession)
{
    for (const auto& [id, session] : inLedger.mSessions)
        if (id != inSession) return id;
    return {};
}

const Beginning& Nothing()
{
    static const Beginning beginning{{}, {}, {}};
    return beginning;
}

const Beginning& NewSession()
{
    static const Beginning beginning = [] {
        TestHub hub({}, {}, TestHub::Ids::OfTheFirst);
        hub.Open();
        hub.MakeWork().Create();
        return Leave(hub);
    }();
    return beginning;
}

const Beginning& SessionAtWork()
{
    static const Beginning beginning = [] {
        const Beginning& made = NewSession();
        TestHub hub(made.mHome, made.mLedger, TestHub::Ids::OfTheBeginning);
        hub.GetLedger().mLastNumber = 0;
        hub.Open();
        Work work = hub.MakeWork();
        work.Commit(made.mSession);
        work.Link(made.mSession);
        work.AddSyncPoint(made.mSession);
        work.Commit(made.mSession);
        work.AddLocators(made.mSession);
        work.AdvanceProduction(made.mSession, 1);
        work.SetPreference(kKnownPreference);
        return Leave(hub);
    }();
    return beginning;
}

const Beginning& SessionWithLargePayloads()
{
    static const Beginning beginning = [] {
        const Beginning& work = SessionAtWork();
        TestHub hub(work.mHome, work.mLedger, TestHub::Ids::OfTheBeginning);
        hub.Open();
        hub.MakeWork().Commit(work.mSession);
        return Leave(hub);
    }();
    return beginning;
}

/// A snapshot lies there, and the session has moved on since.
const Beginning& SessionWithSnapshot()
{
    static const Beginning beginning = [] {
        const Beginning& work = SessionAtWork();
        TestHub hub(work.mHome, work.mLedger, TestHub::Ids::OfTheBeginning);
        hub.GetLedger().mLastNumber = 2;
        hub.Open();
        Work more = hub.MakeWork();
        if (!more.TakeSnapshot(work.mSession)) std::abort();
        more.Commit(work.mSession);
        return Leave(hub);
    }();
    return beginning;
}

/// A second session whose deletion was killed after its mark.
const Beginning& DeletionCutOff()
{
    static const Beginning beginning = [] {
        const Beginning& work = SessionAtWork();
        TestHub hub(work.mHome, work.mLedger, TestHub::Ids::OfTheBeginning);
        hub.Open();
        hub.MakeWork().Create();
        for (auto& [id, session] : hub.GetLedger().mSessions) {
            if (id == work.mSession) continue;
            const auto folder = VantryLocalHub::GitBox::Sandboxes::Instance()->FindSandbox(id)->GetFolder();
            if (VantryLocalHub::GitBox::SessionDeletion::Mark(folder)) {
                session.mPresence = SessionLedger::Presence::Gone;
            }
        }
        Beginning left = Leave(hub);
        left.mSession = work.mSession;
        return left;
    }();
    return beginning;
}

const Beginning& NewFile()
{
    static const Beginning beginning = [] {
        TestHub hub({}, {}, TestHub::Ids::OfTheFirst);
        hub.Open();
        hub.MakeWork().CreateFile();
        return Leave(hub);
    }();
    return beginning;
}

/// Some of everything that a file can hold.
void FillFile(TestHub& inHub, const std::string& inSession)
{
    Work work = inHub.MakeWork();
    work.Commit(inSession);
    work.Link(inSession);
    work.AddSyncPoint(inSession);
    work.Commit(inSession);
    work.AddSyncPoint(inSession);
    work.Commit(inSession);
    work.AddLocators(inSession);
    work.AddUserEnclosure(inSession);
    work.SetValue(inSession);
    work.AdvanceProduction(inSession, 1);
}

const Beginning& FileAtWork()
{
    static const Beginning beginning = [] {
        const Beginning& made = NewFile();
        TestHub hub(made.mHome, made.mLedger, TestHub::Ids::OfTheBeginning);
        hub.GetLedger().mLastNumber = 0;
        hub.Open();
        FillFile(hub, made.mSession);
        return Leave(hub);
    }();
    return beginning;
}

/// A file at work and a session folder beside it.
const Beginning& FileAndFolder()
{
    static const Beginning beginning = [] {
        const Beginning& file = FileAtWork();
        TestHub hub(file.mHome, file.mLedger, TestHub::Ids::OfTheScenario);
        hub.GetLedger().mLastNumber = 0;
        hub.Open();
        Work work = hub.MakeWork();
        work.Create();
        const std::string folder = OtherSession(hub.GetLedger(), file.mSession);
        work.Commit(folder);
        work.AddLocators(folder);
        Beginning left = Leave(hub);
        left.mSession = file.mSession;
        return left;
    }();
    return beginning;
}

/// The process was killed in the midst of a commit: what was overwritten lies in the journal.
const Beginning& FileWithAJournal()
{
    static const Beginning beginning = [] {
        const Beginning& work = FileAtWork();
        TestHub hub(work.mHome, work.mLedger, TestHub::Ids::OfTheBeginning);
        hub.Vfs().StartRecording(hub.Home());
        hub.Open();
        hub.MakeWork().SetValue(work.mSession);
        Beginning left = work;
        left.mLedger = hub.GetLedger();
        std::size_t moment = hub.Vfs().RecordedEvents();
        hub.MakeWork().Commit(work.mSession);
        const auto recording = hub.Vfs().StopRecording();
        const auto isWritten = [&](const testing_support::FileEvent& inEvent) {
            return inEvent.mOperation == testing_support::FileOperation::Write && inEvent.mPath.ends_with(".lyr");
        };
        while (!isWritten(recording.Events().at(moment++)))
            continue;
        left.mHome = recording.AfterKill(moment);
        return left;
    }();
    return beginning;
}

/// From split rows to whole ones, and back.
void TurnTheRepository(TestHub& inHub, const std::string& inSession)
{
    inHub.Store().DowngradeRepository(inSession);
    inHub.Store().UpgradeRepository(inSession);
}

void IndexAndCheckpoint(TestHub&, const std::string& inSession)
{
    VantryLocalHub::GitBox::Sandbox::Handles handles;
    const auto sandbox = VantryLocalHub::GitBox::Sandboxes::Instance()->FindSandbox(inSession);
    if (sandbox->RetainDB(handles)) noxstorage::git::SQLite3OdbBackend::Checkpoint(handles.mRepo);
}

void Read(TestHub& inHub, const std::string& inSession)
{
    VantryLocalHub::dto::Session session;
    inHub.Store().GetSession(inSession, session);
    VantryLocalHub::SyncPoint point;
    inHub.Store().ReadLatestSyncPoint(inSession, point);
}

void ChangePreferences(TestHub& inHub, const std::string&)
{
    Work work = inHub.MakeWork();
    work.SetPreference("new");
    work.SetPreference(kKnownPreference);
    work.RemovePreference(kKnownPreference);
}

/// Its files are open when the session goes.
void ReadAndDelete(TestHub& inHub, const std::string& inSession)
{
    Read(inHub, inSession);
    inHub.MakeWork().Delete(inSession);
}

void ChangeSideData(TestHub& inHub, const std::string& inSession)
{
    Work work = inHub.MakeWork();
    work.AddLocators(inSession);
    work.AddUserEnclosure(inSession);
    work.SetValue(inSession);
    work.AddSyncPoint(inSession);
}

void CopyOverFile(TestHub& inHub, const std::string& inSession)
{
    inHub.MakeWork().CopyOverFile(OtherSession(inHub.GetLedger(), inSession), inSession);
}

/// Closed and opened again by the next write.
void CloseAndCommit(TestHub& inHub, const std::string& inSession)
{
    Read(inHub, inSession);
    inHub.Rest();
    inHub.MakeWork().Commit(inSession);
}

void OpenAndRead(TestHub& inHub, const std::string& inSession)
{
    inHub.Open();
    Read(inHub, inSession);
}

}  // namespace

const std::vector<Scenario>& Scenarios()
{
    static const std::vector<Scenario> scenarios = {
        {"Creation", Nothing, [](TestHub& inHub, const std::string&) { inHub.MakeWork().Create(); }},
        {"Commit", SessionAtWork, [](TestHub& inHub, const std::string& inID) { inHub.MakeWork().Commit(inID); }},
        {"FirstLink", NewSession, [](TestHub& inHub, const std::string& inID) { inHub.MakeWork().Link(inID); }},
        {"SyncPoint", SessionAtWork,
         [](TestHub& inHub, const std::string& inID) { inHub.MakeWork().AddSyncPoint(inID); }},
        {"Revert", SessionAtWork, [](TestHub& inHub, const std::string& inID) { inHub.MakeWork().Revert(inID, 1); }},
        {"AdvanceProduction", SessionAtWork,
         [](TestHub& inHub, const std::string& inID) { inHub.MakeWork().AdvanceProduction(inID, 2); }},
        {"ResetProduction", SessionAtWork,
         [](TestHub& inHub, const std::string& inID) { inHub.MakeWork().ResetProduction(inID, 0); }},
        {"MediaLocators", SessionAtWork,
         [](TestHub& inHub, const std::string& inID) { inHub.MakeWork().AddLocators(inID); }},
        {"Deletion", SessionAtWork, ReadAndDelete},
        {"FirstPreference", Nothing,
         [](TestHub& inHub, const std::string&) { inHub.MakeWork().SetPreference("first"); }},
        {"Preferences", SessionAtWork, ChangePreferences},
        {"OpeningWhatADeletionLeft", DeletionCutOff, OpenAndRead, true},
        {"DowngradeAndUpgrade", SessionWithLargePayloads, TurnTheRepository},
        {"Copy", SessionAtWork, [](TestHub& inHub, const std::string& inID) { inHub.MakeWork().Copy(inID); }},
        {"SessionOfASnapshot", SessionWithSnapshot,
         [](TestHub& inHub, const std::string&) { inHub.MakeWork().MakeOfSnapshot(); }},
        {"AppliedSnapshot", SessionWithSnapshot,
         [](TestHub& inHub, const std::string& inID) { inHub.MakeWork().ApplySnapshot(inID); }},
        {"IndexAndCheckpoint", SessionAtWork, IndexAndCheckpoint},
        {"OpeningWhatAKilledProcessLeft", SessionAtWork, OpenAndRead, true},
        {"FileCreation", Nothing, [](TestHub& inHub, const std::string&) { inHub.MakeWork().CreateFile(); }},
        {"FileCommit", FileAtWork, [](TestHub& inHub, const std::string& inID) { inHub.MakeWork().Commit(inID); }},
        {"FileFirstLink", NewFile, [](TestHub& inHub, const std::string& inID) { inHub.MakeWork().Link(inID); }},
        {"FileRevert", FileAtWork, [](TestHub& inHub, const std::string& inID) { inHub.MakeWork().Revert(inID, 1); }},
        {"FileProduction", FileAtWork,
         [](TestHub& inHub, const std::string& inID) { inHub.MakeWork().AdvanceProduction(inID, 2); }},
        {"FileSideData", FileAtWork, ChangeSideData},
        {"FileClosing", FileAtWork, CloseAndCommit},
        {"FileCompaction", FileAtWork, [](TestHub& inHub, const std::string& inID) { inHub.MakeWork().Thin(inID); }},
        {"FileOverwriting", FileAtWork,
         [](TestHub& inHub, const std::string& inID) { inHub.MakeWork().OverwriteFile(inID); }},
        {"FileOverwritingAfterAKill", FileWithAJournal,
         [](TestHub& inHub, const std::string& inID) { inHub.MakeWork().OverwriteFile(inID); }},
        {"FileCopiedOver", FileAndFolder, CopyOverFile},
        {"FileDeletion", FileAtWork, ReadAndDelete},
        {"OpeningAFileThatAKilledProcessLeft", FileAtWork, OpenAndRead, true},
        {"OpeningAFileThatWasBeingWritten", FileWithAJournal, OpenAndRead, true},
    };
    return scenarios;
}

HomeFolder::HomeFolder()
    : mPath([] {
          static const testing_support::TempFolder root;
          return root / "home";
      }()),
      mAside(std::filesystem::exists(mPath) ? mPath + "-of-another" : std::string())
{
    if (mAside.empty()) return;
    if (std::filesystem::exists(mAside)) std::abort();  // there are two of them at most
    std::filesystem::rename(mPath, mAside);
}

HomeFolder::~HomeFolder()
{
    std::filesystem::remove_all(mPath);
    if (!mAside.empty()) std::filesystem::rename(mAside, mPath);
}

TestHub::TestHub(const FolderImage& inHome, Ledger inLedger, Ids inIds)
    : mScheduler(std::make_shared<testing_support::VirtualScheduler>(static_cast<std::uint64_t>(inIds))),
      mContext(mScheduler->MakeContext(mLog, mFiles)),
      mScope(mContext),
      mVfs(std::make_unique<testing_support::FaultVfs>(mContext)),
      mLedger(std::move(inLedger))
{
    testing_support::WriteFolderImage(inHome, mHome.Path());
    mContext->SetInstance<VYCL::Environment>(std::make_shared<VYCL::FixedEnvironment>(
        mHome.Path(), std::map<std::string, std::string, std::less<>>{{"TMPDIR", mTemporary.Path()}}));
    noxcore::debug::DebugDatabase::Instance()->SetEntry("VY.Config.LocalHub.ODB.MaxBlobSize", kMaxBlobSize);
    mFiles->ReportTo(mVfs.get());
}

TestHub::~TestHub()
{
    Close();
    mFiles->ReportTo(nullptr);
    mVfs.reset();
}

void TestHub::Open()
{
    mStore = std::make_shared<GitBox>(true);
}

void TestHub::Close()
{
    mStore.reset();
    mScheduler->RunUntilIdle();
}

void TestHub::Rest()
{
    mScheduler->Advance(1000);
    mStore->ReleaseUnusedDB(mContext->GetClock().MonotonicTicks());
    mScheduler->Advance(1000);
}

std::string TestHub::Log() const
{
    std::string text;
    for (const auto& record : mLog->All())
        text += "\n    " + record.Text();
    return text;
}

bool TriesAllPoints()
{
    return std::getenv("HUB_TEST_ALL_POINTS") != nullptr;  // NOLINT(concurrency-mt-unsafe): only read
}

std::vector<std::size_t> ChosenPoints(std::size_t inCount, std::size_t inWanted, std::uint64_t inSeed)
{
    const std::size_t step = TriesAllPoints() ? 1 : std::max<std::size_t>(1, inCount / inWanted);
    std::vector<std::size_t> points;
    for (std::size_t point = inSeed % step; point < inCount; point += step)
        points.push_back(point);
    return points;
}

}  // namespace durability
