#include "Platform/noxnet/Forms.h"

#include <algorithm>

#include "Platform/noxcore/JSON.h"
#include "Platform/noxnet/IncomingRequest.h"

namespace noxnet::http::server {

namespace {

using noxcore::serialization::JSONDocument;
using noxcore::serialization::JSONValue;

constexpr std::size_t kMaxPartHeadBytes = 16 * 1024;
constexpr std::size_t kMaxBoundaryBytes = 200;

bool IsBlank(char inChar)
{
    return inChar == ' ' || inChar == '\t';
}

std::string_view Trimmed(std::string_view inText)
{
    while (!inText.empty() && IsBlank(inText.front()))
        inText.remove_prefix(1);
    while (!inText.empty() && IsBlank(inText.back()))
        inText.remove_suffix(1);
    return inText;
}

int HexDigit(char inChar)
{
    if (inChar >= '0' && inChar <= '9') return inChar - '0';
    if (inChar >= 'a' && inChar <= 'f') return inChar - 'a' + 10;
    if (inChar >= 'A' && inChar <= 'F') return inChar - 'A' + 10;
    return -1;
}

/// Takes the text of a quoted parameter, from behind its first quotation mark to behind its last. False without end.
bool TakeQuoted(std::string_view& ioText, std::string& outText)
{
    outText.clear();
    while (!ioText.empty()) {
        const char current = ioText.front();
        ioText.remove_prefix(1);
        if (current == '"') return true;
        if (current == '\\' && !ioText.empty() && (ioText.front() == '"' || ioText.front() == '\\')) {
            outText += ioText.front();
            ioText.remove_prefix(1);
        } else if (current == '%' && ioText.starts_with("22")) {
            outText += '"';
            ioText.remove_prefix(2);
        } else {
            outText += current;
        }
    }
    return false;
}

/// Finds a parameter of a header such as 'form-data; name="a"'. False when it is not there or the value is broken.
bool FindParameter(std::string_view inValue, std::string_view inName, std::string& outText)
{
    std::string_view rest = inValue.substr(std::min(inValue.find(';'), inValue.size()));
    while (!rest.empty()) {
        rest.remove_prefix(1);  // the semicolon
        const std::size_t nameEnd = rest.find_first_of("=;");
        if (nameEnd == std::string_view::npos) return false;
        const std::string_view name = Trimmed(rest.substr(0, nameEnd));
        const bool hasValue = rest[nameEnd] == '=';
        rest.remove_prefix(nameEnd);
        if (!hasValue) continue;
        rest.remove_prefix(1);
        while (!rest.empty() && IsBlank(rest.front()))
            rest.remove_prefix(1);
        std::string value;
        if (rest.starts_with('"')) {
            rest.remove_prefix(1);
            if (!TakeQuoted(rest, value)) return false;
            rest.remove_prefix(std::min(rest.find(';'), rest.size()));
        } else {
            const std::size_t end = std::min(rest.find(';'), rest.size());
            value = Trimmed(rest.substr(0, end));
            rest.remove_prefix(end);
        }
        if (EqualWithoutCase(name, inName)) {
            outText = std::move(value);
            return true;
        }
    }
    return false;
}

/// Reads the parts of a multipart body (RFC 7578) as places in it.
class MultipartReader
{
public:
    MultipartReader(const RecycledMemory& inBody, const std::string& inBoundary)
        : mBody(inBody), mText(inBody.View()), mDelimiter("\r\n--" + inBoundary)
    {
    }

    bool Read(std::size_t inMaxFields, std::vector<FormField>& outFields)
    {
        // The first delimiter needs no line end before it when it opens the body.
        const std::string_view opening = std::string_view(mDelimiter).substr(2);
        bool last = false;
        if (!mText.starts_with(opening) || !EndsDelimiter(opening.size(), mPlace, last)) {
            std::size_t start = 0;
            if (!FindDelimiter(0, start, last)) return false;
        }
        while (!last) {
            if (outFields.size() == inMaxFields) return false;
            FormField field;
            if (!ReadHead(field)) return false;
            const std::size_t content = mPlace;
            std::size_t end = 0;
            // A part without content may leave its blank line to the delimiter.
            if (!FindDelimiter(content - 2, end, last)) return false;
            field.mValue = mBody.Part(content, end > content ? end - content : 0);
            outFields.push_back(std::move(field));
        }
        return true;
    }

private:
    /// What follows a delimiter: two hyphens after the last, else blanks and a line end.
    bool EndsDelimiter(std::size_t inPlace, std::size_t& outNext, bool& outLast) const
    {
        if (mText.substr(inPlace, 2) == "--") {
            outLast = true;
            outNext = inPlace + 2;
            return true;
        }
        std::size_t place = inPlace;
        while (place < mText.size() && IsBlank(mText[place]))
            ++place;
        if (mText.substr(place, 2) != "\r\n") return false;
        outLast = false;
        outNext = place + 2;
        return true;
    }

