#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Client/Wire/Link.h"
#include "Inc/Service/VantryAPIService.h"

// What the handlers of the services share. All functions are free of state and safe on any thread.
namespace VantryLocalHub {

using noxcore::utility::ConstRecycledMemoryPtr;

inline constexpr std::string_view kServiceLogCategory = "VantryAPIService";

/// Copies a capture group of the request's match as it stands, without percent decoding. A group that took no part is
/// there, and empty. False with a record: there is no match, or it has no such group.
bool ExtractSubExpression(const noxnet::http::server::Request& inRequest, int inIndex, std::string& outText);
bool ExtractSubExpression(const noxnet::http::server::Request& inRequest, int inIndex, ImmutableString& outText);

/// The id of the production of a URL whose first group has a session id or a production id; what the store does not
/// know stands for itself.
ImmutableString FindProductionKey(const noxnet::http::server::Request& inRequest);

/// A path with up to four places "%s". Only a constant whose every percent sign opens such a place compiles, so that
/// no text of a request is ever read as a format.
class URLFormat
{
public:
    template <class Text>
        requires std::is_convertible_v<const Text&, std::string_view>
    consteval URLFormat(const Text& inText) : mText(inText)
    {
        int places = 0;
        for (std::size_t i = 0; i < mText.size(); ++i) {
            if (mText[i] != '%') continue;
            if (i + 1 == mText.size() || mText[i + 1] != 's') throw "a format takes nothing but %s";
            ++places;
        }
        if (places > 4) throw "a format has four places at most";
    }
    [[nodiscard]] constexpr std::string_view Text() const { return mText; }

private:
    std::string_view mText;
};

/// Longest path that FormatURL prints, in bytes: its buffer of 2047 has room for the zero at the end too.
constexpr std::size_t kMaxFormattedPath = 2046;

/// The URL of a path on the authority that the request was sent to. The elements are put in as they stand. A port other
/// than 0 is printed after the authority. Empty with a record: the request names no host, or the path is too long.
std::string FormatURL(const noxnet::http::server::Request& inRequest, URLFormat inFormat,
                      std::string_view inElement1 = {}, std::string_view inElement2 = {},
                      std::string_view inElement3 = {}, std::string_view inElement4 = {}, std::uint16_t inPort = 0);

/// False with a record when no URL can be made for the request: a handler that changes something and answers links asks
/// first.
bool CanMakeURLs(const noxnet::http::server::Request& inRequest);

/// Texts that the hub answers and stores are UTF-8: it is what JSON is made of.
bool IsUTF8(std::string_view inText);
/// Whether a name that a client chooses can stand in links: UTF-8, not empty, and short enough that every URL with it
/// can be made.
bool IsLinkable(std::string_view inName);

/// The text as one element of a path: all but letters, digits and "-_." percent-encoded. No resource takes a "~" as it
/// is.
std::string EncodePathElement(std::string_view inText);

/// Makes the links of one answer. Elements are encoded. The first URL that cannot be made leaves a record and is the
/// last that is tried: Failed tells the handler to answer an error. Used by one thread.
class LinkMaker
{
public:
    explicit LinkMaker(const noxnet::http::server::Request& inRequest) : mRequest(inRequest) {}

    std::string URL(URLFormat inFormat, std::string_view inElement1 = {}, std::string_view inElement2 = {},
                    std::string_view inElement3 = {}, std::string_view inElement4 = {});
    template <class... Elements>
    void Add(std::vector<dto::Link>& outLinks, const ImmutableString& inRelation, URLFormat inFormat,
             const Elements&... inElements)
    {
        outLinks.push_back({inRelation, {}, URL(inFormat, inElements...)});
    }
    [[nodiscard]] bool Failed() const { return mFailed; }

private:
    const noxnet::http::server::Request& mRequest;
    bool mFailed = false;
};

/// The tag of a payload: a hash of its bytes in the text form of a guid.
std::string HashPayload(std::string_view inPayload);

/// Sets the tag, and the payload unless the request has the same already. 200 or 304.
int SetPayloadWithEntityTag(const noxnet::http::server::Request& inRequest, std::string inPayload,
                            noxnet::http::server::MutableResponse& outResponse);
/// Sets a tag that the handler knows. True when the request has the same already: the answer is 304 without payload.
bool SetEntityTag(const noxnet::http::server::Request& inRequest, std::string_view inTag,
                  noxnet::http::server::MutableResponse& outResponse);
void SetPayload(std::string inPayload, noxnet::http::server::MutableResponse& outResponse);

/// Whether the request has a header, with a value or without.
bool HasHeader(const noxnet::http::server::Request& inRequest, std::string_view inName);

/// Whether the request reads: only then does a known tag make the payload needless.
bool IsRead(const noxnet::http::server::Request& inRequest);

/// The statistics of an answer that holds all there is.
dto::Stats StatsOfAll(std::size_t inCount);

/// The text of the request's payload; empty for none.
std::string_view PayloadText(const noxnet::http::server::Request& inRequest);

/// True when a query key has exactly the value "true".
bool QueryIsTrue(const noxnet::http::server::Request& inRequest, std::string_view inKey);

/// The value of a form key that is true or false. Throws std::invalid_argument for any other text; the handler
/// catches it, writes one record and answers 400.
bool ReadFormBoolean(std::string_view inKey, std::string_view inValue);

/// Reads the fields of a form. Throws std::invalid_argument, "ReadForm: invalid input", for a body that is no form.
std::vector<noxnet::http::server::FormField> ReadFormFields(const noxnet::http::server::Request& inRequest);

}  // namespace VantryLocalHub
