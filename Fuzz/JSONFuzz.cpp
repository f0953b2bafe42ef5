// Any bytes as a JSON text: both ways to read it must agree, what is taken must read back as itself, and every value
// of it must lie within its parent.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "Platform/noxcore/JSON.h"

namespace {

using namespace noxcore::serialization;

void Require(bool inCondition)
{
    if (!inCondition) std::abort();
}

bool LiesWithin(std::string_view inPart, std::string_view inWhole)
{
    return inPart.data() >= inWhole.data() && inPart.data() + inPart.size() <= inWhole.data() + inWhole.size();
}

void Walk(const JSONValue& inValue)
{
    Require(inValue.Exists() && !inValue.Raw().empty());
    std::string text;
    std::int64_t number = 0;
    double real = 0;
    bool flag = false;
    Require(inValue.GetString(text) == (inValue.GetKind() == JSONValue::Kind::String));
    Require(inValue.GetBool(flag) == (inValue.GetKind() == JSONValue::Kind::Boolean));
    if (inValue.GetInt64(number) || inValue.GetDouble(real)) Require(inValue.GetKind() == JSONValue::Kind::Number);
    for (const JSONValue& child : inValue.Children()) {
        Require(LiesWithin(child.Raw(), inValue.Raw()));
        if (inValue.IsObject()) Require(inValue[child.Key()].Exists());
        Walk(child);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* inData, std::size_t inSize)
{
    // A copy of its own size, so that a read past the end is seen.
    const std::string input(reinterpret_cast<const char*>(inData), inSize);
    JSONDocument document;
    const bool parsed = document.Parse(input);
    JSONValue::Kind kind = JSONValue::Kind::Missing;
    const auto minified = MinifyJSON(input, &kind);
    Require(parsed == minified.has_value());
    Require(parsed == document.Root().Exists());
    if (!minified.has_value()) return 0;
    Require(*minified == document.Text() && document.Root().Raw() == document.Text());
    Require(kind == document.Root().GetKind());
    Require(MinifyJSON(*minified) == minified);
    Walk(document.Root());

    std::string unescaped;
    if (!document.Root().GetString(unescaped)) return 0;
    JSONWriter writer;
    writer.String(unescaped);
    JSONDocument again;
    std::string readBack;
    Require(again.Parse(writer.Text()) && again.Root().GetString(readBack) && readBack == unescaped);
    return 0;
}
