// Any bytes as what a client sends: the parser must end or ask for more, whole or byte for byte with the same result.

#include <cstdlib>

#include "Platform/noxnet/RequestParser.h"

using namespace noxnet::http::server;

namespace {

struct Outcome
{
    RequestParser::Step mStep = RequestParser::Step::NeedMore;
    int mStatus = 0;
    std::string mURL;
    std::string mBody;
    std::size_t mHeaders = 0;
    bool operator==(const Outcome&) const = default;
};

/// Feeds the bytes in pieces, as Connection does: what was not used comes again with more behind it.
Outcome Run(std::string_view inBytes, std::size_t inPiece)
{
    static const Limits kLimits{.mMaxHeaderBytes = 2048, .mMaxPathBytes = 512};
    RequestParser parser(kLimits);
    Outcome outcome;
    std::size_t begin = 0;
    bool chunked = false;
    for (std::size_t end = std::min(inPiece, inBytes.size());; end = std::min(end + inPiece, inBytes.size())) {
        for (std::size_t used = 1; used != 0 && begin < end;) {
            used = parser.Feed(inBytes.substr(begin, end - begin), outcome.mStep);
            begin += used;
            if (begin > end) std::abort();
            if (outcome.mStep == RequestParser::Step::HeaderDone) {
                chunked = parser.IsChunked();
                parser.SetBodyLimit(1000);
            }
            const bool ended = outcome.mStep == RequestParser::Step::Failed ||
                               outcome.mStep == RequestParser::Step::Complete ||
                               (outcome.mStep == RequestParser::Step::HeaderDone && !chunked);
            if (!ended) continue;
            outcome.mStatus = parser.Status();
            outcome.mURL = parser.GetRequest()->URL();
            outcome.mHeaders = parser.GetRequest()->HeaderCount();
            outcome.mBody = parser.TakeBody();
            if (outcome.mBody.size() > 1000 || outcome.mURL.size() > 4096) std::abort();
            return outcome;
        }
        if (end == inBytes.size()) return {};
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* inData, std::size_t inSize)
{
    const std::string bytes(reinterpret_cast<const char*>(inData), inSize);
    const Outcome whole = Run(bytes, inSize + 1);
    const Outcome pieces = Run(bytes, 1);
    // A failure may be seen after fewer bytes, and so tell less of the request; what is understood is the same.
    const bool wholeDone = whole.mStep != RequestParser::Step::Failed && whole.mStep != RequestParser::Step::NeedMore;
    if (wholeDone && !(whole == pieces)) std::abort();
    return 0;
}
