#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/RecursiveMutex.h"

/// The client library of the remote hub: what the hub process needs of it before any server is reached.
namespace VYCL {

/// Makes the library ready for the current context. False when it is ready already.
bool Initialize();
/// Ends the clean-up work that is queued and takes no more. Without effect when the library is not ready.
void Shutdown();

/// The background executor for slow clean-up; null unless the library is ready.
std::shared_ptr<noxcore::threads::Executor> GetCleanupExecutor();

/// The identity of this installation: what SetMachineID gave, else what a file of the settings folder holds, else a new
/// one that is kept there. Threading: any thread.
std::string GetMachineID();
/// Keeps an identity. An empty text changes nothing.
void SetMachineID(std::string_view inMachineID);

/// The lock of all remote resource objects and of compound operations of a context: held to copy values, never across
/// a completion. It stands outside the lock order (rank None), for it is taken under and over the engine's locks.
noxcore::threads::RecursiveMutex& GetLibraryLock();

}  // namespace VYCL
