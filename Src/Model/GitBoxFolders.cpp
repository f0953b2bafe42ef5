#include "Inc/Model/GitBoxFolders.h"

#include "Client/VYClient/LocalHub.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/GitBoxIO.h"
#include "Inc/Model/SystemDb.h"
#include "Platform/noxcore/DebugDatabase.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub::GitBox::Folder {

using noxcore::filesupport::Files;
using noxcore::filesupport::Join;

namespace {

std::string InSuiteFolder(std::string_view inName)
{
    return Join(VYCL::LocalHub::GetBaseSuiteDataFolder(), inName);
}

constexpr std::string_view kRopeFileExtension = ".lyr";

bool MakeUsable(const std::string& inFolder)
{
    return Files().EnsureDirectoryExists(inFolder) && !Files().IsReadOnly(inFolder);
}

/// The default in place of a location that cannot be used.
bool ResetAutosaveLocation(std::string& ioFolder)
{
    const std::string standard = VYCL::LocalHub::GetDefaultRopeFileAutosaveLocation();
    if (ioFolder == standard || !MakeUsable(standard)) {
        noxcore::logging::LogError("GitBox", "Cannot create default auto save location", {{"path", standard}});
        return false;
    }
    const int status = SystemDb::AddOrUpdateSystemEnclosure(
        VYCL::LocalHub::LocalHubPreferenceName_AutosaveLocation().View(), standard);
    noxcore::logging::LogWarning("GitBox", "Reset auto save location",
                                 {{"old", ioFolder}, {"new", standard}, {"status", status}});
    ioFolder = standard;
    return true;
}

/// The longest beginning of a text of that many bytes that cuts no letter of UTF-8 in two.
std::string_view Beginning(std::string_view inText, std::size_t inBytes)
{
    if (inText.size() <= inBytes) return inText;
    const auto isWithinLetter = [](char inByte) { return (static_cast<unsigned char>(inByte) & 0xc0U) == 0x80U; };
    while (inBytes > 0 && isWithinLetter(inText[inBytes]))
        --inBytes;
    return inText.substr(0, inBytes);
}

/// A file name without extension that every system takes, after the name that people gave a project.
std::string TitleOf(std::string_view inName)
{
    constexpr std::size_t kLongest = 200;  // there is room for a number, and for what is built beside the file
    std::string_view name = noxcore::filesupport::BaseName(inName);
    if (name.ends_with(kRopeFileExtension)) name.remove_suffix(kRopeFileExtension.size());
    std::string title(Beginning(name, kLongest));
    for (char& letter : title)
        if (!noxcore::filesupport::FileUtils::IsValidFileName("x" + std::string(1, letter))) letter = '-';
    const bool isEmpty = title.find_first_not_of(". ") == std::string::npos;
    return isEmpty ? noxcore::utility::Guid::CreateUnique().Text() : title;
}

}  // namespace

std::string LocalSessions()
{
    return InSuiteFolder("local");
}

std::string SynchronizedSessions()
{
    return InSuiteFolder("synchronized");
}

std::string Templates()
{
    const std::string chosen =
        noxcore::debug::DebugDatabase::Instance()->GetEntry("VY.Config.LocalHub.TemplatesFolder");
    return chosen.empty() ? InSuiteFolder("templates") : chosen;
}

std::string Extracted()
{
    return Join(Templates(), "extracted");
}

std::vector<FolderWithProjectType> SessionFolders()
{
    const std::string type(IO::kFolderSuffix);
    return {{LocalSessions(), type}, {SynchronizedSessions(), type}};
}

std::string SessionFolder(const ImmutableString& inSessionID, SessionKind inKind)
{
    const std::string parent = inKind == SessionKind::Synchronized ? SynchronizedSessions() : LocalSessions();
    return Join(parent, inSessionID.Text() + "." + std::string(IO::kFolderSuffix));
}

std::string GetDefaultRopeFileAutosaveLocation()
{
    std::string stored;
    SystemDb::GetSystemEnclosure(VYCL::LocalHub::LocalHubPreferenceName_AutosaveLocation().View(), stored);
    return stored.empty() ? VYCL::LocalHub::GetDefaultRopeFileAutosaveLocation() : stored;
}

int CreateUniqueRopeFileName(const std::string& inName, std::string& outFile)
{
    std::string folder = GetDefaultRopeFileAutosaveLocation();
    if (!MakeUsable(folder) && !ResetAutosaveLocation(folder)) return noxnet::kHTTPStatus_UnsupportedMediaType;
    const std::string title = TitleOf(inName);
    std::string file = Join(folder, title).append(kRopeFileExtension);
    for (unsigned number = 2; Files().FileExists(file) || Files().DirectoryExists(file); ++number) {
        file = Join(folder, title + " " + std::to_string(number)).append(kRopeFileExtension);
    }
    outFile = std::move(file);
    return noxnet::kHTTPStatus_OK;
}

}  // namespace VantryLocalHub::GitBox::Folder
