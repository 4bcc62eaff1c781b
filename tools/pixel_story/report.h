// All that is told of a frame, and its forms.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "pixel_story/fate_picture.h"
#include "pixel_story/story_account.h"

namespace kerul::lidar::story {

struct Report {
  std::string origin;  // "street.pcap" or "UDP port 2400"
  std::string calib_dir;
  int frame = 0;
  AccountWish wish;  // its fates are shown for the wanted pixels
  Account configured;
  std::vector<std::string> settings;  // "name=value"
  std::optional<Account> changed;     // the same frame under these settings
};

void WriteReportAsText(std::ostream& out, const Report& report);
void WriteReportAsPage(std::ostream& out, const Report& report);
void WriteReportAsJson(std::ostream& out, const Report& report);
// With changed settings the frame as configured above, the other one below. Needs the fates.
FatePicture DrawReport(const Report& report);

}  // namespace kerul::lidar::story
