// `lidar_record extract`: one recorded cloud as other files.
#pragma once

#include <iosfwd>

#include "lidar_record/record_options.h"

namespace kerul::lidar::record {

// Writes all files that it can; failures go to `err`. Gives the exit status, 0 or 1.
int RunExtract(const ExtractOptions& options, std::ostream& err);

}  // namespace kerul::lidar::record
