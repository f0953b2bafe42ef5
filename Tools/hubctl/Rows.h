#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace hubctl {

/// A payload of an asset: bytes, or a file that is read while it is sent.
struct Payload
{
    std::string mID;  ///< of the enclosure
    std::string mName;
    std::string mBytes;
    std::string mPath;        ///< of the file; empty where the bytes are here
    std::uint64_t mSize = 0;  ///< of the file

    [[nodiscard]] std::uint64_t Size() const { return mPath.empty() ? mBytes.size() : mSize; }
};

/// One asset to import.
struct AssetRow
{
    std::string mID;
    std::string mName;        ///< for messages; also a member of the properties
    std::string mProperties;  ///< JSON
    bool mIsBin = false;
    std::optional<Payload> mPayload;
};

/// Something that was left out or changed on the way in, and why.
struct Remark
{
    std::string mPath;
    std::string mText;
};

/// Where rows come from, parents before what they hold. Threading: one thread.
class RowSource
{
public:
    virtual ~RowSource() = default;
    /// About how many rows will come; for progress alone.
    [[nodiscard]] virtual std::size_t Count() const = 0;
    /// False at the end.
    virtual bool Next(AssetRow& outRow) = 0;
    /// What there was to say so far, oldest first.
    [[nodiscard]] virtual const std::vector<Remark>& Remarks() const = 0;
};

}  // namespace hubctl
