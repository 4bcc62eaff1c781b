#include "command_line.h"

#include <algorithm>
#include <iostream>
#include <span>
#include <string_view>

namespace kerul::lidar {
namespace {

using Arguments = std::span<const char* const>;

constexpr std::string_view kCaliPath = "--cali_path";

bool IsHelp(std::string_view argument) { return argument == "--help" || argument == "-h"; }

// Finds the value of --cali_path. False after a message on standard error.
bool TakeCaliPath(Arguments arguments, std::string& cali_path) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (arguments[i] != kCaliPath) continue;
    if (i + 1 == arguments.size()) {
      std::cerr << "[ERROR] --cali_path requires a directory path\n";
      return false;
    }
    if (!cali_path.empty()) {
      std::cerr << "[ERROR] --cali_path specified more than once\n";
      return false;
    }
    cali_path = arguments[++i];
    if (cali_path.empty() || cali_path.front() == '-') {
      std::cerr << "[ERROR] --cali_path expects a directory path, got: " << cali_path << '\n';
      return false;
    }
  }
  return true;
}

// False after a message on standard error. Every --cali_path has a value by now.
bool RefuseUnknown(Arguments arguments) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (arguments[i] == kCaliPath) {
      ++i;
    } else if (!IsHelp(arguments[i])) {
      std::cerr << "[ERROR] unknown argument: " << arguments[i] << '\n';
      return false;
    }
  }
  return true;
}

}  // namespace

void print_usage(const char* argv0) {
  std::cerr << "Usage: " << argv0 << " [--cali_path <dir>] [--help]\n"
            << "  (default)              load para2 via RCX (head once; cache if ready)\n"
            << "  --cali_path <dir>      skip RCX; load from e.g. data/QNDR_003\n"
            << "                         (expects <dir>/para_read/<id>_head.bin + "
               "<id>_para2.bin)\n";
}

CommandLine ParseCommandLine(int argc, const char* const* argv) {
  CommandLine result;
  if (argc < 2) return result;
  const Arguments arguments(argv + 1, static_cast<std::size_t>(argc - 1));
  if (std::ranges::any_of(arguments, IsHelp)) {
    print_usage(argv[0]);
    result.exit_status = 0;
  } else if (!TakeCaliPath(arguments, result.cali_path) || !RefuseUnknown(arguments)) {
    print_usage(argv[0]);
    result.exit_status = 1;
  }
  return result;
}

}  // namespace kerul::lidar
