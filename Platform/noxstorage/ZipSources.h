#pragma once

#include <zip.h>

#include <functional>
#include <memory>
#include <string>

#include "Platform/noxcore/FileSupport.h"

/// The ways by which libzip comes to our files.
///
/// A source belongs to libzip: it is freed with the archive that it was given to, or by zip_source_free.
namespace noxstorage::zip {

struct DiscardArchive
{
    void operator()(zip_t* inArchive) const { zip_discard(inArchive); }
};
using ArchivePtr = std::unique_ptr<zip_t, DiscardArchive>;

struct FreeSource
{
    void operator()(zip_source_t* inSource) const { zip_source_free(inSource); }
};
using SourcePtr = std::unique_ptr<zip_source_t, FreeSource>;

/// Called with how many bytes were just read; false makes the read fail.
using ReadListener = std::function<bool(std::uint64_t inBytes)>;

/// A file to read: an archive, or what goes into one. Null when it cannot be opened.
SourcePtr OpenForReading(const noxcore::filesupport::Path& inFile, ReadListener inListener = {});
/// The same, opened only while it is read: an archive may take more files than can be open at once.
SourcePtr ReadLater(const noxcore::filesupport::Path& inFile, std::uint64_t inSize, ReadListener inListener);
/// A file that goes into an archive deflated. Packed here already, since libzip's way takes five times as long.
SourcePtr DeflateLater(const noxcore::filesupport::Path& inFile, std::uint64_t inSize, ReadListener inListener);
/// An archive to write into a new file. The writer outlives the archive; it is not synced.
SourcePtr OpenForWriting(noxcore::filesupport::FileWriter& inWriter);

/// The archive of a source, with libzip's flags. Null, and why, when it cannot be opened.
ArchivePtr OpenArchive(SourcePtr inSource, int inFlags, std::string& outFailure);

}  // namespace noxstorage::zip
