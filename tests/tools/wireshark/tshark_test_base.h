// tshark with the dissector of this tree and nobody else's settings.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/temp_dir.h"
#include "tools/wireshark/capture_frames.h"

namespace kerul::lidar::testing {

// A table of tshark's -T fields: a row for each packet, a cell for each field. The values of a
// field that a packet has several times are separated by commas; an absent one is empty.
using FieldTable = std::vector<std::vector<std::string>>;

std::vector<std::string> Split(const std::string& text, char separator);

// Fails, and does not skip, where tshark is missing or the dissector does not load.
class TsharkTest : public ::testing::Test {
 protected:
  void SetUp() override;

  std::filesystem::path CapturePath() const { return directory_.path() / "run.pcap"; }

  // Runs tshark and gives its standard output. Any word of Lua on standard error is a failure.
  std::string Run(const std::vector<std::string>& arguments) const;

  // The fields of every packet of the capture, `more` being further arguments.
  FieldTable Fields(const std::vector<std::string>& fields,
                    const std::vector<std::string>& more = {}) const;
  FieldTable Fields(const FrameList& frames, const std::vector<std::string>& fields,
                    const std::vector<std::string>& more = {}) const;

  // How many packets of the capture a display filter lets through.
  std::size_t Count(const std::string& filter) const;

 private:
  TempDir directory_;
};

}  // namespace kerul::lidar::testing
