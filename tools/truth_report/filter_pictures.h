// Pictures of frames without and with a pass, coloured by the truth.
#pragma once

#include <string>

namespace kerul::lidar::report {

// Writes filter_neighbours.png, filter_shot_noise.png, filter_bloom.png and filter_ground.png into
// an existing directory. Throws std::runtime_error when one cannot be written.
void WriteFilterPictures(const std::string& directory);

}  // namespace kerul::lidar::report
