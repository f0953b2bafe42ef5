#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "Tools/apidoc/Documents.h"

namespace {

bool Read(const std::string& inPath, std::string& outText)
{
    std::ifstream file(inPath, std::ios::binary);
    outText.assign(std::istreambuf_iterator<char>(file), {});
    return file.is_open() && !file.bad();
}

bool Write(const std::string& inPath, const std::string& inText)
{
    std::ofstream file(inPath, std::ios::binary | std::ios::trunc);
    file << inText;
    file.close();
    if (!file) std::cerr << "Cannot write " << inPath << "\n";
    return !file.fail();
}

}  // namespace

/// apidoc FOLDER: writes the API's documents of the source tree in that folder.
int main(int inCount, char** inArguments)
{
    if (inCount != 2) {
        std::cerr << "usage: apidoc FOLDER\n";
        return 2;
    }
    const std::string folder = inArguments[1];
    std::string introduction;
    if (!Read(folder + "/Tools/apidoc/Introduction.md", introduction)) {
        std::cerr << "No source tree in " << folder << "\n";
        return 1;
    }
    const bool written = Write(folder + "/Docs/api.md", apidoc::MarkdownDocument(introduction)) &&
                         Write(folder + "/Docs/openapi.json", apidoc::OpenAPIDocument());
    return written ? 0 : 1;
}
