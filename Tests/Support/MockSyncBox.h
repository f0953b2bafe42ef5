#pragma once

#include <gmock/gmock.h>

#include "Inc/Sync/SyncBox.h"

namespace testing_support {

using namespace VantryLocalHub;

/// A sync engine whose answers a test gives, as far as services ask it; everything else cannot be done, as in SyncBox.
class MockSyncBox : public SyncBox
{
public:
    MockSyncBox();
    ~MockSyncBox() override;

    // The forms that are not mocked stay reachable.
    using SyncBox::CreateLocalAssociatedSession;
    using SyncBox::GetProductionList;
    using SyncBox::GetSyncJobs;

    MOCK_METHOD(int, GetSyncStatusForSession, (const ImmutableString&, SyncStatus&), (override));
    MOCK_METHOD(bool, IsAssociated, (const ImmutableString&), (override));
    MOCK_METHOD(int, DisassociateForSync, (const ImmutableString&), (override));
    MOCK_METHOD(ImmutableString, GetRemoteProductionID, (const ImmutableString&), (override));
    MOCK_METHOD(std::vector<dto::Job>, GetSyncJobs, (const ImmutableString&), (override));
    MOCK_METHOD(void, GetProductionList, (SessionListCompletion), (override));
    MOCK_METHOD(void, ArchiveProduction, (const ImmutableString&, StatusCompletion), (override));
    MOCK_METHOD(void, DeleteRemoteProduction, (const ImmutableString&, StatusCompletion), (override));
    MOCK_METHOD(int, GetProduction, (const ImmutableString&, dto::Session&), (override));
    MOCK_METHOD(int, CreateSession, (const dto::ProductionProperties&, const ImmutableString&, bool, dto::Session&),
                (override));
    MOCK_METHOD(int, DisconnectOrDeleteSession, (const ImmutableString&, bool), (override));
    MOCK_METHOD(void, CreateLocalAssociatedSession, (const ImmutableString&, SessionCompletion), (override));
    MOCK_METHOD(void, CopyProduction,
                (const ImmutableString&, const ImmutableString&, const dto::ProductionProperties&, const std::string&,
                 bool, SessionCompletion),
                (override));
    MOCK_METHOD(void, CompactSession, (const ImmutableString&, StatusCompletion), (override));
    MOCK_METHOD(int, CommitTransaction,
                (const ImmutableString&, const CommitMessage&, const ImmutableString&, CommitOutcome&), (override));
    MOCK_METHOD(void, RollbackSessionToRevision, (const ImmutableString&, const ImmutableString&, SessionCompletion),
                (override));
    MOCK_METHOD(void, RestoreAssetFromProduction,
                (const ImmutableString&, const ImmutableString&, const ImmutableString&, StatusCompletion), (override));
};

}  // namespace testing_support

// Made once, in MockSyncBox.cpp: every table of virtual functions would bring all mock methods with it.
extern template class testing::StrictMock<testing_support::MockSyncBox>;
