#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

namespace noxcore::config {

/// Where failures are told that no function can hand to its caller. One per HubContext. Threading: any thread.
class ErrorManager
{
public:
    class NewHandlerInitializer;

    virtual ~ErrorManager() = default;
    virtual void ReportError(std::uint32_t inCode, std::string_view inText) = 0;
};

void SetErrorManager(std::shared_ptr<ErrorManager> inManager);
/// Null before one was set.
std::shared_ptr<ErrorManager> GetErrorManager();

/// Installs, for as long as the first of these lives, what runs when memory runs out: a reserve is given back and the
/// error manager told, so that running work can end; when the reserve is gone too, allocations fail with bad_alloc.
class ErrorManager::NewHandlerInitializer
{
public:
    NewHandlerInitializer();
    ~NewHandlerInitializer();
    NewHandlerInitializer(const NewHandlerInitializer&) = delete;
    NewHandlerInitializer& operator=(const NewHandlerInitializer&) = delete;
};

}  // namespace noxcore::config
