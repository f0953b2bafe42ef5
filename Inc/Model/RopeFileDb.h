#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Inc/Model/RopeFileBranches.h"
#include "Inc/Model/SideDb.h"

namespace VantryLocalHub::GitBox::RopeFile {

/// The sections of the key values.
constexpr std::string_view kSection_Session = "session";
constexpr std::string_view kSection_Sync = "sync";

/// What a single-file project keeps outside the history of its session: the same functions as those of a session
/// folder's database, over the project's side branches.
///
/// True on success; a failure is logged under "RopeFile", a read that finds nothing is false without a record.
/// Threading: any thread. Locks: none.
namespace Db {

using Lookup = Lyra2Db::Lookup;
using StoredRecord = Lyra2Db::StoredRecord;

Lookup ReadValue(const RepoPtr& inRepo, std::string_view inSection, std::string_view inKey, std::string& outValue);
bool WriteValue(const RepoPtr& inRepo, std::string_view inSection, std::string_view inKey, std::string_view inValue);

/// Several values of the session, in one commit.
bool WriteValues(const RepoPtr& inRepo, const Lyra2Db::KeyValues& inValues, std::string_view inMessage);
bool ReadBinCount(const RepoPtr& inRepo, std::string_view inRevision, std::int64_t& outCount);
bool WriteBinCount(const RepoPtr& inRepo, std::string_view inRevision, std::int64_t inCount);
bool CountMediaLocators(const RepoPtr& inRepo, std::int64_t& outCount);

/// Everything beside the history, for a copy. The key values go by "<section>/<key>".
bool ReadAllSessionData(const RepoPtr& inRepo, std::vector<StoredRecord>& outLocators,
                        std::vector<Lyra2Db::UserEnclosureRow>& outUserEnclosures, Lyra2Db::KeyValues& outKeyValues);

}  // namespace Db

/// Media locators and user enclosures of a single-file project. Enclosures of a user's own data (by their names) belong
/// to no project that is passed on: they are kept outside the file, as system enclosures.
class RopeSideDb final : public SideDb
{
public:
    explicit RopeSideDb(RepoPtr inRepo) : mRepo(std::move(inRepo)) {}

    bool WriteMediaLocator(std::string_view inID, std::string_view inDTO, std::int64_t inChangeCount) override;
    bool WriteMediaLocators(std::span<const Lyra2Db::MediaLocatorRow> inRows, std::int64_t inChangeCount) override;
    bool TakeBackMediaLocators(std::span<const Lyra2Db::MediaLocatorRow> inWritten,
                               const Lyra2Db::RecordsBefore& inBefore) override;
    bool UpdateMediaLocator(std::string_view inID, std::string_view inDTO, std::int64_t inChangeCount) override;
    Lookup ReadMediaLocator(std::string_view inID, StoredRecord& outRecord) override;
    bool ReadMediaLocatorsByID(std::span<const std::string_view> inIDs, const RowVisitor& inVisitor) override;
    bool ReadMediaLocators(std::vector<StoredRecord>& outRecords) override;
    bool ReadMediaLocatorsChangedAfter(std::int64_t inChangeCount, std::vector<StoredRecord>& outRecords) override;
    /// Not kept: the locators tell.
    bool ReadLastModifiedMediaLocatorTime(RFC3339DateTime& outTime) override;
    bool WriteLastModifiedMediaLocatorTime(const RFC3339DateTime& inTime) override;
    bool WriteUserEnclosure(const Lyra2Db::UserEnclosureRow& inRow, std::int64_t inChangeCount) override;
    bool UpdateUserEnclosure(const Lyra2Db::UserEnclosureRow& inRow, std::int64_t inChangeCount) override;
    Lookup ReadUserEnclosureContent(std::string_view inUser, std::string_view inID, std::string& outContent) override;
    Lookup ReadUserEnclosureMetadata(std::string_view inUser, std::string_view inID, std::string& outDTO) override;
    bool ReadUserEnclosures(std::string_view inUser, std::vector<StoredRecord>& outRecords) override;
    bool ReadUserEnclosuresChangedAfter(std::string_view inUser, std::int64_t inChangeCount,
                                        std::vector<StoredRecord>& outRecords) override;
    bool DeleteUserEnclosure(std::string_view inUser, std::string_view inID) override;

private:
    const RepoPtr mRepo;
};

}  // namespace VantryLocalHub::GitBox::RopeFile
