#include "Platform/noxcore/MemoryFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace noxcore::utility {

namespace {

/// A descriptor and what is mapped of it.
class MemoryFile
{
public:
    MemoryFile() : mFile(memfd_create("payload", MFD_CLOEXEC | MFD_ALLOW_SEALING)) {}
    ~MemoryFile()
    {
        if (mBytes != MAP_FAILED) munmap(mBytes, mSize);
        if (mFile >= 0) close(mFile);
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    /// Written and sealed: what a socket still holds of it cannot change under it.
    bool Fill(std::string_view inBytes)
    {
        for (std::size_t written = 0; written < inBytes.size();) {
            const ssize_t count = write(mFile, inBytes.data() + written, inBytes.size() - written);
            if (count <= 0) return false;
            written += static_cast<std::size_t>(count);
        }
        if (fcntl(mFile, F_ADD_SEALS, F_SEAL_WRITE | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0) return false;
        mBytes = mmap(nullptr, inBytes.size(), PROT_READ, MAP_PRIVATE, mFile, 0);
        mSize = inBytes.size();
        return mBytes != MAP_FAILED;
    }

    [[nodiscard]] int File() const { return mFile; }
    [[nodiscard]] const void* Bytes() const { return mBytes; }

private:
    const int mFile;
    void* mBytes = MAP_FAILED;
    std::size_t mSize = 0;
};

}  // namespace

ConstRecycledMemoryPtr CopyToMemoryFile(std::string_view inBytes)
{
    auto file = std::make_shared<MemoryFile>();
    if (file->File() < 0 || inBytes.empty() || !file->Fill(inBytes)) return nullptr;
    const void* const bytes = file->Bytes();
    const int descriptor = file->File();
    return std::make_shared<const RecycledMemory>(std::move(file), bytes, inBytes.size(), descriptor);
}

}  // namespace noxcore::utility
