#include "lidar_record/file_info.h"

#include <cstdio>
#include <ctime>
#include <ostream>

#include "calibration/printable_id.h"

namespace kerul::lidar::record {
namespace {

constexpr std::uint64_t kNanoseconds = 1'000'000'000;  // in a second

// 2026-11-22 08:33:43.123456 UTC
std::string TimeText(std::uint64_t time_ns) {
  const auto seconds = static_cast<std::time_t>(time_ns / kNanoseconds);
  std::tm parts{};
  if (gmtime_r(&seconds, &parts) == nullptr) return std::to_string(time_ns) + " ns";
  char text[64];
  const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
  char fraction[32];
  std::snprintf(fraction, sizeof fraction, ".%06u UTC",
                static_cast<unsigned>(time_ns % kNanoseconds / 1000));
  return std::string(text, length) + fraction;
}

std::string Decimals(double value, const char* format) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

void PrintChannels(const mcap::Survey& survey, std::ostream& out) {
  for (const auto& [id, channel] : survey.channels) {
    const auto schema = survey.schemas.find(channel.schema_id);
    const auto count = survey.message_counts.find(id);
    out << "channel " << id << ": " << PrintableId(channel.topic) << ", "
        << (schema == survey.schemas.end() ? "no schema" : PrintableId(schema->second.name)) << ", "
        << PrintableId(channel.message_encoding) << ", "
        << (count == survey.message_counts.end() ? 0 : count->second) << " messages\n";
  }
  for (const auto& [id, schema] : survey.schemas) {
    out << "schema " << id << ": " << PrintableId(schema.name) << ", "
        << PrintableId(schema.encoding) << ", " << schema.data.size() << " bytes\n";
  }
}

void PrintChunks(const mcap::Survey& survey, std::ostream& out) {
  for (const auto& [name, packed] : survey.chunks) {
    const double share = packed.plain == 0 ? 100.0
                                           : 100.0 * static_cast<double>(packed.stored) /
                                                 static_cast<double>(packed.plain);
    out << "chunks: " << packed.chunks << ", " << (name.empty() ? "not compressed" : name) << ", "
        << packed.stored << " of " << packed.plain << " bytes, " << Decimals(share, "%.1f")
        << " %\n";
  }
}

void PrintDamages(const mcap::Survey& survey, std::ostream& out) {
  out << "damaged chunks: " << survey.damaged_chunks << "\n";
  for (const mcap::Damage& damage : survey.damages) {
    out << "damage at byte " << damage.at << ": " << PrintableId(damage.what) << "\n";
  }
  if (survey.further_damages != 0) {
    out << "further damages: " << survey.further_damages << "\n";
  }
}

}  // namespace

void PrintSurvey(const std::string& path, const mcap::Survey& survey, std::ostream& out) {
  out << "file: " << path << "\n"
      << "size: " << survey.file_bytes << " bytes\n";
  if (survey.finished) {
    out << "finished: yes\n";
  } else {
    out << "finished: no, " << survey.unread_bytes << " bytes after the last whole record\n";
  }
  out << "profile: " << PrintableId(survey.header.profile)
      << "\nwritten by: " << PrintableId(survey.header.library) << "\nmessages: " << survey.messages
      << "\n";
  if (survey.messages > 0) {
    const double seconds = static_cast<double>(survey.end_time_ns - survey.start_time_ns) / 1e9;
    out << "first: " << TimeText(survey.start_time_ns) << "\nlast: " << TimeText(survey.end_time_ns)
        << "\nspan: " << Decimals(seconds, "%.3f") << " s\n";
  }
  PrintChunks(survey, out);
  PrintChannels(survey, out);
  PrintDamages(survey, out);
  out << std::flush;
}

int RunInfo(const std::string& path, std::ostream& out, std::ostream& err) {
  mcap::FileSource source;
  mcap::Survey survey;
  std::string error;
  if (!source.Open(path, error) || !mcap::MakeSurvey(source, {}, survey, error)) {
    err << "lidar_record: " << path << ": " << error << std::endl;
    return 1;
  }
  PrintSurvey(path, survey, out);
  return survey.damages.empty() ? 0 : 1;
}

}  // namespace kerul::lidar::record
