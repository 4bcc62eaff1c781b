#include "ros_messages/message_types.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace kerul::lidar::ros {
namespace {

TEST(MessageTypes, DefinitionsBringEveryTypeThatTheyNameAfterALineOfEightyEqualSigns) {
  int named = 0;
  for (const MessageType* type : {&kPointCloud2, &kImage}) {
    std::istringstream lines(type->definition);
    std::string before;
    for (std::string line; std::getline(lines, line); before = line) {
      if (line.rfind("MSG: ", 0) == 0) {
        EXPECT_EQ(before, std::string(80, '=')) << line;
      }
      const std::string field_type = line.substr(0, line.find_first_of(" ["));
      if (field_type.find('/') == std::string::npos) continue;
      ++named;
      EXPECT_NE(type->definition.find("\nMSG: " + field_type + "\n"), std::string::npos) << line;
    }
  }
  // Header and time in both, the point fields in one.
  EXPECT_EQ(named, 5);
}

}  // namespace
}  // namespace kerul::lidar::ros
