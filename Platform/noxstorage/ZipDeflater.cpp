#include "Platform/noxstorage/ZipDeflater.h"

#include <isa-l/crc.h>
#include <isa-l/igzip_lib.h>

#include <algorithm>
#include <limits>
#include <vector>

namespace noxstorage::zip {

struct Deflater::Stream
{
    isal_zstream mState{};
    std::vector<std::uint8_t> mRoom = std::vector<std::uint8_t>(ISAL_DEF_LVL1_DEFAULT);
};

Deflater::Deflater() : mStream(std::make_unique<Stream>())
{
    isal_deflate_init(&mStream->mState);
    mStream->mState.level = 1;
    mStream->mState.level_buf = mStream->mRoom.data();
    mStream->mState.level_buf_size = static_cast<std::uint32_t>(mStream->mRoom.size());
    mStream->mState.gzip_flag = IGZIP_DEFLATE;
    mStream->mState.flush = NO_FLUSH;
}

Deflater::~Deflater() = default;

bool Deflater::Pack(std::string_view& ioInput, bool inIsLast, std::span<char>& ioOutput)
{
    constexpr std::size_t kMost = std::numeric_limits<std::uint32_t>::max();
    const std::size_t given = std::min(ioInput.size(), kMost);
    const std::size_t room = std::min(ioOutput.size(), kMost);
    isal_zstream& state = mStream->mState;
    // Read only, though not declared so.
    state.next_in = reinterpret_cast<std::uint8_t*>(const_cast<char*>(ioInput.data()));
    state.avail_in = static_cast<std::uint32_t>(given);
    state.next_out = reinterpret_cast<std::uint8_t*>(ioOutput.data());
    state.avail_out = static_cast<std::uint32_t>(room);
    state.end_of_stream = inIsLast && given == ioInput.size() ? 1 : 0;
    const bool packed = isal_deflate(&state) == COMP_OK;
    ioInput.remove_prefix(given - state.avail_in);
    ioOutput = ioOutput.subspan(room - state.avail_out);
    return packed;
}

bool Deflater::HasEnded() const
{
    return mStream->mState.internal_state.state == ZSTATE_END;
}

std::uint32_t AddToCheckSum(std::uint32_t inCheckSum, std::string_view inBytes)
{
    return crc32_gzip_refl(inCheckSum, reinterpret_cast<const unsigned char*>(inBytes.data()), inBytes.size());
}

}  // namespace noxstorage::zip
