#pragma once

#include "Platform/noxcore/ImmutableString.h"

/// Defines a word as a function that gives the one interned string of it, so that comparing with it compares addresses.
#define VYCL_CONSTANT(name, text)                                       \
    inline const noxcore::utility::ImmutableString& name()              \
    {                                                                   \
        static const noxcore::utility::ImmutableString kConstant(text); \
        return kConstant;                                               \
    }
