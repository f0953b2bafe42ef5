#pragma once

namespace MX {

/// The media core stands for as long as one of these lives, for each HubContext. Threading: main thread.
class Initializer
{
public:
    Initializer();
    ~Initializer();
    Initializer(const Initializer&) = delete;
    Initializer& operator=(const Initializer&) = delete;

    /// Whether the media core of the current context stands.
    static bool IsInitialized();
};

}  // namespace MX
