#include "Platform/noxstorage/GitObjects.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "Platform/noxstorage/GitTrees.h"

namespace noxstorage::git {

namespace {

constexpr std::size_t kSearchedFromStart = 512;  ///< bytes of a tree that is not worth an index

/// Reads "<mode> <name>\0<id>" at the start; false when it is not well formed.
bool ReadEntry(std::string_view inRest, TreeEntry& outEntry, std::size_t& outSize)
{
    std::uint32_t mode = 0;
    std::size_t at = 0;
    for (; at < inRest.size() && inRest[at] >= '0' && inRest[at] <= '7' && at < 7; ++at)
        mode = mode * 8 + static_cast<std::uint32_t>(inRest[at] - '0');
    if (at == 0 || at >= inRest.size() || inRest[at] != ' ') return false;
    const std::size_t name = at + 1;
    const std::size_t end = inRest.find('\0', name);
    if (end == std::string_view::npos || end == name || inRest.size() - end - 1 < Oid::kSize) return false;
    outEntry.mMode = mode;
    outEntry.mName = inRest.substr(name, end - name);
    outEntry.mOid = Oid(inRest.data() + end + 1);
    outSize = end + 1 + Oid::kSize;
    return true;
}

bool ReadSignature(std::string_view inLine, Signature& outSignature)
{
    const std::size_t open = inLine.find('<');
    const std::size_t close = inLine.rfind('>');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open) return false;
    std::string_view name = inLine.substr(0, open);
    while (name.ends_with(' '))
        name.remove_suffix(1);
    outSignature.mName = name;
    outSignature.mEmail = inLine.substr(open + 1, close - open - 1);
    std::string_view rest = inLine.substr(close + 1);
    while (rest.starts_with(' '))
        rest.remove_prefix(1);
    const auto time = std::from_chars(rest.data(), rest.data() + rest.size(), outSignature.mTime);
    rest.remove_prefix(static_cast<std::size_t>(time.ptr - rest.data()));
    while (rest.starts_with(' '))
        rest.remove_prefix(1);
    outSignature.mOffsetMinutes = 0;
    if (rest.size() < 5 || (rest[0] != '+' && rest[0] != '-')) return true;
    int offset = 0;
    std::from_chars(rest.data() + 1, rest.data() + 5, offset);
    offset = offset / 100 * 60 + offset % 100;
    outSignature.mOffsetMinutes = rest[0] == '-' ? -offset : offset;
    return true;
}

}  // namespace

int CompareEntryNames(std::string_view inLeft, bool inLeftIsTree, std::string_view inRight, bool inRightIsTree)
{
    const std::size_t common = std::min(inLeft.size(), inRight.size());
    const int order = inLeft.substr(0, common).compare(inRight.substr(0, common));
    if (order != 0) return order;
    const auto next = [common](std::string_view inName, bool inIsTree) {
        if (inName.size() > common) return static_cast<unsigned char>(inName[common]);
        return static_cast<unsigned char>(inIsTree ? '/' : '\0');
    };
    return int{next(inLeft, inLeftIsTree)} - int{next(inRight, inRightIsTree)};
}

bool IsAllowedEntryName(std::string_view inName)
{
    constexpr std::string_view kDotGit = ".git";
    if (inName.empty() || inName == "." || inName == ".." || inName.find('/') != std::string_view::npos ||
        inName.find('\0') != std::string_view::npos)
        return false;
    const auto same = [](char inLeft, char inRight) {
        return std::tolower(static_cast<unsigned char>(inLeft)) == inRight;
    };
    return !std::equal(inName.begin(), inName.end(), kDotGit.begin(), kDotGit.end(), same);
}

bool VisitEntries(std::string_view inTree, const std::function<void(const TreeEntry&)>& inVisitor)
{
    TreeEntry entry;
    for (std::size_t offset = 0, size = 0; offset < inTree.size(); offset += size) {
        if (!ReadEntry(inTree.substr(offset), entry, size)) return false;
        inVisitor(entry);
    }
    return true;
}

void AppendTreeEntry(std::string& outTree, std::string_view inName, std::uint32_t inMode, const Oid& inOid)
{
    char mode[12];
    const auto end = std::to_chars(mode, mode + sizeof(mode), inMode, 8).ptr;
    outTree.append(mode, static_cast<std::size_t>(end - mode));
    outTree += ' ';
    outTree += inName;
    outTree += '\0';
    outTree += inOid.View();
}

