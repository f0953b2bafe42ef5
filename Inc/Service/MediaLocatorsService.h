#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// Where the media of a session's clips lie. Locators are no part of the history. Threading: any thread; no state.
class MediaLocatorsService final : public RoutedService<MediaLocatorsService>
{
public:
    static constexpr std::string_view kName = "MediaLocatorsService";
    MediaLocatorsService();
};

}  // namespace VantryLocalHub
