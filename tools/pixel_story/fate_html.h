// Fates as parts of a page.
#pragma once

#include <span>
#include <string>

#include "pixel_story/comparison.h"
#include "pixel_story/fates.h"

namespace kerul::lidar::story {

// Base64 with padding.
std::string Base64(std::span<const char> bytes);

// Title, picture inside the page, and the table as its legend. Throws std::runtime_error when the
// picture cannot be made.
std::string FatesMarkup(const std::string& title, const FateTable& table,
                        const FrameStates& states);

// From which fate to which other one how many echoes have gone.
std::string ChangesMarkup(const FateChanges& changes);

}  // namespace kerul::lidar::story
