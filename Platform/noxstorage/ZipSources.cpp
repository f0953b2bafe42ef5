#include "Platform/noxstorage/ZipSources.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "Platform/noxstorage/ZipDeflater.h"

namespace noxstorage::zip {

using noxcore::filesupport::FileReader;
using noxcore::filesupport::Files;
using noxcore::filesupport::FileWriter;
using noxcore::filesupport::Path;

namespace {

constexpr std::size_t kRead = 256 * 1024;      ///< packed at a time
constexpr std::size_t kWritten = 1024 * 1024;  ///< libzip hands over 8 KB at a time; so much goes to the file at once

/// One source as libzip calls it: by commands. An error is kept until it is asked for.
class Source
{
public:
    virtual ~Source() { zip_error_fini(&mError); }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    /// Gives the object to libzip.
    static SourcePtr HandOver(std::unique_ptr<Source> inSource)
    {
        SourcePtr source(zip_source_function_create(&Source::Call, inSource.get(), nullptr));
        if (source) static_cast<void>(inSource.release());  // deleted by the command to free it
        return source;
    }

protected:
    Source() { zip_error_init(&mError); }
    virtual zip_int64_t Do(void* inData, zip_uint64_t inSize, zip_source_cmd_t inCommand) = 0;
    [[nodiscard]] virtual std::uint64_t KnownSize() const = 0;

    zip_int64_t Fail(int inCode, int inErrno = 0)
    {
        zip_error_set(&mError, inCode, inErrno);
        return -1;
    }
    bool Seek(void* inData, zip_uint64_t inSize, std::uint64_t& ioPlace)
    {
        const zip_int64_t place = zip_source_seek_compute_offset(ioPlace, KnownSize(), inData, inSize, &mError);
        if (place < 0) return false;
        ioPlace = static_cast<std::uint64_t>(place);
        return true;
    }
    zip_int64_t Stat(void* outData, zip_uint64_t inSize)
    {
        auto* stat = ZIP_SOURCE_GET_ARGS(zip_stat_t, outData, inSize, &mError);
        if (stat == nullptr) return -1;
        zip_stat_init(stat);
        stat->size = KnownSize();
        stat->valid |= ZIP_STAT_SIZE;
        return sizeof(*stat);
    }

private:
    static zip_int64_t Call(void* inSource, void* ioData, zip_uint64_t inSize, zip_source_cmd_t inCommand)
    {
        auto* source = static_cast<Source*>(inSource);
        if (inCommand == ZIP_SOURCE_FREE) {
            delete source;
            return 0;
        }
        if (inCommand == ZIP_SOURCE_ERROR) return zip_error_to_data(&source->mError, ioData, inSize);
        // libzip is C: no exception finds its way through it.
        try {
            return source->Do(ioData, inSize, inCommand);
        } catch (const std::exception&) {
            return source->Fail(ZIP_ER_MEMORY);
        }
    }

    zip_error_t mError{};
};

class ReadSource final : public Source
{
public:
    ReadSource(Path inFile, std::uint64_t inSize, std::unique_ptr<FileReader> inReader, ReadListener inListener)
        : mFile(std::move(inFile)), mSize(inSize), mReader(std::move(inReader)), mListener(std::move(inListener))
    {
    }

private:
    zip_int64_t Do(void* ioData, zip_uint64_t inSize, zip_source_cmd_t inCommand) override
    {
        switch (inCommand) {
            case ZIP_SOURCE_OPEN:
                mPlace = 0;
                if (!mReader) mReader = Files().OpenFile(mFile);
                return mReader ? 0 : Fail(ZIP_ER_OPEN, errno);
            case ZIP_SOURCE_READ:
                return Read(static_cast<char*>(ioData), inSize);
            case ZIP_SOURCE_CLOSE:
                mReader.reset();
                return 0;
            case ZIP_SOURCE_STAT:
                return Stat(ioData, inSize);
            case ZIP_SOURCE_SEEK:
                return Seek(ioData, inSize, mPlace) ? 0 : -1;
            case ZIP_SOURCE_TELL:
                return static_cast<zip_int64_t>(mPlace);
            case ZIP_SOURCE_SUPPORTS:
                return ZIP_SOURCE_SUPPORTS_SEEKABLE;
            default:
                return Fail(ZIP_ER_OPNOTSUPP);
        }
    }
    [[nodiscard]] std::uint64_t KnownSize() const override { return mSize; }

