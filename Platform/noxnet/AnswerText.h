#pragma once

#include <string>

#include "Platform/noxnet/HTTPServer.h"

namespace noxnet::http::server {

/// An answer as it goes out: header text, and the payload as it is.
struct EncodedAnswer
{
    std::string mHead;
    ConstRecycledMemoryPtr mBody;  ///< null for none
    bool mClose = false;           ///< the connection ends with this answer
    bool mHasWaited = false;       ///< its client has waited long: answers to those who have just asked go first
};

/// What the connection adds to an answer.
struct AnswerTraits
{
    bool mHead = false;  ///< answers HEAD: length without body
    bool mKeepAlive = true;
    bool mHTTP11 = true;
    std::int64_t mNow = 0;  ///< wall time, ticks of 100 ns
};

/// Writes status line, the response's headers, Content-Length, Date and Connection. A header with a line break in it is
/// left out with a record. Threading: any thread.
EncodedAnswer EncodeAnswer(const MutableResponse& inResponse, const AnswerTraits& inTraits);

}  // namespace noxnet::http::server
