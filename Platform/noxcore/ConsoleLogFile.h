#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "Platform/noxcore/FileSupport.h"

namespace noxcore::console {

/// The log file that this process writes, and the older ones beside it. Threading: any thread.
class ConsoleLogFile
{
public:
    /// inFamily begins the names of all runs of the program, inBaseName those of this run.
    ConsoleLogFile(filesupport::Path inFolder, std::string inFamily, std::string inBaseName);

    /// The current context's; null where the process writes no log file.
    static std::shared_ptr<ConsoleLogFile> GetInstanceP0();

    /// Deletes the log files of earlier runs that nothing was written to for so many days; their number.
    std::size_t DeleteOldLogFiles(std::int64_t inMaxAgeInDays) const;

private:
    [[nodiscard]] bool IsOfAnEarlierRun(const std::string& inName) const;

    const filesupport::Path mFolder;
    const std::string mFamily;
    const std::string mBaseName;
};

}  // namespace noxcore::console
