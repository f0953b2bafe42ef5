#include "Platform/noxnet/IncomingRequest.h"

#include <array>
#include <utility>

#include "Platform/noxnet/Forms.h"

namespace noxnet::http::server {

using noxcore::threads::ScopedLock;

namespace {

/// Methods come with every request: the usual ones are interned once.
ImmutableString InternMethod(std::string_view inMethod)
{
    static const std::array<ImmutableString, 6> kUsual = {"GET", "POST", "PUT", "HEAD", "DELETE", "PATCH"};
    for (const ImmutableString& usual : kUsual)
        if (usual.View() == inMethod) return usual;
    return ImmutableString(inMethod);
}

char LowerCase(char inChar)
{
    return inChar >= 'A' && inChar <= 'Z' ? static_cast<char>(inChar + 32) : inChar;
}

}  // namespace

bool EqualWithoutCase(std::string_view inLeft, std::string_view inRight)
{
    if (inLeft.size() != inRight.size()) return false;
    for (std::size_t i = 0; i < inLeft.size(); ++i)
        if (LowerCase(inLeft[i]) != LowerCase(inRight[i])) return false;
    return true;
}

void IncomingRequest::SetLine(std::string_view inMethod, std::string_view inTarget)
{
    mMethod = InternMethod(inMethod);
    mHead = inTarget;
    mTargetSize = inTarget.size();
    mPathSize = std::min(inTarget.find_first_of("?#"), inTarget.size());
}

void IncomingRequest::AddHeader(std::string_view inName, std::string_view inValue)
{
    mHeaders.push_back({static_cast<std::uint32_t>(mHead.size()), static_cast<std::uint32_t>(inName.size()),
                        static_cast<std::uint32_t>(inValue.size())});
    mHead += inName;
    mHead += inValue;
}

std::string_view IncomingRequest::HeaderName(std::size_t inIndex) const
{
    const Place& place = mHeaders[inIndex];
    return {mHead.data() + place.mName, place.mNameSize};
}

std::string_view IncomingRequest::HeaderValue(std::size_t inIndex) const
{
    const Place& place = mHeaders[inIndex];
    return {mHead.data() + place.mName + place.mNameSize, place.mValueSize};
}

std::string_view IncomingRequest::Header(std::string_view inName) const
{
    for (std::size_t i = 0; i < mHeaders.size(); ++i)
        if (EqualWithoutCase(HeaderName(i), inName)) return HeaderValue(i);
    return {};
}

std::string IncomingRequest::QueryValue(std::string_view inName) const
{
    std::string_view query = URL().substr(mPathSize);
    query = query.substr(0, query.find('#'));
    if (query.empty()) return {};
    query.remove_prefix(1);
    while (!query.empty()) {
        const std::string_view pair = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(pair.size() + 1, query.size()));
        const std::size_t equals = std::min(pair.find('='), pair.size());
        if (PercentDecoded(pair.substr(0, equals)) == inName)
            return PercentDecoded(pair.substr(std::min(equals + 1, pair.size())));
    }
    return {};
}

bool IncomingRequest::FormFields(std::vector<FormField>& outFields) const
{
    const RecycledMemory body = mPayload ? *mPayload : RecycledMemory();
    return ParseForm(body, Header(kHEADER_ContentType), mMaxFormFields, outFields);
}

void IncomingRequest::MarkClientGone()
{
    std::function<void()> whenGone;
    {
        const ScopedLock lock(mMutex);
        mClientHasGone = true;
        whenGone.swap(mWhenGone);
    }
    if (whenGone) whenGone();
}

void IncomingRequest::MarkAnswered()
{
    std::function<void()> whenGone;
    const ScopedLock lock(mMutex);
    whenGone.swap(mWhenGone);
}

bool IncomingRequest::ClientHasGone() const
{
    const ScopedLock lock(mMutex);
    return mClientHasGone;
}

void IncomingRequest::WhenClientGoes(std::function<void()> inFunction) const
{
    {
        const ScopedLock lock(mMutex);
        if (!mClientHasGone) {
            mWhenGone.swap(inFunction);
            return;
        }
    }
    if (inFunction) inFunction();
}

std::shared_ptr<IncomingRequest> MakeRequest(std::string_view inMethod, std::string_view inTarget,
                                             const HeaderList& inHeaders, ConstRecycledMemoryPtr inBody)
{
    auto request = std::make_shared<IncomingRequest>(Limits().mMaxFormFields);
    request->SetLine(inMethod, inTarget);
    for (const auto& [name, value] : inHeaders)
        request->AddHeader(name, value);
    if (!inBody) inBody = std::make_shared<const RecycledMemory>();
    request->SetPayload(std::move(inBody));
    return request;
}

}  // namespace noxnet::http::server
