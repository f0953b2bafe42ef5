#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "Client/Wire/AllRecords.h"
#include "Client/Wire/Routes.h"
#include "Client/Wire/URLTemplates.h"

/// What a client may ask of each resource and what it is answered: the API's description as constant data, from which
/// its documents are generated. Tests hold the rows against the routing table, the URL templates and the services.
namespace VantryLocalHub::API {

/// A text of a row: fixed, or a word of the vocabulary.
class Text
{
public:
    using Word = const noxcore::utility::ImmutableString& (*)();

    constexpr Text() = default;
    constexpr Text(const char* inText) : mFixed(inText) {}
    constexpr Text(std::string_view inText) : mFixed(inText) {}
    constexpr Text(Word inWord) : mWord(inWord) {}

    [[nodiscard]] std::string_view View() const { return mWord == nullptr ? mFixed : mWord().View(); }
    [[nodiscard]] constexpr bool IsSet() const { return mWord != nullptr || !mFixed.empty(); }

private:
    std::string_view mFixed;
    Word mWord = nullptr;
};

/// A short list that lives inside its row. Adding past its size does not compile.
template <class Type, std::size_t kCapacity>
class ShortList
{
public:
    constexpr void Add(const Type& inElement) { mElements.at(mCount++) = inElement; }
    [[nodiscard]] constexpr const Type* begin() const { return mElements.data(); }
    [[nodiscard]] constexpr const Type* end() const { return mElements.data() + mCount; }
    [[nodiscard]] constexpr bool empty() const { return mCount == 0; }
    [[nodiscard]] constexpr std::size_t size() const { return mCount; }

private:
    std::array<Type, kCapacity> mElements{};
    std::size_t mCount = 0;
};

/// A URL template with names for what the hub itself would fill in.
struct Path
{
    std::string_view mTemplate;
    ShortList<std::string_view, 4> mNames;

    /// The path with every gap as a name in braces, without the query.
    [[nodiscard]] std::string Named() const
    {
        std::string path(mTemplate.substr(0, mTemplate.find('?')));
        for (const std::string_view name : mNames)
            if (const auto gap = path.find("%s"); gap != std::string::npos)
                path.replace(gap, 2, std::string("{").append(name).append("}"));
        return path;
    }
};

template <class... Names>
constexpr Path At(std::string_view inTemplate, Names... inNames)
{
    Path path{inTemplate, {}};
    (path.mNames.Add(inNames), ...);
    return path;
}

enum class ValueKind : std::uint8_t
{
    Text,
    Boolean,  ///< the text "true" or "false"
    Object,   ///< JSON
    Payload   ///< bytes, or the text that stands for them
};

/// One key of a form, or of a JSON object that is no record.
struct Field
{
    Text mKey;
    ValueKind mKind = ValueKind::Text;
    std::string_view mMeaning;
    bool mIsRequired = false;
    std::string_view mRecord = {};  ///< of an object: the record it holds; empty for an opaque one
    std::array<Text, 3> mWords{};   ///< the only values it may have; none set: any
};
using Fields = std::span<const Field>;

enum class BodyKind : std::uint8_t
{
    None,
    Record,
    Records,      ///< an array of them
    Properties,   ///< an opaque JSON object
    Form,         ///< multipart or urlencoded, or the same keys as a JSON object
    FormOrQuery,  ///< the same, or the keys in the query
    Object,       ///< keys of a JSON object
    RowsToFill,   ///< multipart form of a transaction's rows, by TransactionKeys.h
    RowsToDelete  ///< the same for rows to delete
};

enum class AnswerKind : std::uint8_t
{
    Nothing,
    Record,
    Payload
};

struct Answer
{
    int mStatus = 0;
    AnswerKind mKind = AnswerKind::Nothing;
    std::array<std::string_view, 2> mRecords{};  ///< one of them
    std::string_view mMeaning;
};

struct Failure
{
    int mStatus = 0;
    std::string_view mWhen;
};

/// One row: built by the calls that say what differs from a request without body, query or answer.
class Operation
{
public:
    constexpr Operation() = default;
    constexpr Operation(std::string_view inMethod, std::string_view inSelector, const Path& inPath,
                        std::string_view inSummary)
        : mMethod(inMethod), mSelector(inSelector), mPath(inPath), mSummary(inSummary)
    {
    }

