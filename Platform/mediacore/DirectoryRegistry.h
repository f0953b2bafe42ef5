#pragma once

#include <map>
#include <string>
#include <string_view>

#include "Platform/noxcore/RecursiveMutex.h"

namespace TFL {

/// Folders by key, for parts of the media core that know only the key. One per HubContext.
///
/// Threading: any thread; the mutex guards the map (rank Leaf).
class DirectoryRegistry
{
public:
    /// The path ends with "/". A key that is there gets the new path.
    static void RegisterDirectory(std::string_view inKey, std::string_view inPath);
    /// Empty when there is no such key.
    static std::string FindDirectory(std::string_view inKey);

private:
    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    std::map<std::string, std::string, std::less<>> mPaths GUARDED_BY(mMutex);
};

}  // namespace TFL
