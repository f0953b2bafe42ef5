#pragma once

#include "Inc/Sync/SyncBox.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace VantryLocalHub {

/// Where media locators are written by clients: first here, then, in jobs of their own, at the remote side. What moves
/// them there and back answers as SyncBox does until a remote hub can be reached.
///
/// Threading: any thread. mMutex makes the reading, merging and writing of one request one step among all that write
/// through here, so that of two edits of one locator neither is lost. It is held while the store is called (rank
/// MediaLocators, before all of the store); the message that the store posts meanwhile is only queued.
class MediaLocatorInterchange : public virtual SyncBox
{
public:
    /// All or none. 200 with the locators as they are stored; 400: one has no id; 404: no such session.
    int AddMediaLocators(const ImmutableString& inSessionID, std::vector<dto::MediaLocator>& ioLocators) override;
    /// A property that an edit names replaces the stored one, all others stay. Edits of one locator follow one another.
    /// All or none: 200 with each locator once, as it is stored; 404, with a record: no such session or locator.
    int EditMediaLocators(const ImmutableString& inSessionID, std::vector<dto::MediaLocator>& ioLocators) override;
    int EditMediaLocators(const ImmutableString& inSessionID, dto::MediaLocator& ioLocator) override;

private:
    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::MediaLocators};
};

}  // namespace VantryLocalHub
