#pragma once

#include <functional>

#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxnet/HTTPServer.h"

namespace noxnet::http::server {

/// A request as the server builds it, from a socket or by MakeRequest: constant once it is handed to a service.
///
/// Target and headers lie in one text, so that a waiting request stays small.
/// Threading: built by one thread; what concerns the client's going from any. The mutex guards the mark and the
/// function (rank Leaf), and is not held while the function runs.
class IncomingRequest final : public Request
{
public:
    explicit IncomingRequest(std::size_t inMaxFormFields) : mMaxFormFields(inMaxFormFields) {}

    void SetLine(std::string_view inMethod, std::string_view inTarget);
    void AddHeader(std::string_view inName, std::string_view inValue);
    void SetPayload(ConstRecycledMemoryPtr inPayload) { mPayload = std::move(inPayload); }
    /// The place that routing writes the captures to.
    std::vector<std::string_view>& MutableMatch() { return mMatch; }
    void MarkClientGone();
    /// The request is answered: whoever waits for the client's going need not be told any more.
    void MarkAnswered();

    [[nodiscard]] std::size_t HeaderCount() const { return mHeaders.size(); }
    [[nodiscard]] std::string_view HeaderName(std::size_t inIndex) const;
    [[nodiscard]] std::string_view HeaderValue(std::size_t inIndex) const;
    /// Bytes of target and headers so far.
    [[nodiscard]] std::size_t HeadSize() const { return mHead.size(); }

    [[nodiscard]] const ImmutableString& Method() const override { return mMethod; }
    [[nodiscard]] std::string_view Header(std::string_view inName) const override;
    [[nodiscard]] std::string QueryValue(std::string_view inName) const override;
    bool FormFields(std::vector<FormField>& outFields) const override;
    [[nodiscard]] const ConstRecycledMemoryPtr& Payload() const override { return mPayload; }
    [[nodiscard]] std::string_view URL() const override { return {mHead.data(), mTargetSize}; }
    [[nodiscard]] std::string_view Path() const override { return {mHead.data(), mPathSize}; }
    [[nodiscard]] const std::vector<std::string_view>& Match() const override { return mMatch; }
    [[nodiscard]] bool ClientHasGone() const override;
    void WhenClientGoes(std::function<void()> inFunction) const override;

private:
    struct Place
    {
        std::uint32_t mName = 0;  ///< where the name begins; the value follows it
        std::uint32_t mNameSize = 0;
        std::uint32_t mValueSize = 0;
    };

    ImmutableString mMethod;
    std::string mHead;  ///< target, then name and value of each header
    std::size_t mTargetSize = 0;
    std::size_t mPathSize = 0;
    std::vector<Place> mHeaders;
    ConstRecycledMemoryPtr mPayload;
    std::vector<std::string_view> mMatch;
    const std::size_t mMaxFormFields;

    mutable noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    bool mClientHasGone GUARDED_BY(mMutex) = false;
    mutable std::function<void()> mWhenGone GUARDED_BY(mMutex);
};

using HeaderList = std::vector<std::pair<std::string, std::string>>;

/// A request for Server::Dispatch. The body may be null.
std::shared_ptr<IncomingRequest> MakeRequest(std::string_view inMethod, std::string_view inTarget,
                                             const HeaderList& inHeaders, ConstRecycledMemoryPtr inBody);

/// True when two header names, or values that compare without case, are equal (ASCII only).
bool EqualWithoutCase(std::string_view inLeft, std::string_view inRight);

}  // namespace noxnet::http::server
