#pragma once

#include <string>

namespace VantryLocalHub::GitBox {

/// A session's folder that takes many steps to fill. Until it is finished it bears the mark of a deleted session, so
/// that no start ever finds a part of one: what a crash leaves is removed like what a deletion leaves.
///
/// Threading: one thread. A folder that was not finished goes with the object, which outlives whatever has it open.
class SessionCreation
{
public:
    explicit SessionCreation(std::string inFolder);
    ~SessionCreation();
    SessionCreation(const SessionCreation&) = delete;
    SessionCreation& operator=(const SessionCreation&) = delete;

    /// Makes the folder, marked. False: there is one already, or it cannot be made.
    bool Begin();
    /// Makes a session of it, for good.
    bool Finish();

private:
    const std::string mFolder;
    bool mBegun = false;
};

}  // namespace VantryLocalHub::GitBox
