#pragma once

#include <cstdint>

/// The layout of a repository's SQLite file.
///
/// objects   One row an object, in the order of writing. The row id is the object's place, never its name: content of
///           one commit lies together, and nothing is ever inserted in the middle.
///             kind   object type (1 commit, 2 tree, 3 blob, 0 a piece of another row's object) + encoding bits:
///                    8 the data is a zstd frame, 16 the object is split into pieces
///             size   bytes of the object (of the piece) before encoding
///             base   of a split object: the row of its first piece; the others follow it row by row.
///                    Of any other object: null. Kept free for the row that a tree is stored as a difference from
///             oid    20 bytes; null in pieces
/// oids      From the first 63 bits of an id to the row, filled in the order of ids, many at a time: whole numbers
///           are searched twice as fast as ids, in half the room. It may lag behind: rows after setting "indexedRow"
///           are not in it yet, and whoever opens the file reads their ids from the rows themselves.
/// collided  From id to row, for ids whose first 63 bits another one has already.
/// refs      name ("HEAD", "refs/heads/session") to the commit's id (oid), or to another name (target).
/// settings  "maxBlobSize": larger objects are split, 0 none; "indexedRow": see above.
namespace noxstorage::git::odb {

constexpr std::int64_t kApplicationID = 0x4e4f4442;
/// Of a single-file project ("LYRF"), which has the same tables and a rollback journal instead of a write-ahead log.
constexpr std::int64_t kOneFileApplicationID = 0x4c595246;
constexpr std::int64_t kSchemaVersion = 1;

constexpr unsigned kKindMask = 7;
constexpr unsigned kKindPiece = 0;
constexpr unsigned kEncodingZstd = 8;
constexpr unsigned kEncodingSplit = 16;

constexpr char kCreateTables[] =
    "CREATE TABLE IF NOT EXISTS objects(row INTEGER PRIMARY KEY, oid BLOB, kind INTEGER NOT NULL,"
    " size INTEGER NOT NULL, base INTEGER, data BLOB NOT NULL);"
    "CREATE TABLE IF NOT EXISTS oids(key INTEGER PRIMARY KEY, row INTEGER NOT NULL);"
    "CREATE TABLE IF NOT EXISTS collided(oid BLOB PRIMARY KEY, row INTEGER NOT NULL) WITHOUT ROWID;"
    "CREATE TABLE IF NOT EXISTS refs(name TEXT PRIMARY KEY, oid BLOB, target TEXT) WITHOUT ROWID;"
    "CREATE TABLE IF NOT EXISTS settings(name TEXT PRIMARY KEY, value INTEGER NOT NULL) WITHOUT ROWID;";

}  // namespace noxstorage::git::odb
