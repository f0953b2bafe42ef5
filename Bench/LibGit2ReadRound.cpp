// The peer of read_round: all assets of a packed repository read into records by libgit2's own calls.
//
//   libgit2_read_round <repository> <threads>

#include <git2.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "Bench/GeneratedAssets.h"

namespace {

void Check(int inCode, const char* inWhat)
{
    if (inCode >= 0) return;
    std::fprintf(stderr, "libgit2_read_round: %s: %s\n", inWhat, git_error_last() ? git_error_last()->message : "?");
    std::exit(1);
}

struct Enclosure
{
    std::string mID;
    std::string mName;
    std::string mContentID;
};

struct Record
{
    std::string mID;
    std::string mContentID;
    std::string mProperties;
    std::vector<Enclosure> mEnclosures;
};

std::string Text(const git_oid* inOid)
{
    char text[GIT_OID_HEXSZ + 1];
    return git_oid_tostr(text, sizeof text, inOid);
}

/// A repository of one thread.
class Reader
{
public:
    explicit Reader(const char* inFolder) { Check(git_repository_open(&mRepo, inFolder), "opening"); }
    ~Reader() { git_repository_free(mRepo); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    git_tree* Tree(const git_oid* inOid)
    {
        git_tree* tree = nullptr;
        Check(git_tree_lookup(&tree, mRepo, inOid), "tree");
        return tree;
    }

    git_tree* AssetsOfHead()
    {
        git_object* tree = nullptr;
        Check(git_revparse_single(&tree, mRepo, "refs/heads/session^{tree}:assets"), "head");
        return reinterpret_cast<git_tree*>(tree);
    }

    std::string Blob(const git_oid* inOid)
    {
        git_blob* blob = nullptr;
        Check(git_blob_lookup(&blob, mRepo, inOid), "blob");
        std::string text(static_cast<const char*>(git_blob_rawcontent(blob)), git_blob_rawsize(blob));
        git_blob_free(blob);
        return text;
    }

    Record Asset(const git_tree_entry* inEntry)
    {
        Record record{git_tree_entry_name(inEntry), Text(git_tree_entry_id(inEntry)), {}, {}};
        git_tree* tree = Tree(git_tree_entry_id(inEntry));
        record.mProperties = Blob(git_tree_entry_id(git_tree_entry_byname(tree, "properties")));
        if (const git_tree_entry* list = git_tree_entry_byname(tree, "enclosures")) {
            git_tree* enclosures = Tree(git_tree_entry_id(list));
            for (std::size_t index = 0; index < git_tree_entrycount(enclosures); ++index) {
                const git_tree_entry* entry = git_tree_entry_byindex(enclosures, index);
                git_tree* enclosure = Tree(git_tree_entry_id(entry));
                record.mEnclosures.push_back({git_tree_entry_name(entry),
                                              Blob(git_tree_entry_id(git_tree_entry_byname(enclosure, "name"))),
                                              Text(git_tree_entry_id(git_tree_entry_byname(enclosure, "content")))});
                git_tree_free(enclosure);
            }
            git_tree_free(enclosures);
        }
        git_tree_free(tree);
        return record;
    }

    /// Every n-th bucket of assets.
    void Read(std::size_t inFirst, std::size_t inEvery, std::vector<Record>& outRecords)
    {
        git_tree* assets = AssetsOfHead();
        for (std::size_t index = inFirst; index < git_tree_entrycount(assets); index += inEvery) {
            git_tree* bucket = Tree(git_tree_entry_id(git_tree_entry_byindex(assets, index)));
            for (std::size_t asset = 0; asset < git_tree_entrycount(bucket); ++asset)
                outRecords.push_back(Asset(git_tree_entry_byindex(bucket, asset)));
            git_tree_free(bucket);
        }
        git_tree_free(assets);
    }

private:
    git_repository* mRepo = nullptr;
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) return 2;
    git_libgit2_init();
    git_libgit2_opts(GIT_OPT_ENABLE_STRICT_HASH_VERIFICATION, 0);
    const auto threads = static_cast<std::size_t>(std::strtoull(argv[2], nullptr, 10));
    std::vector<std::vector<Record>> records(threads);
    const double start = bench::Now();
    std::vector<std::thread> others;
    const auto read = [&](std::size_t inNumber) { Reader(argv[1]).Read(inNumber, threads, records[inNumber]); };
    for (std::size_t number = 1; number < threads; ++number)
        others.emplace_back(read, number);
    read(0);
    for (std::thread& other : others)
        other.join();
    bench::Report report;
    report.Add("all", bench::Now() - start);
    std::size_t count = 0;
    for (const auto& part : records)
        count += part.size();
    report.Add("assets", static_cast<double>(count));
    report.Print();
    return 0;
}
