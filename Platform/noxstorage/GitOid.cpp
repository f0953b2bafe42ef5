#include "Platform/noxstorage/GitOid.h"

#include <openssl/evp.h>

#include <charconv>
#include <memory>

#include "Platform/noxstorage/Git.h"
#include "Platform/noxstorage/GitError.h"

namespace noxstorage::git {

namespace {

int Digit(char inDigit)
{
    if (inDigit >= '0' && inDigit <= '9') return inDigit - '0';
    if (inDigit >= 'a' && inDigit <= 'f') return inDigit - 'a' + 10;
    if (inDigit >= 'A' && inDigit <= 'F') return inDigit - 'A' + 10;
    return -1;
}

struct FreeDigest
{
    void operator()(EVP_MD* inDigest) const { EVP_MD_free(inDigest); }
    void operator()(EVP_MD_CTX* inContext) const { EVP_MD_CTX_free(inContext); }
};

const EVP_MD* SHA1()
{
    static const std::unique_ptr<EVP_MD, FreeDigest> digest(EVP_MD_fetch(nullptr, "SHA1", nullptr));
    return digest.get();
}

std::string_view TypeName(ObjectType inType)
{
    return inType == ObjectType::Commit ? "commit " : inType == ObjectType::Tree ? "tree " : "blob ";
}

}  // namespace

bool Oid::FromText(std::string_view inText, Oid& outOid)
{
    if (inText.size() != kTextSize) return false;
    Oid oid;
    for (std::size_t index = 0; index < kSize; ++index) {
        const int high = Digit(inText[2 * index]);
        const int low = Digit(inText[2 * index + 1]);
        if (high < 0 || low < 0) return false;
        oid.mBytes[index] = static_cast<std::uint8_t>(high * 16 + low);
    }
    outOid = oid;
    return true;
}

std::string Oid::Text() const
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text(kTextSize, '0');
    for (std::size_t index = 0; index < kSize; ++index) {
        text[2 * index] = kDigits[mBytes[index] >> 4];
        text[2 * index + 1] = kDigits[mBytes[index] & 15];
    }
    return text;
}

// libgit2's own hash is built to look for collision attacks as it goes and takes five times as long; the ids are the
// same, and no object of a session is trusted for its id alone.
Oid ComputeObjectID(ObjectType inType, std::string_view inContent)
{
    thread_local const std::unique_ptr<EVP_MD_CTX, FreeDigest> context(EVP_MD_CTX_new());
    char header[32];
    const std::string_view name = TypeName(inType);
    name.copy(header, name.size());
    char* end = std::to_chars(header + name.size(), header + sizeof(header) - 1, inContent.size()).ptr;
    *end++ = '\0';
    unsigned char digest[EVP_MAX_MD_SIZE];
    if (EVP_DigestInit_ex2(context.get(), SHA1(), nullptr) == 1 &&
        EVP_DigestUpdate(context.get(), header, static_cast<std::size_t>(end - header)) == 1 &&
        EVP_DigestUpdate(context.get(), inContent.data(), inContent.size()) == 1 &&
        EVP_DigestFinal_ex(context.get(), digest, nullptr) == 1)
        return Oid(digest);
    LogGitError(-1, "hash", kErrorClassOdb, "no SHA-1 available");
    return Oid();
}

}  // namespace noxstorage::git
