#include "lidar_record/extract.h"

#include <ostream>

#include "lidar_record/cloud_points.h"
#include "lidar_view/picture.h"
#include "mcap/message_search.h"
#include "ros_messages/message_types.h"
#include "support/las_file.h"
#include "support/output_file.h"
#include "support/png_file.h"
#include "support/point_files.h"

namespace kerul::lidar::record {
namespace {

// Clouds of one channel: of the topic, or else of the first channel that has some.
mcap::ChannelFilter CloudsOf(const std::string& topic) {
  return [topic, taken = false](const mcap::Schema& schema, const mcap::Channel& channel) mutable {
    const bool has_clouds =
        schema.name == ros::kPointCloud2.name && channel.message_encoding == "cdr";
    const bool is_meant =
        topic.empty() ? !taken : channel.topic == topic || channel.topic == "/" + topic;
    if (!has_clouds || !is_meant) return false;
    taken = true;
    return true;
  };
}

std::int64_t StampUs(const ros::CloudView& cloud) {
  return std::int64_t{cloud.stamp_sec} * 1'000'000 + cloud.stamp_nanosec / 1000;
}

class CloudFiles {
 public:
  CloudFiles(const ros::CloudView& cloud, std::ostream& err) : cloud_(cloud), err_(err) {}

  bool Write(const ExtractOptions& options) {
    std::string error;
    if (!MakePoints(cloud_, points_, error)) {
      err_ << "lidar_record: " << error << std::endl;
      return false;
    }
    constexpr PointFields kFields = PointFields::kPixelAndEcho;
    if (!options.pcd.empty()) WriteBytes(options.pcd, EncodePcd(points_, kFields));
    if (!options.ply.empty()) WriteBytes(options.ply, EncodePly(points_, kFields));
    if (!options.las.empty()) WriteBytes(options.las, EncodeLas(points_, LasOptionsHere()));
    if (!options.png.empty()) WritePicture(options.png);
    return all_written_;
  }

 private:
  LasOptions LasOptionsHere() const {
    return {.ground_known = ros::FieldColumn(cloud_, "flags").IsThere(),
            .timestamp_us = StampUs(cloud_)};
  }
  void WriteBytes(const std::string& path, const std::vector<char>& bytes) {
    std::string error;
    Note(WriteOutputFile(path, bytes, error), path, error);
  }
  void WritePicture(const std::string& path) {
    std::string error;
    CollectedFrame frame;
    if (!MakeFrame(cloud_, frame, error)) return Note(false, path, error);
    const view::Canvas picture = view::DrawPicture(frame, points_, view::PictureOptions());
    Note(WritePng(path, picture.width, picture.height, picture.rgb, error), path, error);
  }
  void Note(bool written, const std::string& path, const std::string& error) {
    if (written) return;
    all_written_ = false;
    err_ << "lidar_record: cannot write " << path << ": " << error << std::endl;
  }

  const ros::CloudView& cloud_;
  std::ostream& err_;
  std::vector<CloudPoint> points_;
  bool all_written_ = true;
};

}  // namespace

int RunExtract(const ExtractOptions& options, std::ostream& err) {
  mcap::FileSource source;
  std::string error;
  mcap::FoundMessage message;
  ros::CloudView cloud;
  const bool found =
      source.Open(options.file, error) &&
      mcap::FindMessage(source, {}, CloudsOf(options.topic), options.frame, message, error) &&
      ros::ParseCloud(message.data, cloud, error);
  if (!found) {
    err << "lidar_record: cloud " << options.frame << " of " << options.file << ": " << error
        << std::endl;
    return 1;
  }
  return CloudFiles(cloud, err).Write(options) ? 0 : 1;
}

}  // namespace kerul::lidar::record
