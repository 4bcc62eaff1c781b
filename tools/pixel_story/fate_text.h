// The table of fates as text.
#pragma once

#include <iosfwd>
#include <string>

#include "pixel_story/comparison.h"
#include "pixel_story/fates.h"

namespace kerul::lidar::story {

// "pixels 3,4 to 5,9"
std::string PlaceOf(const PixelRect& rect);
// "the fates add up to 12 echoes: 6 pixels with 2 slots each"
std::string SumSentence(const FateTable& table);

// Fates with no echo and marks with none are left out. The legend's colours are those of the
// picture.
void WriteFates(std::ostream& out, const FateTable& table);

// "12 of 124416 echoes have another fate; 40 more are published with other bytes"
std::string ChangesSentence(const FateChanges& changes);
void WriteChanges(std::ostream& out, const FateChanges& changes);

}  // namespace kerul::lidar::story
