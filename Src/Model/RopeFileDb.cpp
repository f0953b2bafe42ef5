// Key values and media locators of a single-file project.

#include "Inc/Model/RopeFileDb.h"

#include <charconv>

#include "Inc/Model/GitBoxIO.h"
#include "Platform/noxcore/Logging.h"
#include "Src/Model/RopeFileEntries.h"

namespace VantryLocalHub::GitBox::RopeFile {

namespace git = noxstorage::git;
using noxcore::logging::LogError;

namespace {

constexpr std::string_view kBinCount = "BinCount";
constexpr std::string_view kBinCountRevision = "BinCountRevision";

std::string KeyPath(std::string_view inSection, std::string_view inKey)
{
    return std::string(kBranch_KeyValue).append("/").append(inSection).append("/").append(inKey);
}

std::string LocatorPath(std::string_view inSide, std::string_view inID)
{
    return IO::MakeObjectPath(kBranch_MediaLocators, inSide, EntryOfLocator(inID));
}

bool Fail(std::string_view inMessage, std::string_view inID)
{
    LogError(kCategory, inMessage, {{"id", inID}});
    return false;
}

bool PutLocator(const RepoPtr& inRepo, const TreeBuilderNodePtr& inRoot, std::string_view inID, std::string_view inDTO,
                std::int64_t inChangeCount)
{
    return RemovePath(inRepo, inRoot, LocatorPath(OtherSide(SideOf(inChangeCount)), inID)) &&
           PutText(inRepo, inRoot, LocatorPath(SideOf(inChangeCount), inID), inDTO);
}

/// The locator of an id in the tree of their branch.
Db::Lookup FindLocator(const RepoPtr& inRepo, const TreePtr& inTree, std::string_view inID, Db::StoredRecord& outRecord)
{
    if (!inTree || inID.empty()) return Db::Lookup::Absent;
    for (const std::string_view side : kSides) {
        std::string text;
        const Db::Lookup found = ReadText(inRepo, inTree, LocatorPath(side, inID), text);
        if (found == Db::Lookup::Absent) continue;
        if (found == Db::Lookup::Found) outRecord = {std::move(text), CountOf(side)};
        return found;
    }
    return Db::Lookup::Absent;
}

bool ReadLocatorsOfSides(const RepoPtr& inRepo, bool inLocalOnly, std::vector<Db::StoredRecord>& outRecords)
{
    TreePtr tree;
    if (!ReadBranch(inRepo, kBranch_MediaLocators, tree)) return false;
    std::vector<Db::StoredRecord> records;
    for (const std::string_view side : kSides) {
        if (inLocalOnly && side != kLocal) continue;
        const std::string folder = std::string(kBranch_MediaLocators).append("/").append(side);
        const bool read = ForEachBelowFanOut(inRepo, tree, folder, [&](const git::TreeEntry& inEntry) {
            const auto blob = git::GetBlob(inRepo, inEntry.mOid);
            if (blob) records.push_back({std::string(blob->Content()), CountOf(side)});
            return blob != nullptr;
        });
        if (!read) return false;
    }
    outRecords = std::move(records);
    return true;
}

}  // namespace

namespace Db {

Lookup ReadValue(const RepoPtr& inRepo, std::string_view inSection, std::string_view inKey, std::string& outValue)
{
    TreePtr tree;
    if (!ReadBranch(inRepo, kBranch_KeyValue, tree)) return Lookup::Failed;
    return tree ? ReadText(inRepo, tree, KeyPath(inSection, inKey), outValue) : Lookup::Absent;
}

bool WriteValue(const RepoPtr& inRepo, std::string_view inSection, std::string_view inKey, std::string_view inValue)
{
    return ChangeBranch(inRepo, kBranch_KeyValue, "write",
                        [&](const TreePtr&, const TreeBuilderNodePtr& inRoot) {
                            return PutText(inRepo, inRoot, KeyPath(inSection, inKey), inValue);
                        }) ||
           Fail("Cannot write a value", inKey);
}

bool WriteValues(const RepoPtr& inRepo, const Lyra2Db::KeyValues& inValues, std::string_view inMessage)
{
    const auto put = [&](const TreePtr&, const TreeBuilderNodePtr& inRoot) {
        return std::all_of(inValues.begin(), inValues.end(), [&](const auto& inValue) {
            return PutText(inRepo, inRoot, KeyPath(kSection_Session, inValue.first), inValue.second);
        });
    };
    return inValues.empty() || ChangeBranch(inRepo, kBranch_KeyValue, inMessage, put) ||
           Fail("Cannot write a value", inValues.begin()->first);
}

bool ReadBinCount(const RepoPtr& inRepo, std::string_view inRevision, std::int64_t& outCount)
{
    std::string revision;
    std::string text;
    if (ReadValue(inRepo, kSection_Session, kBinCountRevision, revision) != Lookup::Found || revision != inRevision ||
        ReadValue(inRepo, kSection_Session, kBinCount, text) != Lookup::Found)
        return false;
    std::int64_t count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    if (error != std::errc() || end != text.data() + text.size()) return false;
    outCount = count;
    return true;
}

bool WriteBinCount(const RepoPtr& inRepo, std::string_view inRevision, std::int64_t inCount)
{
    return ChangeBranch(inRepo, kBranch_KeyValue, "bincount",
                        [&](const TreePtr&, const TreeBuilderNodePtr& inRoot) {
                            return PutText(inRepo, inRoot, KeyPath(kSection_Session, kBinCount),
                                           std::to_string(inCount)) &&
                                   PutText(inRepo, inRoot, KeyPath(kSection_Session, kBinCountRevision), inRevision);
                        }) ||
           Fail("Cannot write the number of bins", inRevision);
}

bool CountMediaLocators(const RepoPtr& inRepo, std::int64_t& outCount)
{
    TreePtr tree;
    if (!ReadBranch(inRepo, kBranch_MediaLocators, tree)) return false;
    std::int64_t count = 0;
    for (const std::string_view side : kSides) {
        const std::string folder = std::string(kBranch_MediaLocators).append("/").append(side);
        const auto add = [&count](const git::TreeEntry&) {
            ++count;
            return true;
        };
        if (!ForEachBelowFanOut(inRepo, tree, folder, add)) return false;
    }
    outCount = count;
    return true;
}

bool ReadKeyValues(const RepoPtr& inRepo, Lyra2Db::KeyValues& outKeyValues)
{
    TreePtr tree;
    if (!ReadBranch(inRepo, kBranch_KeyValue, tree)) return false;
    Lyra2Db::KeyValues values;
    for (const std::string_view section : {kSection_Session, kSection_Sync}) {
        git::TreeEntry folder;
        const std::string path = std::string(kBranch_KeyValue).append("/").append(section);
        const git::Answer answer = tree ? git::FindEntry(inRepo, tree, path, folder) : git::Answer::Absent;
        if (answer == git::Answer::Absent) continue;
        const TreePtr keys = answer == git::Answer::Found ? git::GetTree(inRepo, folder.mOid) : nullptr;
        if (!keys) return false;
        for (const git::TreeEntry& entry : *keys) {
            const auto blob = git::GetBlob(inRepo, entry.mOid);
            if (!blob) return false;
            values[std::string(section).append("/").append(entry.mName)] = blob->Content();
        }
    }
    outKeyValues = std::move(values);
    return true;
}

bool ReadAllSessionData(const RepoPtr& inRepo, std::vector<StoredRecord>& outLocators,
                        std::vector<Lyra2Db::UserEnclosureRow>& outUserEnclosures, Lyra2Db::KeyValues& outKeyValues)
{
    const auto fail = [](std::string_view inMessage) {
        LogError(kCategory, inMessage);
        return false;
    };
    if (!ReadLocatorsOfSides(inRepo, false, outLocators))
        return fail("ReadAllSessionData: failed to read media locators");
    if (!ReadAllUserEnclosures(inRepo, outUserEnclosures))
        return fail("ReadAllSessionData: failed to read user enclosures");
    if (!ReadKeyValues(inRepo, outKeyValues)) return fail("ReadAllSessionData: failed to read key value table");
    return true;
}

}  // namespace Db

bool RopeSideDb::WriteMediaLocator(std::string_view inID, std::string_view inDTO, std::int64_t inChangeCount)
{
    const Lyra2Db::MediaLocatorRow row{std::string(inID), std::string(inDTO)};
    return WriteMediaLocators({&row, 1}, inChangeCount);
}

bool RopeSideDb::WriteMediaLocators(std::span<const Lyra2Db::MediaLocatorRow> inRows, std::int64_t inChangeCount)
{
    for (const Lyra2Db::MediaLocatorRow& row : inRows)
        if (row.mID.empty()) return Fail("No media locator can have this id", row.mID);
    return ChangeBranch(mRepo, kBranch_MediaLocators, "write",
                        [&](const TreePtr&, const TreeBuilderNodePtr& inRoot) {
                            return std::all_of(inRows.begin(), inRows.end(), [&](const auto& inRow) {
                                return PutLocator(mRepo, inRoot, inRow.mID, inRow.mDTO, inChangeCount);
                            });
                        }) ||
           Fail("Cannot write media locators", inRows.empty() ? std::string() : inRows.front().mID);
}

bool RopeSideDb::TakeBackMediaLocators(std::span<const Lyra2Db::MediaLocatorRow> inWritten,
                                       const Lyra2Db::RecordsBefore& inBefore)
{
    const auto takeBack = [&](const TreePtr& inTree, const TreeBuilderNodePtr& inRoot) {
        for (std::size_t place = 0; place < inWritten.size(); ++place) {
            const std::string& id = inWritten[place].mID;
            const auto& before = inBefore[place];
            StoredRecord stored;
            const Lookup found = FindLocator(mRepo, inTree, id, stored);
            if (found == Lookup::Failed) return false;
            if (found == Lookup::Absent || stored.mDTO != inWritten[place].mDTO) continue;
            const bool isDone = before ? PutLocator(mRepo, inRoot, id, before->mDTO, before->mChangeCount)
                                       : RemovePath(mRepo, inRoot, LocatorPath(kLocal, id)) &&
                                             RemovePath(mRepo, inRoot, LocatorPath(kRemote, id));
            if (!isDone) return false;
        }
        return true;
    };
    return ChangeBranch(mRepo, kBranch_MediaLocators, "write", takeBack) ||
           Fail("Cannot take back media locators", inWritten.empty() ? std::string() : inWritten.front().mID);
}

bool RopeSideDb::UpdateMediaLocator(std::string_view inID, std::string_view inDTO, std::int64_t inChangeCount)
{
    StoredRecord stored;
    const Lookup found = ReadMediaLocator(inID, stored);
    return found == Lookup::Absent || (found == Lookup::Found && WriteMediaLocator(inID, inDTO, inChangeCount));
}

SideDb::Lookup RopeSideDb::ReadMediaLocator(std::string_view inID, StoredRecord& outRecord)
{
    TreePtr tree;
    return ReadBranch(mRepo, kBranch_MediaLocators, tree) ? FindLocator(mRepo, tree, inID, outRecord) : Lookup::Failed;
}

bool RopeSideDb::ReadMediaLocatorsByID(std::span<const std::string_view> inIDs, const RowVisitor& inVisitor)
{
    TreePtr tree;
    if (!ReadBranch(mRepo, kBranch_MediaLocators, tree)) return false;
    for (std::size_t place = 0; place < inIDs.size(); ++place) {
        StoredRecord record;
        const Lookup found = FindLocator(mRepo, tree, inIDs[place], record);
        if (found == Lookup::Failed) return false;
        if (found == Lookup::Found) inVisitor(place, record);
    }
    return true;
}

bool RopeSideDb::ReadMediaLocators(std::vector<StoredRecord>& outRecords)
{
    return ReadLocatorsOfSides(mRepo, false, outRecords);
}

bool RopeSideDb::ReadMediaLocatorsChangedAfter(std::int64_t inChangeCount, std::vector<StoredRecord>& outRecords)
{
    return ReadLocatorsOfSides(mRepo, inChangeCount != kNoChangeCount, outRecords);
}

bool RopeSideDb::ReadLastModifiedMediaLocatorTime(RFC3339DateTime&)
{
    return false;
}

bool RopeSideDb::WriteLastModifiedMediaLocatorTime(const RFC3339DateTime&)
{
    return true;
}

}  // namespace VantryLocalHub::GitBox::RopeFile
