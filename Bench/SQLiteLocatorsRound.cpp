// The peer of locators_round that does the least: the same statements on the same tables over texts that are ready.
// Times are in milliseconds.
//
//   sqlite_locators_round <empty folder> <locators>

#include <sqlite3.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string_view>

#include "Bench/GeneratedAssets.h"

namespace {

constexpr int kReads = 5;
constexpr std::size_t kEdits = 500;

void Check(bool inHolds, sqlite3* inDb)
{
    if (inHolds) return;
    std::fprintf(stderr, "sqlite_locators_round: %s\n", sqlite3_errmsg(inDb));
    std::exit(1);
}

struct Row
{
    std::string mID;
    std::string mRecord;
};

Row MakeRow(std::size_t inIndex, std::size_t inEdit)
{
    bench::GeneratedLocator locator = bench::MakeLocator(inIndex, inEdit);
    std::string record = R"({"vy:mediaLocatorId":")" + locator.mID +
                         R"(","vy:created":"2026-03-01T12:00:00.1234567Z","vy:lastModified":)"
                         R"("2026-03-01T12:00:00.1234567Z","vy:createdBy":"user","vy:lastModifiedBy":"user",)"
                         R"("properties":)" +
                         locator.mProperties + R"(,"links":[]})";
    return {std::move(locator.mID), std::move(record)};
}

class Round
{
public:
    explicit Round(const std::string& inFolder)
    {
        sqlite3_open((inFolder + "/bare.sqlite3").c_str(), &mDb);
        Execute("PRAGMA journal_mode = WAL;PRAGMA synchronous = NORMAL");
        Execute("CREATE TABLE MediaLocators (ID text PRIMARY KEY, DTO text, ChangeCount INTEGER) WITHOUT ROWID");
        Execute("CREATE TABLE KeyValue (Key TEXT PRIMARY KEY, Value BLOB)");
        Execute("INSERT INTO MediaLocators VALUES ('known', '{}', 1)");
    }
    ~Round() { sqlite3_close(mDb); }
    Round(const Round&) = delete;
    Round& operator=(const Round&) = delete;

    double WriteBatch(std::size_t inLocators, std::size_t inEdit)
    {
        std::vector<Row> rows;
        for (std::size_t index = 0; index < inLocators; ++index)
            rows.push_back(MakeRow(index, inEdit));
        const double start = bench::Now();
        CountOn();
        Execute("BEGIN");
        sqlite3_stmt* insert = Prepare("INSERT OR REPLACE INTO MediaLocators (ID, DTO, ChangeCount) VALUES (?, ?, ?)");
        for (const Row& row : rows) {
            BindText(insert, 1, row.mID);
            BindText(insert, 2, row.mRecord);
            sqlite3_bind_int64(insert, 3, mCount);
            Check(sqlite3_step(insert) == SQLITE_DONE, mDb);
            sqlite3_reset(insert);
        }
        sqlite3_finalize(insert);
        Execute("END");
        return bench::Now() - start;
    }

    double ReadBack(std::size_t inLocators)
    {
        std::vector<double> times;
        for (int read = 0; read < kReads; ++read) {
            std::vector<std::pair<std::string, std::int64_t>> records;
            const double start = bench::Now();
            sqlite3_stmt* query = Prepare("SELECT DTO, ChangeCount FROM MediaLocators WHERE ChangeCount>?");
            sqlite3_bind_int64(query, 1, 1);
            while (sqlite3_step(query) == SQLITE_ROW) {
                records.emplace_back(std::string(reinterpret_cast<const char*>(sqlite3_column_text(query, 0)),
                                                 static_cast<std::size_t>(sqlite3_column_bytes(query, 0))),
                                     sqlite3_column_int64(query, 1));
            }
            sqlite3_finalize(query);
            times.push_back(bench::Now() - start);
            Check(records.size() == inLocators, mDb);
        }
        return bench::Median(std::move(times));
    }

    std::vector<double> Edit(std::size_t inLocators)
    {
        std::mt19937_64 random(77);
        std::vector<double> times;
        for (std::size_t edit = 1; edit <= kEdits; ++edit) {
            const Row row = MakeRow(random() % inLocators, edit);
            const double start = bench::Now();
            sqlite3_stmt* query = Prepare("SELECT DTO, ChangeCount FROM MediaLocators WHERE ID=?");
            BindText(query, 1, row.mID);
            Check(sqlite3_step(query) == SQLITE_ROW, mDb);
            sqlite3_finalize(query);
            CountOn();
            sqlite3_stmt* update = Prepare("UPDATE MediaLocators SET DTO=?, ChangeCount=?WHERE ID=?");
            BindText(update, 1, row.mRecord);
            sqlite3_bind_int64(update, 2, mCount);
            BindText(update, 3, row.mID);
            Check(sqlite3_step(update) == SQLITE_DONE, mDb);
            sqlite3_finalize(update);
            times.push_back(bench::Now() - start);
        }
        return times;
    }

private:
    void Execute(const char* inText) { Check(sqlite3_exec(mDb, inText, nullptr, nullptr, nullptr) == SQLITE_OK, mDb); }
    sqlite3_stmt* Prepare(const char* inText)
    {
        sqlite3_stmt* statement = nullptr;
        Check(sqlite3_prepare_v2(mDb, inText, -1, &statement, nullptr) == SQLITE_OK, mDb);
        return statement;
    }
    static void BindText(sqlite3_stmt* inStatement, int inIndex, std::string_view inText)
    {
        sqlite3_bind_text(inStatement, inIndex, inText.data(), static_cast<int>(inText.size()), SQLITE_STATIC);
    }
    void CountOn()
    {
        sqlite3_stmt* write = Prepare("INSERT OR REPLACE INTO KeyValue (Key, Value) VALUES ('ChangeCount', ?)");
        sqlite3_bind_int64(write, 1, ++mCount);
        Check(sqlite3_step(write) == SQLITE_DONE, mDb);
        sqlite3_finalize(write);
    }

    sqlite3* mDb = nullptr;
    std::int64_t mCount = 1;
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) return 2;
    const auto locators = static_cast<std::size_t>(std::strtoull(argv[2], nullptr, 10));
    Round round(argv[1]);
    bench::ReportLocators(round, locators);
    return 0;
}
