#include "pixel_story/story_json.h"

namespace kerul::lidar::story {
namespace {

void WriteValue(JsonWriter& json, const NamedValue& value) {
  json.BeginObject();
  json.TextMember("name", value.name);
  if (const auto* whole = std::get_if<std::int64_t>(&value.value)) {
    json.TextMember("type", "integer");
    json.WholeMember("value", *whole);
  } else if (const auto* number = std::get_if<float>(&value.value)) {
    json.TextMember("type", "float");
    json.RealMember("value", *number);
  } else {
    json.TextMember("type", "text");
    json.TextMember("value", std::get<std::string>(value.value));
  }
  json.TextMember("unit", value.unit);
  json.EndObject();
}

void WriteScales(JsonWriter& json, const Plot& plot) {
  json.Key("levels");
  json.BeginArray();
  for (const Plot::Level& level : plot.levels) {
    json.BeginObject();
    json.TextMember("name", level.name);
    json.RealMember("y", level.y);
    json.EndObject();
  }
  json.EndArray();
  json.Key("marks");
  json.BeginArray();
  for (const Plot::Mark& mark : plot.marks) {
    json.BeginObject();
    json.TextMember("name", mark.name);
    json.RealMember("x", mark.x);
    json.EndObject();
  }
  json.EndArray();
  json.Key("spans");
  json.BeginArray();
  for (const Plot::Span& span : plot.spans) {
    json.BeginObject();
    json.TextMember("name", span.name);
    json.RealMember("from", span.from);
    json.RealMember("to", span.to);
    json.RealMember("y", span.y);
    json.EndObject();
  }
  json.EndArray();
}

void WritePlot(JsonWriter& json, const Plot& plot) {
  json.BeginObject();
  json.TextMember("x_label", plot.x_label);
  json.TextMember("y_label", plot.y_label);
  json.RealMember("first_x", plot.first_x);
  json.Key("bars");
  json.BeginArray();
  for (const float height : plot.bars) json.Real(height);
  json.EndArray();
  json.Key("marked");
  json.BeginArray();
  for (const std::size_t bar : plot.marked) json.Whole(static_cast<std::int64_t>(bar));
  json.EndArray();
  WriteScales(json, plot);
  json.EndObject();
}

void WriteStep(JsonWriter& json, const Step& step) {
  json.BeginObject();
  json.TextMember("name", step.name);
  if (!step.note.empty()) json.TextMember("note", step.note);
  json.Key("sentences");
  json.BeginArray();
  for (const std::string& sentence : step.sentences) json.Text(sentence);
  json.EndArray();
  json.Key("values");
  json.BeginArray();
  for (const NamedValue& value : step.values) WriteValue(json, value);
  json.EndArray();
  if (step.plot) {
    json.Key("plot");
    WritePlot(json, *step.plot);
  }
  json.EndObject();
}

void WriteEcho(JsonWriter& json, const EchoStory& echo) {
  json.BeginObject();
  json.WholeMember("slot", echo.slot);
  json.Key("steps");
  json.BeginArray();
  for (const Step& step : echo.steps) WriteStep(json, step);
  json.EndArray();
  json.EndObject();
}

template <typename Name>
void WriteCounts(JsonWriter& json, Name name, const std::array<int, kEchoSlots>& counts) {
  json.BeginObject();
  json.TextMember("name", NameOf(name));
  json.TextMember("words", WordsOf(name));
  json.Key("echoes");
  json.BeginArray();
  for (const int count : counts) json.Whole(count);
  json.EndArray();
  json.EndObject();
}

void WriteRect(JsonWriter& json, const PixelRect& rect) {
  json.Key("rect");
  json.BeginArray();
  for (const int place : {rect.first_row, rect.first_col, rect.last_row, rect.last_col}) {
    json.Whole(place);
  }
  json.EndArray();
}

// Row by row the numbers of the fates in the table's list.
void WriteGrid(JsonWriter& json, const FrameStates& states, const PixelRect& rect, int slot) {
  json.BeginArray();
  for (int row = rect.first_row; row <= rect.last_row; ++row) {
    json.BeginArray();
    for (int col = rect.first_col; col <= rect.last_col; ++col) {
      json.Whole(static_cast<std::int64_t>(FateOf(states, row, col, slot)));
    }
    json.EndArray();
  }
  json.EndArray();
}

}  // namespace

void WriteJson(JsonWriter& json, const std::vector<PixelStory>& stories) {
  json.BeginArray();
  for (const PixelStory& story : stories) {
    json.BeginObject();
    json.WholeMember("row", story.row);
    json.WholeMember("col", story.col);
    json.Key("echoes");
    json.BeginArray();
    for (const EchoStory& echo : story.echoes) WriteEcho(json, echo);
    json.EndArray();
    json.EndObject();
  }
  json.EndArray();
}

void WriteJson(JsonWriter& json, const FateTable& table, const FrameStates& states) {
  json.BeginObject();
  WriteRect(json, table.rect);
  json.WholeMember("echoes", table.SumOfFates());
  json.Key("fates");
  json.BeginArray();
  for (std::size_t i = 0; i < kFates; ++i) {
    WriteCounts(json, static_cast<Fate>(i), table.fates[i]);
  }
  json.EndArray();
  json.Key("marks");
  json.BeginArray();
  for (std::size_t i = 0; i < kMarks; ++i) {
    WriteCounts(json, static_cast<Mark>(i), table.marks[i]);
  }
  json.EndArray();
  json.Key("grid");
  json.BeginArray();
  for (int slot = 0; slot < kEchoSlots; ++slot) WriteGrid(json, states, table.rect, slot);
  json.EndArray();
  json.EndObject();
}

void WriteJson(JsonWriter& json, const FateChanges& changes) {
  json.BeginObject();
  json.WholeMember("echoes", changes.echoes);
  json.WholeMember("changed", changes.changed);
  json.WholeMember("other_bytes", changes.other_bytes);
  json.Key("moves");
  json.BeginArray();
  VisitMoves(changes, [&json](Fate before, Fate after, int echoes) {
    json.BeginObject();
    json.TextMember("before", NameOf(before));
    json.TextMember("after", NameOf(after));
    json.WholeMember("echoes", echoes);
    json.EndObject();
  });
  json.EndArray();
  json.EndObject();
}

}  // namespace kerul::lidar::story
