#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Inc/Model/RopeFile.h"
#include "Inc/Model/RopeFileBranches.h"

/// Copies of sessions into single-file projects, and of such projects with less history.
///
/// Content goes over in the form in which the source's file has it (GitTransfer.h): two threads take 2 MB or one
/// large object each, besides some 200 bytes for each object that is copied.
namespace VantryLocalHub::GitBox::RopeFile {

/// The message of the side branches' commits in a copy.
constexpr std::string_view kCopyMessage = "RopeFile::CopySessionDataToRepo";

/// Values that tell of a session's own revisions and writes, and nothing of its copy's.
inline constexpr std::array<std::string_view, 7> kNotCopied = {"BinCount",
                                                               "BinCountRevision",
                                                               "ChangeCount",
                                                               "LastMediaLocatorWrite",
                                                               "LastModifiedMediaLocator",
                                                               "LastUserEnclosureWrite",
                                                               "SizeInfo"};

/// What a session keeps beside its history, for a copy: nothing of it has been exchanged with anybody.
struct SessionData
{
    std::vector<Lyra2Db::StoredRecord> mLocators;
    std::vector<Lyra2Db::UserEnclosureRow> mUserEnclosures;
    Lyra2Db::KeyValues mValues = {};             ///< of the session, but for what tells of one of its revisions
    std::optional<std::int64_t> mBinCount = {};  ///< at mBinCountRevision, where it is known
    ImmutableString mBinCountRevision = {};
};

/// Writes it into a file, each kind as one commit; what the file has of the same ids is replaced.
bool CopySessionDataToRepo(const RepoPtr& inRepo, const SessionData& inData);

namespace IO {

/// A new project of the session as it is at a revision, without its history; under ids of its own. The statuses of
/// CreateRopeFile; 404: no such revision. After a failure nothing is left of the file.
int CopyToRopeFile(const RepoPtr& inSource, const std::string& inRevision, const SessionData& inData,
                   const std::string& inFile, bool inOverwrite, OpenFile& outFile);

/// A new file of the same project with some of its revisions alone: those of `session` and of `production` that are
/// named, by commit ids, the head of `session` where none of it is, and that of `production` in any case. Trees,
/// messages, authors and committers stay; commits have new ids. The side branches come along with their heads' trees,
/// and the sync points whose local revisions were kept. 200, or what CreateRopeFile answers; after a failure nothing is
/// left of the file. inPlace: as there.
int ThinHistoryToRopeFile(const RepoPtr& inSource, const std::vector<ImmutableString>& inRevisions,
                          const std::string& inFile, const std::string& inPlace = {});

}  // namespace IO

}  // namespace VantryLocalHub::GitBox::RopeFile
