#pragma once

#include <string>
#include <string_view>

namespace VantryLocalHub::GitBox {

/// A place for one folder that is needed for a while, in the program's temporary folder below this process's own: what
/// a crash leaves there goes with the next start. The folder itself is made by whoever fills it, and goes with the
/// object.
class TemporaryFolder
{
public:
    /// inUser: who asks, for records.
    explicit TemporaryFolder(std::string_view inUser);
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// Empty where there is no place.
    [[nodiscard]] const std::string& Path() const { return mPath; }

private:
    const std::string mUser;
    std::string mPath;
};

}  // namespace VantryLocalHub::GitBox
