#include "MIPI_reader/parser/echo_computation.h"

#include "MIPI_reader/parser/echo_computation_scalar.h"

namespace kerul::lidar {
namespace {

using namespace echo_computation;

// The node tells nobody what it decides. All of it compiles to nothing.
struct NoTeller {
  static void HeadRise(const HeadRise&) noexcept {}
  static void RisePulse(const RisePulse&) noexcept {}
  static void Rise(const BaselineRise&) noexcept {}
  static void Clip(const SidePeakClip&) noexcept {}
  static void Shape(const PulseShape&) noexcept {}
  static void Detection(const Detection&) noexcept {}
  static void Crossings(const Edges&) noexcept {}
  static void LowWidth(const LowWidth&) noexcept {}
  static void HighWidthWish(const HighWidthWish&) noexcept {}
  static void HighWidth(const HighWidth&) noexcept {}
  static void RawRange(const RawRange&) noexcept {}
  static void WidePulse(const WidePulse&) noexcept {}
};

}  // namespace

void ComputeEcho(const EchoSettings& settings, const std::uint16_t* samples, LidarPoint& point,
                 int echo) noexcept {
  NoTeller nobody;
  ComputeEcho(settings, samples, point, echo, nobody);
}

}  // namespace kerul::lidar
