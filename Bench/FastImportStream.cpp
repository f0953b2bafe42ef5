// Prints the commit of box_round as a stream for git fast-import.
//
//   fast_import_stream <assets>

#include <cstdio>
#include <cstdlib>

#include "Bench/GeneratedAssets.h"

namespace {

void Print(const std::string& inText)
{
    std::fwrite(inText.data(), 1, inText.size(), stdout);
}

void PrintFile(const std::string& inPath, const std::string& inBytes)
{
    Print("M 100644 inline " + inPath + "\ndata " + std::to_string(inBytes.size()) + "\n");
    Print(inBytes);
    Print("\n");
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) return 2;
    const auto assets = static_cast<std::size_t>(std::strtoull(argv[1], nullptr, 10));
    const bench::GeneratedAssets generated;
    Print("commit refs/heads/session\ncommitter Bench <bench> 1700000000 +0000\ndata 5\nbench\n");
    for (std::size_t index = 0; index < assets; ++index) {
        const bench::GeneratedAsset asset = generated.Make(index);
        const std::string folder = "assets/" + asset.mID.substr(0, 2) + "/" + asset.mID + "/";
        const std::string enclosure = folder + "enclosures/" + asset.mEnclosureID + "/";
        PrintFile(folder + "properties", asset.mProperties);
        PrintFile(enclosure + "content", asset.mContent);
        PrintFile(enclosure + "name", asset.mEnclosureName);
    }
    Print("done\n");
    return 0;
}
