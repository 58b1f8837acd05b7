#pragma once
// The injectable clock and sleeper: real ones in the programs, fake ones in tests.

#include <chrono>
#include <cstdint>
#include <ctime>

namespace quellor {

// A broken-down local date and time.
struct LocalTime {
  int year = 1970;
  int month = 1;  // 1..12
  int day = 1;    // 1..31
  int hour = 0;   // 0..23
  int minute = 0;
  int second = 0;
  int weekday = 4;  // 0 = Sunday
};

// Days since 1970-01-01 of a local date (for whole-day date arithmetic).
int64_t DayNumber(const LocalTime& t);

class Clock {
 public:
  virtual ~Clock() = default;
  // The present moment, seconds since the epoch.
  virtual std::time_t Now() const = 0;
  // The local date and time of a moment in the process's time zone.
  virtual LocalTime ToLocal(std::time_t t) const = 0;
  // Local time minus Greenwich time at a moment, in seconds.
  virtual long UtcOffset(std::time_t t) const = 0;

  LocalTime LocalNow() const { return ToLocal(Now()); }
};

// The process's clock and time zone (TZ).
class SystemClock : public Clock {
 public:
  std::time_t Now() const override;
  LocalTime ToLocal(std::time_t t) const override;
  long UtcOffset(std::time_t t) const override;
};

// A clock for tests: a settable moment and a fixed zone offset.
class FakeClock : public Clock {
 public:
  explicit FakeClock(std::time_t now = 0, long offset_seconds = 0)
      : now_(now), offset_(offset_seconds) {}
  std::time_t Now() const override { return now_; }
  LocalTime ToLocal(std::time_t t) const override;
  long UtcOffset(std::time_t) const override { return offset_; }

  // Sets the present moment from a local date and time.
  void SetLocal(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);
  void Set(std::time_t now) { now_ = now; }
  void Advance(std::chrono::seconds s) { now_ += s.count(); }
  void SetOffset(long offset_seconds) { offset_ = offset_seconds; }

 private:
  std::time_t now_;
  long offset_;
};

class Sleeper {
 public:
  virtual ~Sleeper() = default;
  virtual void Sleep(std::chrono::milliseconds ms) = 0;
};

// Really sleeps.
class RealSleeper : public Sleeper {
 public:
  void Sleep(std::chrono::milliseconds ms) override;
};

// Records sleeps without waiting; optionally advances a fake clock.
class RecordingSleeper : public Sleeper {
 public:
  explicit RecordingSleeper(FakeClock* clock = nullptr) : clock_(clock) {}
  void Sleep(std::chrono::milliseconds ms) override;
  int count() const { return count_; }
  std::chrono::milliseconds total() const { return total_; }
  void Reset() {
    count_ = 0;
    total_ = std::chrono::milliseconds{0};
  }

 private:
  FakeClock* clock_;
  long carry_ms_ = 0;  // milliseconds not yet moved onto the fake clock
  int count_ = 0;
  std::chrono::milliseconds total_{0};
};

}  // namespace quellor
