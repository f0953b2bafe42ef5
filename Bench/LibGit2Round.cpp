// The peer of box_round: the same assets through libgit2's own calls into its default object store.
//
//   libgit2_round <empty folder> <assets> <edits>
//
// The large commit runs as libgit2 comes, without any sync; the edits run with its switch for durable writes on.

#include <git2.h>

#include <cstdlib>
#include <map>
#include <random>

#include "Bench/GeneratedAssets.h"

namespace {

void Check(int inCode, const char* inWhat)
{
    if (inCode >= 0) return;
    std::fprintf(stderr, "libgit2_round: %s: %s\n", inWhat, git_error_last() ? git_error_last()->message : "?");
    std::exit(1);
}

class Repository
{
public:
    explicit Repository(const char* inFolder)
    {
        git_libgit2_init();
        Check(git_repository_init(&mRepo, inFolder, 1), "init");
        Check(git_signature_new(&mAuthor, "Bench", "bench", 1700000000, 0), "signature");
    }
    ~Repository()
    {
        git_signature_free(mAuthor);
        git_repository_free(mRepo);
        git_libgit2_shutdown();
    }
    Repository(const Repository&) = delete;
    Repository& operator=(const Repository&) = delete;

    git_oid Blob(const std::string& inBytes)
    {
        git_oid oid;
        Check(git_blob_create_from_buffer(&oid, mRepo, inBytes.data(), inBytes.size()), "blob");
        return oid;
    }

    /// A tree of the entries, on top of another's when one is given.
    git_oid Tree(const std::map<std::string, git_oid>& inEntries, git_filemode_t inMode,
                 const git_tree* inBase = nullptr)
    {
        git_treebuilder* builder = nullptr;
        Check(git_treebuilder_new(&builder, mRepo, inBase), "builder");
        for (const auto& [name, oid] : inEntries)
            Check(git_treebuilder_insert(nullptr, builder, name.c_str(), &oid, inMode), "insert");
        git_oid tree;
        Check(git_treebuilder_write(&tree, builder), "tree");
        git_treebuilder_free(builder);
        return tree;
    }

    git_tree* SubTree(const git_tree* inParent, const char* inName)
    {
        if (inParent == nullptr) return nullptr;
        const git_tree_entry* entry = git_tree_entry_byname(inParent, inName);
        git_tree* tree = nullptr;
        if (entry != nullptr) Check(git_tree_lookup(&tree, mRepo, git_tree_entry_id(entry)), "lookup");
        return tree;
    }

    git_oid AssetTree(const bench::GeneratedAsset& inAsset, const git_oid& inEnclosures)
    {
        git_treebuilder* builder = nullptr;
        Check(git_treebuilder_new(&builder, mRepo, nullptr), "builder");
        const git_oid properties = Blob(inAsset.mProperties);
        Check(git_treebuilder_insert(nullptr, builder, "properties", &properties, GIT_FILEMODE_BLOB), "insert");
        Check(git_treebuilder_insert(nullptr, builder, "enclosures", &inEnclosures, GIT_FILEMODE_TREE), "insert");
        git_oid tree;
        Check(git_treebuilder_write(&tree, builder), "tree");
        git_treebuilder_free(builder);
        return tree;
    }

    git_oid EnclosuresTree(const bench::GeneratedAsset& inAsset)
    {
        const git_oid enclosure =
            Tree({{"content", Blob(inAsset.mContent)}, {"name", Blob(inAsset.mEnclosureName)}}, GIT_FILEMODE_BLOB);
        return Tree({{inAsset.mEnclosureID, enclosure}}, GIT_FILEMODE_TREE);
    }

    git_tree* HeadTree()
    {
        git_oid head;
        if (git_reference_name_to_id(&head, mRepo, "refs/heads/session") < 0) return nullptr;
        git_commit* commit = nullptr;
        Check(git_commit_lookup(&commit, mRepo, &head), "head");
        git_tree* tree = nullptr;
        Check(git_commit_tree(&tree, commit), "tree of head");
        git_commit_free(commit);
        return tree;
    }

    /// Puts asset trees over the head's and makes the commit; the branch moves with it.
    void Commit(const std::map<std::string, git_oid>& inAssets)
    {
        git_tree* root = HeadTree();
        git_tree* assets = SubTree(root, "assets");
        std::map<std::string, std::map<std::string, git_oid>> byBucket;
        for (const auto& [id, oid] : inAssets)
            byBucket[id.substr(0, 2)].emplace(id, oid);
        std::map<std::string, git_oid> buckets;
        for (const auto& [name, entries] : byBucket) {
            git_tree* bucket = SubTree(assets, name.c_str());
            buckets[name] = Tree(entries, GIT_FILEMODE_TREE, bucket);
            git_tree_free(bucket);
        }
        const git_oid tree = Tree({{"assets", Tree(buckets, GIT_FILEMODE_TREE, assets)}}, GIT_FILEMODE_TREE, root);
        git_tree* written = nullptr;
        Check(git_tree_lookup(&written, mRepo, &tree), "written tree");
        git_oid head;
        git_commit* parent = nullptr;
        if (root != nullptr) {
            Check(git_reference_name_to_id(&head, mRepo, "refs/heads/session"), "branch");
            Check(git_commit_lookup(&parent, mRepo, &head), "parent");
        }
        git_oid commit;
        const git_commit* parents[] = {parent};
        Check(git_commit_create(&commit, mRepo, "refs/heads/session", mAuthor, mAuthor, nullptr, "bench", written,
                                parent != nullptr ? 1 : 0, parents),
              "commit");
        git_commit_free(parent);
        git_tree_free(written);
        git_tree_free(assets);
        git_tree_free(root);
    }

    git_oid EnclosuresOf(const std::string& inID)
    {
        git_tree* root = HeadTree();
        git_tree_entry* entry = nullptr;
        const std::string path = "assets/" + inID.substr(0, 2) + "/" + inID + "/enclosures";
        Check(git_tree_entry_bypath(&entry, root, path.c_str()), "path");
        const git_oid oid = *git_tree_entry_id(entry);
        git_tree_entry_free(entry);
        git_tree_free(root);
        return oid;
    }

private:
    git_repository* mRepo = nullptr;
    git_signature* mAuthor = nullptr;
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 4) return 2;
    const auto assets = static_cast<std::size_t>(std::strtoull(argv[2], nullptr, 10));
    const auto edits = static_cast<std::size_t>(std::strtoull(argv[3], nullptr, 10));
    Repository repository(argv[1]);
    const bench::GeneratedAssets generated;
    bench::Report report;
    const double start = bench::Now();
    std::map<std::string, git_oid> trees;
    for (std::size_t index = 0; index < assets; ++index) {
        const bench::GeneratedAsset asset = generated.Make(index);
        trees[asset.mID] = repository.AssetTree(asset, repository.EnclosuresTree(asset));
    }
    repository.Commit(trees);
    report.Add("seconds", bench::Now() - start);
    report.Add("peak", bench::PeakMegabytes());
    if (edits != 0) {
        git_libgit2_opts(GIT_OPT_ENABLE_FSYNC_GITDIR, 1);
        std::mt19937_64 random(77);
        std::vector<double> times;
        for (std::size_t edit = 1; edit <= edits; ++edit) {
            const bench::GeneratedAsset asset = generated.Make(random() % assets, edit);
            const double begin = bench::Now();
            repository.Commit({{asset.mID, repository.AssetTree(asset, repository.EnclosuresOf(asset.mID))}});
            times.push_back(bench::Now() - begin);
        }
        report.AddPercentiles(times);
    }
    report.Print();
    return 0;
}
