#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Inc/Model/Lyra2Db.h"
#include "Tests/Support/FaultVfs.h"
#include "Tests/Support/StoreTest.h"

namespace testing_support {

/// A store with one session, whose databases can be made to fail, and what is said of its changes.
class SideDataFixture : public StoreTest
{
protected:
    SideDataFixture() { mLog->Clear(); }
    ~SideDataFixture() override
    {
        mStore.reset();
        mScheduler->RunUntilIdle();
        mVfs.reset();
    }

    static dto::MediaLocator Locator(const std::string& inID, const std::string& inHref = "file:///a.mov")
    {
        dto::MediaLocator locator;
        locator.mMediaLocatorID = inID;
        locator.mProperties = dto::RawJSON(R"({"href":")" + inHref + "\"}");
        return locator;
    }
    /// As the remote side has it.
    static dto::MediaLocator RemoteLocator(const std::string& inID, const std::string& inHref,
                                           const std::string& inModified = "2023-01-02T00:00:00Z")
    {
        dto::MediaLocator locator = Locator(inID, inHref);
        locator.mCreated = RFC3339DateTime::FromText("2023-01-01T00:00:00Z");
        locator.mCreatedBy = "anna";
        locator.mLastModified = RFC3339DateTime::FromText(inModified);
        locator.mLastModifiedBy = "berta";
        return locator;
    }

    int AddLocator(dto::MediaLocator inLocator, WriteMode inMode = WriteMode::LocalEdit)
    {
        return mStore->AddMediaLocator(mID, inMode, inLocator);
    }
    int EditLocator(dto::MediaLocator inLocator, WriteMode inMode = WriteMode::LocalEdit)
    {
        return mStore->EditMediaLocator(mID, {}, inMode, inLocator);
    }
    dto::MediaLocator GetLocator(const std::string& inID)
    {
        dto::MediaLocator locator;
        EXPECT_EQ(200, mStore->GetMediaLocator(mID, inID, locator));
        return locator;
    }
    std::string HrefOf(const std::string& inID)
    {
        dto::MediaLocatorProperties properties;
        EXPECT_TRUE(dto::FromJSON(GetLocator(inID).mProperties.Text(), properties));
        return properties.mHref;
    }
    std::vector<std::string> LocatorIDs()
    {
        std::vector<dto::MediaLocator> locators;
        EXPECT_EQ(200, mStore->GetMediaLocators(mID, locators));
        return IDsOf(locators);
    }
    static std::vector<std::string> IDsOf(const std::vector<dto::MediaLocator>& inLocators)
    {
        std::vector<std::string> ids;
        for (const dto::MediaLocator& locator : inLocators)
            ids.push_back(locator.mMediaLocatorID.Text());
        return ids;
    }
    /// What the remote side does not know, and the count to write once it does.
    std::vector<std::string> UnsynchronizedLocators(SyncChangeCount& outSyncTo)
    {
        std::vector<dto::MediaLocator> locators;
        EXPECT_EQ(200, mStore->GetUnsynchronizedLocallyModifiedMediaLocators(mID, locators, outSyncTo));
        return IDsOf(locators);
    }
    /// As at the end of a push.
    void ExchangeLocators()
    {
        SyncChangeCount count;
        UnsynchronizedLocators(count);
        EXPECT_TRUE(mStore->SetMediaLocatorSyncChangeCount(mID, count));
    }

    int AddEnclosure(const std::string& inUser, const std::string& inID, const std::string& inContent,
                     WriteMode inMode = WriteMode::LocalEdit)
    {
        dto::UserEnclosure enclosure;
        enclosure.mEnclosureID = inID;
        enclosure.mName = "_userdata." + inID;
        return mStore->AddUserEnclosure(mID, inUser, inMode, Bytes(inContent), enclosure);
    }
    /// Empty when the user has none of that id.
    std::string ContentOf(const std::string& inUser, const std::string& inID)
    {
        dto::UserEnclosure enclosure;
        ConstRecycledMemoryPtr payload;
        const int status = mStore->GetUserEnclosure(mID, inUser, inID, enclosure, payload);
        EXPECT_EQ(payload ? 200 : 404, status);
        return payload ? std::string(payload->View()) : std::string();
    }

    SideDataTags Tags()
    {
        SideDataTags tags;
        EXPECT_EQ(200, mStore->GetSideDataTags(mID, tags));
        return tags;
    }

    /// The session's own database, for what only that shows.
    std::shared_ptr<noxstorage::sqlite::Db> Db()
    {
        GitBox::Sandbox::Handles handles;
        EXPECT_TRUE(GitBox::Sandboxes::Instance()->FindSandbox(mID)->RetainDB(handles));
        return handles.mDb;
    }
    std::int64_t ChangeCount()
    {
        std::int64_t count = -1;
        EXPECT_TRUE(GitBox::Lyra2Db::ReadChangeCount(*Db(), count));
        return count;
    }
    std::int64_t ChangeCountOf(const std::string& inLocatorID)
    {
        GitBox::Lyra2Db::StoredRecord record;
        EXPECT_EQ(GitBox::Lyra2Db::Lookup::Found, GitBox::Lyra2Db::ReadMediaLocator(*Db(), inLocatorID, record));
        return record.mChangeCount;
    }

    std::unique_ptr<FaultVfs> mVfs = std::make_unique<FaultVfs>(mContext);
    const dto::Session mSession = CreateSession();
    const ImmutableString mID = mSession.mIdentifier;
};

}  // namespace testing_support
