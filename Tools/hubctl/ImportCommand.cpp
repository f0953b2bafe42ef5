#include "Tools/hubctl/ImportCommand.h"

#include <sys/stat.h>

#include <ostream>

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/JSON.h"
#include "Tools/hubctl/FolderRows.h"
#include "Tools/hubctl/LastError.h"
#include "Tools/hubctl/OTIORows.h"
#include "Tools/hubctl/UTF8Text.h"

namespace hubctl {

using noxcore::serialization::JSONWriter;

namespace {

std::unique_ptr<RowSource> OpenTimeline(const ImportArguments& inArguments, std::string& outName, std::string& outError)
{
    std::string text;
    if (!noxcore::filesupport::Files().ReadFile(inArguments.mSource, text)) {
        outError = LastError();
        return nullptr;
    }
    bool changed = false;
    const std::string fileName(noxcore::filesupport::BaseName(inArguments.mSource));
    auto rows = OTIORows::Read(text, ToValidUTF8(fileName, changed), inArguments.mLimit, outError);
    if (rows) outName = rows->RootName();
    return rows;
}

void PrintRemarks(const ImportOutcome& inOutcome, std::ostream& inErr)
{
    for (const Remark& remark : inOutcome.mRemarks)
        inErr << "hubctl: " << Printable(remark.mPath) << ": " << Printable(remark.mText) << '\n';
}

void PrintText(const ImportOutcome& inOutcome, const std::string& inName, std::ostream& inOut)
{
    inOut << "Imported " << inOutcome.mBins << " bins and " << inOutcome.mClips << " clips, " << inOutcome.mPayloads
          << " of them with content (" << inOutcome.mPayloadBytes << " bytes)\n"
          << "production " << Printable(inName) << "\nsession    " << inOutcome.mSessionID << "\ncommit     "
          << inOutcome.mImportCommit << "\n\nEdited one asset, commit " << inOutcome.mEditCommit << '\n';
    for (const Change& change : inOutcome.mChanges)
        inOut << "  " << TextOf(change.mKind) << ' ' << change.mAssetID << ' ' << Printable(change.mName) << '\n';
}

void WriteChanges(const ImportOutcome& inOutcome, JSONWriter& ioWriter)
{
    ioWriter.Key("changes");
    ioWriter.BeginArray();
    for (const Change& change : inOutcome.mChanges) {
        ioWriter.BeginObject();
        ioWriter.Member("change", TextOf(change.mKind));
        ioWriter.Member("vy:assetId", change.mAssetID);
        ioWriter.Member("name", change.mName);
        ioWriter.EndObject();
    }
    ioWriter.EndArray();
}

void WriteRemarks(const ImportOutcome& inOutcome, JSONWriter& ioWriter)
{
    ioWriter.Key("remarks");
    ioWriter.BeginArray();
    for (const Remark& remark : inOutcome.mRemarks) {
        ioWriter.BeginObject();
        ioWriter.Member("path", Printable(remark.mPath));
        ioWriter.Member("text", Printable(remark.mText));
        ioWriter.EndObject();
    }
    ioWriter.EndArray();
}

void PrintJSON(const ImportOutcome& inOutcome, const std::string& inName, std::ostream& inOut)
{
    JSONWriter writer;
    writer.BeginObject();
    writer.Member("name", inName);
    writer.Member("vy:sessionId", inOutcome.mSessionID);
    writer.Member("vy:parentProductionId", inOutcome.mProductionID);
    writer.Member("importCommitId", inOutcome.mImportCommit);
    writer.Member("editCommitId", inOutcome.mEditCommit);
    const std::pair<const char*, std::uint64_t> counts[] = {{"bins", inOutcome.mBins},
                                                            {"clips", inOutcome.mClips},
                                                            {"payloads", inOutcome.mPayloads},
                                                            {"payloadBytes", inOutcome.mPayloadBytes}};
    for (const auto& [key, number] : counts) {
        writer.Key(key);
        writer.Int(static_cast<std::int64_t>(number));
    }
    WriteChanges(inOutcome, writer);
    WriteRemarks(inOutcome, writer);
    writer.EndObject();
    inOut << writer.Text() << '\n';
}

}  // namespace

bool OpenSource(const ImportArguments& inArguments, ImportSource& outSource, std::string& outError)
{
    std::string reason;
    struct stat status = {};
    if (stat(inArguments.mSource.c_str(), &status) != 0) {
        reason = LastError();
    } else if (S_ISDIR(status.st_mode)) {
        auto rows = FolderRows::Open(inArguments.mSource, inArguments.mLimit, reason);
        if (rows) outSource.mName = rows->RootName();
        outSource.mRows = std::move(rows);
    } else if (inArguments.mSource.ends_with(".otio")) {
        outSource.mRows = OpenTimeline(inArguments, outSource.mName, reason);
    } else {
        reason = "neither a folder nor a file that ends in \".otio\"";
    }
    bool changed = false;
    if (!inArguments.mName.empty()) outSource.mName = ToValidUTF8(inArguments.mName, changed);
    if (!outSource.mRows) outError = Printable(inArguments.mSource) + ": " + reason;
    return outSource.mRows != nullptr;
}

bool RunImport(const ImportSource& inSource, bool inJSON, HubAPI& inAPI, ProgressBar& inProgress,
               std::function<bool()> inShouldStop, std::ostream& inOut, std::ostream& inErr, std::string& outError)
{
    ImportSettings settings;
    settings.mName = inSource.mName;
    settings.mShouldStop = std::move(inShouldStop);
    ImportOutcome outcome;
    const bool done = Importer(inAPI, inProgress).Run(*inSource.mRows, settings, outcome, outError);
    PrintRemarks(outcome, inErr);
    if (!done) {
        if (!outcome.mSessionID.empty()) outError += " (session " + outcome.mSessionID + " stays, empty)";
        return false;
    }
    if (inJSON) {
        PrintJSON(outcome, settings.mName, inOut);
    } else {
        PrintText(outcome, settings.mName, inOut);
    }
    return true;
}

}  // namespace hubctl
