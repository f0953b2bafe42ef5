#pragma once

#include <memory>
#include <vector>

#include "Platform/noxnet/HTTPClient.h"

namespace noxnet::http::client {

/// A multipart/form-data body (RFC 7578). Texts lie in memory; files are read while they are sent, a piece at a time.
///
/// The boundary is random, so that it does not occur in what is sent. Threading: one thread at a time.
class MultipartForm final : public BodySource
{
public:
    MultipartForm();
    ~MultipartForm() override;

    /// A field. False for a name that no part's head can hold: control characters, or "%22", which readers take for
    /// a quotation mark.
    [[nodiscard]] bool AddText(std::string_view inName, std::string inText);
    /// A payload.
    [[nodiscard]] bool AddContent(std::string_view inName, std::string inBytes);
    /// A payload of exactly inSize bytes from a file, which is opened when its turn comes.
    [[nodiscard]] bool AddFile(std::string_view inName, std::string inPath, std::uint64_t inSize);

    [[nodiscard]] std::size_t PartCount() const { return mParts.size(); }
    [[nodiscard]] std::string ContentType() const;
    /// The path of the file that could not be read to its size, or had grown; empty when none failed.
    [[nodiscard]] const std::string& FailedFile() const { return mFailedFile; }

    [[nodiscard]] std::uint64_t Size() const override;
    bool Rewind() override;
    std::optional<std::size_t> Read(std::span<char> outBytes) override;

private:
    class OpenFile;
    struct Part
    {
        std::string mHead;  ///< with the delimiter before it
        std::string mText;
        std::string mPath;  ///< of a part whose content comes from a file
        std::uint64_t mFileSize = 0;
    };
    /// What is sent now: part by part, and in each the head, then the content.
    enum class Stage
    {
        Head,
        Content
    };

    bool Add(std::string_view inName, bool inIsPayload, Part inPart);
    /// Bytes of the piece that is next; 0 at the end.
    std::optional<std::size_t> ReadPiece(std::span<char> outBytes);
    std::optional<std::size_t> ReadFile(const Part& inPart, std::span<char> outBytes);

    const std::string mBoundary;
    std::vector<Part> mParts;
    std::uint64_t mSize = 0;  ///< of all parts, without the closing delimiter
    std::string mFailedFile;

    std::size_t mPart = 0;  ///< one past the last: the closing delimiter
    Stage mStage = Stage::Head;
    std::uint64_t mPlace = 0;
    std::unique_ptr<OpenFile> mFile;
};

}  // namespace noxnet::http::client
