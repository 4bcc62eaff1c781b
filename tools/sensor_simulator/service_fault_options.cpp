#include "sensor_simulator/service_fault_options.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "support/number_options.h"

namespace kerul::lidar::simulator {
namespace {

const std::map<std::string, std::uint16_t> kRegisters = {{"head", kServiceHeadRegister},
                                                         {"main", kServiceMainRegister}};
const std::map<std::string, StallPhase> kStalls = {{"accept", StallPhase::kAfterAccept},
                                                   {"header", StallPhase::kBeforeHeader},
                                                   {"body", StallPhase::kInBody}};

// Far more than any read asks for, and no reason to run out of memory.
constexpr int kMostFrontBytes = 1 << 20;
// The longest read that a request can ask for.
constexpr int kMostDataBytes = 0xFFFF;
constexpr int kNoLimit = std::numeric_limits<int>::max();

// The number that four hexadecimal digits name.
bool ParseMagic(const std::string& text, std::uint16_t& value) {
  const char* end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data(), end, value, 16);
  return text.size() == 4 && status == std::errc{} && stop == end;
}

const CLI::Validator kMagic(
    [](std::string& text) {
      std::uint16_t ignored = 0;
      return ParseMagic(text, ignored) ? std::string() : "not four hexadecimal digits: " + text;
    },
    "HHHH");

// Options of one group that all need another one.
class OptionGroup {
 public:
  OptionGroup(CLI::App& app, CLI::Option* needed) : app_(app), needed_(needed) {}

  template <class Value>
  CLI::Option* Add(const char* name, Value& value, const char* text) {
    return Place(app_.add_option(name, value, text));
  }
  template <class Function>
  CLI::Option* AddText(const char* name, Function take, const char* text) {
    return Place(app_.add_option_function<std::string>(name, take, text));
  }
  CLI::Option* AddFlag(const char* name, bool& value, const char* text) {
    return Place(app_.add_flag(name, value, text));
  }
  // A word that stands for a value.
  template <class Value, class Member>
  CLI::Option* AddWord(const char* name, const std::map<std::string, Value>& words, Member& member,
                       const char* text) {
    std::vector<std::string> names;
    for (const auto& [word, ignored] : words) names.push_back(word);
    return AddText(
               name, [&words, &member](const std::string& word) { member = words.at(word); }, text)
        ->check(CLI::IsMember(names));
  }

 private:
  CLI::Option* Place(CLI::Option* option) const {
    return option->needs(needed_)->group("Faults of the command service");
  }

  CLI::App& app_;
  CLI::Option* needed_;
};

void AddPlaceOptions(OptionGroup& group, ServiceFaults& faults) {
  group
      .Add("--rcx-connection", faults.on_connection,
           "Only this connection is faulty, counted from 0; a node makes one for the head, one for "
           "the main read")
      ->check(WholeNumber(0, kNoLimit));
  group.AddWord("--rcx-register", kRegisters, faults.on_register,
                "Only answers of this register are faulty");
  group
      .Add("--rcx-exchange", faults.on_exchange,
           "Only this answer is faulty, counted from 0 by register and connection; at main the "
           "number of the page")
      ->check(WholeNumberOf(faults.on_exchange));
}

void AddSilenceOptions(OptionGroup& group, ServiceFaults& faults) {
  group.AddWord("--rcx-stall", kStalls, faults.stall,
                "Fall silent: accept before any request is read, header before the answer, body "
                "half way through its data");
  group
      .Add("--rcx-close-after", faults.close_after_bytes,
           "Close the connection when so many bytes were sent")
      ->check(WholeNumber(0, kNoLimit));
  group.AddFlag("--rcx-close-unanswered", faults.close_before_answer,
                "Read the request and close the connection");
  group
      .Add("--rcx-header-piece", faults.header_piece_bytes,
           "Send the 8 bytes in front of the data in pieces of so many bytes")
      ->check(WholeNumber(1, 8));
  group
      .Add("--rcx-body-piece", faults.body_piece_bytes, "Send the data in pieces of so many bytes")
      ->check(WholeNumber(1, kMostDataBytes));
  group.Add("--rcx-piece-gap", faults.piece_gap_ms, "Wait so many milliseconds after each piece")
      ->check(WholeNumber(0, 60'000));
}

void AddContentOptions(OptionGroup& group, ServiceFaults& faults) {
  const auto take_magic = [&faults](const std::string& text) {
    std::uint16_t value = 0;
    ParseMagic(text, value);
    faults.magic = {static_cast<std::uint8_t>(value >> 8U), static_cast<std::uint8_t>(value)};
  };
  group
      .AddText("--rcx-magic", take_magic, "Begin answers with these two bytes; right is 4774 (Gt)")
      ->check(kMagic);
  group.Add("--rcx-command", faults.command, "Command byte of answers; right is 0xFF")
      ->check(WholeNumber(0, 255));
  group.Add("--rcx-return-code", faults.return_code, "Answer with this error code")
      ->check(WholeNumber(1, 255));
  group
      .Add("--rcx-announce", faults.announced_length,
           "Announce so many bytes of data, whatever is sent")
      ->check(WholeNumberOf(faults.announced_length));
  group.Add("--rcx-front-bytes", faults.front_bytes, "Put so many bytes in front of the data")
      ->check(WholeNumber(0, kMostFrontBytes));
  group
      .Add("--rcx-missing-bytes", faults.missing_bytes,
           "Leave so many bytes away at the end of the data")
      ->check(WholeNumber(0, kMostDataBytes));
  CLI::Option* flip_at =
      group.Add("--rcx-flip-at", faults.flip_at, "Flip bits in this byte of the data")
          ->check(WholeNumber(0, kMostDataBytes));
  group
      .Add("--rcx-flip-mask", faults.flip_mask,
           "The bits that --rcx-flip-at flips; the lowest one when not given")
      ->check(WholeNumber(1, 255))
      ->needs(flip_at);
  group.AddFlag("--rcx-blank", faults.blank,
                "The sensor's memory was never written: all bytes 0xFF");
}

}  // namespace

void AddServiceFaultOptions(CLI::App& app, CLI::Option* rcx_port, ServiceFaults& faults) {
  OptionGroup group(app, rcx_port);
  AddPlaceOptions(group, faults);
  AddSilenceOptions(group, faults);
  AddContentOptions(group, faults);
}

}  // namespace kerul::lidar::simulator
