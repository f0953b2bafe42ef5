#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include "Client/VYClient/LocalHub.h"
#include "Inc/Model/GitBoxFolders.h"
#include "Inc/Model/GitBoxIOZip.h"
#include "Platform/noxstorage/SQLite3OdbBackend.h"
#include "Tests/Support/FaultFiles.h"
#include "Tests/Support/FaultVfs.h"
#include "Tests/Support/Noise.h"
#include "Tests/Support/StoreTest.h"

namespace testing_support {

/// A store with one session of some assets, a production enclosure and media locators, on files that can fail.
class SnapshotFixture : public StoreTest
{
protected:
    SnapshotFixture() : SnapshotFixture(std::make_shared<FaultFiles>()) {}
    ~SnapshotFixture() override
    {
        mFiles->ReportTo(nullptr);
        mStore.reset();
        mScheduler->RunUntilIdle();
        mVfs.reset();
    }

    [[nodiscard]] std::string In(std::string_view inName) const { return mOutside / inName; }
    [[nodiscard]] std::string FolderOf(const ImmutableString& inID) const
    {
        return GitBox::Sandboxes::Instance()->FindSandbox(inID)->GetFolder();
    }
    /// The folders that lie where sessions do.
    [[nodiscard]] std::size_t SessionFolders() const
    {
        std::size_t count = 0;
        for (const auto& place : GitBox::Folder::SessionFolders()) {
            std::vector<noxcore::filesupport::DirectoryEntry> entries;
            noxcore::filesupport::Files().ListDirectory(place.mFolder, entries);
            count += entries.size();
        }
        return count;
    }
    /// What lies in this process's temporary folder.
    [[nodiscard]] static std::size_t TemporaryFolders()
    {
        std::vector<noxcore::filesupport::DirectoryEntry> entries;
        noxcore::filesupport::Files().ListDirectory(
            noxcore::filesupport::Join(VYCL::LocalHub::GetTempFolder(), std::to_string(getpid())), entries);
        return entries.size();
    }

