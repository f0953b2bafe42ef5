#include "Platform/noxstorage/OdbFiles.h"

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

void FileRegistry::Release(const std::string& inFile, const Legacy& inLegacy)
{
    const ScopedLock lock(mMutex);
    if (inLegacy.mDoubtful || inLegacy.mLostContent)
        mEntries[inFile] = {false, inLegacy};
    else
        mEntries.erase(inFile);
}

}  // namespace noxstorage::git::odb
