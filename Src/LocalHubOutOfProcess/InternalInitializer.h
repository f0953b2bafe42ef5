#pragma once

#include <memory>

#include "Platform/mediacore/Initializer.h"
#include "Platform/noxcore/ClassWatcher.h"
#include "Platform/noxcore/ErrorManager.h"
#include "Platform/noxcore/Localizer.h"
#include "Platform/noxcore/TraceHandler.h"

namespace VantryLocalHub {

/// The runtime of the hub's process: names and versions, settings, log file, error manager, modules, client library.
/// It is set up by the constructor, in one order, and stands until the process has left its event loop.
///
/// The constructor leaves two clean-ups behind on the I/O-bound executor: of old log files, and of what dead processes
/// left in the temporary folder. Threading: main thread. Locks: none.
class InternalInitializer final : public noxcore::config::Localizer
{
public:
    InternalInitializer();

private:
    void SetNamesAndVersions();
    void SetUpErrorManager();
    void RegisterModules();
    void InitializeModules();

    const noxcore::classref::ClassWatcher::Counter mCounter{"InternalInitializer"};
    std::shared_ptr<noxcore::config::ErrorManager::NewHandlerInitializer> mNewHandlerInitializer;
    std::shared_ptr<noxcore::debug::TraceHandlerInstaller> mTraceHandlerInstaller;
    std::shared_ptr<MX::Initializer> mMediaCoreInitializer;
};

}  // namespace VantryLocalHub
