// The page's files, held in memory: what is not in the folder at the start is not served.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace kerul::lidar::web {

using Bytes = std::shared_ptr<const std::string>;

class PageFiles {
 public:
  struct File {
    Bytes plain;
    Bytes packed;  // by gzip; null when there is none
  };

  // Reads the plain files of a folder that have a name that can be asked for; NAME.gz beside NAME
  // is the packed one. False with the reason in `error`: no folder, no index.html, a file that
  // cannot be read, more than 32 MiB.
  bool Load(const std::string& folder, std::string& error);

  // Null for none of that name.
  const File* Find(std::string_view name) const;
  bool IsEmpty() const noexcept { return files_.empty(); }

 private:
  std::map<std::string, File, std::less<>> files_;
};

// The folder of the built page for a program that stands at `program`: lidar_web_page beside it, or
// ../share/kerul_lidar/page. Empty when neither is there.
std::string FindPageFolder(const std::string& program);

}  // namespace kerul::lidar::web
