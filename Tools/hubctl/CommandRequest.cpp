#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include "Platform/noxcore/JSON.h"
#include "Tools/apidoc/Statuses.h"
#include "Tools/hubctl/Commands.h"
#include "Tools/hubctl/UTF8Text.h"

namespace hubctl {

namespace {

using noxcore::serialization::JSONDocument;
using noxcore::serialization::JSONWriter;
using noxcore::serialization::MinifyJSON;

constexpr const char* kJSONType = "application/json; charset=utf-8";

/// One element of a path. "*" stays: as a production it has a meaning, and hubs do not decode it.
std::string EncodedElement(std::string_view inText)
{
    std::string text;
    for (const char current : inText)
        text += current == '/' ? "%2F" : current == '*' ? "*" : PercentEncoded(std::string_view(&current, 1));
    return text;
}

bool ReadFile(const std::string& inPath, std::string& outText, RequestError& outError)
{
    std::ifstream file;
    if (inPath != "-") file.open(inPath, std::ios::binary);
    std::istream& stream = inPath == "-" ? std::cin : file;
    if (inPath == "-" || file.is_open()) outText.assign(std::istreambuf_iterator<char>(stream), {});
    if ((inPath == "-" || file.is_open()) && !stream.bad()) return true;
    outError = {"\"" + Printable(inPath) + "\" cannot be read", false};
    return false;
}

/// Makes one request of what was given. The first failure is kept and ends the work.
class RequestMaker
{
public:
    RequestMaker(const Call& inCall, const Values& inValues, RequestError& outError)
        : mCall(inCall), mOperation(*inCall.mOperation), mValues(inValues), mError(outError)
    {
    }

    bool Make(MadeRequest& outRequest)
    {
        outRequest = {};
        outRequest.mCall = &mCall;
        if (const auto* output = Given(ArgumentKind::Output)) outRequest.mOutput = *output;
        outRequest.mWait = Given(ArgumentKind::Wait) != nullptr;
        return MakeTarget(outRequest.mTarget) && MakeBody(outRequest);
    }

private:
    [[nodiscard]] const std::string* ValueOf(const Argument& inArgument) const
    {
        const auto found = mValues.find(inArgument.mName);
        return found == mValues.end() || found->second.empty() ? nullptr : &found->second.front();
    }
    /// The value of the argument of a kind that a command has once.
    [[nodiscard]] const std::string* Given(ArgumentKind inKind) const
    {
        const auto found = std::ranges::find(mCall.mArguments, inKind, &Argument::mKind);
        return found == mCall.mArguments.end() ? nullptr : ValueOf(*found);
    }
    bool Refuse(std::string inText)
    {
        mError = {std::move(inText), true};
        return false;
    }

    /// The element as it goes into the path.
    bool MakeElement(const std::string& inKey, std::string& outElement)
    {
        const auto argument = std::ranges::find_if(mCall.mArguments, [&](const Argument& inArgument) {
            return inArgument.mKind == ArgumentKind::Path && inArgument.mKey == inKey;
        });
        outElement = "-";
        if (argument == mCall.mArguments.end()) return true;  // it does not matter
        const std::string* given = ValueOf(*argument);
        const std::string& text = given == nullptr ? argument->mDefault : *given;
        if (text.empty() || text == "." || text == "..") return Refuse("\"" + text + "\" cannot be " + argument->mName);
        outElement = EncodedElement(text);
        return true;
    }

    bool MakeTarget(std::string& outTarget)
    {
        outTarget = mOperation.mPath.Named();
        std::size_t place = 0;
        for (const std::string& name : apidoc::NamesInPath(outTarget)) {
            std::string element;
            if (!MakeElement(name, element)) return false;
            place = outTarget.find('{', place);
            outTarget.replace(place, name.size() + 2, element);
            place += element.size();
        }
        char joint = '?';
        for (const Argument& argument : mCall.mArguments) {
            const std::string* given = argument.mKind == ArgumentKind::Query ? ValueOf(argument) : nullptr;
            if (given == nullptr) continue;
            const std::string& value = argument.mValue == ArgumentValue::Flag ? argument.mDefault : *given;
            outTarget += joint + PercentEncoded(argument.mKey) + "=" + PercentEncoded(value);
            joint = '&';
        }
        return true;
    }

    void NoteFile(MadeRequest& outRequest)
    {
        for (const Argument& argument : mCall.mArguments) {
            const std::string* given = argument.mValue == ArgumentValue::FilePath ? ValueOf(argument) : nullptr;
            if (given != nullptr && !MakeValue(argument, *given, outRequest.mFileInTheMaking))
                outRequest.mFileInTheMaking.clear();
        }
    }

    bool MakeBody(MadeRequest& outRequest)
    {
        NoteFile(outRequest);
        if (Given(ArgumentKind::FreeField) != nullptr) return MakeFreeRows(outRequest.mRows);
        if (Given(ArgumentKind::Body) != nullptr) return TakeBody(outRequest);
        if (Given(ArgumentKind::Payload) != nullptr) return MakeRows(outRequest.mRows);
        return MakeObject(outRequest);
    }

    bool TakeBody(MadeRequest& outRequest)
    {
        for (const Argument& argument : mCall.mArguments)
            if ((argument.mKind == ArgumentKind::Field || argument.mKind == ArgumentKind::Name) && ValueOf(argument))
                return Refuse("--body and " + argument.mName + " exclude each other");
        outRequest.mContentType = kJSONType;
        return ReadFile(*Given(ArgumentKind::Body), outRequest.mBody, mError);
    }

