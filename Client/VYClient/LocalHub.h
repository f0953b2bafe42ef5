#pragma once

#include <string>
#include <string_view>

#include "Platform/noxcore/FileSupport.h"

/// Where the hub of this user lies, and by which names it goes. Folders follow the XDG base directories, below
/// "corvane/TesselProjectsLocalHub" in each; a base that is no absolute path counts as unset.
///
/// The functions name folders and make none, except where they say so. Threading: any thread.
namespace VYCL::LocalHub {

using noxcore::filesupport::Path;

/// "LocalHub".
const std::u16string& LocalHub_Name();
/// "TesselProjectsLocalHub": the application's name, and that of its folders.
const std::u16string& VantryLocalHub_Name();
/// The version of the suite whose data lie in the suite's folder: "2025".
const std::u16string& SuiteVersion();

/// Data that all versions of the suite share.
Path GetBaseSuiteAgnosticDataFolder();
/// Data of one version of the suite.
Path GetBaseDataFolderForSuite(std::u16string_view inSuiteVersion);
/// Data of this version of the suite: sessions, templates, the lock.
Path GetBaseSuiteDataFolder();
/// Where single-file projects go that have no place of the user's choice.
Path GetDefaultRopeFileAutosaveLocation();

/// What outlives a run but is no data: logs, and sockets where the system offers no better place.
Path GetStateFolder();
Path GetLogFolder();
Path GetSettingsFolder();
/// "settings.toml" in the settings folder.
Path GetSettingsFile();
/// The folder of the hub's and the broker's sockets.
Path GetSocketFolder();
/// The program's temporary folder, which holds a folder for each living process.
Path GetTempFolder();
/// Makes it, closed to everybody else on the whole way down from the system's.
bool EnsureTempFolder();

/// Makes a folder that nobody else can look into, or closes the one that is there. False, with a record, when it cannot
/// be made or closed, or when what lies there is a link, no folder or somebody else's.
bool EnsurePrivateFolder(const Path& inFolder);

/// Host and port of a server's URL in a form that may stand in a folder name and as one element of a URI:
/// "https://Hub.Example/x" gives "hub.example%3A443". What is in that form already stays as it is.
std::string MakeEscapedServerAndPortURIElement(std::string_view inURL);

}  // namespace VYCL::LocalHub