    zip_int64_t Read(char* outBytes, zip_uint64_t inSize)
    {
        std::size_t read = 0;
        if (!mReader || !mReader->ReadAt(mPlace, inSize, outBytes, read)) return Fail(ZIP_ER_READ, errno);
        if (mListener && !mListener(read)) return Fail(ZIP_ER_CANCELLED);
        mPlace += read;
        return static_cast<zip_int64_t>(read);
    }

    const Path mFile;
    const std::uint64_t mSize;
    std::unique_ptr<FileReader> mReader;
    const ReadListener mListener;
    std::uint64_t mPlace = 0;
};

/// Gives libzip what is deflated already, with the check sum of what it was.
class DeflateSource final : public Source
{
public:
    DeflateSource(Path inFile, std::uint64_t inSize, ReadListener inListener)
        : mFile(std::move(inFile)), mSize(inSize), mListener(std::move(inListener))
    {
    }

private:
    zip_int64_t Do(void* ioData, zip_uint64_t inSize, zip_source_cmd_t inCommand) override
    {
        switch (inCommand) {
            case ZIP_SOURCE_OPEN:
                return Open();
            case ZIP_SOURCE_READ:
                return Read({static_cast<char*>(ioData), inSize});
            case ZIP_SOURCE_CLOSE:
                // An archive may have many entries, and keeps the sources of all until its end.
                mReader.reset();
                mDeflater.reset();
                mPiece = {};
                return 0;
            case ZIP_SOURCE_STAT:
                return StatPacked(ioData, inSize);
            case ZIP_SOURCE_SUPPORTS:
                return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE,
                                                      ZIP_SOURCE_STAT, ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, -1);
            default:
                return Fail(ZIP_ER_OPNOTSUPP);
        }
    }
    [[nodiscard]] std::uint64_t KnownSize() const override { return mSize; }

    zip_int64_t Open()
    {
        mReader = Files().OpenFile(mFile);
        if (!mReader) return Fail(ZIP_ER_OPEN, errno);
        mDeflater.emplace();
        mPiece.resize(kRead);
        mWaiting = {};
        mPlace = 0;
        mCheckSum = 0;
        mIsWhole = false;
        return 0;
    }

    zip_int64_t Read(std::span<char> outPacked)
    {
        const std::size_t room = outPacked.size();
        while (!outPacked.empty() && !mDeflater->HasEnded()) {
            if (mWaiting.empty() && mPlace != mSize && !ReadPiece()) return -1;
            if (!mDeflater->Pack(mWaiting, mPlace == mSize, outPacked)) return Fail(ZIP_ER_ZLIB);
        }
        mIsWhole = mDeflater->HasEnded();
        return static_cast<zip_int64_t>(room - outPacked.size());
    }

    bool ReadPiece()
    {
        const std::size_t wanted = std::min<std::uint64_t>(mPiece.size(), mSize - mPlace);
        std::size_t read = 0;
        // A file that has shrunk meanwhile is not the one that was listed.
        if (!mReader->ReadAt(mPlace, wanted, mPiece.data(), read) || read != wanted) {
            Fail(ZIP_ER_READ, errno);
            return false;
        }
        if (mListener && !mListener(read)) {
            Fail(ZIP_ER_CANCELLED);
            return false;
        }
        mWaiting = std::string_view(mPiece).substr(0, read);
        mCheckSum = AddToCheckSum(mCheckSum, mWaiting);
        mPlace += read;
        return true;
    }

    zip_int64_t StatPacked(void* outData, zip_uint64_t inSize)
    {
        const zip_int64_t size = Stat(outData, inSize);
        if (size < 0) return size;
        auto* stat = static_cast<zip_stat_t*>(outData);
        stat->comp_method = ZIP_CM_DEFLATE;
        stat->valid |= ZIP_STAT_COMP_METHOD;
        if (!mIsWhole) return size;
        stat->crc = mCheckSum;
        stat->valid |= ZIP_STAT_CRC;
        return size;
    }

