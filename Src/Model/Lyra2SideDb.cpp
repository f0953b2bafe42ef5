#include "Inc/Model/SideDb.h"

namespace VantryLocalHub::GitBox {

bool Lyra2SideDb::WriteMediaLocator(std::string_view inID, std::string_view inDTO, std::int64_t inChangeCount)
{
    return Lyra2Db::WriteMediaLocator(*mDb, inID, inDTO, inChangeCount);
}

bool Lyra2SideDb::WriteMediaLocators(std::span<const Lyra2Db::MediaLocatorRow> inRows, std::int64_t inChangeCount)
{
    return Lyra2Db::WriteMediaLocators(*mDb, inRows, inChangeCount);
}

bool Lyra2SideDb::TakeBackMediaLocators(std::span<const Lyra2Db::MediaLocatorRow> inWritten,
                                        const Lyra2Db::RecordsBefore& inBefore)
{
    return Lyra2Db::TakeBackMediaLocators(*mDb, inWritten, inBefore);
}

bool Lyra2SideDb::UpdateMediaLocator(std::string_view inID, std::string_view inDTO, std::int64_t inChangeCount)
{
    return Lyra2Db::UpdateMediaLocator(*mDb, inID, inDTO, inChangeCount);
}

SideDb::Lookup Lyra2SideDb::ReadMediaLocator(std::string_view inID, StoredRecord& outRecord)
{
    return Lyra2Db::ReadMediaLocator(*mDb, inID, outRecord);
}

bool Lyra2SideDb::ReadMediaLocatorsByID(std::span<const std::string_view> inIDs, const RowVisitor& inVisitor)
{
    return Lyra2Db::ReadMediaLocatorsByID(*mDb, inIDs, inVisitor);
}

bool Lyra2SideDb::ReadMediaLocators(std::vector<StoredRecord>& outRecords)
{
    return Lyra2Db::ReadMediaLocators(*mDb, outRecords);
}

bool Lyra2SideDb::ReadMediaLocatorsChangedAfter(std::int64_t inChangeCount, std::vector<StoredRecord>& outRecords)
{
    return Lyra2Db::ReadMediaLocatorsChangedAfter(*mDb, inChangeCount, outRecords);
}

bool Lyra2SideDb::ReadLastModifiedMediaLocatorTime(RFC3339DateTime& outTime)
{
    return Lyra2Db::ReadLastModifiedMediaLocatorTime(*mDb, outTime);
}

bool Lyra2SideDb::WriteLastModifiedMediaLocatorTime(const RFC3339DateTime& inTime)
{
    return Lyra2Db::WriteLastModifiedMediaLocatorTime(*mDb, inTime);
}

bool Lyra2SideDb::WriteUserEnclosure(const Lyra2Db::UserEnclosureRow& inRow, std::int64_t inChangeCount)
{
    return Lyra2Db::WriteUserEnclosure(*mDb, inRow.mUser, inRow.mID, inRow.mDTO, inRow.mContent, inChangeCount);
}

bool Lyra2SideDb::UpdateUserEnclosure(const Lyra2Db::UserEnclosureRow& inRow, std::int64_t inChangeCount)
{
    return Lyra2Db::UpdateUserEnclosure(*mDb, inRow.mUser, inRow.mID, inRow.mDTO, inRow.mContent, inChangeCount);
}

SideDb::Lookup Lyra2SideDb::ReadUserEnclosureContent(std::string_view inUser, std::string_view inID,
                                                     std::string& outContent)
{
    return Lyra2Db::ReadUserEnclosureContent(*mDb, inUser, inID, outContent);
}

SideDb::Lookup Lyra2SideDb::ReadUserEnclosureMetadata(std::string_view inUser, std::string_view inID,
                                                      std::string& outDTO)
{
    return Lyra2Db::ReadUserEnclosureMetadata(*mDb, inUser, inID, outDTO);
}

bool Lyra2SideDb::ReadUserEnclosures(std::string_view inUser, std::vector<StoredRecord>& outRecords)
{
    return Lyra2Db::ReadUserEnclosures(*mDb, inUser, outRecords);
}

bool Lyra2SideDb::ReadUserEnclosuresChangedAfter(std::string_view inUser, std::int64_t inChangeCount,
                                                 std::vector<StoredRecord>& outRecords)
{
    return Lyra2Db::ReadUserEnclosuresChangedAfter(*mDb, inUser, inChangeCount, outRecords);
}

bool Lyra2SideDb::DeleteUserEnclosure(std::string_view inUser, std::string_view inID)
{
    return Lyra2Db::DeleteUserEnclosure(*mDb, inUser, inID);
}

}  // namespace VantryLocalHub::GitBox
