#include "Client/VYClient/LocalHub.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>

#include "Client/VYClient/Environment.h"
#include "Client/VYClient/UTF16.h"
#include "Platform/noxcore/Logging.h"

namespace VYCL::LocalHub {

namespace {

using noxcore::filesupport::Join;

constexpr std::string_view kCompanyFolder = "corvane";

std::string HubFolderName()
{
    return ToUTF8(VantryLocalHub_Name());
}

/// A user without any home keeps all in a folder of the temporary one.
Path HomeFolder(const Environment& inEnvironment)
{
    if (auto home = inEnvironment.GetVariable("HOME"); home && home->front() == '/') {
        return *home;
    }
    if (auto home = inEnvironment.GetHomeFolder(); !home.empty()) {
        return home;
    }
    return Join("/tmp", std::string(kCompanyFolder) + "-" + std::to_string(inEnvironment.GetUserID()));
}

Path HubFolderBelow(const Path& inBase)
{
    return Join(Join(inBase, kCompanyFolder), HubFolderName());
}

Path FolderOfBase(std::string_view inVariable, std::string_view inDefaultBelowHome)
{
    const auto environment = Environment::Instance();
    if (const auto base = environment->GetVariable(inVariable); base && base->front() == '/') {
        return HubFolderBelow(*base);
    }
    return HubFolderBelow(Join(HomeFolder(*environment), inDefaultBelowHome));
}

/// In a folder that all users share, hence with the user in its name.
Path UserTempFolder()
{
    const auto environment = Environment::Instance();
    auto base = environment->GetVariable("TMPDIR");
    if (!base || base->front() != '/') {
        base = "/tmp";
    }
    return Join(*base, std::string(kCompanyFolder) + "-" + std::to_string(environment->GetUserID()));
}

bool IsUnreserved(char inCharacter)
{
    return std::isalnum(static_cast<unsigned char>(inCharacter)) != 0 || inCharacter == '-' || inCharacter == '_' ||
           inCharacter == '.';
}

/// Nothing but unreserved characters and escapes.
bool IsEscaped(std::string_view inText)
{
    const auto isDigit = [&](std::size_t inPlace) {
        return inPlace < inText.size() && std::isxdigit(static_cast<unsigned char>(inText[inPlace])) != 0;
    };
    for (std::size_t i = 0; i < inText.size(); ++i) {
        if (inText[i] == '%' && isDigit(i + 1) && isDigit(i + 2)) {
            i += 2;
        } else if (!IsUnreserved(inText[i])) {
            return false;
        }
    }
    return true;
}

std::string_view DefaultPort(std::string_view inScheme)
{
    if (inScheme == "https") return "443";
    if (inScheme == "http") return "80";
    return {};
}

std::string LowerCase(std::string_view inText)
{
    std::string text(inText);
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char inCharacter) { return static_cast<char>(std::tolower(inCharacter)); });
    return text;
}

}  // namespace

const std::u16string& LocalHub_Name()
{
    static const std::u16string kName = u"LocalHub";
    return kName;
}

const std::u16string& VantryLocalHub_Name()
{
    static const std::u16string kName = u"TesselProjectsLocalHub";
    return kName;
}

const std::u16string& SuiteVersion()
{
    static const std::u16string kVersion = u"2025";
    return kVersion;
}

Path GetBaseSuiteAgnosticDataFolder()
{
    return FolderOfBase("XDG_DATA_HOME", ".local/share");
}

Path GetBaseDataFolderForSuite(std::u16string_view inSuiteVersion)
{
    return Join(GetBaseSuiteAgnosticDataFolder(), ToUTF8(inSuiteVersion));
}

Path GetBaseSuiteDataFolder()
{
    return GetBaseDataFolderForSuite(SuiteVersion());
}

Path GetDefaultRopeFileAutosaveLocation()
{
    return Join(GetBaseSuiteDataFolder(), "local");
}

Path GetStateFolder()
{
    return FolderOfBase("XDG_STATE_HOME", ".local/state");
}

Path GetLogFolder()
{
    return Join(GetStateFolder(), "logs");
}

Path GetSettingsFolder()
{
    return FolderOfBase("XDG_CONFIG_HOME", ".config");
}

Path GetSettingsFile()
{
    return Join(GetSettingsFolder(), "settings.toml");
}

Path GetSocketFolder()
{
    if (const auto base = Environment::Instance()->GetVariable("XDG_RUNTIME_DIR"); base && base->front() == '/') {
        return HubFolderBelow(*base);
    }
    return Join(GetStateFolder(), "run");
}

Path GetTempFolder()
{
    return Join(Join(UserTempFolder(), HubFolderName()), "Projects");
}

bool EnsureTempFolder()
{
    const auto user = UserTempFolder();
    return EnsurePrivateFolder(user) && EnsurePrivateFolder(Join(user, HubFolderName())) &&
           EnsurePrivateFolder(GetTempFolder());
}

bool EnsurePrivateFolder(const Path& inFolder)
{
    if (!noxcore::filesupport::Files().EnsureDirectoryExists(inFolder)) {
        noxcore::logging::LogError("VantryLocalHub", "Cannot make folder", {{"path", inFolder}});
        return false;
    }
    const int folder = open(inFolder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat status = {};
    const bool ours = folder >= 0 && fstat(folder, &status) == 0 && status.st_uid == geteuid();
    const bool closed = ours && ((status.st_mode & 0777) == 0700 || fchmod(folder, 0700) == 0);
    if (folder >= 0) {
        close(folder);
    }
    if (!closed) {
        noxcore::logging::LogError("VantryLocalHub", "Folder is open to others", {{"path", inFolder}});
    }
    return closed;
}

std::string MakeEscapedServerAndPortURIElement(std::string_view inURL)
{
    std::string scheme;
    if (const auto end = inURL.find("://"); end != std::string_view::npos) {
        scheme = LowerCase(inURL.substr(0, end));
        inURL.remove_prefix(end + 3);
    }
    inURL = inURL.substr(0, inURL.find_first_of("/?#"));
    if (const auto user = inURL.rfind('@'); user != std::string_view::npos) {
        inURL.remove_prefix(user + 1);
    }
    if (scheme.empty() && inURL.find('%') != inURL.npos && IsEscaped(inURL)) {
        return std::string(inURL);
    }
    auto server = LowerCase(inURL);
    const auto hostEnd = server.rfind(']') == std::string::npos ? 0 : server.rfind(']');
    if (server.find(':', hostEnd) == std::string::npos && !server.empty() && !DefaultPort(scheme).empty()) {
        server.append(":").append(DefaultPort(scheme));
    }
    std::string escaped;
    for (const char character : server) {
        if (IsUnreserved(character)) {
            escaped += character;
        } else {
            constexpr std::string_view kDigits = "0123456789ABCDEF";
            const auto byte = static_cast<unsigned char>(character);
            escaped.append("%").append(1, kDigits[byte >> 4]).append(1, kDigits[byte & 15]);
        }
    }
    // A name of dots alone would be a folder's way to itself or its parent.
    return escaped == "." || escaped == ".." ? "%2E" + escaped.substr(1) : escaped;
}

}  // namespace VYCL::LocalHub
