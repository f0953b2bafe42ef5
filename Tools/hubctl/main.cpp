#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Tools/hubctl/CommandLine.h"
#include "Tools/hubctl/ExportCommand.h"
#include "Tools/hubctl/HubLink.h"
#include "Tools/hubctl/ImportCommand.h"
#include "Tools/hubctl/Interruption.h"
#include "Tools/hubctl/ReadCommands.h"
#include "Tools/hubctl/RunCommand.h"

namespace {

enum ExitStatus
{
    kExit_Done = 0,
    kExit_Failed = 1,
    kExit_Usage = 2,
    kExit_NoHub = 3
};

constexpr const char* kFooter =
    "Exit status: 0 done; 1 the hub refused or a step failed (an import's transaction is rolled back then);\n"
    "2 the command line is wrong; 3 no hub can be reached.";

/// A payload larger than this does not fit into one request together with its form.
constexpr std::uint64_t kMaxLimit = 512ULL * 1024 * 1024;

/// What the libraries log is not meant for people at a terminal.
class SilentSink final : public noxcore::logging::Sink
{
public:
    void Write(const noxcore::logging::Record& /*inRecord*/) override {}
};

struct Options
{
    std::uint16_t mPort = 0;
    bool mJSON = false;
    bool mVerbose = false;
    hubctl::ReadArguments mRead;
    hubctl::ImportArguments mImport;
    hubctl::ExportArguments mExport;
    hubctl::MadeRequest mRequest;  ///< of a command of the table
};

int Fail(const std::string& inError, int inStatus = kExit_Failed)
{
    std::cerr << "hubctl: " << inError << '\n';
    return inStatus;
}

/// Ends with the output written, or says so.
int Finish()
{
    std::cout.flush();
    return std::cout.good() ? kExit_Done : Fail("the output cannot be written");
}

int HoldSession(hubctl::HubLink& inHub, hubctl::Interruption& ioInterruption, bool inJSON)
{
    if (!inJSON) std::cout << "\nThe hub listens on http://127.0.0.1:" << inHub.mPort << '\n';
    if (inHub.mSession == nullptr) return Finish();  // nothing to hold at a given port
    if (!inJSON) std::cout << "Holding a session until Ctrl-C\n";
    if (const int status = Finish(); status != kExit_Done) return status;
    inHub.mSession->SetOnLost([&] { ioInterruption.NoteHubLost(); });
    const bool asked = ioInterruption.Wait();
    inHub.mSession->SetOnLost({});
    inHub.mSession->Close();
    return asked ? kExit_Done : Fail("the hub has gone");
}

int Import(const Options& inOptions, const hubctl::ImportSource& inSource, hubctl::HubLink& inHub)
{
    hubctl::Interruption interruption;
    std::string error;
    hubctl::ProgressBar progress(std::cerr, isatty(STDOUT_FILENO) == 1 && isatty(STDERR_FILENO) == 1);
    // Requests are not cut off: between two of them the transaction can still be rolled back.
    if (!hubctl::RunImport(inSource, inOptions.mJSON, *inHub.mAPI, progress, hubctl::Interruption::IsAskedFor,
                           std::cout, std::cerr, error)) {
        return Fail(error);
    }
    if (inOptions.mImport.mOnce) return Finish();
    return HoldSession(inHub, interruption, inOptions.mJSON);
}

int RunOther(const std::string& inName, const Options& inOptions, hubctl::HubLink& inHub)
{
    std::string error;
    bool done = false;
    if (inName == "status") {
        done = hubctl::RunStatus(inHub.mPort, inOptions.mJSON, *inHub.mAPI, std::cout, error);
    } else if (inName == "cat") {
        done = hubctl::RunCat(inOptions.mRead, *inHub.mAPI, std::cout, error);
    } else if (inName == "delete") {
        done = hubctl::RunDelete(inOptions.mRead, inOptions.mJSON, *inHub.mAPI, std::cout, error);
    } else {
        hubctl::ProgressBar progress(std::cerr, isatty(STDERR_FILENO) == 1 && !inOptions.mRequest.mWait);
        done = hubctl::RunCommand(inOptions.mRequest, {inOptions.mJSON, {}, &progress}, *inHub.mAPI, std::cout, error);
    }
    return done ? Finish() : Fail(error);
}

void AddRevision(CLI::App& ioCommand, Options& ioOptions)
{
    ioCommand.add_option("--revision", ioOptions.mRead.mRevision, "A commit's id, or HEAD")->capture_default_str();
}

void AddImport(CLI::App& ioApp, Options& ioOptions)
{
    CLI::App* const command = ioApp.add_subcommand(
        "import", "Make a local production of a folder or an OpenTimelineIO file, edit one asset, show the difference");
    command->add_option("SOURCE", ioOptions.mImport.mSource, "A folder, or a file that ends in .otio")
        ->capture_default_str();
    command->add_option("--name", ioOptions.mImport.mName, "Name of the production; by default the source's");
    command->add_option("--limit", ioOptions.mImport.mLimit, "Contents of more bytes than this are left out (k, m)")
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::Range(std::uint64_t{0}, kMaxLimit))
        ->capture_default_str();
    command->add_flag("--once", ioOptions.mImport.mOnce, "End after the import; hold no session");
}

