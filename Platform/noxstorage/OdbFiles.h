#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "Platform/noxcore/RecursiveMutex.h"

namespace noxstorage::git::odb {

/// What a hub knows of its repositories' files beyond the store that has one open: a file has one writer at a time,
/// and how the last one ended decides what the next one has to look after.
///
/// Threading: any thread. mMutex guards the table (rank Leaf).
class FileRegistry
{
public:
    /// How writers of this process left a file.
    struct Legacy
    {
        bool mDoubtful = false;     ///< a sync failed, and no checkpoint has written the log into the file since
        bool mLostContent = false;  ///< objects that were taken on never became durable; stays for the hub's life
    };

    /// The registry of the current hub.
    static std::shared_ptr<FileRegistry> Current();

    /// Makes the caller the file's one writer; false when there is one.
    bool Claim(const std::string& inFile, Legacy& outLegacy);
    /// What a file is, whatever it is called: device and inode; zeros: none.
    using FileID = std::pair<std::uint64_t, std::uint64_t>;
    static FileID IDOf(const std::string& inPath);

    /// Notes which file the writer has found or made at the path. False while there is another use of that.
    bool NoteOpened(const std::string& inFile);
    /// The path at which a writer has noted the file; empty where none has.
    std::string PathOf(const FileID& inFile);
    /// Keeps writers from what lies at a path, under whatever name, and from whatever comes to lie there, until
    /// EndOtherUse. False where one has noted it.
    bool BeginOtherUse(const std::string& inPath, const FileID& inFile);
    void EndOtherUse(const std::string& inPath, const FileID& inFile);
    /// The writer has gone, or will never write.
    void Release(const std::string& inFile, const Legacy& inLegacy);

private:
    [[nodiscard]] std::string PathOfLocked(const FileID& inFile) const REQUIRES(mMutex);

    struct Entry
    {
        bool mClaimed = false;
        Legacy mLegacy;
        FileID mID;
    };
    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    std::map<std::string, Entry> mEntries GUARDED_BY(mMutex);
    std::multiset<FileID> mFilesInOtherUse GUARDED_BY(mMutex);
    std::multiset<std::string> mPathsInOtherUse GUARDED_BY(mMutex);
};

}  // namespace noxstorage::git::odb
