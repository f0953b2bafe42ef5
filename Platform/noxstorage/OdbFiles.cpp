#include "Platform/noxstorage/OdbFiles.h"

#include <sys/stat.h>

#include <algorithm>

#include "Platform/noxcore/HubContext.h"

namespace noxstorage::git::odb {

using noxcore::threads::ScopedLock;

std::shared_ptr<FileRegistry> FileRegistry::Current()
{
    return noxcore::HubContext::Current()->GetOrCreateInstance<FileRegistry>();
}

bool FileRegistry::Claim(const std::string& inFile, Legacy& outLegacy)
{
    const ScopedLock lock(mMutex);
    Entry& entry = mEntries[inFile];
    if (entry.mClaimed) return false;
    entry.mClaimed = true;
    outLegacy = entry.mLegacy;
    return true;
}

FileRegistry::FileID FileRegistry::IDOf(const std::string& inPath)
{
    struct stat state = {};
    if (::stat(inPath.c_str(), &state) != 0) return {};
    return {static_cast<std::uint64_t>(state.st_dev), static_cast<std::uint64_t>(state.st_ino)};
}

bool FileRegistry::NoteOpened(const std::string& inFile)
{
    const FileID id = IDOf(inFile);
    const ScopedLock lock(mMutex);
    mEntries[inFile].mID = id;
    return !mPathsInOtherUse.contains(inFile) && (id == FileID() || !mFilesInOtherUse.contains(id));
}

std::string FileRegistry::PathOf(const FileID& inFile)
{
    const ScopedLock lock(mMutex);
    return PathOfLocked(inFile);
}

std::string FileRegistry::PathOfLocked(const FileID& inFile) const
{
    if (inFile == FileID()) return {};
    const auto found = std::find_if(mEntries.begin(), mEntries.end(), [&](const auto& inEntry) {
        return inEntry.second.mClaimed && inEntry.second.mID == inFile;
    });
    return found == mEntries.end() ? std::string() : found->first;
}

bool FileRegistry::BeginOtherUse(const std::string& inPath, const FileID& inFile)
{
    const ScopedLock lock(mMutex);
    if (!PathOfLocked(inFile).empty()) return false;
    mFilesInOtherUse.insert(inFile);
    mPathsInOtherUse.insert(inPath);
    return true;
}

void FileRegistry::EndOtherUse(const std::string& inPath, const FileID& inFile)
{
    const ScopedLock lock(mMutex);
    if (const auto use = mFilesInOtherUse.find(inFile); use != mFilesInOtherUse.end()) mFilesInOtherUse.erase(use);
    if (const auto use = mPathsInOtherUse.find(inPath); use != mPathsInOtherUse.end()) mPathsInOtherUse.erase(use);
}

void FileRegistry::Release(const std::string& inFile, const Legacy& inLegacy)
{
    const ScopedLock lock(mMutex);
    if (inLegacy.mDoubtful || inLegacy.mLostContent)
        mEntries[inFile] = {false, inLegacy, {}};
    else
        mEntries.erase(inFile);
}

}  // namespace noxstorage::git::odb
