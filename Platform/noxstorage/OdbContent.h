#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/noxstorage/GitObjects.h"

namespace noxstorage::git::odb {

/// Bytes with whoever keeps them; without an owner they are the caller's, and copied where they must stay.
struct Content
{
    std::shared_ptr<const void> mOwner;
    std::string_view mView;

    static Content Share(Bytes inBytes);
};

/// An object in the form that a row takes.
struct Encoded
{
    ObjectType mType = ObjectType::Invalid;
    unsigned mEncoding = 0;   ///< kEncodingZstd, or 0
    std::uint64_t mSize = 0;  ///< before encoding
    Content mData;
    std::string mOwn;       ///< the data, where nobody else keeps it
    bool mMayGain = false;  ///< nobody has tried yet whether it becomes smaller
};

/// The object as it is, or compressed at once where it is a blob and a sample says that it gains.
std::shared_ptr<const Encoded> Encode(ObjectType inType, Content inContent, bool inCompress);

/// Compresses into outBytes where that gains; false leaves the bytes to be stored as they are.
bool TryCompress(std::string_view inBytes, std::string& outBytes);

/// False when the data does not give inSize bytes.
bool Decode(unsigned inEncoding, std::string_view inData, std::uint64_t inSize, std::string& outBytes);
/// The same of a zstd frame, into room that serves one object after the other: it grows, and is never cleared.
bool DecodeInto(std::string_view inData, std::uint64_t inSize, std::string& ioRoom, std::string_view& outBytes);

}  // namespace noxstorage::git::odb
