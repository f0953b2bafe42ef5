#include "Platform/noxcore/CommonDirs.h"

#include <cctype>
#include <cstdlib>

#include "Platform/noxcore/ProcessConfiguration.h"

namespace noxcore::filesupport::commondirs {

namespace {

Path DataHome()
{
    // NOLINTBEGIN(concurrency-mt-unsafe): nothing changes these variables
    if (const char* data = std::getenv("XDG_DATA_HOME"); data != nullptr && *data == '/') return data;
    const char* home = std::getenv("HOME");
    // NOLINTEND(concurrency-mt-unsafe)
    return Join(home != nullptr && *home == '/' ? home : "/", ".local/share");
}

std::string LowerCase(std::string inText)
{
    for (char& character : inText)
        character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    return inText;
}

}  // namespace

Path NOXSharedDocumentsDir()
{
    return Join(Join(DataHome(), LowerCase(config::GetCompanyName())), "Shared Documents");
}

}  // namespace noxcore::filesupport::commondirs
