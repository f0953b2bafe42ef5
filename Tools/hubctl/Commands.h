#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Client/Wire/Operations/Operations.h"
#include "Tools/hubctl/CommandTable.h"

/// Command lines of the API's operations, as data: words, arguments, and the request that they make. No I/O but the
/// files that an argument names.
namespace hubctl {

namespace API = VantryLocalHub::API;

enum class ArgumentKind : std::uint8_t
{
    Path,       ///< fills the path
    Query,      ///< a key of the query
    Field,      ///< a key of the form or JSON object
    Payload,    ///< a key of the form whose content is a file
    FreeField,  ///< KEY=VALUE, as often as need be, in this order
    Name,       ///< name among otherwise opaque properties
    Body,       ///< file with the whole body
    Output,     ///< file for the payload of the answer
    Wait        ///< follow the changes
};

inline constexpr std::string_view kRevisionOption = "--revision";
inline constexpr std::string_view kRevisionKey = "vy:commitId";  ///< in a record that names the revision of the path

/// What stands in a field's text.
enum class ArgumentValue : std::uint8_t
{
    Text,
    Flag,         ///< nothing: it is given or not
    Switch,       ///< a JSON true or false
    JSON,         ///< JSON, or @FILE
    RevisedJSON,  ///< the same, which gets the revision of the command where it names none
    FilePath      ///< a path, sent as an absolute one
};

struct Argument
{
    ArgumentKind mKind = ArgumentKind::Path;
    ArgumentValue mValue = ArgumentValue::Text;
    std::string mKey;    ///< on the wire
    std::string mName;   ///< on the command line: an operand, or an option with its dashes
    std::string mLabel;  ///< what --help shows for the value
    std::string mMeaning;
    std::string mDefault;             ///< of an option that the path needs
    std::vector<std::string> mWords;  ///< the only values; none: any
    bool mIsRequired = false;

    [[nodiscard]] bool IsOperand() const { return !mName.starts_with('-'); }
};

/// An operation as one row of the table has it.
struct Call
{
    const CommandRow* mRow = nullptr;
    const API::Resource* mResource = nullptr;
    const API::Operation* mOperation = nullptr;
    std::vector<Argument> mArguments;  ///< operands first, in their order

    [[nodiscard]] std::size_t CountOperands() const;
    [[nodiscard]] bool AnswersPayload() const;
};

struct Command
{
    std::string mWords;
    std::vector<Call> mCalls;  ///< each with more operands than the one before

    [[nodiscard]] std::string Noun() const { return mWords.substr(0, mWords.find(' ')); }
    /// Empty for a noun that is a command of its own.
    [[nodiscard]] std::string Verb() const;
    [[nodiscard]] std::string Help() const;
    /// All that may be given; an operand that not every call has is not required.
    [[nodiscard]] std::vector<Argument> Arguments() const;
    /// "production get PRODUCTION [--revision REVISION]".
    [[nodiscard]] std::string Usage() const;
};

/// All commands in the order of the table, made once.
const std::vector<Command>& Commands();
/// Null for words that are no command.
const Command* FindCommand(std::string_view inWords);

/// What was given, by the argument's name; a flag has one value, which does not matter.
using Values = std::map<std::string, std::vector<std::string>>;

/// A row of a form that needs more than text.
struct FormRow
{
    std::string mKey;
    std::string mValue;  ///< text, or the path of a file
    bool mIsFile = false;
};

/// A request, but for the headers that only a running exchange knows.
struct MadeRequest
{
    const Call* mCall = nullptr;
    std::string mTarget;
    std::string mContentType;  ///< empty without a body, and for a form of rows
    std::string mBody;
    std::vector<FormRow> mRows;  ///< of a multipart form
    std::string mOutput;         ///< file for the payload; empty: standard output
    bool mWait = false;
    std::string mFileInTheMaking;  ///< that the hub is told to make, maybe
};

struct RequestError
{
    std::string mText;
    bool mIsUsage = true;  ///< else a file could not be read
};

/// False with the reason. "-" as a file is standard input.
bool MakeRequest(const Command& inCommand, const Values& inValues, MadeRequest& outRequest, RequestError& outError);

/// Every command with its usage and what it does, in Markdown.
std::string CommandsDocument();

}  // namespace hubctl