    template <class... Records>
    [[nodiscard]] constexpr Operation Answers(int inStatus = 200, std::string_view inMeaning = {}) const
    {
        Operation result = *this;
        result.mAnswers.Add({inStatus, AnswerKind::Record, {dto::RecordName<Records>::kText...}, inMeaning});
        return result;
    }
    [[nodiscard]] constexpr Operation AnswersPayload(std::string_view inMeaning) const
    {
        Operation result = *this;
        result.mAnswers.Add({200, AnswerKind::Payload, {}, inMeaning});
        return result;
    }
    [[nodiscard]] constexpr Operation AnswersNothing(int inStatus, std::string_view inMeaning) const
    {
        Operation result = *this;
        result.mAnswers.Add({inStatus, AnswerKind::Nothing, {}, inMeaning});
        return result;
    }
    /// An entity tag that the next request may send back: 304 without a body while nothing has changed.
    [[nodiscard]] constexpr Operation Tagged() const
    {
        Operation result = *this;
        result.mIsTagged = true;
        return result;
    }
    /// The success tells where the new resource is, and its entity tag.
    [[nodiscard]] constexpr Operation Located() const
    {
        Operation result = *this;
        result.mIsLocated = true;
        return result;
    }
    /// The success has this header too.
    [[nodiscard]] constexpr Operation WithHeader(Text inName, std::string_view inMeaning) const
    {
        Operation result = *this;
        result.mHeader = inName;
        result.mHeaderMeaning = inMeaning;
        return result;
    }
    [[nodiscard]] constexpr Operation Fails(int inStatus, std::string_view inWhen) const
    {
        Operation result = *this;
        result.mFailures.Add({inStatus, inWhen});
        return result;
    }
    [[nodiscard]] constexpr Operation Asks(std::string_view inQueryKey) const
    {
        Operation result = *this;
        result.mQueryKeys.Add(inQueryKey);
        return result;
    }
    template <class Record>
    [[nodiscard]] constexpr Operation Takes(std::string_view inNote = {}) const
    {
        return WithBody(BodyKind::Record, dto::RecordName<Record>::kText, {}, inNote);
    }
    template <class Record>
    [[nodiscard]] constexpr Operation TakesArrayOf(std::string_view inNote = {}) const
    {
        return WithBody(BodyKind::Records, dto::RecordName<Record>::kText, {}, inNote);
    }
    /// Fields outlive the row: they are constants.
    [[nodiscard]] constexpr Operation Takes(BodyKind inKind, Fields inFields, std::string_view inNote = {}) const
    {
        return WithBody(inKind, {}, inFields, inNote);
    }
    [[nodiscard]] constexpr Operation Takes(BodyKind inKind, std::string_view inNote) const
    {
        return WithBody(inKind, {}, {}, inNote);
    }
    /// The body may be left out.
    [[nodiscard]] constexpr Operation IfAny() const
    {
        Operation result = *this;
        result.mBodyIsOptional = true;
        return result;
    }

    std::string_view mMethod;
    std::string_view mSelector;
    Path mPath;
    std::string_view mSummary;
    ShortList<std::string_view, 3> mQueryKeys;
    BodyKind mBody = BodyKind::None;
    bool mBodyIsOptional = false;
    std::string_view mBodyRecord;
    Fields mBodyFields;
    std::string_view mBodyNote;
    ShortList<Answer, 3> mAnswers;
    bool mIsTagged = false;
    bool mIsLocated = false;
    Text mHeader;
    std::string_view mHeaderMeaning;
    ShortList<Failure, 8> mFailures;

private:
    [[nodiscard]] constexpr Operation WithBody(BodyKind inKind, std::string_view inRecord, Fields inFields,
                                               std::string_view inNote) const
    {
        Operation result = *this;
        result.mBody = inKind;
        result.mBodyRecord = inRecord;
        result.mBodyFields = inFields;
        result.mBodyNote = inNote;
        return result;
    }
};

/// The operations of one service.
struct Resource
{
    std::string_view mService;  ///< its name in the routing table
    std::string_view mTitle;
    std::string_view mAbout;  ///< empty where the operations say all
    std::span<const Operation> mOperations;
};

}  // namespace VantryLocalHub::API
