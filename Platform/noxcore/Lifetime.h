#pragma once

#include <latch>
#include <memory>

namespace noxcore {

/// A member that tells when its owner has gone: whoever kept the token waits for that, without keeping the owner.
class Lifetime
{
public:
    using Token = std::shared_ptr<std::latch>;

    Lifetime() = default;
    ~Lifetime() { mEnd->count_down(); }
    Lifetime(const Lifetime&) = delete;
    Lifetime& operator=(const Lifetime&) = delete;

    /// token->wait() returns when the owner has gone.
    [[nodiscard]] Token GetToken() const { return mEnd; }

private:
    const Token mEnd = std::make_shared<std::latch>(1);
};

}  // namespace noxcore
