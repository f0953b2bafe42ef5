#include <re2/re2.h>

#include <cstring>

#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPServer.h"

namespace noxnet::http::server {

namespace {

/// The place of the bracket that ends the character class which begins at inPlace.
std::size_t EndOfClass(std::string_view inPattern, std::size_t inPlace)
{
    std::size_t i = inPlace + 1;
    if (i < inPattern.size() && inPattern[i] == '^') ++i;
    if (i < inPattern.size() && inPattern[i] == ']') ++i;  // first in a class it stands for itself
    for (; i < inPattern.size() && inPattern[i] != ']'; ++i) {
        if (inPattern[i] == '\\') ++i;
        if (inPattern.substr(i, 2) == "[:") i = std::min(inPattern.find(":]", i), inPattern.size() - 2) + 1;
    }
    return i;
}

/// True where the pattern consists of alternatives. Characters in brackets are no operators.
bool HasOuterAlternatives(std::string_view inPattern)
{
    std::size_t depth = 0;
    for (std::size_t i = 0; i < inPattern.size(); ++i) {
        const char current = inPattern[i];
        if (current == '\\') {
            ++i;
        } else if (current == '[') {
            i = EndOfClass(inPattern, i);
        } else if (current == '(') {
            ++depth;
        } else if (current == ')' && depth > 0) {
            --depth;
        } else if (current == '|' && depth == 0) {
            return true;
        }
    }
    return false;
}

/// The literal text that every match begins with, as far as it can be read off the pattern without understanding it.
std::string LiteralPrefix(std::string_view inPattern)
{
    if (!inPattern.starts_with('^') || HasOuterAlternatives(inPattern)) return {};
    std::size_t end = 1;
    while (end < inPattern.size() && (std::isalnum(static_cast<unsigned char>(inPattern[end])) != 0 ||
                                      std::strchr("/_-%", inPattern[end]) != nullptr))
        ++end;
    // A quantifier takes the last character back.
    if (end > 1 && end < inPattern.size() && std::strchr("?*{", inPattern[end]) != nullptr) --end;
    return std::string(inPattern.substr(1, end - 1));
}

RE2::Options MatchOptions()
{
    RE2::Options options;
    options.set_encoding(RE2::Options::EncodingLatin1);  // byte for byte, as Boost matches narrow text
    options.set_dot_nl(true);
    options.set_log_errors(false);
    return options;
}

}  // namespace

struct PathExpression::Impl
{
    explicit Impl(std::string_view inPattern)
        : mPattern(inPattern), mPrefix(LiteralPrefix(inPattern)), mExpression(mPattern, MatchOptions())
    {
    }

    const std::string mPattern;
    const std::string mPrefix;
    const RE2 mExpression;
};

PathExpression::PathExpression(std::string_view inPattern) : mImpl(std::make_shared<const Impl>(inPattern))
{
    if (!mImpl->mExpression.ok())
        noxcore::logging::LogError("noxnet", "Path expression not understood",
                                   {{"pattern", inPattern}, {"error", mImpl->mExpression.error()}});
}

const std::string& PathExpression::Pattern() const
{
    return mImpl->mPattern;
}

bool PathExpression::Match(std::string_view inPath, std::vector<std::string_view>& outGroups) const
{
    if (!inPath.starts_with(mImpl->mPrefix) || !mImpl->mExpression.ok()) return false;
    constexpr std::size_t kUsualGroups = 8;
    const std::size_t count = static_cast<std::size_t>(mImpl->mExpression.NumberOfCapturingGroups()) + 1;
    re2::StringPiece usual[kUsualGroups];
    std::vector<re2::StringPiece> many(count > kUsualGroups ? count : 0);
    re2::StringPiece* const groups = many.empty() ? usual : many.data();
    if (!mImpl->mExpression.Match(re2::StringPiece(inPath.data(), inPath.size()), 0, inPath.size(), RE2::ANCHOR_BOTH,
                                  groups, static_cast<int>(count)))
        return false;
    outGroups.clear();
    outGroups.reserve(count);
    for (std::size_t i = 0; i < count; ++i)
        outGroups.emplace_back(groups[i].data() == nullptr ? inPath.substr(0, 0)
                                                           : std::string_view(groups[i].data(), groups[i].size()));
    return true;
}

}  // namespace noxnet::http::server
