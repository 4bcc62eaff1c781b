// Makes the memory run out for a test: in this thread, from the allocation that it names on.
#pragma once

namespace kerul::lidar::testing {

class FailingNew {
 public:
  // The first `successes` allocations of this thread still succeed.
  explicit FailingNew(int successes) noexcept;
  ~FailingNew();
  FailingNew(const FailingNew&) = delete;
  FailingNew& operator=(const FailingNew&) = delete;
  // Whether an allocation has failed.
  bool Struck() const noexcept;
};

}  // namespace kerul::lidar::testing
