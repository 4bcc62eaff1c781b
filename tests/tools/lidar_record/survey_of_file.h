// What is in a file that a test has recorded.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "mcap/message_search.h"
#include "mcap/survey.h"

namespace kerul::lidar::record {

inline mcap::Survey SurveyOf(const std::string& path) {
  mcap::FileSource source;
  mcap::Survey survey;
  std::string error;
  EXPECT_TRUE(source.Open(path, error) && mcap::MakeSurvey(source, {}, survey, error))
      << path << ": " << error;
  return survey;
}

// Message `number` of a channel.
inline mcap::FoundMessage MessageOf(const std::string& path, std::uint16_t channel,
                                    std::uint64_t number) {
  mcap::FileSource source;
  mcap::FoundMessage message;
  std::string error;
  const mcap::ChannelFilter is_it = [channel](const mcap::Schema&, const mcap::Channel& one) {
    return one.id == channel;
  };
  EXPECT_TRUE(source.Open(path, error) &&
              mcap::FindMessage(source, {}, is_it, number, message, error))
      << path << ": " << error;
  return message;
}

}  // namespace kerul::lidar::record
