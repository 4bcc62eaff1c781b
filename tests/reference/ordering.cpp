#include "reference/ordering.h"

namespace reference {

EchoOutputPlan MakePlan(int echo_num, int echo_output_code) {
  EchoOutputPlan plan;
  plan.count = 1;
  plan.first = 1;
  plan.second = 1;
  if (echo_num == 1) return plan;
  if (echo_output_code <= 9) {
    if (echo_output_code >= 1 && echo_output_code <= 4) plan.first = echo_output_code;
    return plan;
  }
  if (echo_output_code > 99) return plan;
  const int t = echo_output_code / 10;
  const int u = echo_output_code % 10;
  if (t < 1 || t > 4) return plan;
  if (u < 1 || u > 4) return plan;
  plan.count = 2;
  plan.first = t;
  plan.second = u;
  return plan;
}

void Prime(LidarFrame& frame, int m_row) {
  for (int row = m_row * 6; row <= m_row * 6 + 5; ++row) {
    for (LidarPoint& point : frame.points[static_cast<std::size_t>(row)]) {
      for (int slot = 0; slot < LidarPoint::echo_num; ++slot) {
        point.echoes[slot].dist_proc = point.echoes[slot].dist_raw;
        point.echoes[slot].refl_proc = point.echoes[slot].refl_raw;
      }
    }
  }
}

namespace {

struct Published {
  float dist_proc;
  float refl_proc;
  float cogh;
  float cogw;
  float cogw_high;
  float peak;
  float noise;
};

Published Read(const LidarEcho& e) {
  return Published{e.dist_proc, e.refl_proc, e.cogh, e.cogw, e.cogw_high, e.peak, e.noise};
}

void Write(const Published& from, LidarEcho& e) {
  e.dist_proc = from.dist_proc;
  e.refl_proc = from.refl_proc;
  e.cogh = from.cogh;
  e.cogw = from.cogw;
  e.cogw_high = from.cogw_high;
  e.peak = from.peak;
  e.noise = from.noise;
}

// The slots of the preferred and of the other echo.
struct Preference {
  int preferred;
  int other;
};

Preference Prefer(const LidarPoint& point) {
  const LidarEcho& e0 = point.echoes[0];
  const LidarEcho& e1 = point.echoes[1];
  const bool valid0 = e0.dist_proc > 0.0F;
  const bool valid1 = e1.dist_proc > 0.0F && e1.peak > 15.0F;
  if (valid0 && valid1) {
    if (e0.highReflBlooming && !e1.highReflBlooming) return Preference{1, 0};
    if (!e0.highReflBlooming && e1.highReflBlooming) return Preference{0, 1};
    if (e1.dist_proc < e0.dist_proc) return Preference{1, 0};
    return Preference{0, 1};
  }
  if (valid0) return Preference{0, 0};
  if (valid1) return Preference{1, 1};
  return Preference{0, 1};
}

int SlotOf(int selector, const Preference& preference) {
  if (selector == 2) return preference.other;
  if (selector == 3) return 0;
  if (selector == 4) return 1;
  return preference.preferred;
}

}  // namespace

void OrderRowEchoes(LidarFrame& frame, int m_row, const EchoOutputPlan& plan) {
  for (int row = m_row * 6; row <= m_row * 6 + 5; ++row) {
    for (LidarPoint& point : frame.points[static_cast<std::size_t>(row)]) {
      const Preference preference = Prefer(point);
      const Published first = Read(point.echoes[SlotOf(plan.first, preference)]);
      const Published second = Read(point.echoes[SlotOf(plan.second, preference)]);
      Write(first, point.echoes[0]);
      if (plan.count >= 2) Write(second, point.echoes[1]);
    }
  }
}

}  // namespace reference
