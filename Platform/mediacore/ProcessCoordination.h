#pragma once

#include <cstdint>
#include <string_view>

/// What processes of one user know of each other.
namespace processcoordination {

/// Notes which process the current context is. Threading: main thread.
void InitializeClient();
/// The identifier that InitializeClient noted; 0 before.
std::uint32_t GetClientProcessIdentifier();

/// Whether a name, as "%u" writes it, is the identifier of a process that lives. Names that are no such text are not.
bool IsIdentifierOfLivingProcess(std::string_view inName);

}  // namespace processcoordination
