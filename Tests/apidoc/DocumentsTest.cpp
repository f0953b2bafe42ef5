#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <string>

#include "Tests/apidoc/Samples.h"
#include "Tools/apidoc/Documents.h"
#include "Tools/apidoc/RecordShapes.h"

namespace apidoc_test {

namespace {

using nlohmann::json;

constexpr const char* kHint =
    "The documents are not those of the tables. Renew them: "
    "cmake --build --preset debug --target api_docs";

std::string FileText(const std::string& inPath)
{
    std::ifstream file(std::string(SOURCE_FOLDER "/") + inPath, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << inPath;
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string Markdown()
{
    return apidoc::MarkdownDocument(FileText("Tools/apidoc/Introduction.md"));
}

const json& Document()
{
    static const json kDocument = json::parse(apidoc::OpenAPIDocument());
    return kDocument;
}

/// Calls the function with every object of a document.
template <class Function>
void ForEachObject(const json& inValue, const Function& inFunction)
{
    if (inValue.is_object()) inFunction(inValue);
    if (inValue.is_structured())
        for (const json& child : inValue)
            ForEachObject(child, inFunction);
}

template <class Function>
void ForEachDescribed(const Function& inFunction)
{
    for (const auto& [path, item] : Document()["paths"].items())
        for (const auto& [method, operation] : item.items())
            inFunction(path, operation);
}

/// A parameter, by its reference where it is one.
json Resolved(const json& inParameter)
{
    if (!inParameter.contains("$ref")) return inParameter;
    return Document().at(json::json_pointer(inParameter["$ref"].get<std::string>().substr(1)));
}

TEST(Documents, StandInTheTreeAsTheTablesSay)
{
    EXPECT_TRUE(FileText("Docs/api.md") == Markdown()) << kHint;
    EXPECT_TRUE(FileText("Docs/openapi.json") == apidoc::OpenAPIDocument()) << kHint;
}

TEST(OpenAPI, HasReferencesThatResolve)
{
    std::size_t references = 0;
    ForEachObject(Document(), [&references](const json& inObject) {
        const auto reference = inObject.find("$ref");
        if (reference == inObject.end() || !reference->is_string()) return;
        const auto text = reference->get<std::string>();
        ASSERT_TRUE(text.starts_with("#/components/")) << text;
        EXPECT_TRUE(Document().contains(json::json_pointer(text.substr(1)))) << text;
        ++references;
    });
    EXPECT_GT(references, 0U);
}

TEST(OpenAPI, HasEveryOperationOnceUnderANameOfItsOwn)
{
    std::size_t rows = 0;
    ForEachOperation([&rows](const Resource&, const Operation&) { ++rows; });
    std::set<std::string> names;
    std::size_t described = 0;
    ForEachDescribed([&](const std::string&, const json& inOperation) {
        names.insert(inOperation["operationId"].get<std::string>());
        ++described;
    });
    EXPECT_EQ(rows, described);
    EXPECT_EQ(rows, names.size());
}

TEST(OpenAPI, DeclaresTheParametersOfEveryPath)
{
    ForEachDescribed([](const std::string& inPath, const json& inOperation) {
        std::set<std::string> declared;
        std::set<std::string> seen;
        for (const json& reference : inOperation.value("parameters", json::array())) {
            const json parameter = Resolved(reference);
            const auto name = parameter["name"].get<std::string>();
            EXPECT_TRUE(seen.insert(parameter["in"].get<std::string>() + name).second) << inPath << " " << name;
            if (parameter["in"] == "path") declared.insert(name);
        }
        std::set<std::string> inBraces;
        const std::regex gap("\\{([^}]+)\\}");
        for (auto match = std::sregex_iterator(inPath.begin(), inPath.end(), gap); match != std::sregex_iterator();
             ++match)
            inBraces.insert((*match)[1]);
        EXPECT_EQ(inBraces, declared) << inPath;
    });
}

TEST(OpenAPI, HasADeclaredTagAndADescribedAnswerForEveryOperation)
{
    std::set<std::string> tags;
    for (const json& tag : Document()["tags"])
        EXPECT_TRUE(tags.insert(tag["name"].get<std::string>()).second) << tag;
    ForEachDescribed([&](const std::string& inPath, const json& inOperation) {
        EXPECT_TRUE(tags.contains(inOperation["tags"].at(0).get<std::string>())) << inPath;
        EXPECT_GT(inOperation["responses"].size(), 1U) << inPath;
        for (const auto& [status, response] : inOperation["responses"].items())
            EXPECT_TRUE(response.contains("$ref") || !response["description"].get<std::string>().empty())
                << inPath << " " << status;
    });
}

TEST(OpenAPI, HasASchemaForEveryRecordAndASecondForThoseThatTheHubReads)
{
    const json& schemas = Document()["components"]["schemas"];
    for (const auto& [record, shape] : apidoc::AllRecordShapes()) {
        ASSERT_TRUE(schemas.contains(record)) << record;
        EXPECT_EQ(shape.size(), schemas[record]["properties"].size()) << record;
    }
    const auto read = apidoc::RecordsThatAreRead();
    for (const std::string& record : read)
        EXPECT_FALSE(schemas[record + "Request"].contains("required")) << record;
    EXPECT_EQ(apidoc::AllRecordShapes().size() + read.size() + 1, schemas.size());
}

TEST(Markdown, HasLinksThatLeadToAHeading)
{
    const std::string text = Markdown();
    std::set<std::string> headings;
    const std::regex heading("\n#+ ([^\n]+)");
    for (auto match = std::sregex_iterator(text.begin(), text.end(), heading); match != std::sregex_iterator();
         ++match) {
        std::string anchor;
        for (const char letter : (*match)[1].str())
            if (letter == ' ' || letter == '-' || std::isalnum(static_cast<unsigned char>(letter)) != 0)
                anchor += letter == ' ' ? '-' : static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
        EXPECT_TRUE(headings.insert(anchor).second) << anchor << " stands twice";
    }
    const std::regex link("\\]\\(#([^)]+)\\)");
    std::set<std::string> links;
    for (auto match = std::sregex_iterator(text.begin(), text.end(), link); match != std::sregex_iterator(); ++match)
        links.insert((*match)[1]);
    EXPECT_GT(links.size(), 10U);
    for (const std::string& target : links)
        EXPECT_TRUE(headings.contains(target)) << target;
}

TEST(Markdown, HasTablesWhoseRowsAreOfOneWidth)
{
    std::size_t width = 0;
    std::istringstream lines(Markdown());
    for (std::string line; std::getline(lines, line);) {
        std::size_t bars = 0;
        for (std::size_t i = 0; i < line.size(); ++i)
            if (line[i] == '|' && (i == 0 || line[i - 1] != '\\')) ++bars;
        if (!line.starts_with('|')) bars = 0;
        if (bars != 0 && width != 0) EXPECT_EQ(width, bars) << line;
        width = bars;
    }
}

}  // namespace

}  // namespace apidoc_test
