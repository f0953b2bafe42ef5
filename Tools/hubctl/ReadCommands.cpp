#include "Tools/hubctl/ReadCommands.h"

#include <ostream>

#include "Client/Wire/Discovery.h"
#include "Client/Wire/Production.h"
#include "Client/Wire/URLTemplates.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Tools/hubctl/UTF8Text.h"

namespace hubctl {

namespace Template = VYCL::URLTemplate;

namespace {

bool CheckIdentifier(const char* inWhat, const std::string& inText, std::string& outError)
{
    if (IsIdentifier(inText)) return true;
    outError = "\"" + Printable(inText) + "\" cannot be the id of " + inWhat;
    return false;
}

bool FindEnclosure(const dto::Asset& inAsset, const std::string& inIDOrName, std::string& outID)
{
    for (const auto& enclosure : inAsset.mEnclosures) {
        if (enclosure.mEnclosureID.View() != inIDOrName && enclosure.mName != inIDOrName) continue;
        outID = enclosure.mEnclosureID.Text();
        return true;
    }
    return false;
}

}  // namespace

bool RunCat(const ReadArguments& inArguments, HubAPI& inAPI, std::ostream& outStream, std::string& outError)
{
    if (!CheckIdentifier("a production or session", inArguments.mID, outError) ||
        !CheckIdentifier("a revision", inArguments.mRevision, outError) ||
        !CheckIdentifier("an asset", inArguments.mAsset, outError)) {
        return false;
    }
    dto::Asset asset;
    Failure failure;
    if (!inAPI.GetAsset(inArguments.mID, inArguments.mRevision, inArguments.mAsset, asset, failure)) {
        outError = failure.mText;
        return false;
    }
    std::string enclosure;
    if (!FindEnclosure(asset, inArguments.mEnclosure, enclosure)) {
        outError = "the asset has no enclosure \"" + Printable(inArguments.mEnclosure) + "\"";
        return false;
    }
    const std::string url =
        FillURL(Template::kAssetEnclosureById, {inArguments.mID, inArguments.mRevision, inArguments.mAsset, enclosure});
    const auto sink = [&](std::string_view inBytes) {
        return outStream.write(inBytes.data(), static_cast<std::streamsize>(inBytes.size())).good();
    };
    if (inAPI.Download(url, sink, failure)) return true;
    outError = failure.mText;
    return false;
}

bool RunDelete(const ReadArguments& inArguments, bool inJSON, HubAPI& inAPI, std::ostream& outStream,
               std::string& outError)
{
    if (!CheckIdentifier("a production or session", inArguments.mID, outError)) return false;
    Failure failure;
    if (!inAPI.Delete(FillURL(Template::kProduction_LocalOnly, {inArguments.mID}), failure)) {
        outError = failure.mText;
        // What is not here is looked for at the server, which this hub does not talk to.
        if (failure.mStatus == noxnet::kHTTPStatus_NotImplemented)
            outError = "there is no local production or session " + inArguments.mID;
        return false;
    }
    if (inJSON) {
        outStream << "{\"deleted\":\"" << inArguments.mID << "\"}\n";
    } else {
        outStream << "Deleted " << inArguments.mID << '\n';
    }
    return true;
}

bool RunStatus(std::uint16_t inPort, bool inJSON, HubAPI& inAPI, std::ostream& outStream, std::string& outError)
{
    dto::DiscoveryResource discovery;
    dto::ProductionsResource productions;
    Failure failure;
    if (!inAPI.GetRecord(std::string(Template::kDiscovery), discovery, failure) ||
        !inAPI.GetRecord(std::string(Template::kProductions), productions, failure)) {
        outError = failure.mText;
        return false;
    }
    if (inJSON) {
        dto::JSONWriter writer;
        writer.BeginObject();
        writer.Member("name", discovery.mServer.mName);
        writer.Member("version", discovery.mServer.mVersion);
        writer.Key("port");
        writer.Int(inPort);
        writer.Key("productions");
        writer.Int(static_cast<std::int64_t>(productions.mProductions.size()));
        writer.EndObject();
        outStream << writer.Text() << '\n';
        return true;
    }
    outStream << Printable(discovery.mServer.mName) << ' ' << Printable(discovery.mServer.mVersion)
              << "\nlistens on http://127.0.0.1:" << inPort << "\nproductions: " << productions.mProductions.size()
              << '\n';
    return true;
}

}  // namespace hubctl
