#pragma once

#include <map>
#include <memory>

#include "Inc/Sync/SyncBox.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace VantryLocalHub {

/// Where media locators are written by clients: first here, then, in jobs of their own, at the remote side. What moves
/// them there and back answers as SyncBox does until a remote hub can be reached.
///
/// Threading: any thread. A session's writers make the reading, merging and writing of one request one step among all
/// that write to the session through here, so that of two edits of one locator neither is lost. Their mutex is held
/// while the store is called (rank MediaLocators, before all of the store); the message that the store posts meanwhile
/// is only queued. mMutex guards the table of them alone.
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
    using Writers = noxcore::threads::RecursiveMutex;
    /// Null with a status for a session that the store does not have, by either of its ids.
    std::shared_ptr<Writers> WritersOf(const ImmutableString& inID, int& outStatus);

    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::MediaLocators};
    std::map<ImmutableString, std::weak_ptr<Writers>> mWriters GUARDED_BY(mMutex);  // session id -> those under way
};

}  // namespace VantryLocalHub