void AddOthers(CLI::App& ioApp, Options& ioOptions)
{
    ioApp.add_subcommand("status", "Show the hub that runs, starting one where none does");
    CLI::App* const cat = ioApp.add_subcommand("cat", "Write an enclosure's payload to standard output");
    cat->add_option("ID", ioOptions.mRead.mID, "Id of a production or session")->required();
    cat->add_option("ASSET", ioOptions.mRead.mAsset, "Id of an asset")->required();
    cat->add_option("ENCLOSURE", ioOptions.mRead.mEnclosure, "Id or name of an enclosure")->required();
    AddRevision(*cat, ioOptions);
    CLI::App* const exporting =
        ioApp.add_subcommand("export-git", "Copy a session into an ordinary git repository; works without a hub, too");
    exporting->add_option("SESSION", ioOptions.mExport.mSession, "Id of a session, or the path of its folder")
        ->required();
    exporting->add_option("FOLDER", ioOptions.mExport.mFolder, "A folder that is empty or not there yet")->required();
    CLI::App* const remove = ioApp.add_subcommand("delete", "Delete a local production");
    remove->add_option("ID", ioOptions.mRead.mID, "Id of a production or session")->required();
    ioApp.add_subcommand("commands", "Write a list of all commands that call the API, in Markdown");
}

/// Asks no hub: a session can be saved when none runs any more.
int Export(const Options& inOptions)
{
    std::string error;
    hubctl::ProgressBar progress(std::cerr, isatty(STDERR_FILENO) == 1);
    if (!hubctl::RunExport(inOptions.mExport, progress, error)) return Fail(error);
    std::cout << inOptions.mExport.mFolder << '\n';
    return Finish();
}

int Run(const std::string& inCommand, const Options& inOptions)
{
    signal(SIGPIPE, SIG_IGN);  // a reader of our output that goes must not end an import half way
    if (!inOptions.mVerbose) noxcore::HubContext::Current()->SetLog(std::make_shared<SilentSink>());
    if (inCommand == "export-git") return Export(inOptions);
    if (inCommand == "commands") {
        std::cout << hubctl::CommandsDocument();
        return Finish();
    }
    std::string error;
    hubctl::HubLink hub;
    hubctl::ImportSource source;
    const bool isImport = inCommand == "import";
    // Up to here, and while reading, a signal ends the program at once: there is nothing to clean up.
    if (isImport && !hubctl::OpenSource(inOptions.mImport, source, error)) return Fail(error);
    if (!hubctl::OpenHub(inOptions.mPort, inOptions.mRequest.mWait, hub, error)) return Fail(error, kExit_NoHub);
    return isImport ? Import(inOptions, source, hub) : RunOther(inCommand, inOptions, hub);
}

}  // namespace

int main(int inCount, char** inArguments)
{
    Options options;
    CLI::App app("Talks to the local hub of this user.", "hubctl");
    app.footer(kFooter);
    app.require_subcommand(1);
    app.fallthrough();
    app.add_option("--port", options.mPort, "Talk to the hub that serves HTTP at this port; no broker is asked")
        ->check(CLI::Range(1, 65535));
    app.add_flag("--json", options.mJSON, "Write JSON in place of text");
    app.add_flag("--verbose", options.mVerbose, "Show what the libraries log");
    AddImport(app, options);
    AddOthers(app, options);
    hubctl::AddCommands(app);
    try {
        app.parse(inCount, inArguments);
    } catch (const CLI::ParseError& error) {
        const auto strange = app.remaining();
        if (app.get_subcommands().empty() && !strange.empty())
            return Fail("there is no subcommand \"" + strange.front() + "\"; --help lists them", kExit_Usage);
        return app.exit(error) == 0 ? kExit_Done : kExit_Usage;
    }
    hubctl::Values values;
    hubctl::RequestError error;
    const hubctl::Command* const command = hubctl::ChosenCommand(app, values);
    if (command != nullptr && !hubctl::MakeRequest(*command, values, options.mRequest, error))
        return Fail(error.mText, error.mIsUsage ? kExit_Usage : kExit_Failed);
    return Run(app.get_subcommands().front()->get_name(), options);
}
