#include "Inc/Model/GitBoxFolders.h"

#include "Client/VYClient/LocalHub.h"
#include "Inc/Model/GitBoxIO.h"
#include "Platform/noxcore/DebugDatabase.h"
#include "Platform/noxcore/FileSupport.h"

namespace VantryLocalHub::GitBox::Folder {

using noxcore::filesupport::Join;

namespace {

std::string InSuiteFolder(std::string_view inName)
{
    return Join(VYCL::LocalHub::GetBaseSuiteDataFolder(), inName);
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
    return {{LocalSessions(), ProjectType::LocalSession}, {SynchronizedSessions(), ProjectType::SynchronizedSession}};
}

std::string SessionFolder(const ImmutableString& inSessionID, SessionKind inKind)
{
    const std::string parent = inKind == SessionKind::Synchronized ? SynchronizedSessions() : LocalSessions();
    return Join(parent, inSessionID.Text() + "." + std::string(IO::kFolderSuffix));
}

}  // namespace VantryLocalHub::GitBox::Folder