    bool MakeFreeRows(std::vector<FormRow>& outRows)
    {
        const auto argument = std::ranges::find(mCall.mArguments, ArgumentKind::FreeField, &Argument::mKind);
        for (const std::string& text : mValues.at(argument->mName)) {
            const auto equals = text.find('=');
            if (equals == 0 || equals == std::string::npos) return Refuse("\"" + text + "\" is not KEY=VALUE");
            const std::string value = text.substr(equals + 1);
            const bool isFile = value.starts_with('@');
            outRows.push_back({text.substr(0, equals), isFile ? value.substr(1) : value, isFile});
        }
        return true;
    }

    /// The text of a field; JSON is checked, and read from its file.
    bool MakeValue(const Argument& inArgument, const std::string& inGiven, std::string& outText)
    {
        outText = inGiven;
        if (inArgument.mValue == ArgumentValue::FilePath && !outText.empty()) {
            std::error_code error;
            outText = std::filesystem::absolute(outText, error).lexically_normal().string();
            return !error || Refuse(inArgument.mName + ": " + error.message());
        }
        const bool isRevised = inArgument.mValue == ArgumentValue::RevisedJSON;
        if (inArgument.mValue != ArgumentValue::JSON && !isRevised) return true;
        if (outText.starts_with('@')) {
            const std::string path = outText.substr(1);
            if (!ReadFile(path, outText, mError)) return false;
        }
        auto minified = MinifyJSON(outText);
        if (!minified) return Refuse(inArgument.mName + " is not JSON");
        outText = std::move(*minified);
        return !isRevised || NameRevision(inArgument, outText);
    }

    /// Puts the revision of the command into an object that names none.
    bool NameRevision(const Argument& inArgument, std::string& ioObject)
    {
        JSONDocument object;
        if (!ioObject.starts_with('{') || !object.Parse(ioObject)) return Refuse(inArgument.mName + " is no object");
        if (object.Root()[kRevisionKey].Exists()) return true;
        JSONWriter member;
        member.BeginObject();
        member.Member(kRevisionKey, Revision());
        member.EndObject();
        const std::string rest = ioObject.substr(1);
        ioObject = member.TakeText();
        ioObject.back() = ',';
        if (rest == "}") ioObject.pop_back();
        ioObject += rest;
        return true;
    }

    /// What the command was told, or HEAD; empty where it takes none.
    [[nodiscard]] std::string Revision() const
    {
        const auto revision = std::ranges::find(mCall.mArguments, kRevisionOption, &Argument::mName);
        if (revision == mCall.mArguments.end()) return {};
        const std::string* given = ValueOf(*revision);
        return given == nullptr ? revision->mDefault : *given;
    }

    bool MakeRows(std::vector<FormRow>& outRows)
    {
        for (const Argument& argument : mCall.mArguments) {
            const std::string* given = ValueOf(argument);
            if (given == nullptr) continue;
            if (argument.mKind == ArgumentKind::Payload) outRows.push_back({argument.mKey, *given, true});
            if (argument.mKind != ArgumentKind::Field) continue;
            std::string text;
            if (!MakeValue(argument, *given, text)) return false;
            outRows.push_back({argument.mKey, std::move(text), false});
        }
        return true;
    }

    bool WriteMember(const Argument& inArgument, JSONWriter& outWriter)
    {
        if (inArgument.mKind != ArgumentKind::Field && inArgument.mKind != ArgumentKind::Name) return true;
        const bool isRevised = inArgument.mValue == ArgumentValue::RevisedJSON;
        const std::string* given = ValueOf(inArgument);
        if (given == nullptr && !isRevised) return WriteDefault(inArgument, outWriter);
        std::string text;
        if (!MakeValue(inArgument, given == nullptr ? "{}" : *given, text)) return false;
        outWriter.Key(inArgument.mKey);
        if (isRevised || inArgument.mValue == ArgumentValue::JSON)
            outWriter.Raw(text);
        else if (inArgument.mValue == ArgumentValue::Switch)
            outWriter.Bool(true);
        else
            outWriter.String(text);
        return true;
    }

    /// A record that must name the revision of the path does so by itself.
    bool WriteDefault(const Argument& inArgument, JSONWriter& outWriter)
    {
        const std::string revision = Revision();
        if (inArgument.mKey == kRevisionKey && !revision.empty()) outWriter.Member(inArgument.mKey, revision);
        return true;
    }

    bool MakeObject(MadeRequest& outRequest)
    {
        if (mOperation.mBody == API::BodyKind::None) return true;
        JSONWriter writer;
        writer.BeginObject();
        for (const Argument& argument : mCall.mArguments)
            if (!WriteMember(argument, writer)) return false;
        writer.EndObject();
        if (mOperation.mBodyIsOptional && writer.Text() == "{}") return true;
        outRequest.mContentType = kJSONType;
        outRequest.mBody = writer.TakeText();
        return true;
    }

    const Call& mCall;
    const API::Operation& mOperation;
    const Values& mValues;
    RequestError& mError;
};

}  // namespace

bool MakeRequest(const Command& inCommand, const Values& inValues, MadeRequest& outRequest, RequestError& outError)
{
    std::size_t operands = 0;
    for (const Argument& argument : inCommand.Arguments())
        operands += argument.IsOperand() ? inValues.count(argument.mName) : 0;
    for (const Call& call : inCommand.mCalls)
        if (call.CountOperands() == operands) return RequestMaker(call, inValues, outError).Make(outRequest);
    outError = {"an operand is missing: " + inCommand.Usage(), true};
    return false;
}

}  // namespace hubctl
