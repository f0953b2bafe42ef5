#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "Platform/noxstorage/GitOid.h"

namespace noxstorage::git::odb {

/// Small objects that lie beside one that was read. What an asset is made of was written together, so that whoever has
/// read its tree asks for its neighbours next: one step along the rows each, instead of two searches.
///
/// Objects never change, so what is kept here stays true. Threading: belongs to a connection, one thread at a time.
class ReadAhead
{
public:
    static constexpr std::size_t kLargestTree = 160;      ///< bytes; a larger tree is no asset's
    static constexpr std::int64_t kRows = 6;              ///< before the one that was read
    static constexpr std::int64_t kLargestObject = 3072;  ///< bytes; larger neighbours are passed over
    static constexpr std::size_t kLargestShared = 64;     ///< bytes of what many assets have, such as a name

    struct Object
    {
        Oid mOid;
        unsigned mKind = 0;       ///< 0: there is none here
        std::uint64_t mSize = 0;  ///< bytes before encoding
        std::string mData;
    };

    /// Null when it is not here.
    [[nodiscard]] const Object* Find(const Oid& inOid) const
    {
        const Object& object = mObjects[PlaceOf(inOid)];
        return object.mKind != 0 && object.mOid == inOid ? &object : nullptr;
    }
    /// Takes the place of whichever object has it.
    void Add(const Oid& inOid, unsigned inKind, std::uint64_t inSize, std::string_view inData)
    {
        Object& object = mObjects[PlaceOf(inOid)];
        object.mOid = inOid;
        object.mKind = inKind;
        object.mSize = inSize;
        object.mData = inData;
    }

private:
    static constexpr std::size_t kPlaces = 64;
    static std::size_t PlaceOf(const Oid& inOid) { return inOid.Bytes()[0] % kPlaces; }

    std::array<Object, kPlaces> mObjects;
};

}  // namespace noxstorage::git::odb
