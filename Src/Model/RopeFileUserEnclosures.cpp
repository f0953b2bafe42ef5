// User enclosures of a single-file project. The file keeps name and content of each; its other ids are made of these.

#include <algorithm>

#include "Client/VYClient/EnclosureNames.h"
#include "Client/Wire/Asset.h"
#include "Inc/Model/GitBoxIO.h"
#include "Inc/Model/RopeFileDb.h"
#include "Inc/Model/SystemDb.h"
#include "Inc/Model/UserEnclosureIDs.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Platform/noxstorage/GitTrees.h"
#include "Src/Model/RopeFileEntries.h"

namespace VantryLocalHub::GitBox::RopeFile {

namespace git = noxstorage::git;
using Row = Lyra2Db::UserEnclosureRow;

namespace {

constexpr std::string_view kName = "name";
constexpr std::string_view kContent = "content";
constexpr std::string_view kUserDataKeys = "RopeFileUserData/";

bool Fail(std::string_view inMessage, std::string_view inUser, std::string_view inID)
{
    noxcore::logging::LogError(kCategory, inMessage, {{"userID", inUser}, {"enclosureID", inID}});
    return false;
}

bool HasOnlyDashes(std::string_view inText)
{
    return inText.find_first_not_of('-') == std::string_view::npos;
}

/// The folder of a user. Who has not signed in has an empty id, which no entry can have: it stands as one dash, and an
/// id of dashes as one dash more.
std::string EntryOfUser(std::string_view inUser)
{
    return std::string(inUser).append(HasOnlyDashes(inUser) ? "-" : "");
}

std::string UserOfEntry(std::string_view inEntry)
{
    return std::string(HasOnlyDashes(inEntry) ? inEntry.substr(1) : inEntry);
}

std::string UserFolder(std::string_view inUser)
{
    return std::string(kBranch_UserEnclosures).append("/").append(EntryOfUser(inUser));
}

std::string EnclosurePath(std::string_view inUser, std::string_view inSide, std::string_view inID)
{
    return IO::MakeObjectPath(UserFolder(inUser), inSide, inID);
}

bool IsUsable(std::string_view inUser, std::string_view inID)
{
    return git::IsAllowedEntryName(EntryOfUser(inUser)) && IsUsableName(inID);
}

std::string NameOf(std::string_view inDTO)
{
    dto::UserEnclosure record;
    if (!dto::FromJSON(inDTO, record)) return {};
    return record.mName;
}

std::string MakeDTO(std::string_view inID, std::string_view inName, std::string_view inContent)
{
    dto::UserEnclosure record;
    record.mEnclosureID = inID;
    record.mName = inName;
    SetOwnIDs(inContent, record);
    return dto::ToJSON(record);
}

// ---- A user's own data, outside the file. A value is the id, a line feed, and the content.

std::string UserDataKey(std::string_view inUser, std::string_view inName)
{
    return std::string(kUserDataKeys).append(inUser).append("/").append(inName);
}

bool ReadUserData(std::string_view inUser, std::vector<Row>& outRows)
{
    const std::string prefix = UserDataKey(inUser, {});
    std::map<std::string, std::string> values;
    if (!noxnet::IsSuccessfulHTTPStatus(SystemDb::GetSystemEnclosuresWithPrefix(prefix, values))) return false;
    for (const auto& [key, value] : values) {
        const std::size_t end = std::min(value.find('\n'), value.size());
        const std::string id = value.substr(0, end);
        std::string content = end < value.size() ? value.substr(end + 1) : std::string();
        std::string record = MakeDTO(id, std::string_view(key).substr(prefix.size()), content);
        outRows.push_back({std::string(inUser), id, std::move(record), std::move(content)});
    }
    return true;
}

// ---- In the file

/// One enclosure's folder.
bool ReadEnclosure(const RepoPtr& inRepo, std::string_view inUser, const git::TreeEntry& inEntry, Row& outRow)
{
    const TreePtr tree = git::GetTree(inRepo, inEntry.mOid);
    std::string name;
    std::string content;
    if (!tree || ReadText(inRepo, tree, kName, name) == Lyra2Db::Lookup::Failed ||
        ReadText(inRepo, tree, kContent, content) != Lyra2Db::Lookup::Found)
        return Fail("ReadAllSessionData: failed to read user enclosure", inUser, inEntry.mName);
    std::string record = MakeDTO(inEntry.mName, name, content);
    outRow = {std::string(inUser), std::string(inEntry.mName), std::move(record), std::move(content)};
    return true;
}

struct SidedRow
{
    Row mRow;
    std::int64_t mChangeCount = 0;
};

/// What becomes of a list with one that cannot be read. It is told of in any case.
enum class Unreadable
{
    LeftOut,
    Fails
};

/// Those of a user.
bool ReadOfUser(const RepoPtr& inRepo, const TreePtr& inTree, std::string_view inUser, Unreadable inUnreadable,
                std::vector<SidedRow>& outRows)
{
    for (const std::string_view side : kSides) {
        const std::string folder = UserFolder(inUser).append("/").append(side);
        const bool read = ForEachBelowFanOut(inRepo, inTree, folder, [&](const git::TreeEntry& inEntry) {
            SidedRow row{{}, CountOf(side)};
            if (!ReadEnclosure(inRepo, inUser, inEntry, row.mRow)) return inUnreadable == Unreadable::LeftOut;
            outRows.push_back(std::move(row));
            return true;
        });
        if (!read) return false;
    }
    return true;
}

Lyra2Db::Lookup Find(const RepoPtr& inRepo, std::string_view inUser, std::string_view inID, Row& outRow)
{
    using Lyra2Db::Lookup;
    if (!IsUsable(inUser, inID)) return Lookup::Absent;
    TreePtr tree;
    if (!ReadBranch(inRepo, kBranch_UserEnclosures, tree)) return Lookup::Failed;
    for (const std::string_view side : kSides) {
        git::TreeEntry entry;
        const auto answer =
            tree ? git::FindEntry(inRepo, tree, EnclosurePath(inUser, side, inID), entry) : git::Answer::Absent;
        if (answer == git::Answer::Absent) continue;
        entry.mName = inID;
        const bool read = answer == git::Answer::Found && ReadEnclosure(inRepo, inUser, entry, outRow);
        return read ? Lookup::Found : Lookup::Failed;
    }
    std::vector<Row> rows;
    if (!ReadUserData(inUser, rows)) return Lookup::Failed;
    for (Row& row : rows) {
        if (row.mID != inID) continue;
        outRow = std::move(row);
        return Lookup::Found;
    }
    return Lookup::Absent;
}

bool ListUsers(const RepoPtr& inRepo, const TreePtr& inTree, std::vector<std::string>& outUsers)
{
    git::TreeEntry top;
    if (!inTree || !inTree->Find(kBranch_UserEnclosures, top)) return true;
    const TreePtr users = git::GetTree(inRepo, top.mOid);
    if (!users) return false;
    for (const git::TreeEntry& user : *users)
        outUsers.push_back(UserOfEntry(user.mName));
    return true;
}

bool RemoveEnclosure(const RepoPtr& inRepo, const TreeBuilderNodePtr& inRoot, std::string_view inUser,
                     std::string_view inID)
{
    return RemovePath(inRepo, inRoot, EnclosurePath(inUser, kLocal, inID)) &&
           RemovePath(inRepo, inRoot, EnclosurePath(inUser, kRemote, inID));
}

/// The key of what is kept outside; empty for what lies in the file.
std::string PlaceOf(const Row& inRow)
{
    const std::string name = NameOf(inRow.mDTO);
    return VYCL::IsProductionUserDataEnclosureName(name) ? UserDataKey(inRow.mUser, name) : std::string();
}

bool DeleteStored(const RepoPtr& inRepo, const Row& inRow)
{
    const std::string key = PlaceOf(inRow);
    if (!key.empty()) return noxnet::IsSuccessfulHTTPStatus(SystemDb::DeleteSystemEnclosure(key));
    return ChangeBranch(inRepo, kBranch_UserEnclosures, "delete",
                        [&](const TreePtr&, const TreeBuilderNodePtr& inRoot) {
                            return RemoveEnclosure(inRepo, inRoot, inRow.mUser, inRow.mID);
                        });
}

/// Takes an enclosure of another user away: an id stands once in a session.
bool RemoveFromOthers(const RepoPtr& inRepo, const TreePtr& inTree, const TreeBuilderNodePtr& inRoot, const Row& inRow)
{
    std::vector<std::string> users;
    if (!ListUsers(inRepo, inTree, users)) return false;
    return std::all_of(users.begin(), users.end(), [&](const std::string& inUser) {
        return inUser == inRow.mUser || RemoveEnclosure(inRepo, inRoot, inUser, inRow.mID);
    });
}

bool PutEnclosure(const RepoPtr& inRepo, const TreePtr& inTree, const TreeBuilderNodePtr& inRoot, const Row& inRow,
                  std::int64_t inChangeCount)
{
    const std::string path = EnclosurePath(inRow.mUser, SideOf(inChangeCount), inRow.mID);
    return RemoveFromOthers(inRepo, inTree, inRoot, inRow) && RemoveEnclosure(inRepo, inRoot, inRow.mUser, inRow.mID) &&
           PutText(inRepo, inRoot, path + "/name", NameOf(inRow.mDTO)) &&
           PutText(inRepo, inRoot, path + "/content", inRow.mContent);
}

bool WriteOutside(const Row& inRow)
{
    const std::string value = std::string(inRow.mID).append("\n").append(inRow.mContent);
    return noxnet::IsSuccessfulHTTPStatus(SystemDb::AddOrUpdateSystemEnclosure(PlaceOf(inRow), value));
}

/// Each where its name puts it.
bool WriteRows(const RepoPtr& inRepo, const std::vector<Row>& inRows, std::int64_t inChangeCount,
               std::string_view inMessage)
{
    for (const Row& row : inRows) {
        if (!IsUsable(row.mUser, row.mID)) return Fail("No user enclosure can have these ids", row.mUser, row.mID);
        if (!PlaceOf(row).empty() && !WriteOutside(row)) return Fail("Cannot write user enclosure", row.mUser, row.mID);
    }
    const auto put = [&](const TreePtr& inTree, const TreeBuilderNodePtr& inRoot) {
        return std::all_of(inRows.begin(), inRows.end(), [&](const Row& inRow) {
            return !PlaceOf(inRow).empty() || PutEnclosure(inRepo, inTree, inRoot, inRow, inChangeCount);
        });
    };
    return inRows.empty() || ChangeBranch(inRepo, kBranch_UserEnclosures, inMessage, put) ||
           Fail("Cannot write user enclosure", inRows.front().mUser, inRows.front().mID);
}

}  // namespace

bool ReadAllUserEnclosures(const RepoPtr& inRepo, std::vector<Row>& outRows)
{
    TreePtr tree;
    std::vector<std::string> users;
    if (!ReadBranch(inRepo, kBranch_UserEnclosures, tree) || !ListUsers(inRepo, tree, users)) return false;
    std::vector<Row> rows;
    for (const std::string& user : users) {
        std::vector<SidedRow> ofUser;
        // A copy that lacks something would pass for the whole.
        if (!ReadOfUser(inRepo, tree, user, Unreadable::Fails, ofUser)) return false;
        for (SidedRow& row : ofUser)
            rows.push_back(std::move(row.mRow));
    }
    outRows = std::move(rows);
    return true;
}

bool WriteUserEnclosures(const RepoPtr& inRepo, const std::vector<Row>& inRows, std::string_view inMessage)
{
    return WriteRows(inRepo, inRows, 1, inMessage);
}

bool RopeSideDb::WriteUserEnclosure(const Row& inRow, std::int64_t inChangeCount)
{
    return WriteRows(mRepo, {inRow}, inChangeCount, "write");
}

bool RopeSideDb::UpdateUserEnclosure(const Row& inRow, std::int64_t inChangeCount)
{
    Row stored;
    const Lookup found = Find(mRepo, inRow.mUser, inRow.mID, stored);
    if (found != Lookup::Found) return found == Lookup::Absent;
    // A name decides where an enclosure is kept: it stands in the new place before it goes from the old one.
    return WriteUserEnclosure(inRow, inChangeCount) &&
           (PlaceOf(stored) == PlaceOf(inRow) || DeleteStored(mRepo, stored));
}

SideDb::Lookup RopeSideDb::ReadUserEnclosureContent(std::string_view inUser, std::string_view inID,
                                                    std::string& outContent)
{
    Row row;
    const Lookup found = Find(mRepo, inUser, inID, row);
    if (found == Lookup::Found) outContent = std::move(row.mContent);
    return found;
}

SideDb::Lookup RopeSideDb::ReadUserEnclosureMetadata(std::string_view inUser, std::string_view inID,
                                                     std::string& outDTO)
{
    Row row;
    const Lookup found = Find(mRepo, inUser, inID, row);
    if (found == Lookup::Found) outDTO = std::move(row.mDTO);
    return found;
}

bool RopeSideDb::ReadUserEnclosures(std::string_view inUser, std::vector<StoredRecord>& outRecords)
{
    return ReadUserEnclosuresChangedAfter(inUser, kNoChangeCount, outRecords);
}

bool RopeSideDb::ReadUserEnclosuresChangedAfter(std::string_view inUser, std::int64_t inChangeCount,
                                                std::vector<StoredRecord>& outRecords)
{
    TreePtr tree;
    std::vector<SidedRow> rows;
    if (!ReadBranch(mRepo, kBranch_UserEnclosures, tree)) return false;
    if (git::IsAllowedEntryName(EntryOfUser(inUser)) && !ReadOfUser(mRepo, tree, inUser, Unreadable::LeftOut, rows))
        return false;
    const bool localOnly = inChangeCount != kNoChangeCount;
    std::vector<StoredRecord> records;
    for (SidedRow& row : rows)
        if (!localOnly || row.mChangeCount != 0) records.push_back({std::move(row.mRow.mDTO), row.mChangeCount});
    std::vector<Row> outside;
    if (!localOnly && !ReadUserData(inUser, outside)) return false;
    for (Row& row : outside)
        records.push_back({std::move(row.mDTO), 0});
    outRecords = std::move(records);
    return true;
}

bool RopeSideDb::DeleteUserEnclosure(std::string_view inUser, std::string_view inID)
{
    Row stored;
    const Lookup found = Find(mRepo, inUser, inID, stored);
    if (found != Lookup::Found) return found == Lookup::Absent;
    return DeleteStored(mRepo, stored) || Fail("Cannot delete user enclosure", inUser, inID);
}

}  // namespace VantryLocalHub::GitBox::RopeFile
