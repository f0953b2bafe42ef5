#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Inc/Model/Lyra2Db.h"

namespace VantryLocalHub::GitBox {

/// Where a session keeps its media locators and user enclosures: a database in its folder, or branches of a single-file
/// project. Each operation means what the function of that name in Lyra2Db does.
///
/// The change count of a write tells what is to be exchanged with the remote side. A single-file project knows only
/// whether that is so: a record that was written with a count above 0 is given back with 1, any other with 0.
/// Threading: one thread at a time; the session's change mutex is held.
class SideDb
{
public:
    using RFC3339DateTime = Lyra2Db::RFC3339DateTime;
    using StoredRecord = Lyra2Db::StoredRecord;
    using Lookup = Lyra2Db::Lookup;
    using RowVisitor = std::function<void(std::size_t inPlace, const StoredRecord& inRecord)>;

    virtual ~SideDb() = default;

    virtual bool WriteMediaLocator(std::string_view inID, std::string_view inDTO, std::int64_t inChangeCount) = 0;
    virtual bool WriteMediaLocators(std::span<const Lyra2Db::MediaLocatorRow> inRows, std::int64_t inChangeCount) = 0;
    virtual bool TakeBackMediaLocators(std::span<const Lyra2Db::MediaLocatorRow> inWritten,
                                       const Lyra2Db::RecordsBefore& inBefore) = 0;
    virtual bool UpdateMediaLocator(std::string_view inID, std::string_view inDTO, std::int64_t inChangeCount) = 0;
    virtual Lookup ReadMediaLocator(std::string_view inID, StoredRecord& outRecord) = 0;
    virtual bool ReadMediaLocatorsByID(std::span<const std::string_view> inIDs, const RowVisitor& inVisitor) = 0;
    virtual bool ReadMediaLocators(std::vector<StoredRecord>& outRecords) = 0;
    virtual bool ReadMediaLocatorsChangedAfter(std::int64_t inChangeCount, std::vector<StoredRecord>& outRecords) = 0;
    virtual bool ReadLastModifiedMediaLocatorTime(RFC3339DateTime& outTime) = 0;
    virtual bool WriteLastModifiedMediaLocatorTime(const RFC3339DateTime& inTime) = 0;

    virtual bool WriteUserEnclosure(const Lyra2Db::UserEnclosureRow& inRow, std::int64_t inChangeCount) = 0;
    virtual bool UpdateUserEnclosure(const Lyra2Db::UserEnclosureRow& inRow, std::int64_t inChangeCount) = 0;
    virtual Lookup ReadUserEnclosureContent(std::string_view inUser, std::string_view inID,
                                            std::string& outContent) = 0;
    virtual Lookup ReadUserEnclosureMetadata(std::string_view inUser, std::string_view inID, std::string& outDTO) = 0;
    virtual bool ReadUserEnclosures(std::string_view inUser, std::vector<StoredRecord>& outRecords) = 0;
    virtual bool ReadUserEnclosuresChangedAfter(std::string_view inUser, std::int64_t inChangeCount,
                                                std::vector<StoredRecord>& outRecords) = 0;
    virtual bool DeleteUserEnclosure(std::string_view inUser, std::string_view inID) = 0;
};

/// The database of a session folder.
class Lyra2SideDb final : public SideDb
{
public:
    explicit Lyra2SideDb(Lyra2Db::DbPtr inDb) : mDb(std::move(inDb)) {}

    bool WriteMediaLocator(std::string_view inID, std::string_view inDTO, std::int64_t inChangeCount) override;
    bool WriteMediaLocators(std::span<const Lyra2Db::MediaLocatorRow> inRows, std::int64_t inChangeCount) override;
    bool TakeBackMediaLocators(std::span<const Lyra2Db::MediaLocatorRow> inWritten,
                               const Lyra2Db::RecordsBefore& inBefore) override;
    bool UpdateMediaLocator(std::string_view inID, std::string_view inDTO, std::int64_t inChangeCount) override;
    Lookup ReadMediaLocator(std::string_view inID, StoredRecord& outRecord) override;
    bool ReadMediaLocatorsByID(std::span<const std::string_view> inIDs, const RowVisitor& inVisitor) override;
    bool ReadMediaLocators(std::vector<StoredRecord>& outRecords) override;
    bool ReadMediaLocatorsChangedAfter(std::int64_t inChangeCount, std::vector<StoredRecord>& outRecords) override;
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
    const Lyra2Db::DbPtr mDb;
};

}  // namespace VantryLocalHub::GitBox
