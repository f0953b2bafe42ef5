#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/noxstorage/GitTransfer.h"
#include "Platform/noxstorage/OdbContent.h"

namespace noxstorage::git::odb {

/// An object in the form of its row.
struct EncodedObject
{
    Oid mOid;
    Encoded mObject;
    bool mIsWanted = true;  ///< false: it only lies among those that are
};

/// Objects on their way from store to store, with their bytes: one of any size, or several that have room together.
class EncodedBatch
{
public:
    explicit EncodedBatch(std::size_t inRoom) { mBytes.reserve(inRoom); }

    /// For one that is wanted.
    [[nodiscard]] bool HasRoomFor(std::uint64_t inSize) const { return mWanted == 0 || HasRoomBeside(inSize); }
    /// Whether it has room beside what is there already.
    [[nodiscard]] bool HasRoomBeside(std::uint64_t inSize) const { return mUsed + inSize <= mBytes.capacity(); }
    /// Bytes without an owner are copied.
    void Add(const Oid& inOid, ObjectType inType, unsigned inEncoding, std::uint64_t inSize, Content inData,
             bool inIsWanted = true)
    {
        const std::string_view data = inData.mView;
        mUsed += data.size();
        if (inIsWanted) ++mWanted;
        if (inData.mOwner == nullptr && mBytes.size() + data.size() <= mBytes.capacity()) {
            const std::size_t at = mBytes.size();
            mBytes.append(data);
            inData.mView = {mBytes.data() + at, data.size()};
        } else if (inData.mOwner == nullptr) {
            inData = Content::Share(std::make_shared<const std::string>(data));
        }
        mObjects.push_back({inOid, {inType, inEncoding, inSize, std::move(inData), {}, false}, inIsWanted});
    }
    [[nodiscard]] std::span<EncodedObject> Objects() { return mObjects; }
    void KeepWanted()
    {
        std::erase_if(mObjects, [](const EncodedObject& inObject) { return !inObject.mIsWanted; });
    }
    void Clear()
    {
        mObjects.clear();
        mBytes.clear();
        mUsed = 0;
        mWanted = 0;
    }

private:
    std::vector<EncodedObject> mObjects;
    std::string mBytes;  ///< never grows beyond its capacity: the objects point into it
    std::size_t mUsed = 0;
    std::size_t mWanted = 0;
};

}  // namespace noxstorage::git::odb
