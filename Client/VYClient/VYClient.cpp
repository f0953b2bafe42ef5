#include "Client/VYClient/VYClient.h"

#include "Client/VYClient/LocalHub.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"

namespace VYCL {

namespace {

using noxcore::HubContext;
using noxcore::threads::LockRank;
using noxcore::threads::RecursiveMutex;
using noxcore::threads::ScopedLock;

/// What is ready between Initialize and Shutdown.
struct Library
{
    std::shared_ptr<noxcore::threads::Executor> mCleanup = noxcore::threads::CreateIOBoundExecutor("VYCL clean-up", 1);
};

struct LibraryLock
{
    RecursiveMutex mMutex{LockRank::None};
};

/// Threading: any thread. The mutex guards the text and is held while the file is read or written (rank Leaf).
class MachineIdentity
{
public:
    std::string Get()
    {
        const ScopedLock lock(mMutex);
        if (mID.empty()) {
            const bool mayWrite = Read();
            if (mID.empty()) {
                mID = noxcore::utility::Guid::CreateUnique().Text();
                if (mayWrite) Write();
            }
        }
        return mID;
    }

    void Set(std::string_view inID)
    {
        const ScopedLock lock(mMutex);
        if (!inID.empty() && inID != mID) {
            mID = inID;
            Write();
        }
    }

private:
    static std::string File() { return noxcore::filesupport::Join(LocalHub::GetSettingsFolder(), "machineid"); }

    /// False: there may be an identity in the file, which is not to be overwritten.
    bool Read() REQUIRES(mMutex)
    {
        auto& files = noxcore::filesupport::Files();
        if (!files.FileExists(File()) || files.ReadFile(File(), mID)) return true;
        mID.clear();
        noxcore::logging::LogWarning("VantryLocalHub", "Cannot read the machine identity", {{"path", File()}});
        return false;
    }

    /// An identity that cannot be kept still holds for this run.
    void Write() REQUIRES(mMutex)
    {
        auto& files = noxcore::filesupport::Files();
        if (!files.EnsureDirectoryExists(LocalHub::GetSettingsFolder()) || !files.WriteFileDurably(File(), mID)) {
            noxcore::logging::LogWarning("VantryLocalHub", "Cannot keep the machine identity", {{"path", File()}});
        }
    }

    RecursiveMutex mMutex{LockRank::Leaf};
    std::string mID GUARDED_BY(mMutex);
};

}  // namespace

bool Initialize()
{
    const auto& context = HubContext::Current();
    if (context->GetInstance<Library>()) {
        return false;
    }
    context->SetInstance(std::make_shared<Library>());
    return true;
}

void Shutdown()
{
    const auto& context = HubContext::Current();
    const auto library = context->GetInstance<Library>();
    if (library) {
        context->SetInstance<Library>(nullptr);
        library->mCleanup->ShutDownAndWait();
    }
}

std::shared_ptr<noxcore::threads::Executor> GetCleanupExecutor()
{
    const auto library = HubContext::Current()->GetInstance<Library>();
    return library ? library->mCleanup : nullptr;
}

std::string GetMachineID()
{
    return HubContext::Current()->GetOrCreateInstance<MachineIdentity>()->Get();
}

void SetMachineID(std::string_view inMachineID)
{
    HubContext::Current()->GetOrCreateInstance<MachineIdentity>()->Set(inMachineID);
}

RecursiveMutex& GetLibraryLock()
{
    return HubContext::Current()->GetOrCreateInstance<LibraryLock>()->mMutex;
}

}  // namespace VYCL
