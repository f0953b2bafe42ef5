// Any bytes as an archive: it is unpacked into its folder alone and to no more than so many bytes can hold, or refused
// with a record in the log and nothing left behind.

#include <cstdint>

#include "Fuzz/FuzzHub.h"
#include "Platform/noxstorage/ZipFile.h"

namespace {

constexpr std::uintmax_t kMostForAByte = 1032;  ///< what the packing can make of one byte at most

std::uintmax_t BytesBelow(const std::string& inFolder)
{
    std::uintmax_t bytes = 0;
    for (const auto& entry : fuzzing::fs::recursive_directory_iterator(inFolder)) {
        if (entry.is_symlink() || (!entry.is_regular_file() && !entry.is_directory())) std::abort();
        if (entry.is_regular_file()) bytes += entry.file_size();
    }
    return bytes;
}

std::size_t EntriesIn(const std::string& inFolder)
{
    return static_cast<std::size_t>(
        std::distance(fuzzing::fs::directory_iterator(inFolder), fuzzing::fs::directory_iterator()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* inData, std::size_t inSize)
{
    static auto& hub = *new fuzzing::FuzzHub();
    const std::string_view bytes(reinterpret_cast<const char*>(inData), inSize);
    const std::string file = hub.Begin("a.zip", bytes);
    const std::string folder = hub.Folder() + "/folder";
    const bool unpacked = noxstorage::ZipFile(file, {}).UnZip(folder, false);
    if (EntriesIn(hub.Root()) != 2 || EntriesIn(hub.Folder()) != (unpacked ? 2U : 1U)) std::abort();
    if (!unpacked && hub.LogRecords() == 0) std::abort();
    if (unpacked && (BytesBelow(folder) > kMostForAByte * inSize || EntriesIn(folder) == 0)) std::abort();
    if (fuzzing::ReadWhole(file) != bytes) std::abort();
    return 0;
}
