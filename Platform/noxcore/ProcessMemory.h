#pragma once

namespace noxcore::process {

/// Gives memory that was freed back to the system, which the allocator does by itself only where it lies at an end.
/// Takes up to some milliseconds: to be called after much was freed, not after each use. Threading: any thread.
void GiveBackFreeMemory();

}  // namespace noxcore::process
