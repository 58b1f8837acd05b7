// The text, number, date and error helpers; most cases are rows of tests/data/tables/text.tsv.
#include "platform/text.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/guard.h"
#include "platform/names.h"
#include "platform/regional.h"
#include "support/table.h"

namespace quellor {
namespace {

using Fields = std::vector<std::string>;

std::string Number(double v) {
  std::ostringstream out;
  out << v;
  return out.str();
}

// "Y M D h m s" at a UTC offset, in every regional form.
std::string Regional(const std::string& when, long offset) {
  int y, mo, d, h, mi, s;
  std::istringstream(when) >> y >> mo >> d >> h >> mi >> s;
  FakeClock clock(0, offset);
  clock.SetLocal(y, mo, d, h, mi, s);
  const LocalTime t = clock.LocalNow();
  const int64_t day = DayNumber(t);
  clock.Advance(std::chrono::seconds(1));
  const LocalTime next = clock.LocalNow();
  return GeneralDateTime(t) + " | " + DayFileName(t) + " | " + CompactDate(t) + CompactTime(t) +
         " | " + StartTimeText(t) + " | " + DayAbbrev(t.weekday) +
         " | a second on: " + ShortDate(next) +
         (DayNumber(next) == day + 1 ? ", the next day" : "");
}

TEST(TextFunctions, Table) {
  const std::map<std::string, int> errnos = {
      {"ENOSPC", ENOSPC}, {"EACCES", EACCES}, {"EEXIST", EEXIST}};
  testing::CheckFunctions(
      "text",
      {{"UCase", [](const Fields& f) { return UCase(f[0]); }},
       {"LCase", [](const Fields& f) { return LCase(f[0]); }},
       {"Trim", [](const Fields& f) { return Trim(f[0]); }},
       {"LTrim", [](const Fields& f) { return LTrim(f[0]); }},
       {"RTrim", [](const Fields& f) { return RTrim(f[0]); }},
       {"InStr",
        [](const Fields& f) {
          return std::to_string(InStr(f[0], f[1], f.size() > 2 ? std::stoul(f[2]) : 1));
        }},
       {"InStrNoCase", [](const Fields& f) { return std::to_string(InStrNoCase(f[0], f[1])); }},
       {"InStrRev", [](const Fields& f) { return std::to_string(InStrRev(f[0], f[1])); }},
       {"ReplaceAll", [](const Fields& f) { return ReplaceAll(f[0], f[1], f[2]); }},
       {"Val", [](const Fields& f) { return Number(Val(f[0])); }},
       {"CInt16", [](const Fields& f) { return std::to_string(CInt16(std::stod(f[0]))); }},
       {"DecimalText", [](const Fields& f) { return DecimalText(std::stod(f[0])); }},
       {"SignedText", [](const Fields& f) { return SignedText(std::stol(f[0])); }},
       {"Utf8ToCp1252", [](const Fields& f) { return Utf8ToCp1252(f[0]); }},
       {"Cp1252ToUtf8", [](const Fields& f) { return Cp1252ToUtf8(f[0]); }},
       {"ToCp1252", [](const Fields& f) { return ToCp1252(f[0], f[1].c_str()); }},
       {"ErrorDescription", [](const Fields& f) { return ErrorDescription(std::stoi(f[0])); }},
       {"ErrorNumberFromErrno",
        [&](const Fields& f) { return std::to_string(ErrorNumberFromErrno(errnos.at(f[0]))); }},
       {"Regional", [](const Fields& f) { return Regional(f[0], std::stol(f[1])); }},
       {"MatchesPattern",
        [](const Fields& f) { return MatchesPattern(f[0], f[1]) ? "match" : "no"; }},
       {"NameLess", [](const Fields& f) { return NameLess(f[0], f[1]) ? "less" : "no"; }}});
}

TEST(GuardTest, LogsAndCarriesOn) {
  std::vector<std::string> lines;
  int marker = 3;
  Guard guard(
      [&](const std::string& label, int n, const std::string& d) {
        lines.push_back(label + "|" + std::to_string(n) + "|" + d);
      },
      std::function<std::string()>([&] { return "Q - errseek =" + std::to_string(marker); }));
  EXPECT_FALSE(guard([] { Raise(kErrFileNotFound); }));
  marker = 14;
  EXPECT_FALSE(guard([] { throw std::out_of_range("x"); }));
  int reached = 0;
  EXPECT_TRUE(guard([&] { ++reached; }));
  EXPECT_EQ(reached, 1);
  EXPECT_EQ(lines, (std::vector<std::string>{"Q - errseek =3|53|File not found",
                                             "Q - errseek =14|9|Subscript out of range"}));
  EXPECT_EQ(guard.last_number(), 9);
}

}  // namespace
}  // namespace quellor
