#pragma once

#include <cstdint>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/noxstorage/GitOid.h"

namespace noxstorage::git {

/// What an object is; the numbers are libgit2's.
enum class ObjectType
{
    Invalid = -1,
    Commit = 1,
    Tree = 2,
    Blob = 3
};

/// How a question went where what is absent and what cannot be read are told apart. Failed is logged where it happened.
enum class Answer
{
    Found,
    Absent,
    Failed
};

constexpr std::uint32_t kModeBlob = 0100644;
constexpr std::uint32_t kModeTree = 040000;

/// Who made a commit, and when. An empty e-mail is fine.
struct Signature
{
    std::string mName;
    std::string mEmail;
    std::int64_t mTime = 0;  ///< seconds since 1970-01-01T00:00:00Z
    int mOffsetMinutes = 0;  ///< of local time from UTC
};

using Bytes = std::shared_ptr<const std::string>;

/// A blob as it was read. Constant once made.
class Blob
{
public:
    Blob(const Oid& inOid, Bytes inContent) : mOid(inOid), mContent(std::move(inContent)) {}
    [[nodiscard]] const Oid& ID() const { return mOid; }
    [[nodiscard]] std::string_view Content() const { return *mContent; }
    [[nodiscard]] const Bytes& Owner() const { return mContent; }

private:
    Oid mOid;
    Bytes mContent;
};

/// One line of a tree. The name points into the tree that it came from.
struct TreeEntry
{
    std::string_view mName;
    std::uint32_t mMode = 0;
    Oid mOid;

    [[nodiscard]] ObjectType Type() const
    {
        return (mMode & 0170000) == kModeTree ? ObjectType::Tree : ObjectType::Blob;
    }
};

/// A folder of the repository: entries in git's order (by name, a folder's name counting as if it ended in "/").
/// Iterating reads the entries where they lie. Constant once made, so any thread may read it.
class Tree
{
public:
    /// Null when the bytes are no well-formed tree.
    static std::shared_ptr<const Tree> Parse(const Oid& inOid, Bytes inContent);

    virtual ~Tree() = default;
    [[nodiscard]] const Oid& ID() const { return mOid; }
    [[nodiscard]] virtual std::size_t EntryCount() const { return mCount; }
    /// False when there is no such entry; the out arguments keep their values then.
    virtual bool EntryByName(std::string_view inName, ObjectType& outType, Oid& outOid) const;
    virtual bool EntryByIndex(std::size_t inIndex, std::string& outName, ObjectType& outType, Oid& outOid) const;
    bool Find(std::string_view inName, TreeEntry& outEntry) const;
    [[nodiscard]] std::string_view Raw() const { return *mContent; }

    class Iterator
    {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = TreeEntry;
        using difference_type = std::ptrdiff_t;
        using pointer = const TreeEntry*;
        using reference = const TreeEntry&;

        Iterator() = default;
        explicit Iterator(std::string_view inRest) : mRest(inRest) { Read(); }
        const TreeEntry& operator*() const { return mEntry; }
        const TreeEntry* operator->() const { return &mEntry; }
        Iterator& operator++()
        {
            mRest.remove_prefix(mSize);
            Read();
            return *this;
        }
        friend bool operator==(const Iterator& inLeft, const Iterator& inRight)
        {
            return inLeft.mRest.size() == inRight.mRest.size();
        }

    private:
        void Read();
        std::string_view mRest;
        std::size_t mSize = 0;
        TreeEntry mEntry;
    };
    [[nodiscard]] Iterator begin() const { return Iterator(Raw()); }
    [[nodiscard]] Iterator end() const { return Iterator(); }

protected:
    Tree(const Oid& inOid, Bytes inContent) : mOid(inOid), mContent(std::move(inContent)) {}

private:
    Oid mOid;
    Bytes mContent;
    std::size_t mCount = 0;
    std::vector<std::uint32_t> mOffsets;  ///< of each entry; only in trees too large to be searched from the start
};

/// A commit as it was read. Constant once made.
class Commit
{
public:
    /// Null when the bytes are no well-formed commit.
    static std::shared_ptr<const Commit> Parse(const Oid& inOid, std::string_view inContent);

    [[nodiscard]] const Oid& ID() const { return mOid; }
    [[nodiscard]] const Oid& TreeID() const { return mTree; }
    [[nodiscard]] std::size_t ParentCount() const { return mParents.size(); }
    /// Zero when there is no such parent.
    [[nodiscard]] Oid ParentID(std::size_t inIndex = 0) const
    {
        return inIndex < mParents.size() ? mParents[inIndex] : Oid();
    }
    [[nodiscard]] const Signature& Author() const { return mAuthor; }
    [[nodiscard]] const Signature& Committer() const { return mCommitter; }
    /// The committer's time, in seconds since 1970.
    [[nodiscard]] std::int64_t Time() const { return mCommitter.mTime; }
    [[nodiscard]] const std::string& Message() const { return mMessage; }

private:
    Oid mOid;
    Oid mTree;
    std::vector<Oid> mParents;
    Signature mAuthor;
    Signature mCommitter;
    std::string mMessage;
};

/// The entries of a tree that is kept alive while they are read; no entries for null. To be used in a range-based
/// for over a tree that was just fetched, which would not outlive the first look at it otherwise.
class Entries
{
public:
    explicit Entries(std::shared_ptr<const Tree> inTree) : mTree(std::move(inTree)) {}
    [[nodiscard]] Tree::Iterator begin() const { return mTree != nullptr ? mTree->begin() : Tree::Iterator(); }
    [[nodiscard]] Tree::Iterator end() const { return {}; }

private:
    std::shared_ptr<const Tree> mTree;
};

using BlobPtr = std::shared_ptr<const Blob>;
using TreePtr = std::shared_ptr<const Tree>;
using CommitPtr = std::shared_ptr<const Commit>;

}  // namespace noxstorage::git
