#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "Platform/noxcore/FileSupport.h"

namespace noxstorage {

/// One archive in the zip format, whole or not there: a folder tree is packed into it, or unpacked from it.
///
/// Results are true on success; a failure is logged once, under "noxstorage". Nothing throws. Contents pass in pieces,
/// so that neither the largest file nor the archive needs room in memory. An archive with a password is not supported:
/// nothing is read or written then.
/// Threading: any thread; an object is used by one at a time.
class ZipFile
{
public:
    using Path = noxcore::filesupport::Path;
    /// Whether an entry of the name ("folder/", "folder/file") is wanted.
    using Choice = std::function<bool(std::string_view)>;
    /// Called now and then with how many bytes of how many are done; false stops the work.
    using Progress = bool (*)(void* inContext, std::uint64_t inDone, std::uint64_t inTotal);

    ZipFile(Path inFile, std::string inPassword);

    /// Packs all files and folders below the folder. The archive is made beside its place and takes it when it is
    /// complete and durable; one that was there before stays until then. False as well for a folder without anything
    /// in it, and one with anything but plain files and folders.
    bool Zip(const Path& inFolder, Progress inProgress, void* inContext);

    /// Unpacks into the folder; durable on return. A folder that is not there yet appears whole or not at all. Into one
    /// that is there, files are put beside those that it has; one of a name that it has already fails the call, or is
    /// replaced with the flag set. After a failure what was unpacked is removed again; what was replaced is gone.
    ///
    /// An archive is refused as a whole, before anything of it is unpacked, where it is damaged in its structure, where
    /// a name leads out of the folder, is not UTF-8, has a zero in it or stands twice, where an entry is encrypted, a
    /// link or a special file, or where its contents say that they leave too little room on the volume. Contents that
    /// are not of the size and the check sum that they say end the call.
    ///
    /// With a choice, entries that it does not want are passed over; the archive has to be whole nonetheless. One whose
    /// content is large and so many times its own size, where that is not 0, is refused as well.
    bool UnZip(const Path& inFolder, bool inReplace, const Choice& inChoice = {}, std::uint64_t inMostTimes = 0);

private:
    [[nodiscard]] bool HasPassword() const;

    const Path mFile;
    const std::string mPassword;
};

}  // namespace noxstorage