    const Path mFile;
    const std::uint64_t mSize;
    const ReadListener mListener;
    std::unique_ptr<FileReader> mReader;
    std::optional<Deflater> mDeflater;
    std::string mPiece;
    std::string_view mWaiting;  ///< of the piece, to be packed
    std::uint64_t mPlace = 0;
    std::uint32_t mCheckSum = 0;
    bool mIsWhole = false;  ///< all of it was given out
};

class WriteSource final : public Source
{
public:
    explicit WriteSource(FileWriter& inWriter) : mWriter(inWriter) {}

private:
    zip_int64_t Do(void* ioData, zip_uint64_t inSize, zip_source_cmd_t inCommand) override
    {
        switch (inCommand) {
            case ZIP_SOURCE_STAT:
                // An archive that is to be made is not there yet.
                return mBegun ? Stat(ioData, inSize) : Fail(ZIP_ER_READ, ENOENT);
            case ZIP_SOURCE_BEGIN_WRITE:
                mBegun = true;
                return 0;
            case ZIP_SOURCE_WRITE:
                return Write({static_cast<const char*>(ioData), inSize});
            case ZIP_SOURCE_SEEK_WRITE:
                if (!Flush() || !Seek(ioData, inSize, mPlace)) return -1;
                return 0;
            case ZIP_SOURCE_TELL_WRITE:
                return static_cast<zip_int64_t>(mPlace + mWaiting.size());
            case ZIP_SOURCE_COMMIT_WRITE:
                return Flush() ? 0 : -1;
            case ZIP_SOURCE_ROLLBACK_WRITE:
            case ZIP_SOURCE_REMOVE:
            case ZIP_SOURCE_CLOSE:
                mWaiting.clear();
                return 0;
            case ZIP_SOURCE_SUPPORTS:
                return ZIP_SOURCE_SUPPORTS_WRITABLE;
            default:
                return Fail(ZIP_ER_OPNOTSUPP);
        }
    }
    [[nodiscard]] std::uint64_t KnownSize() const override { return mSize; }

    zip_int64_t Write(std::string_view inBytes)
    {
        mWaiting.append(inBytes);
        if (mWaiting.size() >= kWritten && !Flush()) return -1;
        return static_cast<zip_int64_t>(inBytes.size());
    }

    bool Flush()
    {
        if (!mWriter.WriteAt(mPlace, mWaiting)) {
            Fail(ZIP_ER_WRITE, errno);
            return false;
        }
        mPlace += mWaiting.size();
        mSize = std::max(mSize, mPlace);
        mWaiting.clear();
        return true;
    }

    FileWriter& mWriter;
    bool mBegun = false;
    std::string mWaiting;      ///< goes to mPlace
    std::uint64_t mPlace = 0;  ///< of what is written next
    std::uint64_t mSize = 0;
};

}  // namespace

SourcePtr OpenForReading(const Path& inFile, ReadListener inListener)
{
    auto reader = Files().OpenFile(inFile);
    if (!reader) return nullptr;
    const std::uint64_t size = reader->Size();
    return Source::HandOver(std::make_unique<ReadSource>(inFile, size, std::move(reader), std::move(inListener)));
}

SourcePtr ReadLater(const Path& inFile, std::uint64_t inSize, ReadListener inListener)
{
    return Source::HandOver(std::make_unique<ReadSource>(inFile, inSize, nullptr, std::move(inListener)));
}

SourcePtr DeflateLater(const Path& inFile, std::uint64_t inSize, ReadListener inListener)
{
    return Source::HandOver(std::make_unique<DeflateSource>(inFile, inSize, std::move(inListener)));
}

SourcePtr OpenForWriting(FileWriter& inWriter)
{
    return Source::HandOver(std::make_unique<WriteSource>(inWriter));
}

ArchivePtr OpenArchive(SourcePtr inSource, int inFlags, std::string& outFailure)
{
    zip_error_t error;
    zip_error_init(&error);
    ArchivePtr archive(inSource ? zip_open_from_source(inSource.get(), inFlags, &error) : nullptr);
    if (archive) {
        static_cast<void>(inSource.release());
    } else {
        outFailure = inSource ? zip_error_strerror(&error) : "The archive cannot be opened";
    }
    zip_error_fini(&error);
    return archive;
}

}  // namespace noxstorage::zip
