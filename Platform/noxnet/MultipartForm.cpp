#include "Platform/noxnet/MultipartForm.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "Platform/noxcore/Guid.h"

namespace noxnet::http::client {

/// A file while it is sent.
class MultipartForm::OpenFile
{
public:
    explicit OpenFile(const std::string& inPath) : mFile(open(inPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
    ~OpenFile()
    {
        if (mFile >= 0) close(mFile);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    /// Bytes read; 0 at the end, negative for a failure.
    ssize_t Read(std::span<char> outBytes) const
    {
        ssize_t size = -1;
        do {
            size = read(mFile, outBytes.data(), outBytes.size());
        } while (size < 0 && errno == EINTR);
        return size;
    }

private:
    const int mFile;
};

namespace {

/// False for a name that cannot be written so that it is read back the same.
bool Quote(std::string_view inName, std::string& outQuoted)
{
    if (inName.find("%22") != std::string_view::npos) return false;
    for (const char current : inName) {
        if (static_cast<unsigned char>(current) < 0x20 || current == 0x7f) return false;
        if (current == '"' || current == '\\') outQuoted += '\\';
        outQuoted += current;
    }
    return true;
}

std::size_t Copy(std::string_view inText, std::uint64_t inPlace, std::span<char> outBytes)
{
    return inText.copy(outBytes.data(), outBytes.size(), static_cast<std::size_t>(inPlace));
}

}  // namespace

MultipartForm::MultipartForm() : mBoundary(noxcore::utility::Guid::CreateUnique().Text()) {}

MultipartForm::~MultipartForm() = default;

bool MultipartForm::AddText(std::string_view inName, std::string inText)
{
    return Add(inName, false, {.mHead = {}, .mText = std::move(inText), .mPath = {}});
}

bool MultipartForm::AddContent(std::string_view inName, std::string inBytes)
{
    return Add(inName, true, {.mHead = {}, .mText = std::move(inBytes), .mPath = {}});
}

bool MultipartForm::AddFile(std::string_view inName, std::string inPath, std::uint64_t inSize)
{
    return Add(inName, true, {.mHead = {}, .mText = {}, .mPath = std::move(inPath), .mFileSize = inSize});
}

bool MultipartForm::Add(std::string_view inName, bool inIsPayload, Part inPart)
{
    std::string name;
    if (!Quote(inName, name)) return false;
    if (!mParts.empty()) inPart.mHead = "\r\n";
    inPart.mHead += "--" + mBoundary + "\r\nContent-Disposition: form-data; name=\"" + name + "\"";
    if (inIsPayload) inPart.mHead += "; filename=\"content\"\r\nContent-Type: application/octet-stream";
    inPart.mHead += "\r\n\r\n";
    mSize += inPart.mHead.size() + inPart.mText.size() + inPart.mFileSize;
    mParts.push_back(std::move(inPart));
    return true;
}

std::string MultipartForm::ContentType() const
{
    return "multipart/form-data; boundary=" + mBoundary;
}

std::uint64_t MultipartForm::Size() const
{
    return mParts.empty() ? 0 : mSize + mBoundary.size() + 8;  // "\r\n--" before and "--\r\n" behind it
}

bool MultipartForm::Rewind()
{
    mPart = 0;
    mStage = Stage::Head;
    mPlace = 0;
    mFile.reset();
    mFailedFile.clear();
    return true;
}

std::optional<std::size_t> MultipartForm::Read(std::span<char> outBytes)
{
    // Whatever fits goes at once: a form has thousands of short pieces, and each call may become a packet.
    std::size_t filled = 0;
    while (filled < outBytes.size()) {
        const auto size = ReadPiece(outBytes.subspan(filled));
        if (!size) return {};
        if (*size == 0) break;
        filled += *size;
    }
    return filled;
}

std::optional<std::size_t> MultipartForm::ReadPiece(std::span<char> outBytes)
{
    while (mPart < mParts.size()) {
        const Part& part = mParts[mPart];
        if (mStage == Stage::Head) {
            const std::size_t size = Copy(part.mHead, mPlace, outBytes);
            mPlace += size;
            if (size > 0) return size;
            mStage = Stage::Content;
        } else {
            const auto size = part.mPath.empty() ? Copy(part.mText, mPlace, outBytes) : ReadFile(part, outBytes);
            if (!size) return {};
            mPlace += *size;
            if (*size > 0) return size;
            mStage = Stage::Head;
            ++mPart;
            mFile.reset();
        }
        mPlace = 0;
    }
    if (mParts.empty()) return 0;
    const std::size_t size = Copy("\r\n--" + mBoundary + "--\r\n", mPlace, outBytes);
    mPlace += size;
    return size;
}

std::optional<std::size_t> MultipartForm::ReadFile(const Part& inPart, std::span<char> outBytes)
{
    if (!mFile) mFile = std::make_unique<OpenFile>(inPart.mPath);
    const std::uint64_t left = inPart.mFileSize - mPlace;
    if (left == 0) {
        char more = 0;
        if (mFile->Read({&more, 1}) == 0) return 0;
    } else {
        const ssize_t size =
            mFile->Read(outBytes.first(static_cast<std::size_t>(std::min<std::uint64_t>(left, outBytes.size()))));
        if (size > 0) return static_cast<std::size_t>(size);
    }
    mFailedFile = inPart.mPath;
    return {};
}

}  // namespace noxnet::http::client
