// The peer of box_round that does the least: the same bytes into one table of a SQLite file, in one durable
// transaction, uncompressed and without any key but the row.
//
//   sqlite_round <empty folder> <assets>

#include <sqlite3.h>

#include <cstdlib>
#include <string_view>

#include "Bench/GeneratedAssets.h"

namespace {

void Execute(sqlite3* inDb, const char* inText)
{
    if (sqlite3_exec(inDb, inText, nullptr, nullptr, nullptr) == SQLITE_OK) return;
    std::fprintf(stderr, "sqlite_round: %s: %s\n", inText, sqlite3_errmsg(inDb));
    std::exit(1);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) return 2;
    const auto assets = static_cast<std::size_t>(std::strtoull(argv[2], nullptr, 10));
    sqlite3* db = nullptr;
    sqlite3_open((std::string(argv[1]) + "/bare.sqlite3").c_str(), &db);
    Execute(db, "PRAGMA page_size=16384");
    Execute(db, "PRAGMA journal_mode=WAL");
    Execute(db, "PRAGMA synchronous=FULL");
    Execute(db, "CREATE TABLE t(id INTEGER PRIMARY KEY, data BLOB)");
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(db, "INSERT INTO t(data) VALUES(?)", -1, &insert, nullptr);
    const auto add = [&](std::string_view inBytes) {
        sqlite3_bind_blob(insert, 1, inBytes.data(), static_cast<int>(inBytes.size()), SQLITE_STATIC);
        if (sqlite3_step(insert) != SQLITE_DONE) std::exit(1);
        sqlite3_reset(insert);
    };
    const bench::GeneratedAssets generated;
    // What git makes of an asset beside its payloads: three trees of one and two entries.
    constexpr std::size_t kTreeSizes[] = {63, 67, 73};
    const double start = bench::Now();
    Execute(db, "BEGIN");
    for (std::size_t index = 0; index < assets; ++index) {
        const bench::GeneratedAsset asset = generated.Make(index);
        add(asset.mProperties);
        add(asset.mContent);
        add(asset.mEnclosureName);
        for (const std::size_t size : kTreeSizes)
            add(std::string_view(asset.mContent).substr(0, size));
    }
    Execute(db, "COMMIT");
    bench::Report report;
    report.Add("seconds", bench::Now() - start);
    report.Add("peak", bench::PeakMegabytes());
    report.Print();
    sqlite3_finalize(insert);
    sqlite3_close(db);
    return 0;
}
