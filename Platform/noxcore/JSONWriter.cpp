#include <charconv>
#include <cmath>

#include "Platform/noxcore/JSON.h"

namespace noxcore::serialization {

namespace {

void AppendEscaped(std::string& outText, std::string_view inText)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    std::size_t plain = 0;
    for (std::size_t i = 0; i < inText.size(); ++i) {
        const auto character = static_cast<unsigned char>(inText[i]);
        if (character >= 0x20 && character != '"' && character != '\\') continue;
        outText.append(inText, plain, i - plain);
        plain = i + 1;
        switch (character) {
            case '"':
                outText += "\\\"";
                break;
            case '\\':
                outText += "\\\\";
                break;
            case '\n':
                outText += "\\n";
                break;
            case '\r':
                outText += "\\r";
                break;
            case '\t':
                outText += "\\t";
                break;
            default:
                outText += "\\u00";
                outText.push_back(kDigits[character >> 4]);
                outText.push_back(kDigits[character & 15]);
        }
    }
    outText.append(inText, plain, inText.size() - plain);
}

}  // namespace

void JSONWriter::Separate()
{
    if (mNeedComma) mText.push_back(',');
    mNeedComma = true;
}

void JSONWriter::BeginObject()
{
    Separate();
    mText.push_back('{');
    mNeedComma = false;
}

void JSONWriter::EndObject()
{
    mText.push_back('}');
    mNeedComma = true;
}

void JSONWriter::BeginArray()
{
    Separate();
    mText.push_back('[');
    mNeedComma = false;
}

void JSONWriter::EndArray()
{
    mText.push_back(']');
    mNeedComma = true;
}

void JSONWriter::Key(std::string_view inKey)
{
    String(inKey);
    mText.push_back(':');
    mNeedComma = false;
}

void JSONWriter::String(std::string_view inText)
{
    Separate();
    mText.push_back('"');
    AppendEscaped(mText, inText);
    mText.push_back('"');
}

void JSONWriter::Int(std::int64_t inNumber)
{
    Separate();
    char buffer[24];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, inNumber).ptr;
    mText.append(buffer, end);
}

void JSONWriter::Double(double inNumber)
{
    if (!std::isfinite(inNumber)) {
        Null();  // JSON has no other word for it
        return;
    }
    Separate();
    char buffer[32];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, inNumber).ptr;
    mText.append(buffer, end);
}

void JSONWriter::Bool(bool inFlag)
{
    Separate();
    mText += inFlag ? "true" : "false";
}

void JSONWriter::Null()
{
    Separate();
    mText += "null";
}

void JSONWriter::Raw(std::string_view inJSON)
{
    Separate();
    mText += inJSON;
}

}  // namespace noxcore::serialization
