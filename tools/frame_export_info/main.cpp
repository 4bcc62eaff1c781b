#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>

#include "frame_export_info/frame_export_info.h"
#include "standard_streams.h"

int main(int argc, char** argv) {
  kerul::lidar::OpenMissingStandardStreams();
  kerul::lidar::FrameExportInfoOptions options;
  CLI::App app{
      "Shows a frame export file of the node and converts it. Points of PCD, PLY and LAS are in "
      "the "
      "sensor's own axes, metres, x along the optical axis."};
  app.add_option("file", options.file, "The export file")->required();
  app.add_option("--calib", options.calib,
                 "Angle record of the sensor (78 bytes, Lidar-<id>_angle_calib.dat), for --pcd, "
                 "--ply and --las");
  app.add_option("--csv", options.csv, "Write row, column, range and reflectivity as text");
  app.add_option("--pcd", options.pcd, "Write points as binary PCD");
  bool pcd_floats = false;
  app.add_flag("--pcd-floats", pcd_floats, "All fields of the PCD as floats");
  app.add_option("--ply", options.ply, "Write points as binary PLY");
  app.add_option("--las", options.las, "Write points as LAS 1.2");
  app.add_option("--png", options.png, "Draw range (left) and reflectivity (right)");
  CLI11_PARSE(app, argc, argv);
  if (pcd_floats) options.pcd_numbers = kerul::lidar::PcdNumbers::kFloats;
  try {
    return kerul::lidar::RunFrameExportInfo(options, std::cout, std::cerr);
  } catch (const std::exception& failure) {
    std::cerr << "frame_export_info: " << failure.what() << '\n';
    return 1;
  }
}
