// `lidar_record info`: what is in an MCAP file, and what is damaged.
#pragma once

#include <iosfwd>
#include <string>

#include "mcap/survey.h"

namespace kerul::lidar::record {

// Lines of "name: value". Control characters in names from the file are shown as \xNN.
void PrintSurvey(const std::string& path, const mcap::Survey& survey, std::ostream& out);

// Gives the exit status: 0 when nothing is damaged, whether or not the file was finished; else 1.
int RunInfo(const std::string& path, std::ostream& out, std::ostream& err);

}  // namespace kerul::lidar::record
