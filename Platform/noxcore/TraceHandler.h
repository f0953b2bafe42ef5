#pragma once

#include <memory>
#include <source_location>
#include <string_view>

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"

namespace noxcore::debug {

/// Opens the process's log file, and lets the current context's records go there, beside where they went before. They
/// still do when this has gone: what the process reports last, its leaks, belongs into the file too.
///
/// "AddTimestampToLogFileNames" gives each run a file of its own; without it all runs share one, which is opened only
/// if it is there already or "CreateLogFilesThatDoNotExist" holds. No log file is no failure.
class TraceHandlerInstaller
{
public:
    /// The file's name begins with inProgram.
    TraceHandlerInstaller(const filesupport::Path& inLogFolder, std::string_view inProgram);
    ~TraceHandlerInstaller();
    TraceHandlerInstaller(const TraceHandlerInstaller&) = delete;
    TraceHandlerInstaller& operator=(const TraceHandlerInstaller&) = delete;

private:
    void OpenLogFile(const filesupport::Path& inLogFolder, std::string_view inProgram);
};

/// Writes one line to the trace: a detail record.
void Trace(std::string_view inCategory, std::string_view inText,
           const std::source_location& inWhere = std::source_location::current());

/// A sink for the time before the log file stands: keeps the records until the installer puts the file, or standard
/// error where there is none, in its place. Goes it without that, warnings and errors go to standard error.
std::shared_ptr<logging::Sink> MakeEarlySink();

}  // namespace noxcore::debug
