#include "Tools/hubctl/FolderRows.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "Client/Wire/Vocabulary.h"
#include "Platform/noxappsupport/RFC3339DateTime.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/JSON.h"
#include "Tools/hubctl/LastError.h"
#include "Tools/hubctl/UTF8Text.h"

namespace hubctl {

using noxappsupport::cloudservice::RFC3339DateTime;
using noxcore::filesupport::Join;
using noxcore::serialization::JSONWriter;
using noxcore::utility::Guid;

/// A folder or file as the walk found it.
struct FolderRows::Item
{
    std::string mID;
    std::string mParentID;  ///< empty for the root
    std::string mPath;      ///< below the root, in the system's bytes; empty for the root
    std::string mName;      ///< UTF-8
    struct stat mStatus = {};
    std::string mLinkTarget;  ///< of a link to a file
    bool mIsFolder = false;
    bool mRenamed = false;  ///< the name is no UTF-8
};

namespace {

/// Contents up to this size are read when their row is made, so that what is sent is whole; larger ones while they
/// are sent.
constexpr std::uint64_t kReadAtOnceBytes = 8 * 1024 * 1024;

constexpr const char* kContentName = "content";

struct FolderCloser
{
    void operator()(DIR* inFolder) const { closedir(inFolder); }
};

class OpenedFile
{
public:
    explicit OpenedFile(const std::string& inPath) : mFile(open(inPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
    ~OpenedFile()
    {
        if (mFile >= 0) close(mFile);
    }
    OpenedFile(const OpenedFile&) = delete;
    OpenedFile& operator=(const OpenedFile&) = delete;
    [[nodiscard]] bool IsOpen() const { return mFile >= 0; }

    /// Reads to the end, but no more than one byte past inExpected. False with errno.
    bool ReadAll(std::uint64_t inExpected, std::string& outBytes) const
    {
        outBytes.resize(inExpected + 1);
        std::size_t size = 0;
        while (size < outBytes.size()) {
            const ssize_t count = read(mFile, outBytes.data() + size, outBytes.size() - size);
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) return false;
            if (count == 0) break;
            size += static_cast<std::size_t>(count);
        }
        outBytes.resize(size);
        return true;
    }

private:
    const int mFile;
};

const char* KindOf(mode_t inMode)
{
    if (S_ISSOCK(inMode)) return "a socket";
    if (S_ISFIFO(inMode)) return "a pipe";
    return "a device";
}

std::string TimeText(const timespec& inTime)
{
    return RFC3339DateTime(static_cast<std::int64_t>(inTime.tv_sec) * 10000000 + inTime.tv_nsec / 100).Text();
}

std::string ModeText(mode_t inMode)
{
    std::string text = "0000";
    for (int i = 0; i < 4; ++i)
        text[3 - i] = static_cast<char>('0' + ((inMode >> (3 * i)) & 7));
    return text;
}

std::string NameOfFolder(const std::string& inFolder)
{
    std::error_code error;
    const auto path = std::filesystem::canonical(inFolder, error);
    const std::string name = error ? std::string() : path.filename().string();
    return name.empty() ? "root" : name;
}

std::string WithoutSlashes(std::string inPath)
{
    while (inPath.size() > 1 && inPath.back() == '/')
        inPath.pop_back();
    return inPath;
}

}  // namespace

FolderRows::FolderRows(std::string inRoot, std::uint64_t inLimit) : mRoot(std::move(inRoot)), mLimit(inLimit) {}

FolderRows::~FolderRows() = default;

std::unique_ptr<FolderRows> FolderRows::Open(const std::string& inFolder, std::uint64_t inLimit, std::string& outError)
{
    std::unique_ptr<FolderRows> rows(new FolderRows(WithoutSlashes(inFolder), inLimit));
    if (!rows->Walk(outError)) return nullptr;
    return rows;
}

std::size_t FolderRows::Count() const
{
    return mItems.size();
}

const std::string& FolderRows::RootName() const
{
    return mItems.front().mName;
}

bool FolderRows::Walk(std::string& outError)
{
    Item root;
    if (stat(mRoot.c_str(), &root.mStatus) != 0) {
        outError = LastError();
        return false;
    }
    root.mIsFolder = true;
    root.mName = NameOfFolder(mRoot);
    AddItem(std::move(root));

    std::vector<std::size_t> folders{0};
    while (!folders.empty()) {
        const std::size_t folder = folders.back();
        folders.pop_back();
        std::vector<std::string> names;
        std::string error;
        if (!ListFolder(folder, names, error)) {
            if (folder == 0) {
                outError = error;
                return false;
            }
            AddRemark(mItems[folder].mPath, "the folder's content is left out: " + error);
            continue;
        }
        const std::size_t before = mItems.size();
        for (const std::string& name : names)
            LookAt(folder, name);
        for (std::size_t i = mItems.size(); i-- > before;) {
            if (mItems[i].mIsFolder) folders.push_back(i);
        }
    }
    return true;
}

bool FolderRows::ListFolder(std::size_t inFolder, std::vector<std::string>& outNames, std::string& outError)
{
    const int file =
        open(FullPath(mItems[inFolder]).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | (inFolder == 0 ? 0 : O_NOFOLLOW));
    DIR* const opened = file < 0 ? nullptr : fdopendir(file);
    if (opened == nullptr) {
        outError = LastError();
        if (file >= 0) close(file);
        return false;
    }
    const std::unique_ptr<DIR, FolderCloser> folder(opened);
    errno = 0;
    while (const dirent* entry = readdir(folder.get())) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            outNames.emplace_back(entry->d_name);
        errno = 0;
    }
    if (errno != 0) {
        outError = LastError();
        return false;
    }
    std::sort(outNames.begin(), outNames.end());
    return true;
}

void FolderRows::LookAt(std::size_t inFolder, const std::string& inName)
{
    Item item;
    item.mParentID = mItems[inFolder].mID;
    item.mPath = inFolder == 0 ? inName : Join(mItems[inFolder].mPath, inName);
    item.mName = inName;
    const std::string path = FullPath(item);
    if (lstat(path.c_str(), &item.mStatus) != 0) return AddRemark(item.mPath, "left out: " + LastError());
    if (S_ISLNK(item.mStatus.st_mode)) {
        if (stat(path.c_str(), &item.mStatus) != 0) return AddRemark(item.mPath, "left out, a broken link");
        if (S_ISDIR(item.mStatus.st_mode)) return AddRemark(item.mPath, "left out, a link to a folder");
        std::error_code error;
        item.mLinkTarget = std::filesystem::read_symlink(path, error).string();
    }
    item.mIsFolder = S_ISDIR(item.mStatus.st_mode);
    if (!item.mIsFolder && !S_ISREG(item.mStatus.st_mode))
        return AddRemark(item.mPath, std::string("left out, ") + KindOf(item.mStatus.st_mode));
    AddItem(std::move(item));
}

void FolderRows::AddItem(Item inItem)
{
    inItem.mID = Guid::CreateUnique().Text();
    inItem.mName = ToValidUTF8(inItem.mName, inItem.mRenamed);
    if (inItem.mRenamed) AddRemark(inItem.mPath, "the name is no UTF-8; odd bytes are replaced");
    mItems.push_back(std::move(inItem));
}

std::string FolderRows::FullPath(const Item& inItem) const
{
    return inItem.mPath.empty() ? mRoot : Join(mRoot, inItem.mPath);
}

bool FolderRows::Next(AssetRow& outRow)
{
    while (mNext < mItems.size()) {
        const Item& item = mItems[mNext++];
        outRow = {.mID = item.mID,
                  .mName = item.mName,
                  .mProperties = Properties(item),
                  .mIsBin = item.mIsFolder,
                  .mPayload = {}};
        if (item.mIsFolder || TakeContent(item, outRow)) return true;
    }
    return false;
}

std::string FolderRows::Properties(const Item& inItem) const
{
    bool changed = false;
    JSONWriter writer;
    writer.BeginObject();
    writer.Member("name", inItem.mName);
    if (!inItem.mParentID.empty()) writer.Member("vy:parent", inItem.mParentID);
    writer.Member("lumo:assetType", inItem.mIsFolder ? VYCL::GetAssetType_Bin() : VYCL::GetAssetType_Clip());
    writer.Key("fileProperties");
    writer.BeginObject();
    writer.Member("mFilePath", ToValidUTF8(inItem.mPath, changed));
    if (changed) writer.Member("mFilePathBytes", PercentEncoded(inItem.mPath));
    if (!inItem.mLinkTarget.empty()) writer.Member("mLinkTarget", ToValidUTF8(inItem.mLinkTarget, changed));
    if (!inItem.mIsFolder) {
        writer.Key("mSize");
        writer.Int(inItem.mStatus.st_size);
    }
    writer.Member("mModificationTime", TimeText(inItem.mStatus.st_mtim));
    writer.Member("mStatusChangeTime", TimeText(inItem.mStatus.st_ctim));
    writer.Member("mMode", ModeText(inItem.mStatus.st_mode));
    writer.EndObject();
    writer.EndObject();
    return writer.TakeText();
}

/// False when the row as a whole is to be left out.
bool FolderRows::TakeContent(const Item& inItem, AssetRow& ioRow)
{
    const auto size = static_cast<std::uint64_t>(inItem.mStatus.st_size);
    if (size > mLimit) return true;
    const std::string path = FullPath(inItem);
    const OpenedFile file(path);
    if (!file.IsOpen()) {
        const bool gone = errno == ENOENT || errno == ENOTDIR;
        if (gone) {
            AddRemark(inItem.mPath, "left out: it has gone");
        } else {
            AddRemark(inItem.mPath, "the content is left out: " + LastError());
        }
        return !gone;
    }
    Payload payload{.mID = Guid::CreateUnique().Text(), .mName = kContentName, .mBytes = {}, .mPath = {}};
    if (size > kReadAtOnceBytes) {
        payload.mPath = path;
        payload.mSize = size;
    } else if (!file.ReadAll(size, payload.mBytes)) {
        AddRemark(inItem.mPath, "the content is left out: " + LastError());
        return true;
    } else if (payload.mBytes.size() != size) {
        AddRemark(inItem.mPath, "the content is left out: it changed while it was read");
        return true;
    }
    if (payload.Size() > 0) ioRow.mPayload = std::move(payload);  // an empty payload has no content id
    return true;
}

void FolderRows::AddRemark(const std::string& inPath, std::string inText)
{
    mRemarks.push_back({inPath, std::move(inText)});
}

}  // namespace hubctl
