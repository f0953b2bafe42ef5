#include "Platform/noxcore/DebugDatabase.h"

#include <toml++/toml.h>

#include <charconv>
#include <cstdlib>

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"

namespace noxcore::debug {

namespace {

std::string EnvironmentName(std::string_view inKey)
{
    std::string name(inKey);
    for (char& character : name) {
        if (character == '.') character = '_';
    }
    return name;
}

std::optional<std::string> TextOf(const toml::node& inNode)
{
    if (const auto* text = inNode.as_string()) return text->get();
    if (const auto* number = inNode.as_integer()) return std::to_string(number->get());
    if (const auto* flag = inNode.as_boolean()) return flag->get() ? "true" : "false";
    if (const auto* number = inNode.as_floating_point()) return std::to_string(number->get());
    return std::nullopt;
}

void Collect(const toml::table& inTable, const std::string& inPrefix, DebugDatabase& outDatabase)
{
    for (const auto& [key, node] : inTable) {
        const std::string name = inPrefix.empty() ? std::string(key.str()) : inPrefix + "." + std::string(key.str());
        if (const auto* table = node.as_table()) {
            Collect(*table, name, outDatabase);
        } else if (const auto text = TextOf(node)) {
            outDatabase.SetEntry(name, *text);
        }
    }
}

}  // namespace

std::shared_ptr<DebugDatabase> DebugDatabase::Instance()
{
    return HubContext::Current()->GetOrCreateInstance<DebugDatabase>();
}

bool DebugDatabase::LoadFile(const std::string& inPath)
{
    const auto report = [&](std::string_view inReason) {
        logging::LogWarning("noxcore", "Cannot read the settings file", {{"path", inPath}, {"exception", inReason}});
        return false;
    };
    // Asked first: whoever opens a pipe waits for its other end.
    if (!filesupport::Files().FileExists(inPath)) return true;
    std::string content;
    if (!filesupport::Files().ReadFile(inPath, content)) return report("unreadable");
    try {
        Collect(toml::parse(content), {}, *this);
        return true;
    } catch (const toml::parse_error& error) {
        return report(error.description());
    }
}

std::optional<std::string> DebugDatabase::Find(std::string_view inKey) const
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in the hub changes the environment
    if (const char* value = std::getenv(EnvironmentName(inKey).c_str())) return value;
    const threads::ScopedLock lock(mMutex);
    const auto found = mEntries.find(inKey);
    if (found == mEntries.end()) return std::nullopt;
    return found->second;
}

bool DebugDatabase::HasEntry(std::string_view inKey) const
{
    return Find(inKey).has_value();
}

void DebugDatabase::SetEntry(std::string_view inKey, std::string_view inValue)
{
    const threads::ScopedLock lock(mMutex);
    mEntries.insert_or_assign(std::string(inKey), std::string(inValue));
}

std::string DebugDatabase::GetEntry(std::string_view inKey, std::string_view inDefault) const
{
    return Find(inKey).value_or(std::string(inDefault));
}

std::int64_t DebugDatabase::GetInteger(std::string_view inKey, std::int64_t inDefault) const
{
    const std::string text = GetEntry(inKey);
    if (text.empty()) return inDefault;
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error == std::errc() && end == text.data() + text.size()) return value;
    ReportOnce(inKey, text);
    return inDefault;
}

bool DebugDatabase::GetBoolean(std::string_view inKey, bool inDefault) const
{
    const std::string text = GetEntry(inKey);
    if (text == "true" || text == "1") return true;
    if (text == "false" || text == "0") return false;
    if (!text.empty()) ReportOnce(inKey, text);
    return inDefault;
}

void DebugDatabase::ReportOnce(std::string_view inKey, std::string_view inValue) const
{
    {
        const threads::ScopedLock lock(mMutex);
        if (!mReported.emplace(inKey).second) return;
    }
    logging::LogWarning("noxcore", "The value of a setting cannot be used", {{"key", inKey}, {"value", inValue}});
}

}  // namespace noxcore::debug
