#include <openssl/evp.h>

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

}  // namespace

bool Scrub(const RepoPtr& inRepo, std::vector<std::string>& outFaults)
{
    outFaults.clear();
    RunningID id;
    bool started = false;
    const bool complete =
        ForEachObject(inRepo, [&](const Oid& inOid, ObjectType inType, std::uint64_t inSize, std::string_view inPiece) {
            if (!started) started = id.Start(inType, inSize);
            if (!inPiece.empty()) return id.Add(inPiece);
            started = false;
            if (id.Finish() != inOid) outFaults.push_back("object " + inOid.Text() + ": its content has another id");
            if (!HasObject(inRepo, inOid)) outFaults.push_back("object " + inOid.Text() + ": not in the index");
            return true;
        });
    if (!complete) outFaults.emplace_back("the objects cannot be read to the end");
    std::vector<odb::Reference> references;
    if (!inRepo->GetStore().ListReferences(references)) outFaults.emplace_back("the references cannot be read");
    for (const odb::Reference& reference : references) {
        if (!reference.mTarget.empty()) continue;
        ObjectType type = ObjectType::Invalid;
        std::uint64_t size = 0;
        if (!ReadObjectHeader(inRepo, reference.mOid, type, size) || type != ObjectType::Commit)
            outFaults.push_back("reference " + reference.mName + ": no commit");
    }
    return outFaults.empty();
}

}  // namespace noxstorage::git::SQLite3OdbBackend