    dto::Session CreateSessionOf(SessionKind inKind)
    {
        dto::Session session;
        EXPECT_EQ(201, mStore->CreateSession({}, {dto::RawJSON(R"({"name":"Feature"})"), {}}, inKind, session));
        return session;
    }
    ImmutableString AddEnclosure(const ImmutableString& inTransaction, const std::string& inName,
                                 const std::string& inPayload)
    {
        dto::Enclosure added;
        EnclosureContent content;
        content.mEnclosure.mName = inName;
        content.mPayload = Bytes(inPayload);
        EXPECT_EQ(200, mStore->AddOrUpdateProductionEnclosure(inTransaction, content, added));
        return added.mEnclosureID;
    }
    void AddLocator(const ImmutableString& inSession, const std::string& inID, const std::string& inPath = "/media")
    {
        dto::MediaLocator locator;
        locator.mMediaLocatorID = inID;
        locator.mProperties = dto::RawJSON(R"({"path":")" + inPath + R"("})");
        EXPECT_EQ(200, mStore->AddMediaLocator(inSession, WriteMode::LocalEdit, locator));
    }
    /// Changes the session so that it has something that no snapshot taken before has, and lacks something.
    void MoveOn()
    {
        const auto transaction = OpenTransaction(mSession.mIdentifier);
        EXPECT_EQ(200, mStore->DeleteAsset(transaction, kClip));
        Add(transaction, MakeAsset("later", "bin", {{"late", Noise(20'000, 9)}}), kLater);
        mLaterEnclosure = AddEnclosure(transaction, "later notes", "written later");
        EXPECT_EQ(200, mStore->EditSessionProperties(transaction, {dto::RawJSON(R"({"name":"Later"})"), {}}));
        EXPECT_EQ(200, Commit(transaction));
        AddLocator(mSession.mIdentifier, "m-used", "/moved");
        AddLocator(mSession.mIdentifier, "m-late");
    }
    std::map<std::string, std::string> Locators(const ImmutableString& inSession)
    {
        std::vector<dto::MediaLocator> locators;
        EXPECT_EQ(200, mStore->GetMediaLocators(inSession, locators));
        std::map<std::string, std::string> byID;
        for (const auto& locator : locators)
            byID[locator.mMediaLocatorID.Text()] = locator.mProperties.mText;
        return byID;
    }

    /// All that the head of a session holds, as text: properties, assets with their payloads, production enclosures.
    std::map<std::string, std::string> Content(const ImmutableString& inSession, const ImmutableString& inRevision = {})
    {
        std::map<std::string, std::string> content;
        dto::Session session;
        EXPECT_EQ(200, mStore->GetProduction(inSession, inRevision, session));
        content["properties"] = session.mProperties.mText;
        for (const dto::Asset& asset : GetAssets(inSession, inRevision)) {
            content[asset.mAssetID.Text()] = asset.mProperties.mText;
            for (const dto::Enclosure& enclosure : asset.mEnclosures) {
                ConstRecycledMemoryPtr payload;
                EXPECT_EQ(200,
                          mStore->GetAssetEnclosureByContentHash(inSession, enclosure.mEnclosureContentID, payload));
                content[asset.mAssetID.Text() + "/" + enclosure.mEnclosureID.Text() + "/" + enclosure.mName] =
                    payload ? std::string(payload->View()) : "unreadable";
            }
        }
        std::vector<dto::Enclosure> enclosures;
        EXPECT_EQ(200, mStore->GetProductionEnclosures(inSession, inRevision, enclosures));
        for (const dto::Enclosure& enclosure : enclosures) {
            ConstRecycledMemoryPtr payload;
            EXPECT_EQ(200,
                      mStore->GetProductionEnclosureByContentHash(inSession, enclosure.mEnclosureContentID, payload));
            content["production/" + enclosure.mEnclosureID.Text() + "/" + enclosure.mName] =
                payload ? std::string(payload->View()) : "unreadable";
        }
        return content;
    }
    std::vector<StoredVersion> History(const ImmutableString& inSession)
    {
        std::vector<StoredVersion> versions;
        std::size_t total = 0;
        EXPECT_EQ(200, mStore->GetSessionHistory(inSession, 0, 100, versions, total));
        return versions;
    }
    int Copy(const ImmutableString& inSession, const ImmutableString& inRevision, dto::Session& outCopy,
             const std::string& inProperties = {})
    {
        return mStore->CopySessionToLyra2(inSession, inRevision, {dto::RawJSON(inProperties), {}}, outCopy);
    }
    int Take(const std::string& inFile, const ImmutableString& inRoot = {}, const ImmutableString& inRevision = {})
    {
        return mStore->TakeSnapshot(mSession.mIdentifier, inRevision, {}, inRoot, inFile);
    }

    const TempFolder mOutside;

    explicit SnapshotFixture(std::shared_ptr<FaultFiles> inFiles, SessionKind inKind = SessionKind::LocalOnly)
        : StoreTest(inFiles), mFiles(std::move(inFiles)), mSession(CreateSessionOf(inKind))
    {
        mFiles->ReportTo(mVfs.get());
        const auto transaction = OpenTransaction(mSession.mIdentifier);
        Add(transaction, MakeAsset("bin", "bin"), kBin);
        Add(transaction, MakeAsset("clip", "clip", {{"_xmp", "<x/>"}, {"thumbnail", Noise(50'000, 3)}}), kClip);
        AssetContent sequence = MakeAsset("sequence", "sequence", {{"essence", Noise(1'500'000, 4)}});
        sequence.mAsset.mProperties = dto::RawJSON(
            R"({"name":"sequence","lumo:assetType":"sequence","dependentAssetIDs":["de000000-0000-4000-8000-000000000001","de000000-0000-4000-8000-000000000003"]})");
        Add(transaction, sequence, kSequence);
        AssetContent first = MakeAsset("one", "clip", {{"_xmp", "<one/>"}});
        first.mAsset.mProperties = dto::RawJSON(
            R"({"name":"one","mediaLocator":"m-used","dependentAssetIDs":["de000000-0000-4000-8000-000000000002","5e000000-0000-4000-8000-000000000001"]})");
        Add(transaction, first, "de000000-0000-4000-8000-000000000001");
        Add(transaction, MakeAsset("two"), "de000000-0000-4000-8000-000000000002");
        mEnclosure = AddEnclosure(transaction, "notes", "some notes");
        EXPECT_EQ(200, Commit(transaction, &mHead));
        AddLocator(mSession.mIdentifier, "m-used");
        AddLocator(mSession.mIdentifier, "m-other");
    }

    const ImmutableString kBin{"b1000000-0000-4000-8000-000000000001"};
    const ImmutableString kClip{"c1000000-0000-4000-8000-000000000001"};
    const ImmutableString kSequence{"5e000000-0000-4000-8000-000000000001"};
    const ImmutableString kLater{"1a000000-0000-4000-8000-000000000001"};

    const std::shared_ptr<FaultFiles> mFiles;
    std::unique_ptr<FaultVfs> mVfs = std::make_unique<FaultVfs>(mContext);
    const dto::Session mSession;
    dto::Session mHead;
    ImmutableString mEnclosure;
    ImmutableString mLaterEnclosure;
};

}  // namespace testing_support
