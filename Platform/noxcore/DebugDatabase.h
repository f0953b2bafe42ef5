#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "Platform/noxcore/RecursiveMutex.h"

namespace noxcore::debug {

/// The process's settings: key and text value. What a user set (file, environment) wins over what code sets later
/// with SetEntry only where the code asks HasEntry first.
///
/// Threading: any thread; the mutex guards the map (rank Leaf).
class DebugDatabase
{
public:
    /// The current context's.
    static std::shared_ptr<DebugDatabase> Instance();

    /// Reads keys from a TOML file; tables join with dots. False, with a record, when the file is there but broken.
    bool LoadFile(const std::string& inPath);

    [[nodiscard]] bool HasEntry(std::string_view inKey) const;
    void SetEntry(std::string_view inKey, std::string_view inValue);
    /// An environment variable of the key's name with dots as underscores wins; then the entry; then the default.
    [[nodiscard]] std::string GetEntry(std::string_view inKey, std::string_view inDefault = {}) const;
    /// The same, as a number; the default, with one record for each key, when the text is none.
    [[nodiscard]] std::int64_t GetInteger(std::string_view inKey, std::int64_t inDefault) const;
    /// "true" and "1" are true, "false" and "0" false; the default otherwise, with a record for a text.
    [[nodiscard]] bool GetBoolean(std::string_view inKey, bool inDefault) const;

private:
    [[nodiscard]] std::optional<std::string> Find(std::string_view inKey) const;
    void ReportOnce(std::string_view inKey, std::string_view inValue) const;

    mutable threads::RecursiveMutex mMutex{threads::LockRank::Leaf};
    std::map<std::string, std::string, std::less<>> mEntries GUARDED_BY(mMutex);
    mutable std::set<std::string, std::less<>> mReported GUARDED_BY(mMutex);
};

}  // namespace noxcore::debug
