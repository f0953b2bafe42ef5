#include "Bench/GeneratedAssets.h"

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <random>

namespace bench {

namespace {

constexpr std::size_t kPropertiesSize = 1024;
constexpr std::size_t kContentSize = 4096;
constexpr std::size_t kKinds = 64;
constexpr std::size_t kNumberSize = 12;
constexpr std::size_t kNumberPlace = 10;  ///< in the properties, after {"number":

std::string Digits(std::uint64_t inNumber, std::size_t inSize)
{
    std::string text = std::to_string(inNumber);
    return std::string(inSize - std::min(inSize, text.size()), '1') + text;
}

std::string MakeProperties(std::mt19937_64& inRandom)
{
    std::string text = "{\"number\":" + Digits(0, kNumberSize) + ",\"lumo:assetType\":\"clip\",\"items\":[";
    while (text.size() < kPropertiesSize - 60)
        text += "{\"name\":\"Take " + std::to_string(inRandom() % 1000) +
                "\",\"in\":" + std::to_string(inRandom() % 10000000) + "},";
    text.back() = ']';
    text += ",\"note\":\"";
    text.resize(kPropertiesSize - 2, '.');
    return text + "\"}";
}

std::string MakeContent(std::mt19937_64& inRandom)
{
    std::string bytes;
    while (bytes.size() < kContentSize / 2) {
        const std::uint64_t value = inRandom();
        bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
    }
    while (bytes.size() < kContentSize)
        bytes += "track/" + std::to_string(inRandom() % 100) + "/clip ";
    bytes.resize(kContentSize);
    return bytes;
}

std::string MakeID(std::mt19937_64& inRandom)
{
    char text[40];
    const std::uint64_t high = inRandom();
    const std::uint64_t low = inRandom();
    std::snprintf(text, sizeof text, "%08x-%04x-4%03x-a%03x-%012llx", static_cast<unsigned>(high >> 32U),
                  static_cast<unsigned>(high & 0xffffU), static_cast<unsigned>((high >> 16U) & 0xfffU),
                  static_cast<unsigned>(low >> 52U), static_cast<unsigned long long>(low & 0xffffffffffffU));
    return text;
}

}  // namespace

GeneratedAssets::GeneratedAssets()
{
    std::mt19937_64 random(20231114);
    for (std::size_t index = 0; index < kKinds; ++index) {
        mProperties.push_back(MakeProperties(random));
        mContents.push_back(MakeContent(random));
    }
}

GeneratedAsset GeneratedAssets::Make(std::size_t inIndex, std::size_t inEdit) const
{
    std::mt19937_64 random(inIndex + 1);
    GeneratedAsset asset;
    asset.mID = MakeID(random);
    asset.mEnclosureID = MakeID(random);
    asset.mEnclosureName = "audio " + asset.mID.substr(0, 6);
    asset.mProperties = mProperties[(inIndex + inEdit) % kKinds];
    asset.mProperties.replace(kNumberPlace, kNumberSize, Digits(inIndex * 1000 + inEdit, kNumberSize));
    asset.mContent = mContents[inIndex % kKinds];
    asset.mContent.replace(100, asset.mID.size(), asset.mID);
    return asset;
}

GeneratedLocator MakeLocator(std::size_t inIndex, std::size_t inEdit)
{
    std::mt19937_64 random(inIndex + 1);
    const std::string id = MakeID(random);
    const std::string clip = Digits(inIndex, 8) + ".mov";
    const std::string size = std::to_string(100000000 + random() % 1000000000 + inEdit);
    return {id,
            R"({"href":"file:///Volumes/Media/Day 3/A001/)" + clip + R"(","displayName":")" + clip +
                R"(","fileProperties":{"mFilePath":"/Volumes/Media/Day 3/A001/)" + clip + R"(","mSize":)" + size +
                R"(,"mCreationTime":132223104000000000,"mModificationTime":132223104000000000},"volumeProperties":)"
                R"({"mPath":"/Volumes/Media","mFriendlyName":"Media","mHostName":"nas.example","mNetworkMountURL":)"
                R"("smb://nas.example/Media","mVolumeType":2},"mediaSourceDescription":{"mStreamGroups":[{"mTitle":)"
                R"("main","mVideoIndex":0,"mAudioIndex":0,"mDataIndex":-1,"mFilePath":""}],"mVideoStreams":)"
                R"([{"mVideoFrameRect":{"mLeft":0,"mTop":0,"mRight":3840,"mBottom":2160},"mFieldType":0,)"
                R"("mPixelAspectRatio":{"numerator":1,"denominator":1},"mCodecType":"ProRes 422 HQ","mIsStill":false,)"
                R"("mHasFields":false}],"mAudioStreams":[{"mAudioChannelLayout":[{"channellabel":100},)"
                R"({"channellabel":101}],"mAudioSampleType":3}],"mDataStreams":[],"mIsDurationComplete":true,)"
                R"("mInstanceString":")" +
                id + R"(","mIsMulticamEnabled":false},"deviceId":"workstation-7","isProxy":false})"};
}

void Report::Add(const char* inName, double inValue)
{
    char number[40];
    std::snprintf(number, sizeof number, "%.6g", inValue);
    mText += std::string(mText.empty() ? "{" : ",") + "\"" + inName + "\":" + number;
}

void Report::AddPercentiles(std::vector<double> inSeconds)
{
    std::sort(inSeconds.begin(), inSeconds.end());
    const auto at = [&](double inPart) {
        return 1000 * inSeconds[static_cast<std::size_t>(inPart * static_cast<double>(inSeconds.size() - 1))];
    };
    Add("p50", at(0.5));
    Add("p90", at(0.9));
    Add("p99", at(0.99));
    Add("max", at(1));
}

void Report::Print()
{
    std::printf("%s}\n", mText.c_str());
    std::fflush(stdout);
}

double Median(std::vector<double> inValues)
{
    const auto middle = inValues.begin() + static_cast<std::ptrdiff_t>(inValues.size() / 2);
    std::nth_element(inValues.begin(), middle, inValues.end());
    return *middle;
}

double Now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double PeakMegabytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024;
}

}  // namespace bench
