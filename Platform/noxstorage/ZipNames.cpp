// The directory of an archive:
//   per entry:  signature ... length of name (28), of extra fields (30), of comment (32) ... name (46), fields, comment
//   the end:    signature ... entries (10), size (12) and place (16) of the directory, length of comment (20), comment
//   large ones: another end with 64-bit numbers, entries (32), place (48); and before the end where it is (8)

#include "Platform/noxstorage/ZipNames.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <string_view>

namespace noxstorage::zip {

using noxcore::filesupport::FileReader;

namespace {

constexpr std::string_view kEntry = "PK\x01\x02";
constexpr std::string_view kEnd = "PK\x05\x06";
constexpr std::string_view kLargeEnd = "PK\x06\x06";
constexpr std::string_view kPlaceOfLargeEnd = "PK\x06\x07";
constexpr std::size_t kEntrySize = 46;
constexpr std::size_t kEndSize = 22;
constexpr std::size_t kLargeEndSize = 56;
constexpr std::size_t kPlaceSize = 20;
constexpr std::uint64_t kNameField = 0x7075;  ///< the name once more, in UTF-8, behind five other bytes
constexpr std::size_t kBeforeNameInField = 5;

std::uint64_t NumberAt(std::string_view inBytes, std::size_t inPlace, std::size_t inSize)
{
    std::uint64_t number = 0;
    for (std::size_t index = inSize; index-- > 0;)
        number = number << 8 | static_cast<unsigned char>(inBytes[inPlace + index]);
    return number;
}

struct Directory
{
    std::uint64_t mEntries = 0;
    std::uint64_t mPlace = 0;
};

class DirectoryReader
{
public:
    explicit DirectoryReader(std::unique_ptr<FileReader> inFile) : mFile(std::move(inFile)) {}

    /// Nothing where there is not one end that fits.
    std::optional<Directory> Find()
    {
        constexpr std::size_t kLargestTail = kPlaceSize + kEndSize + 0xffff;
        const std::uint64_t size = mFile->Size();
        std::string tail;
        if (!Read(size - std::min<std::uint64_t>(size, kLargestTail), std::min<std::uint64_t>(size, kLargestTail),
                  tail))
            return std::nullopt;
        std::optional<std::size_t> end;
        for (std::size_t place = tail.find(kEnd); place != std::string::npos; place = tail.find(kEnd, place + 1)) {
            if (place + kEndSize > tail.size() || place + kEndSize + NumberAt(tail, place + 20, 2) != tail.size())
                continue;
            if (end) return std::nullopt;
            end = place;
        }
        if (!end) return std::nullopt;
        const bool isLarge =
            *end >= kPlaceSize && std::string_view(tail).substr(*end - kPlaceSize, 4) == kPlaceOfLargeEnd;
        if (isLarge) return FindLarge(NumberAt(tail, *end - kPlaceSize + 8, 8));
        return Directory{NumberAt(tail, *end + 10, 2), NumberAt(tail, *end + 16, 4)};
    }

    std::string FindFault(const Directory& inDirectory)
    {
        std::uint64_t place = inDirectory.mPlace;
        for (std::uint64_t index = 0; index < inDirectory.mEntries; ++index) {
            std::string head;
            std::string names;
            if (!Read(place, kEntrySize, head) || !head.starts_with(kEntry)) return "The directory cannot be read";
            const std::uint64_t nameSize = NumberAt(head, 28, 2);
            const std::uint64_t fieldsSize = NumberAt(head, 30, 2);
            if (!Read(place + kEntrySize, nameSize + fieldsSize, names)) return "The directory cannot be read";
            const std::string_view all = names;
            if (HasZero(all.substr(0, nameSize)) || HasZeroInField(all.substr(nameSize)))
                return "A name has a zero in it";
            place += kEntrySize + nameSize + fieldsSize + NumberAt(head, 32, 2);
        }
        return {};
    }

private:
    std::optional<Directory> FindLarge(std::uint64_t inPlace)
    {
        std::string end;
        if (!Read(inPlace, kLargeEndSize, end) || !end.starts_with(kLargeEnd)) return std::nullopt;
        return Directory{NumberAt(end, 32, 8), NumberAt(end, 48, 8)};
    }

    static bool HasZero(std::string_view inName) { return inName.find('\0') != std::string_view::npos; }

    static bool HasZeroInField(std::string_view inFields)
    {
        constexpr std::size_t kHead = 4;
        while (inFields.size() >= kHead) {
            const std::uint64_t id = NumberAt(inFields, 0, 2);
            const std::string_view field = inFields.substr(kHead, NumberAt(inFields, 2, 2));
            if (id == kNameField && field.size() > kBeforeNameInField && HasZero(field.substr(kBeforeNameInField)))
                return true;
            inFields.remove_prefix(kHead + field.size());
        }
        return false;
    }

    bool Read(std::uint64_t inPlace, std::uint64_t inSize, std::string& outBytes)
    {
        if (inPlace > mFile->Size() || inSize > mFile->Size() - inPlace) return false;
        outBytes.resize(inSize);
        std::size_t read = 0;
        return mFile->ReadAt(inPlace, outBytes.size(), outBytes.data(), read) && read == outBytes.size();
    }

    const std::unique_ptr<FileReader> mFile;
};

}  // namespace

std::string FindFaultInNames(const noxcore::filesupport::Path& inFile, std::uint64_t inEntries)
{
    auto file = noxcore::filesupport::Files().OpenFile(inFile);
    if (!file) return "The archive cannot be read";
    DirectoryReader reader(std::move(file));
    const auto directory = reader.Find();
    if (!directory || directory->mEntries != inEntries) return "The directory cannot be read";
    return reader.FindFault(*directory);
}

}  // namespace noxstorage::zip
