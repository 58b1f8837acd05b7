#include "support/table.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <exception>
#include <fstream>
#include <sstream>

#include "platform/errors.h"
#include "support/scenario.h"

namespace quellor::testing {

namespace {

// The escaped form on one line.
std::string Field(const std::string& bytes) {
  std::string out;
  for (const char c : Escape(bytes)) {
    if (c != '\n') out += c;
  }
  return out;
}

}  // namespace

void CheckTable(const std::string& name,
                const std::function<std::string(const std::vector<std::string>&)>& f) {
  const std::string path = std::string(QUELLOR_SOURCE_DIR) + "/tests/data/tables/" + name + ".tsv";
  std::ifstream in(path, std::ios::binary);
  ASSERT_TRUE(in) << "no table " << path;
  const bool bless = std::getenv("QUELLOR_BLESS") != nullptr;
  std::string blessed;
  int number = 0, cases = 0;
  for (std::string line; std::getline(in, line);) {
    ++number;
    if (line.empty() || line[0] == '#') {
      blessed += line + "\n";
      continue;
    }
    std::vector<std::string> fields;
    std::istringstream split(line);
    for (std::string field; std::getline(split, field, '\t');) fields.push_back(Unescape(field));
    if (line.back() == '\t') fields.emplace_back();
    ASSERT_GE(fields.size(), 2u) << path << ":" << number << ": no expected field";
    const std::string want = fields.back();
    fields.pop_back();
    std::string got;
    try {
      got = f(fields);
    } catch (const RuntimeError& e) {
      got = "!" + std::to_string(e.number()) + " " + e.what();
    } catch (const std::exception& e) {
      got = std::string("!") + e.what();
    }
    ++cases;
    blessed += line.substr(0, line.rfind('\t') + 1) + Field(got) + "\n";
    if (!bless) {
      EXPECT_EQ(Field(got), Field(want)) << path << ":" << number;
    }
  }
  EXPECT_GT(cases, 0) << path;
  if (bless) std::ofstream(path, std::ios::binary) << blessed;
}

void CheckFunctions(const std::string& name,
                    const std::map<std::string, TableFunction>& functions) {
  CheckTable(name, [&](const std::vector<std::string>& f) -> std::string {
    const auto it = functions.find(f[0]);
    if (it == functions.end()) return "!no function " + f[0];
    return it->second(std::vector<std::string>(f.begin() + 1, f.end()));
  });
}

int ErrorOf(const std::function<void()>& f) {
  try {
    f();
  } catch (const RuntimeError& e) {
    return e.number();
  }
  return 0;
}

}  // namespace quellor::testing
