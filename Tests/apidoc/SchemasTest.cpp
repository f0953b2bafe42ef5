#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "Tools/apidoc/RecordShapes.h"
#include "Tools/apidoc/Schemas.h"

namespace apidoc_test {

namespace {

using apidoc::JSON;

/// The part of a schema's language that the documents use, words apart: the samples have words of their own.
class Validator
{
public:
    explicit Validator(JSON inSchemas) : mSchemas(std::move(inSchemas)) {}

    /// What is wrong with the value; empty when nothing is.
    [[nodiscard]] std::string Check(const JSON& inValue, const JSON& inSchema) const
    {
        if (inSchema.contains("$ref")) {
            const auto reference = inSchema["$ref"].get<std::string>();
            return Check(inValue, mSchemas.at(reference.substr(reference.rfind('/') + 1)));
        }
        if (inSchema.contains("anyOf")) return CheckAny(inValue, inSchema["anyOf"]);
        if (inSchema.contains("const") && inValue != inSchema["const"]) return "another value: " + inValue.dump();
        if (inSchema.contains("type") && !IsOfType(inValue, inSchema["type"])) return "another type: " + inValue.dump();
        if (inSchema.value("format", "") == "date-time" && inValue.get<std::string>().find('T') == std::string::npos)
            return "no time: " + inValue.dump();
        if (inValue.is_object() && inSchema.contains("properties")) return CheckObject(inValue, inSchema);
        if (inValue.is_array() && inSchema.contains("items"))
            for (const JSON& element : inValue)
                if (auto wrong = Check(element, inSchema["items"]); !wrong.empty()) return wrong;
        return {};
    }

private:
    static bool IsOfType(const JSON& inValue, const std::string& inType)
    {
        if (inType == "string") return inValue.is_string();
        if (inType == "boolean") return inValue.is_boolean();
        if (inType == "integer") return inValue.is_number_integer();
        if (inType == "number") return inValue.is_number();
        if (inType == "object") return inValue.is_object();
        if (inType == "array") return inValue.is_array();
        return inType == "null" && inValue.is_null();
    }

    std::string CheckAny(const JSON& inValue, const JSON& inSchemas) const
    {
        std::string wrong;
        for (const JSON& schema : inSchemas) {
            wrong = Check(inValue, schema);
            if (wrong.empty()) return {};
        }
        return wrong;
    }

    std::string CheckObject(const JSON& inValue, const JSON& inSchema) const
    {
        for (const JSON& key : inSchema.value("required", JSON::array()))
            if (!inValue.contains(key.get<std::string>())) return "lacks " + key.dump();
        for (const auto& [key, value] : inValue.items()) {
            if (!inSchema["properties"].contains(key)) return "has " + key;
            if (auto wrong = Check(value, inSchema["properties"][key]); !wrong.empty()) return key + ": " + wrong;
        }
        return {};
    }

    const JSON mSchemas;
};

/// A record as it is written with every key set. A number past a double's range is no matter here.
JSON Written(const std::string& inRecord)
{
    std::ifstream file(std::string(SOURCE_FOLDER "/Tests/Wire/Golden/") + inRecord + ".json");
    std::string text(std::istreambuf_iterator<char>(file), {});
    for (auto place = text.find("1e400"); place != std::string::npos; place = text.find("1e400"))
        text.replace(place, 5, "1e40");
    return JSON::parse(text);
}

TEST(Schemas, FitEveryRecordAsItIsWritten)
{
    const Validator validator(apidoc::AllSchemas());
    for (const auto& [record, shape] : apidoc::AllRecordShapes())
        EXPECT_EQ("", validator.Check(Written(record), apidoc::Reference(record, apidoc::Way::Answered))) << record;
}

TEST(Schemas, AskForNoKeyOfWhatTheHubReads)
{
    const Validator validator(apidoc::AllSchemas());
    for (const std::string& record : apidoc::RecordsThatAreRead()) {
        const JSON schema = apidoc::Reference(record, apidoc::Way::Read);
        EXPECT_EQ("", validator.Check(JSON::object(), schema)) << record;
        EXPECT_EQ("", validator.Check(Written(record), schema)) << record;
    }
}

TEST(Schemas, RefuseARecordThatLacksAKeyOrHasOneOfAnotherType)
{
    const Validator validator(apidoc::AllSchemas());
    const JSON schema = apidoc::Reference("Stats", apidoc::Way::Answered);
    JSON stats = Written("Stats");
    ASSERT_EQ("", validator.Check(stats, schema));
    stats["count"] = "1";
    EXPECT_EQ("count: another type: \"1\"", validator.Check(stats, schema));
    stats.erase("count");
    EXPECT_EQ("lacks \"count\"", validator.Check(stats, schema));
}

TEST(Schemas, TellWhatIsLeftOutAndWhatIsNeverWritten)
{
    const JSON schemas = apidoc::AllSchemas();
    EXPECT_EQ((JSON{"rel", "href"}), schemas["Link"]["required"]);
    EXPECT_EQ(true, schemas["Job"]["properties"]["jcr:created"]["writeOnly"]);
    EXPECT_FALSE(schemas["Job"]["properties"]["id"].contains("writeOnly"));
    EXPECT_EQ((JSON{"Pull", "Push"}), schemas["SyncJobParameters"]["properties"]["direction"]["enum"]);
    EXPECT_EQ("int64", schemas["SizeInfo"]["properties"]["sizeOnDisk"]["format"]);
    EXPECT_EQ("#/components/schemas/StatsRequest", apidoc::Reference("Stats", apidoc::Way::Read)["$ref"]);
}

}  // namespace

}  // namespace apidoc_test
