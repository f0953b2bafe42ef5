#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>

#include "Tools/hubctl/Importer.h"

namespace hubctl {

struct ImportArguments
{
    std::string mSource = ".";              ///< a folder, or a file that ends in ".otio"
    std::string mName;                      ///< of the production; empty: that of the source
    std::uint64_t mLimit = 1024ULL * 1024;  ///< larger contents are left out
    bool mOnce = false;                     ///< end after the import, in place of holding a session
};

struct ImportSource
{
    std::unique_ptr<RowSource> mRows;
    std::string mName;  ///< of the production
};

/// Opens the source. False with the reason.
bool OpenSource(const ImportArguments& inArguments, ImportSource& outSource, std::string& outError);

/// Imports and tells what happened: results to inOut, what was left out to inErr. False with the reason.
bool RunImport(const ImportSource& inSource, bool inJSON, HubAPI& inAPI, ProgressBar& inProgress,
               std::function<bool()> inShouldStop, std::ostream& inOut, std::ostream& inErr, std::string& outError);

}  // namespace hubctl
