#include "Tools/hubctl/Commands.h"

#include <algorithm>
#include <cctype>

#include "Client/Wire/Operations/Parameters.h"
#include "Client/Wire/Operations/TransactionKeys.h"
#include "Tools/apidoc/RecordShapes.h"
#include "Tools/apidoc/Statuses.h"

namespace hubctl {

namespace {

using API::BodyKind;
using API::Operation;
using API::ValueKind;

constexpr std::string_view kCommitID = "commitId";
constexpr std::string_view kUserID = "userId";

/// Words with dashes of a wire key: "vy:transactionId" is "transaction-id", "URL" stays one word.
std::string Dashed(std::string_view inKey)
{
    if (const auto colon = inKey.rfind(':'); colon != std::string_view::npos) inKey.remove_prefix(colon + 1);
    std::string text;
    for (std::size_t i = 0; i < inKey.size(); ++i) {
        const auto letter = static_cast<unsigned char>(inKey[i]);
        const bool begins = i != 0 && std::isupper(letter) != 0 &&
                            (std::isupper(static_cast<unsigned char>(inKey[i - 1])) == 0 ||
                             (i + 1 < inKey.size() && std::islower(static_cast<unsigned char>(inKey[i + 1])) != 0));
        if (begins) text += '-';
        text += static_cast<char>(std::tolower(letter));
    }
    return text;
}

std::string Upper(std::string inText)
{
    std::ranges::transform(inText, inText.begin(), [](unsigned char inLetter) { return std::toupper(inLetter); });
    return inText;
}

template <class Names>
std::string_view Listed(const Names& inNames, std::string_view inKey)
{
    const auto found = std::ranges::find(inNames, inKey, &NameOnCommandLine::mKey);
    return found == std::ranges::end(inNames) ? std::string_view() : found->mName;
}

std::string OperandName(std::string_view inKey, const std::vector<std::string>& inNamesOfPath)
{
    if (inKey == kCommitID && std::ranges::count(inNamesOfPath, "baseCommitId") != 0) return "TO";
    if (const auto listed = Listed(kOperandNames, inKey); !listed.empty()) return std::string(listed);
    const std::string dashed = Dashed(inKey);
    return Upper(dashed.ends_with("-id") ? dashed.substr(0, dashed.size() - 3) : dashed);
}

std::string OptionName(std::string_view inKey)
{
    if (const auto listed = Listed(kOptionNames, inKey); !listed.empty()) return std::string(listed);
    return "--" + Dashed(inKey);
}

/// Without the marks of the description's texts.
std::string Plain(std::string_view inText)
{
    std::string text(inText);
    std::erase(text, '`');
    return text;
}

std::string_view MeaningOfPathName(std::string_view inName)
{
    const auto found = std::ranges::find(API::kPathParameters, inName, &API::PathParameter::mName);
    return found == API::kPathParameters.end() ? std::string_view() : found->mMeaning;
}

Argument Option(ArgumentKind inKind, std::string_view inKey, std::string inLabel, std::string_view inMeaning)
{
    Argument argument;
    argument.mKind = inKind;
    argument.mKey = inKey;
    argument.mName = OptionName(inKey);
    argument.mLabel = std::move(inLabel);
    argument.mMeaning = Plain(inMeaning);
    return argument;
}

void AddPath(const CommandRow& inRow, const Operation& inOperation, std::vector<Argument>& outArguments)
{
    std::vector<Argument> options;
    const auto names = apidoc::NamesInPath(inOperation.mPath.Named());
    for (const std::string& name : names) {
        if (name == kCommitID && inRow.mRevision == RevisionFrom::Nothing) continue;
        const bool isRevision = name == kCommitID && inRow.mRevision == RevisionFrom::Option;
        Argument argument = Option(ArgumentKind::Path, name, {}, MeaningOfPathName(name));
        if (isRevision || name == kUserID) {
            argument.mName = isRevision ? std::string(kRevisionOption) : "--user";
            argument.mLabel = isRevision ? "REVISION" : "USER";
            argument.mMeaning =
                isRevision ? "id of a commit, or HEAD" : "id of a user; \"-\" for the one who is signed in";
            argument.mDefault = isRevision ? VYCL::LocalHub::Revision_HEAD().Text() : "-";
            options.push_back(std::move(argument));
            continue;
        }
        argument.mName = OperandName(name, names);
        argument.mIsRequired = true;
        outArguments.push_back(std::move(argument));
    }
    outArguments.insert(outArguments.end(), options.begin(), options.end());
}

void AddQuery(const Operation& inOperation, std::vector<Argument>& outArguments)
{
    for (const std::string_view key : inOperation.mQueryKeys) {
        const auto found = std::ranges::find(API::kQueryParameters, key, &API::QueryParameter::mKey);
        const bool isFlag = found != API::kQueryParameters.end() && !found->mOnlyValue.empty();
        const std::string_view meaning = found == API::kQueryParameters.end() ? std::string_view() : found->mMeaning;
        Argument argument = Option(ArgumentKind::Query, key, {}, meaning);
        if (isFlag) {
            // What stands before the colon is the value, which a flag does not show.
            argument.mValue = ArgumentValue::Flag;
            argument.mDefault = found->mOnlyValue;
            if (const auto colon = argument.mMeaning.find(": "); colon != std::string::npos)
                argument.mMeaning.erase(0, colon + 2);
            argument.mMeaning.erase(std::min(argument.mMeaning.find('.'), argument.mMeaning.size()));
        } else {
            argument.mLabel = Upper(argument.mName.substr(2));
        }
        outArguments.push_back(std::move(argument));
    }
}

Argument ArgumentOf(const API::Field& inField)
{
    const bool isPayload = inField.mKind == ValueKind::Payload;
    const bool isJSON = inField.mKind == ValueKind::Object;
    Argument argument = Option(isPayload ? ArgumentKind::Payload : ArgumentKind::Field, inField.mKey.View(),
                               isPayload ? "FILE"
                               : isJSON  ? "JSON"
                                         : "TEXT",
                               inField.mMeaning);
    argument.mIsRequired = inField.mIsRequired;
    if (isJSON) argument.mValue = ArgumentValue::JSON;
    if (inField.mKind == ValueKind::Text && std::ranges::count(kPathKeys, inField.mKey.View()) != 0) {
        argument.mValue = ArgumentValue::FilePath;
        argument.mLabel = "PATH";
    }
    if (inField.mKind == ValueKind::Boolean) argument.mWords = {"true", "false"};
    for (const API::Text& word : inField.mWords)
        if (word.IsSet()) argument.mWords.emplace_back(word.View());
    return argument;
}

void AddRecordOptions(const Operation& inOperation, std::vector<Argument>& outArguments)
{
    const auto& shapes = apidoc::AllRecordShapes();
    const auto shape = shapes.find(std::string(inOperation.mBodyRecord));
    for (const RecordOption& option : kRecordOptions) {
        if (option.mRecord != inOperation.mBodyRecord || shape == shapes.end()) continue;
        const auto key = std::ranges::find(shape->second, option.mKey, &apidoc::KeyShape::mKey);
        if (key == shape->second.end()) continue;
        Argument argument = Option(ArgumentKind::Field, option.mKey, "TEXT", option.mMeaning);
        if (key->mType.mKind == apidoc::TypeKind::Boolean) {
            argument.mValue = ArgumentValue::Switch;
            argument.mLabel.clear();
        } else if (key->mType.mKind != apidoc::TypeKind::Text) {
            argument.mValue = ArgumentValue::JSON;
            argument.mLabel = "JSON";
        }
        outArguments.push_back(std::move(argument));
    }
}

bool IsFreeForm(const Operation& inOperation)
{
    return inOperation.mBody == BodyKind::RowsToFill || inOperation.mBody == BodyKind::RowsToDelete ||
           (inOperation.mBody == BodyKind::Form && inOperation.mBodyFields.empty());
}

bool HasRecordOptions(std::string_view inRecord)
{
    return std::ranges::count(kRecordOptions, inRecord, &RecordOption::mRecord) != 0;
}

void AddFreeFields(std::vector<Argument>& outArguments)
{
    Argument argument = Option(ArgumentKind::FreeField, "field", "KEY=VALUE",
                               "a field of the form, as often as need be; @FILE as the value sends a file");
    argument.mIsRequired = true;
    outArguments.push_back(std::move(argument));
}

void AddBody(const CommandRow& inRow, const Operation& inOperation, std::vector<Argument>& outArguments)
{
    if (IsFreeForm(inOperation)) return AddFreeFields(outArguments);
    const bool namesRevision = std::ranges::count(kNamingTheRevision, inRow.mWords) != 0;
    for (const API::Field& field : inOperation.mBodyFields) {
        Argument argument = ArgumentOf(field);
        if (namesRevision && argument.mIsRequired && argument.mValue == ArgumentValue::JSON) {
            argument.mIsRequired = false;
            argument.mValue = ArgumentValue::RevisedJSON;
        }
        outArguments.push_back(std::move(argument));
    }
    const BodyKind kind = inOperation.mBody;
    if (kind != BodyKind::Record && kind != BodyKind::Records && kind != BodyKind::Properties) return;
    if (kind == BodyKind::Record) AddRecordOptions(inOperation, outArguments);
    if (kind == BodyKind::Properties)
        outArguments.push_back(Option(ArgumentKind::Name, "name", "TEXT", "name among its properties"));
    std::string what =
        kind == BodyKind::Properties ? "the whole properties" : std::string(inOperation.mBodyRecord) + " as JSON";
    if (kind == BodyKind::Records) what = "array of " + what;
    Argument argument = Option(ArgumentKind::Body, "body", "FILE", what + "; - for standard input");
    argument.mIsRequired =
        kind == BodyKind::Records || (kind == BodyKind::Record && !HasRecordOptions(inOperation.mBodyRecord));
    outArguments.push_back(std::move(argument));
}

bool Finds(const CommandRow& inRow, Call& outCall)
{
    for (const API::Resource& resource : API::kResources) {
        for (const Operation& operation : resource.mOperations) {
            if (operation.mMethod != inRow.mMethod || operation.mPath.mTemplate != inRow.mTemplate) continue;
            outCall.mRow = &inRow;
            outCall.mResource = &resource;
            outCall.mOperation = &operation;
            return true;
        }
    }
    return false;
}

std::vector<Command> MakeCommands()
{
    std::vector<Command> commands;
    for (const CommandRow& row : kCommandRows) {
        Call call;
        if (!Finds(row, call)) continue;  // a test tells of a row that finds nothing
        AddPath(row, *call.mOperation, call.mArguments);
        AddQuery(*call.mOperation, call.mArguments);
        AddBody(row, *call.mOperation, call.mArguments);
        if (call.AnswersPayload())
            call.mArguments.push_back(
                Option(ArgumentKind::Output, "output", "FILE", "where the payload goes; else standard output"));
        if (apidoc::IsLongPoll(*call.mResource, *call.mOperation)) {
            Argument wait = Option(ArgumentKind::Wait, "wait", {}, "show each new state, until Ctrl-C");
            wait.mValue = ArgumentValue::Flag;
            call.mArguments.push_back(std::move(wait));
        }
        if (commands.empty() || commands.back().mWords != row.mWords) commands.push_back({std::string(row.mWords), {}});
        commands.back().mCalls.push_back(std::move(call));
    }
    return commands;
}

}  // namespace

std::size_t Call::CountOperands() const
{
    return static_cast<std::size_t>(std::ranges::count_if(mArguments, &Argument::IsOperand));
}

bool Call::AnswersPayload() const
{
    return std::ranges::any_of(mOperation->mAnswers,
                               [](const API::Answer& inAnswer) { return inAnswer.mKind == API::AnswerKind::Payload; });
}

std::string Command::Verb() const
{
    const auto blank = mWords.find(' ');
    return blank == std::string::npos ? std::string() : mWords.substr(blank + 1);
}

std::string Command::Help() const
{
    std::string help;
    for (const Call& call : mCalls)
        help += (help.empty() ? "" : " ") +
                (call.mRow->mHelp.empty() ? Plain(call.mOperation->mSummary) : std::string(call.mRow->mHelp));
    return help;
}

std::vector<Argument> Command::Arguments() const
{
    std::vector<Argument> arguments = mCalls.back().mArguments;
    std::size_t required = mCalls.front().CountOperands();
    for (Argument& argument : arguments) {
        if (!argument.IsOperand()) continue;
        argument.mIsRequired = required != 0;
        if (required != 0) --required;
    }
    return arguments;
}

std::string Command::Usage() const
{
    std::string usage = mWords;
    for (const Argument& argument : Arguments()) {
        std::string one = argument.mName;
        if (!argument.mWords.empty()) {
            std::string words;
            for (const std::string& word : argument.mWords)
                words += (words.empty() ? "" : "|") + word;
            one += " " + words;
        } else if (!argument.mLabel.empty()) {
            one += " " + argument.mLabel;
        }
        usage += argument.mIsRequired ? " " + one : " [" + one + "]";
        if (argument.mKind == ArgumentKind::FreeField) usage += "...";
    }
    return usage;
}

const std::vector<Command>& Commands()
{
    static const std::vector<Command> commands = MakeCommands();
    return commands;
}

const Command* FindCommand(std::string_view inWords)
{
    const auto& commands = Commands();
    const auto found = std::ranges::find(commands, inWords, &Command::mWords);
    return found == commands.end() ? nullptr : &*found;
}

std::string CommandsDocument()
{
    std::string text =
        "# Commands of hubctl that call the API\n\n"
        "Written by `hubctl commands` (`cmake --build --preset debug --target hubctl_docs` renews this file). What "
        "each "
        "one sends and\nmay be answered stands in [api.md](api.md); how hubctl is used, in [hubctl.md](hubctl.md).\n";
    std::string_view title;
    for (const Command& command : Commands()) {
        const bool isShort = std::ranges::count(kShortForms, command.mWords) != 0;
        const std::string_view here = isShort ? "Short forms" : command.mCalls.front().mResource->mTitle;
        if (here != title) text.append("\n## ").append(here).append("\n");
        title = here;
        text += "\n    hubctl " + command.Usage() + "\n\n" + command.Help() + "\n";
    }
    return text;
}

}  // namespace hubctl