std::shared_ptr<const Tree> Tree::Parse(const Oid& inOid, Bytes inContent)
{
    struct Made : Tree
    {
        Made(const Oid& inID, Bytes inBytes) : Tree(inID, std::move(inBytes)) {}
    };
    auto tree = std::make_shared<Made>(inOid, std::move(inContent));
    const std::string_view raw = tree->Raw();
    const bool wantsIndex = raw.size() > kSearchedFromStart;
    TreeEntry entry;
    for (std::size_t offset = 0, size = 0; offset < raw.size(); offset += size) {
        if (!ReadEntry(raw.substr(offset), entry, size)) return nullptr;
        if (wantsIndex) tree->mOffsets.push_back(static_cast<std::uint32_t>(offset));
        ++tree->mCount;
    }
    return tree;
}

bool Tree::Find(std::string_view inName, TreeEntry& outEntry) const
{
    if (mOffsets.empty()) {
        const auto found =
            std::find_if(begin(), end(), [&](const TreeEntry& inEntry) { return inEntry.mName == inName; });
        if (found == end()) return false;
        outEntry = *found;
        return true;
    }
    TreeEntry entry;
    std::size_t size = 0;
    // A name may stand in two places: where it would as a file, and where it would as a folder.
    for (const bool asTree : {true, false}) {
        const auto at = std::lower_bound(
            mOffsets.begin(), mOffsets.end(), inName, [&](std::uint32_t inOffset, std::string_view inWanted) {
                ReadEntry(Raw().substr(inOffset), entry, size);
                return CompareEntryNames(entry.mName, entry.Type() == ObjectType::Tree, inWanted, asTree) < 0;
            });
        if (at == mOffsets.end()) continue;
        ReadEntry(Raw().substr(*at), entry, size);
        if (entry.mName != inName) continue;
        outEntry = entry;
        return true;
    }
    return false;
}

bool Tree::EntryByName(std::string_view inName, ObjectType& outType, Oid& outOid) const
{
    TreeEntry entry;
    if (!Find(inName, entry)) return false;
    outType = entry.Type();
    outOid = entry.mOid;
    return true;
}

bool Tree::EntryByIndex(std::size_t inIndex, std::string& outName, ObjectType& outType, Oid& outOid) const
{
    if (inIndex >= mCount) return false;
    TreeEntry entry;
    std::size_t size = 0;
    if (mOffsets.empty())
        entry = *std::next(begin(), static_cast<std::ptrdiff_t>(inIndex));
    else
        ReadEntry(Raw().substr(mOffsets[inIndex]), entry, size);
    outName = entry.mName;
    outType = entry.Type();
    outOid = entry.mOid;
    return true;
}

void Tree::Iterator::Read()
{
    if (!mRest.empty()) ReadEntry(mRest, mEntry, mSize);
}

std::shared_ptr<const Commit> Commit::Parse(const Oid& inOid, std::string_view inContent)
{
    auto commit = std::make_shared<Commit>();
    commit->mOid = inOid;
    std::string_view rest = inContent;
    while (!rest.empty() && rest.front() != '\n') {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(rest.size(), line.size() + 1));
        const std::size_t blank = std::min(line.find(' '), line.size());
        const std::string_view key = line.substr(0, blank);
        const std::string_view value = line.substr(std::min(line.size(), blank + 1));
        Oid oid;
        if (key == "tree") {
            if (!Oid::FromText(value, commit->mTree)) return nullptr;
        } else if (key == "parent") {
            if (!Oid::FromText(value, oid)) return nullptr;
            commit->mParents.push_back(oid);
        } else if (key == "author") {
            if (!ReadSignature(value, commit->mAuthor)) return nullptr;
        } else if (key == "committer") {
            if (!ReadSignature(value, commit->mCommitter)) return nullptr;
        }
    }
    if (commit->mTree.IsZero()) return nullptr;
    while (rest.starts_with('\n'))
        rest.remove_prefix(1);
    commit->mMessage = rest;
    return commit;
}

}  // namespace noxstorage::git
