#include <algorithm>
#include <string>

#include "Client/Wire/Operations/Operations.h"
#include "Client/Wire/Operations/Parameters.h"
#include "Client/Wire/Operations/TransactionKeys.h"
#include "Client/Wire/Operations/WordKeys.h"
#include "Tools/apidoc/Documents.h"
#include "Tools/apidoc/RecordShapes.h"
#include "Tools/apidoc/Statuses.h"

namespace apidoc {

namespace API = VantryLocalHub::API;

namespace {

std::string Code(std::string_view inText)
{
    return std::string("`").append(inText).append("`");
}

std::string LinkToRecord(std::string_view inRecord)
{
    std::string anchor(inRecord);
    for (char& letter : anchor)
        letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    return std::string("[").append(inRecord).append("](#").append(anchor).append(")");
}

/// A row of a table; what would end a cell is taken out of its meaning.
std::string Row(const std::vector<std::string>& inCells)
{
    std::string row = "|";
    for (std::string cell : inCells) {
        for (auto bar = cell.find('|'); bar != std::string::npos; bar = cell.find('|', bar + 2))
            cell.replace(bar, 1, "\\|");
        row.append(" ").append(cell).append(cell.empty() ? "|" : " |");
    }
    return row.append("\n");
}

std::string TableHead(const std::vector<std::string>& inCells)
{
    std::string head = Row(inCells).append("|");
    for (std::size_t i = 0; i < inCells.size(); ++i)
        head.append("---|");
    return head.append("\n");
}

std::string Values(const API::Text* inBegin, const API::Text* inEnd)
{
    std::string values;
    for (const API::Text* word = inBegin; word != inEnd; ++word)
        if (word->IsSet()) values.append(values.empty() ? "" : ", ").append(Code(word->View()));
    return values;
}

std::string TypeOfField(const API::Field& inField)
{
    const std::string values = Values(inField.mWords.data(), inField.mWords.data() + inField.mWords.size());
    if (!values.empty()) return values;
    switch (inField.mKind) {
        case API::ValueKind::Text:
            return "text";
        case API::ValueKind::Boolean:
            return "`true`, `false`";
        case API::ValueKind::Object:
            return inField.mRecord.empty() ? "object" : LinkToRecord(inField.mRecord);
        case API::ValueKind::Payload:
            return "bytes";
    }
    return {};
}

std::string BodyKindText(const Operation& inOperation)
{
    switch (inOperation.mBody) {
        case API::BodyKind::None:
            break;
        case API::BodyKind::Record:
            return LinkToRecord(inOperation.mBodyRecord) + ".";
        case API::BodyKind::Records:
            return "an array of " + LinkToRecord(inOperation.mBodyRecord) + ".";
        case API::BodyKind::Properties:
            return "a JSON object.";
        case API::BodyKind::Form:
            return "a form.";
        case API::BodyKind::FormOrQuery:
            return "a form, or none with the keys in the query.";
        case API::BodyKind::Object:
            return "a JSON object.";
        case API::BodyKind::RowsToFill:
            return "a multipart form of [rows](#rows-of-a-transaction).";
        case API::BodyKind::RowsToDelete:
            return "a multipart form of [rows to delete](#rows-of-a-transaction).";
    }
    return {};
}

std::string BodyText(const Operation& inOperation)
{
    if (inOperation.mBody == API::BodyKind::None) return {};
    std::string text = inOperation.mBodyIsOptional ? "\nBody, if any: " : "\nBody: ";
    text.append(BodyKindText(inOperation));
    if (!inOperation.mBodyNote.empty()) text.append(" ").append(inOperation.mBodyNote);
    text.append("\n");
    if (inOperation.mBodyFields.empty()) return text;
    text.append("\n").append(TableHead({"key", "value", "", ""}));
    for (const API::Field& field : inOperation.mBodyFields)
        text.append(Row({Code(field.mKey.View()), TypeOfField(field), field.mIsRequired ? "needed" : "",
                         std::string(field.mMeaning)}));
    return text;
}

std::string QueryText(const Operation& inOperation)
{
    if (inOperation.mQueryKeys.empty()) return {};
    std::string text;
    for (const std::string_view key : inOperation.mQueryKeys) {
        const auto parameter = std::ranges::find(API::kQueryParameters, key, &API::QueryParameter::mKey);
        text.append(text.empty() ? "\nQuery: " : "; ").append(Code(key));
        if (parameter != API::kQueryParameters.end()) text.append(" (").append(parameter->mMeaning).append(")");
    }
    return text.append(".\n");
}

std::string AnswerText(const Answer& inAnswer)
{
    if (inAnswer.mKind == API::AnswerKind::Payload) return "bytes";
    std::string text;
    for (const std::string_view record : inAnswer.mRecords)
        if (!record.empty()) text.append(text.empty() ? "" : " or ").append(LinkToRecord(record));
    return text;
}

std::string HeadersOf(const Operation& inOperation, const Answer& inAnswer)
{
    std::string headers;
    const auto add = [&headers](std::string_view inName) {
        headers.append(headers.empty() ? "" : ", ").append(Code(inName));
    };
    if (inOperation.mIsTagged || (inOperation.mIsLocated && inAnswer.mKind != API::AnswerKind::Nothing)) add("ETag");
    if (inOperation.mIsLocated) add("Location");
    if (inOperation.mHeader.IsSet()) add(inOperation.mHeader.View());
    return headers;
}

std::string StatusText(const Resource& inResource, const Operation& inOperation)
{
    std::string text = "\n" + TableHead({"status", "body", "headers", ""});
    for (const auto& [status, what] : StatusesOf(inResource, inOperation)) {
        const bool isAnswer = what.mAnswer != nullptr;
        text.append(Row({std::to_string(status), isAnswer ? AnswerText(*what.mAnswer) : "",
                         isAnswer ? HeadersOf(inOperation, *what.mAnswer) : "", what.mMeaning}));
    }
    return text;
}

std::string OperationText(const Resource& inResource, const Operation& inOperation)
{
    std::string text = "\n**" + std::string(inOperation.mMethod) + "** " + Code(inOperation.mPath.Named());
    if (IsLongPoll(inResource, inOperation)) text.append(" (long poll)");
    text.append("\n\n").append(inOperation.mSummary).append("\n");
    return text.append(QueryText(inOperation))
        .append(BodyText(inOperation))
        .append(StatusText(inResource, inOperation));
}

std::string ResourceText(const Resource& inResource)
{
    std::string text = "\n### " + std::string(inResource.mTitle) + "\n";
    if (!inResource.mAbout.empty()) text.append("\n").append(inResource.mAbout).append("\n");
    for (const Operation& operation : inResource.mOperations)
        text.append(OperationText(inResource, operation));
    return text;
}

std::string CommonStatusesText()
{
    std::string text = "\n## Statuses of any request\n\n" + TableHead({"status", ""});
    for (const CommonStatus& status : kCommonStatuses)
        text.append(Row({std::to_string(status.mStatus), std::string(status.mWhen)}));
    return text;
}

std::string PathParametersText()
{
    std::string text = "\n## Names in paths\n\n" + TableHead({"name", ""});
    for (const API::PathParameter& parameter : API::kPathParameters)
        text.append(Row({Code(parameter.mName), std::string(parameter.mMeaning)}));
    return text;
}

std::string TransactionRowsText()
{
    std::string text =
        "\n## Rows of a transaction\n\nKeys of the multipart forms of a transaction. `<row>` and "
        "`<enclosure>` are ids where they are guids, else temporary indexes of the client's choice.\n";
    for (const bool deletes : {false, true}) {
        text.append("\n").append(TableHead({deletes ? "key of a row to delete" : "key", "value"}));
        for (const API::TransactionKey& key : API::kTransactionKeys)
            if (key.mDeletes == deletes) text.append(Row({Code(key.Shown()), std::string(key.mMeaning)}));
    }
    return text;
}

std::string TypeText(const TypeShape& inType)
{
    switch (inType.mKind) {
        case TypeKind::Text:
            return "text";
        case TypeKind::Time:
            return "time";
        case TypeKind::Boolean:
            return "boolean";
        case TypeKind::Integer32:
            return "integer, 32 bits";
        case TypeKind::Integer64:
            return "integer, 64 bits";
        case TypeKind::Number:
            return "number";
        case TypeKind::OpaqueObject:
            return "object";
        case TypeKind::OpaqueArray:
            return "array";
        case TypeKind::AnyValue:
            return "any value";
        case TypeKind::Record:
            return LinkToRecord(inType.mRecord);
        case TypeKind::Array:
            return "array of " + TypeText(inType.mElement.front());
    }
    return {};
}

std::string PresenceText(Presence inPresence)
{
    switch (inPresence) {
        case Presence::Always:
            return "always";
        case Presence::WhenSet:
            return "when set";
        case Presence::Never:
            return "never";
    }
    return {};
}

std::string WordsOfKey(const std::string& inRecord, const std::string& inKey)
{
    for (const API::WordKey& key : API::kWordKeys)
        if (key.mRecord == inRecord && key.mKey == inKey)
            return Values(key.mWords.data(), key.mWords.data() + key.mWords.size());
    return {};
}

std::string RecordsText()
{
    std::string text =
        "\n## Records\n\nKeys stand in the order in which they are written. \"When set\": left out where the value is "
        "empty, zero or false. \"Never\": read, but not written. Every key may be absent from a body that the hub "
        "reads, and unknown keys are ignored; a value of another type makes the whole body unreadable. Objects, arrays "
        "and values without a record are opaque: they pass through as they came.\n";
    for (const auto& [record, shape] : AllRecordShapes()) {
        text.append("\n### ").append(record).append("\n\n");
        const auto other = std::ranges::find(API::kOtherRecords, record, &API::OtherRecord::mRecord);
        if (other != API::kOtherRecords.end()) text.append(other->mWhy).append("\n\n");
        text.append(TableHead({"key", "type", "written", "words"}));
        for (const KeyShape& key : shape)
            text.append(
                Row({Code(key.mKey), TypeText(key.mType), PresenceText(key.mPresence), WordsOfKey(record, key.mKey)}));
    }
    return text;
}

}  // namespace

std::string MarkdownDocument(const std::string& inIntroduction)
{
    std::string text = inIntroduction + "\n## Resources\n";
    for (const Resource& resource : API::kResources)
        text.append(ResourceText(resource));
    return text.append(CommonStatusesText())
        .append(PathParametersText())
        .append(TransactionRowsText())
        .append(RecordsText());
}

}  // namespace apidoc
