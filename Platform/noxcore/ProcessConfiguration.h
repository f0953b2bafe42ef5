#pragma once

#include <functional>
#include <string>
#include <string_view>

/// Who the process is, and what its modules do once that is settled. One per HubContext.
///
/// Threading: set on the main thread during start-up; read from any thread afterwards.
namespace noxcore::config {

void SetCompanyName(std::string_view inName);
void SetApplicationName(std::string_view inName);
void SetClientName(std::string_view inName);
void SetClientVersion(std::string_view inVersion);
void SetClientInternalVersion(std::string_view inVersion);
void SetClientPatchNumber(std::string_view inNumber);
void SetClientBuildNumber(std::string_view inNumber);
/// A product's short code for licensing and reports, with a second code for a variant of it.
void SetSAPCode(std::string_view inCode, std::string_view inVariant);

std::string GetCompanyName();
std::string GetApplicationName();
std::string GetClientName();
std::string GetClientVersion();
std::string GetClientInternalVersion();
std::string GetClientPatchNumber();
std::string GetClientBuildNumber();
std::string GetSAPCode();
/// The system and its processor: "Linux x86_64".
std::string GetClientPlatform();

/// Adds what sets a module up; Initialize runs these in the order of their registration.
void SetConfigurationForModule(std::string_view inModule, std::function<void()> inConfigure);
/// Adds what runs when Initialize has set all modules up; at once when that has happened already.
void ExecuteOnInitializationCompleted(std::string_view inName, std::function<void()> inFunction);
/// Sets the modules up, then runs what waits for that. A second call does nothing.
void Initialize();

}  // namespace noxcore::config
