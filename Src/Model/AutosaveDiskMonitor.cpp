#include "Inc/Model/AutosaveDiskMonitor.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <utility>

#include "Inc/Model/ComplaintBox.h"
#include "Platform/noxcore/DebugDatabase.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub::GitBox {

namespace threads = noxcore::threads;
namespace FileUtils = noxcore::filesupport::FileUtils;
using noxcore::logging::LogError;

namespace {

constexpr unsigned kDelayMilliseconds = 1000;
constexpr std::int64_t kDefaultThresholdInMB = 5;
constexpr unsigned kBitsOfMB = 20;
constexpr std::int64_t kInsufficientStorage = 507;

std::int64_t ReadThreshold()
{
    const std::int64_t megabytes = noxcore::debug::DebugDatabase::Instance()->GetInteger(
        "VY.Config.LocalHub.MinAutosaveDiskSpaceInMB", kDefaultThresholdInMB);
    if (megabytes < 0) return -1;
    return std::min(megabytes, std::numeric_limits<std::int64_t>::max() >> kBitsOfMB) << kBitsOfMB;
}

void LogUnknownSpace(std::int64_t inThreshold, const std::string& inPath, const char* inReason)
{
    LogError("GitBox", "Exception thrown checking for disk space",
             {{"minAutosaveDiskSpace", inThreshold}, {"path", inPath}, {"exception", inReason}});
}

}  // namespace

AutosaveDiskMonitor::AutosaveDiskMonitor(Places inPlaces) : mPlaces(std::move(inPlaces)), mThreshold(ReadThreshold()) {}

std::shared_ptr<AutosaveDiskMonitor> AutosaveDiskMonitor::Create(Places inPlaces)
{
    std::shared_ptr<AutosaveDiskMonitor> monitor(new AutosaveDiskMonitor(std::move(inPlaces)));
    monitor->mTask = threads::QueueOnlyOnce::Create(
        threads::CreateSubExecutor(threads::IOBoundExecutor(), 1),
        [weak = monitor->weak_from_this()] { WeakAutosaveLowDiskSpaceMonitor(weak); }, kDelayMilliseconds);
    return monitor;
}

void AutosaveDiskMonitor::Queue()
{
    mTask->Queue();
}

AutosaveDiskMonitor::Space AutosaveDiskMonitor::SpaceOf(const std::string& inPath) const
{
    if (mThreshold < 0) return Space::Enough;
    try {
        std::uint64_t free = 0;
        if (FileUtils::GetVolumeFreeSpace(inPath, free)) {
            return free < static_cast<std::uint64_t>(mThreshold) ? Space::Low : Space::Enough;
        }
        LogUnknownSpace(mThreshold, inPath, "The volume does not tell its free space");
    } catch (const std::exception& exception) {
        LogUnknownSpace(mThreshold, inPath, exception.what());
    }
    return Space::Unknown;
}

bool AutosaveDiskMonitor::VolumeIsLowOnAutosaveSpace(const std::string& inPath) const
{
    return SpaceOf(inPath) == Space::Low;
}

void AutosaveDiskMonitor::WeakAutosaveLowDiskSpaceMonitor(const std::weak_ptr<AutosaveDiskMonitor>& inMonitor)
{
    if (const auto monitor = inMonitor.lock()) monitor->AutosaveLowDiskSpaceMonitor();
}

std::map<std::string, AutosaveDiskMonitor::PlacesBySession> AutosaveDiskMonitor::PlacesByVolume(
    PlacesBySession& outUnknown) const
{
    std::map<std::string, PlacesBySession> places;
    for (const Place& place : mPlaces.mList()) {
        std::string volume;
        if (FileUtils::GetVolumePath(place.mPath, volume)) {
            places[volume].emplace(place.mSessionID, place);
            continue;
        }
        LogError("GitBox", "Could not obtain the volume path for disk containing autosave directory",
                 {{"autoSavePath", place.mPath}, {"sessionID", place.mSessionID}});
        outUnknown.emplace(place.mSessionID, place);
    }
    return places;
}

void AutosaveDiskMonitor::AutosaveLowDiskSpaceMonitor()
{
    PlacesBySession unknown;
    auto watched = PlacesByVolume(unknown);
    // A volume that nobody writes to any more is nobody's trouble; one whose session cannot be placed just now stays
    // low.
    for (const auto& [volume, state] : mLowVolumes)
        if (!unknown.contains(state.mSessionID)) watched.try_emplace(volume);
    for (const auto& [volume, places] : watched) {
        const Space space = places.empty() ? Space::Enough : SpaceOf(volume);
        if (space == Space::Low) Complain(volume, places);
        if (space != Space::Enough) continue;
        Withdraw(volume);
        for (const auto& [session, place] : places)
            mPlaces.mSettle(place);
    }
}

void AutosaveDiskMonitor::Complain(const std::string& inVolume, const PlacesBySession& inPlaces)
{
    const auto found = mLowVolumes.find(inVolume);
    if (found != mLowVolumes.end()) {
        if (inPlaces.contains(found->second.mSessionID)) return;
        // The session that it was filed for has gone, and others are left without a word.
        Withdraw(inVolume);
    }
    const ImmutableString& session = inPlaces.begin()->first;
    mLowVolumes[inVolume] = {
        session, ComplaintBox::Instance()->FileComplaint(session, kInsufficientStorage,
                                                         "Disk space on volume '" + inVolume + "' is critically low")};
}

void AutosaveDiskMonitor::Withdraw(const std::string& inVolume)
{
    const auto found = mLowVolumes.find(inVolume);
    if (found == mLowVolumes.end()) return;
    ComplaintBox::Instance()->RemoveComplaint(found->second.mComplaintID);
    mLowVolumes.erase(found);
}

}  // namespace VantryLocalHub::GitBox
