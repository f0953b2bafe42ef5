#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Inc/Model/Lyra2Db.h"
#include "Inc/Model/RopeFileBranches.h"
#include "Platform/noxstorage/GitTrees.h"

/// What the kinds of side data of a single-file project have in common: texts in a tree, by side.
namespace VantryLocalHub::GitBox::RopeFile {

constexpr std::string_view kSides[] = {kLocal, kRemote};

/// Whether a text may name an entry below the fan-out. Ids of side data are the client's: any name that a tree takes.
inline bool IsUsableName(std::string_view inID)
{
    return noxstorage::git::IsAllowedEntryName(inID) && noxstorage::git::IsAllowedEntryName(inID.substr(0, 2));
}

/// The name of a media locator's entry: its id, or, for one that no tree takes, an escape of it. The record in the
/// entry has the id as it is.
inline std::string EntryOfLocator(std::string_view inID)
{
    constexpr char kEscape = '%';
    constexpr std::string_view kDigits = "0123456789abcdef";
    if (IsUsableName(inID) && !inID.starts_with(kEscape)) return std::string(inID);
    std::string entry(1, kEscape);
    for (const char byte : inID) {
        const auto value = static_cast<unsigned char>(byte);
        entry += kDigits[value >> 4U];
        entry += kDigits[value & 15U];
    }
    return entry;
}

/// Where a write goes, by the count that it comes with.
constexpr std::string_view SideOf(std::int64_t inChangeCount)
{
    return inChangeCount > 0 ? kLocal : kRemote;
}

constexpr std::string_view OtherSide(std::string_view inSide)
{
    return inSide == kLocal ? kRemote : kLocal;
}

constexpr std::int64_t CountOf(std::string_view inSide)
{
    return inSide == kLocal ? 1 : 0;
}

/// The content of a blob at a path.
inline Lyra2Db::Lookup ReadText(const RepoPtr& inRepo, const TreePtr& inTree, std::string_view inPath,
                                std::string& outText)
{
    noxstorage::git::TreeEntry entry;
    const auto answer = noxstorage::git::FindEntry(inRepo, inTree, inPath, entry);
    if (answer == noxstorage::git::Answer::Absent) return Lyra2Db::Lookup::Absent;
    const auto blob = answer == noxstorage::git::Answer::Found ? noxstorage::git::GetBlob(inRepo, entry.mOid) : nullptr;
    if (!blob) return Lyra2Db::Lookup::Failed;
    outText = blob->Content();
    return Lyra2Db::Lookup::Found;
}

/// Visits the entries of a folder that lie below the first two characters of their names; none where the folder is
/// absent. False when one cannot be read or the visitor says so.
template <class Visitor>
bool ForEachBelowFanOut(const RepoPtr& inRepo, const TreePtr& inTree, std::string_view inFolder,
                        const Visitor& inVisitor)
{
    noxstorage::git::TreeEntry folder;
    const auto answer =
        inTree ? noxstorage::git::FindEntry(inRepo, inTree, inFolder, folder) : noxstorage::git::Answer::Absent;
    if (answer != noxstorage::git::Answer::Found) return answer == noxstorage::git::Answer::Absent;
    const TreePtr buckets = noxstorage::git::GetTree(inRepo, folder.mOid);
    if (!buckets) return false;
    for (const noxstorage::git::TreeEntry& bucket : *buckets) {
        const TreePtr tree = noxstorage::git::GetTree(inRepo, bucket.mOid);
        if (!tree) return false;
        for (const noxstorage::git::TreeEntry& entry : *tree)
            if (!inVisitor(entry)) return false;
    }
    return true;
}

/// Writes many as not exchanged yet; those that belong in the file with one commit.
bool WriteUserEnclosures(const RepoPtr& inRepo, const std::vector<Lyra2Db::UserEnclosureRow>& inRows,
                         std::string_view inMessage);
/// Those of all users that lie in the file.
bool ReadAllUserEnclosures(const RepoPtr& inRepo, std::vector<Lyra2Db::UserEnclosureRow>& outRows);

}  // namespace VantryLocalHub::GitBox::RopeFile
