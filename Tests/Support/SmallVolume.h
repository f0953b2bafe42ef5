#pragma once

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <fstream>
#include <string>

namespace testing_support {

/// A file system in memory of a few megabytes, mounted where nobody outside this process sees it.
class SmallVolume
{
public:
    SmallVolume(const std::string& inFolder, const char* inSize) : mFolder(inFolder)
    {
        if (unshare(CLONE_NEWNS) != 0 && !EnterUserNamespace()) return;
        // Lest the mount shows in the namespace that this one was copied from.
        if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return;
        mMounted = mount("tmpfs", mFolder.c_str(), "tmpfs", 0, inSize) == 0;
    }
    ~SmallVolume()
    {
        if (mMounted) umount2(mFolder.c_str(), MNT_DETACH);
    }
    SmallVolume(const SmallVolume&) = delete;
    SmallVolume& operator=(const SmallVolume&) = delete;
    [[nodiscard]] bool IsMounted() const { return mMounted; }
    /// Whether it is to be read alone. False: it stays as it is, since somebody writes to it, say.
    bool SetReadOnly(bool inReadOnly)
    {
        const unsigned long flags = MS_REMOUNT | (inReadOnly ? MS_RDONLY : 0);
        return mMounted && mount("tmpfs", mFolder.c_str(), "tmpfs", flags, nullptr) == 0;
    }

private:
    static bool Put(const char* inPath, const std::string& inText)
    {
        return static_cast<bool>(std::ofstream(inPath) << inText << std::flush);
    }
    /// Where this user is the administrator. A file of a group that is unknown there could not be made.
    static bool EnterUserNamespace()
    {
        const std::string user = "0 " + std::to_string(getuid()) + " 1";
        const std::string group = "0 " + std::to_string(getgid()) + " 1";
        return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && Put("/proc/self/setgroups", "deny") &&
               Put("/proc/self/uid_map", user) && Put("/proc/self/gid_map", group);
    }

    const std::string mFolder;
    bool mMounted = false;
};

}  // namespace testing_support
