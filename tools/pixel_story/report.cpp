#include "pixel_story/report.h"

#include <ostream>

#include "pixel_story/comparison.h"
#include "pixel_story/fate_html.h"
#include "pixel_story/fate_text.h"
#include "pixel_story/story_html.h"
#include "pixel_story/story_json.h"
#include "pixel_story/story_text.h"
#include "pixel_story/words.h"

namespace kerul::lidar::story {
namespace {

constexpr int kJsonVersion = 1;
constexpr const char* kAsConfigured = "as configured";

std::string Changed(const Report& report) { return "with " + Joined(report.settings); }

// Of the whole frame, whatever pixels are wanted.
FateChanges ChangesOf(const Report& report) {
  const FrameStates& before = report.configured.states;
  return CompareFates(before, report.changed->states, WholeFrame(before));
}

void WriteAccountAsText(std::ostream& out, const Account& account, const AccountWish& wish) {
  if (wish.fates) {
    WriteFates(out, CountFates(account.states, wish.wanted));
    out << '\n';
  }
  for (const PixelStory& story : account.stories) WriteText(out, story);
}

void WriteAccountAsJson(JsonWriter& json, const Account& account, const AccountWish& wish) {
  json.WholeMember("published_frame", account.end.published_frame);
  json.WholeMember("packets", account.end.packets);
  json.Key("stories");
  WriteJson(json, account.stories);
  if (!wish.fates) return;
  json.Key("fates");
  WriteJson(json, CountFates(account.states, wish.wanted), account.states);
}

std::string FatesOf(const Account& account, const AccountWish& wish, const std::string& how) {
  if (!wish.fates) return "";
  const FateTable table = CountFates(account.states, wish.wanted);
  return FatesMarkup("Fates of " + PlaceOf(table.rect) + how, table, account.states);
}

}  // namespace

void WriteReportAsText(std::ostream& out, const Report& report) {
  if (!report.changed) {
    WriteAccountAsText(out, report.configured, report.wish);
    return;
  }
  out << "---- " << kAsConfigured << "\n\n";
  WriteAccountAsText(out, report.configured, report.wish);
  out << "---- " << Changed(report) << "\n\n";
  WriteAccountAsText(out, *report.changed, report.wish);
  out << "---- what changes in the whole frame\n\n";
  WriteChanges(out, ChangesOf(report));
}

void WriteReportAsPage(std::ostream& out, const Report& report) {
  const std::string about = "Frame " + std::to_string(report.frame) + " of " + report.origin +
                            ", calibration " + report.calib_dir;
  if (!report.changed) {
    WriteHtml(out, report.configured.stories, about, FatesOf(report.configured, report.wish, ""));
    return;
  }
  const std::string front =
      FatesOf(report.configured, report.wish, std::string(", ") + kAsConfigured) +
      FatesOf(*report.changed, report.wish, ", " + Changed(report)) +
      ChangesMarkup(ChangesOf(report));
  WriteHtml(out, {kAsConfigured, report.configured.stories},
            {Changed(report), report.changed->stories}, about, front);
}

void WriteReportAsJson(std::ostream& out, const Report& report) {
  JsonWriter json(out);
  json.BeginObject();
  json.TextMember("format", "pixel_story");
  json.WholeMember("version", kJsonVersion);
  json.TextMember("origin", report.origin);
  json.TextMember("calibration", report.calib_dir);
  json.WholeMember("frame", report.frame);
  WriteAccountAsJson(json, report.configured, report.wish);
  if (report.changed) {
    json.Key("changed");
    json.BeginObject();
    json.Key("settings");
    json.BeginArray();
    for (const std::string& setting : report.settings) json.Text(setting);
    json.EndArray();
    WriteAccountAsJson(json, *report.changed, report.wish);
    json.EndObject();
    json.Key("changes");
    WriteJson(json, ChangesOf(report));
  }
  json.EndObject();
}

FatePicture DrawReport(const Report& report) {
  FatePicture picture = DrawFates(report.configured.states, report.wish.wanted);
  if (!report.changed) return picture;
  const FatePicture below = DrawFates(report.changed->states, report.wish.wanted);
  AppendBelow(below, picture);
  return picture;
}

}  // namespace kerul::lidar::story