    /// Moves behind the next delimiter; outStart is where it begins.
    bool FindDelimiter(std::size_t inFrom, std::size_t& outStart, bool& outLast)
    {
        for (std::size_t place = mText.find(mDelimiter, inFrom); place != std::string_view::npos;
             place = mText.find(mDelimiter, place + 2)) {
            if (!EndsDelimiter(place + mDelimiter.size(), mPlace, outLast)) continue;
            outStart = place;
            return true;
        }
        return false;
    }

    /// Reads the lines up to the blank one. A part without a name is broken.
    bool ReadHead(FormField& outField)
    {
        const std::size_t begin = mPlace;
        bool named = false;
        for (;;) {
            const std::size_t end = mText.substr(0, begin + kMaxPartHeadBytes).find("\r\n", mPlace);
            if (end == std::string_view::npos) return false;
            const std::string_view line = mText.substr(mPlace, end - mPlace);
            mPlace = end + 2;
            if (line.empty()) return named;
            const std::size_t colon = line.find(':');
            if (colon == std::string_view::npos) return false;
            const std::string_view name = Trimmed(line.substr(0, colon));
            const std::string_view value = Trimmed(line.substr(colon + 1));
            if (EqualWithoutCase(name, "Content-Disposition")) {
                named = FindParameter(value, "name", outField.mName);
                FindParameter(value, "filename", outField.mFileName);
            } else if (EqualWithoutCase(name, "Content-Type")) {
                outField.mContentType = value;
            }
        }
    }

    const RecycledMemory& mBody;
    const std::string_view mText;
    const std::string mDelimiter;
    std::size_t mPlace = 0;
};

bool ReadMultipart(const RecycledMemory& inBody, std::string_view inContentType, std::size_t inMaxFields,
                   std::vector<FormField>& outFields)
{
    std::string boundary;
    if (!FindParameter(inContentType, "boundary", boundary)) return false;
    if (boundary.empty() || boundary.size() > kMaxBoundaryBytes) return false;
    return MultipartReader(inBody, boundary).Read(inMaxFields, outFields);
}

bool ReadURLEncoded(const RecycledMemory& inBody, std::size_t inMaxFields, std::vector<FormField>& outFields)
{
    const std::string_view text = inBody.View();
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('&', begin), text.size());
        const std::string_view pair = text.substr(begin, end - begin);
        if (!pair.empty()) {
            if (outFields.size() == inMaxFields) return false;
            const std::size_t nameSize = std::min(pair.find('='), pair.size());
            const std::string_view value = pair.substr(std::min(nameSize + 1, pair.size()));
            FormField field;
            field.mName = PercentDecoded(pair.substr(0, nameSize));
            field.mValue = value.find_first_of("%+") == std::string_view::npos
                               ? inBody.Part(end - value.size(), value.size())
                               : *noxcore::utility::MakeRecycledMemory(PercentDecoded(value));
            outFields.push_back(std::move(field));
        }
        begin = end + 1;
    }
    return true;
}

bool ReadJSON(const RecycledMemory& inBody, std::size_t inMaxFields, std::vector<FormField>& outFields)
{
    const auto document = std::make_shared<JSONDocument>();
    if (!document->Parse(inBody.View())) return false;
    if (!document->Root().IsObject()) return true;
    for (const JSONValue& child : document->Root().Children()) {
        if (outFields.size() == inMaxFields) return false;
        FormField field;
        field.mName = child.Key();
        const std::string_view raw = child.Raw();
        std::string text;
        if (child.GetKind() != JSONValue::Kind::String)
            field.mValue = RecycledMemory(document, raw.data(), raw.size());
        else if (child.GetString(text))
            field.mValue = *noxcore::utility::MakeRecycledMemory(std::move(text));
        outFields.push_back(std::move(field));
    }
    return true;
}

}  // namespace

std::string PercentDecoded(std::string_view inText)
{
    std::string text;
    text.reserve(inText.size());
    for (std::size_t i = 0; i < inText.size(); ++i) {
        const int high = inText[i] == '%' && i + 2 < inText.size() ? HexDigit(inText[i + 1]) : -1;
        const int low = high >= 0 ? HexDigit(inText[i + 2]) : -1;
        if (low >= 0) {
            text += static_cast<char>(high * 16 + low);
            i += 2;
        } else {
            text += inText[i] == '+' ? ' ' : inText[i];
        }
    }
    return text;
}

bool ParseForm(const RecycledMemory& inBody, std::string_view inContentType, std::size_t inMaxFields,
               std::vector<FormField>& outFields)
{
    outFields.clear();
    if (inBody.empty()) return true;
    const std::string_view type = Trimmed(inContentType.substr(0, inContentType.find(';')));
    bool read = false;
    if (EqualWithoutCase(type, "multipart/form-data"))
        read = ReadMultipart(inBody, inContentType, inMaxFields, outFields);
    else if (EqualWithoutCase(type, "application/x-www-form-urlencoded"))
        read = ReadURLEncoded(inBody, inMaxFields, outFields);
    else if (EqualWithoutCase(type, "application/json"))
        read = ReadJSON(inBody, inMaxFields, outFields);
    if (!read) outFields.clear();
    return read;
}

}  // namespace noxnet::http::server
