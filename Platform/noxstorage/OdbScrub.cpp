#include <openssl/evp.h>

#include <unordered_map>

#include "Platform/noxstorage/OdbStore.h"
#include "Platform/noxstorage/SQLite3OdbBackend.h"

namespace noxstorage::git::SQLite3OdbBackend {

namespace {

/// The id of an object that comes piece by piece.
class RunningID
{
public:
    RunningID() : mContext(EVP_MD_CTX_new(), &EVP_MD_CTX_free) {}

    bool Start(ObjectType inType, std::uint64_t inSize)
    {
        const char* name = inType == ObjectType::Commit ? "commit " : inType == ObjectType::Tree ? "tree " : "blob ";
        const std::string header = name + std::to_string(inSize);
        return EVP_DigestInit_ex(mContext.get(), EVP_sha1(), nullptr) == 1 &&
               EVP_DigestUpdate(mContext.get(), header.c_str(), header.size() + 1) == 1;
    }
    bool Add(std::string_view inPiece) { return EVP_DigestUpdate(mContext.get(), inPiece.data(), inPiece.size()) == 1; }
    Oid Finish()
    {
        unsigned char digest[EVP_MAX_MD_SIZE];
        return EVP_DigestFinal_ex(mContext.get(), digest, nullptr) == 1 ? Oid(digest) : Oid();
    }

private:
    const std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> mContext;
};

/// Reads all objects, compares them with their ids and looks for what they refer to.
class Scrubber
{
public:
    Scrubber(RepoPtr inRepo, std::vector<std::string>& outFaults) : mRepo(std::move(inRepo)), mFaults(outFaults) {}

    void Objects()
    {
        const ReadScope scope(mRepo);
        const bool complete = ForEachObject(
            mRepo,
            [this](const Oid& inOid, ObjectType inType, std::uint64_t inSize, std::string_view inPiece) {
                return Piece(inOid, inType, inSize, inPiece);
            },
            [this](const Oid& inOid, std::int64_t inFirstRow, std::int64_t inLastRow) {
                mStarted = false;
                const std::string rows = "rows " + std::to_string(inFirstRow) + " to " + std::to_string(inLastRow);
                mFaults.push_back((inOid.IsZero() ? rows : Name("object", inOid)) + ": cannot be read");
            });
        if (!complete) mFaults.emplace_back("the objects cannot be read to the end");
    }

    void References()
    {
        std::vector<odb::Reference> references;
        if (!mRepo->GetStore().ListReferences(references)) mFaults.emplace_back("the references cannot be read");
        for (const odb::Reference& reference : references)
            if (reference.mTarget.empty()) Expect("reference " + reference.mName, reference.mOid, ObjectType::Commit);
    }

private:
    static std::string Name(const char* inKind, const Oid& inOid) { return std::string(inKind) + " " + inOid.Text(); }

    bool Piece(const Oid& inOid, ObjectType inType, std::uint64_t inSize, std::string_view inPiece)
    {
        const bool refers = inType == ObjectType::Commit || inType == ObjectType::Tree;
        if (!mStarted) {
            mStarted = mID.Start(inType, inSize);
            mContent.clear();
        }
        if (refers) mContent.append(inPiece);
        if (!inPiece.empty()) return mID.Add(inPiece);
        mStarted = false;
        if (mID.Finish() != inOid) {
            mFaults.push_back(Name("object", inOid) + ": its content has another id");
            return true;
        }
        if (!HasObject(mRepo, inOid)) mFaults.push_back(Name("object", inOid) + ": not in the index");
        if (refers) Links(inOid, inType);
        return true;
    }

    void Links(const Oid& inOid, ObjectType inType)
    {
        const std::string name = Name(inType == ObjectType::Commit ? "commit" : "tree", inOid);
        if (inType == ObjectType::Commit) {
            const CommitPtr commit = Commit::Parse(inOid, mContent);
            if (commit == nullptr) return mFaults.push_back(name + ": malformed");
            Expect(name, commit->TreeID(), ObjectType::Tree);
            for (std::size_t index = 0; index < commit->ParentCount(); ++index)
                Expect(name, commit->ParentID(index), ObjectType::Commit);
            return;
        }
        const TreePtr tree = Tree::Parse(inOid, std::make_shared<const std::string>(mContent));
        if (tree == nullptr) return mFaults.push_back(name + ": malformed");
        for (const TreeEntry& entry : *tree)
            Expect(name, entry.mOid, entry.Type());
    }

    /// Whoever refers to the object finds it, and of this type.
    void Expect(const std::string& inFrom, const Oid& inOid, ObjectType inType)
    {
        const auto known = mKnown.find(inOid);
        if (known != mKnown.end() && known->second == inType) return;
        ObjectType type = ObjectType::Invalid;
        if (FindObjectType(mRepo, inOid, type) != Answer::Found || type != inType) {
            mFaults.push_back(inFrom + ": " + inOid.Text() + " is missing or of another type");
            return;
        }
        // One bucket of assets names what the one before it named.
        if (mKnown.size() >= kMostKnown) mKnown.clear();
        mKnown.emplace(inOid, type);
    }

    static constexpr std::size_t kMostKnown = 500000;

    const RepoPtr mRepo;
    std::vector<std::string>& mFaults;
    RunningID mID;
    bool mStarted = false;
    std::string mContent;  ///< of a commit or a tree
    std::unordered_map<Oid, ObjectType> mKnown;
};

}  // namespace

bool Scrub(const RepoPtr& inRepo, std::vector<std::string>& outFaults)
{
    outFaults.clear();
    Scrubber scrubber(inRepo, outFaults);
    scrubber.Objects();
    scrubber.References();
    return outFaults.empty();
}

}  // namespace noxstorage::git::SQLite3OdbBackend
