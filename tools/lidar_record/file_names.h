// The names of a recording's files: name.mcap, name_0001.mcap, name_0002.mcap, ...
#pragma once

#include <string>
#include <vector>

namespace kerul::lidar::record {

class FileNames {
 public:
  // `first`: the path without a number.
  explicit FileNames(std::string first) : first_(std::move(first)) {}

  // The name after the last one that is taken, so that the order of names stays that of the files.
  // A folder that cannot be read gives the first name.
  std::string Next() const;
  // A line for each file under these names that was not finished, as after a kill:
  // "a.mcap was not finished: 12 whole chunks". Files that another process writes are left out.
  std::vector<std::string> UnfinishedFiles() const;

 private:
  std::vector<int> TakenNumbers() const;
  std::string Name(int number) const;

  std::string first_;
};

}  // namespace kerul::lidar::record
