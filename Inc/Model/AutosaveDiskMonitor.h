#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/ImmutableString.h"

namespace VantryLocalHub::GitBox {

/// Looks at the free space of the volumes that sessions are written to, and complains while one of them has too little.
///
/// A look is asked for, not repeated: one that finds a volume low leaves its complaint until a later one finds room.
/// A volume whose free space cannot be told stays what it was.
/// Threading: any thread. Looks follow each other on an executor of their own width, so that no mutex guards what they
/// know. Calls of what was handed in, of the files and of the ComplaintBox hold no lock.
class AutosaveDiskMonitor : public std::enable_shared_from_this<AutosaveDiskMonitor>
{
public:
    using ImmutableString = noxcore::utility::ImmutableString;

    struct Place
    {
        ImmutableString mSessionID;
        std::string mPath;                ///< a file or folder of the session
        std::uint32_t mFailedWrites = 0;  ///< when the look began
    };

    /// What there is to watch. The functions must not keep the monitor's owner alive.
    struct Places
    {
        /// Gives what the next look is to watch.
        std::function<std::vector<Place>()> mList;
        /// Told of each place whose volume was seen to have room: nothing that had failed when the look began is left
        /// to watch. The others are to be listed the next time as well.
        std::function<void(const Place& inPlace)> mSettle;
    };

    /// Reads the threshold.
    static std::shared_ptr<AutosaveDiskMonitor> Create(Places inPlaces);

    /// Asks for a look, in a second. One look answers everybody who asked before it began.
    void Queue();
    /// Whether there is less room than VY.Config.LocalHub.MinAutosaveDiskSpaceInMB says; false when that is negative,
    /// or the free space cannot be told.
    [[nodiscard]] bool VolumeIsLowOnAutosaveSpace(const std::string& inPath) const;

private:
    enum class Space
    {
        Enough,
        Low,
        Unknown
    };
    struct LowVolume
    {
        ImmutableString mSessionID;  ///< the complaint is this session's
        std::string mComplaintID;
    };
    using PlacesBySession = std::map<ImmutableString, Place>;

    explicit AutosaveDiskMonitor(Places inPlaces);

    static void WeakAutosaveLowDiskSpaceMonitor(const std::weak_ptr<AutosaveDiskMonitor>& inMonitor);
    /// One look.
    void AutosaveLowDiskSpaceMonitor();
    /// outUnknown: those whose volume cannot be told.
    [[nodiscard]] std::map<std::string, PlacesBySession> PlacesByVolume(PlacesBySession& outUnknown) const;
    [[nodiscard]] Space SpaceOf(const std::string& inPath) const;
    void Complain(const std::string& inVolume, const PlacesBySession& inPlaces);
    void Withdraw(const std::string& inVolume);

    const Places mPlaces;
    const std::int64_t mThreshold;  ///< bytes; negative: everything has room
    std::shared_ptr<noxcore::threads::QueueOnlyOnce> mTask;

    std::map<std::string, LowVolume> mLowVolumes;  ///< volume -> its complaint; touched by looks alone
};

}  // namespace VantryLocalHub::GitBox
