#include "support/scenario.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <string_view>

#include "platform/text.h"
#include "support/process.h"

namespace quellor::testing {

namespace fs = std::filesystem;

namespace {

// Blank-separated words; a word in double quotes keeps its blanks.
std::vector<std::string> Words(const std::string& line) {
  std::vector<std::string> words;
  std::istringstream in(line);
  for (std::string w; in >> std::quoted(w, '"', '\x7f');) words.push_back(w);
  return words;
}

}  // namespace

std::string Unescape(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      out += text[i];
    } else if (text[++i] == 'x') {
      out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      const size_t k = std::string_view("rnt0").find(text[i]);
      out += k == std::string_view::npos ? text[i] : std::string_view("\r\n\t\0", 4)[k];
    }
  }
  return out;
}

std::string Escape(const std::string& bytes) {
  std::string out;
  for (const char ch : bytes) {
    const unsigned char c = static_cast<unsigned char>(ch);
    const size_t k = std::string_view("\r\n\t\0\\", 5).find(ch);
    if (k != std::string_view::npos) {
      out += std::string("\\") + "rnt0\\"[k] + (ch == '\n' ? "\n" : "");
    } else if (c < 0x20 || c > 0x7e) {
      char hex[5];
      std::snprintf(hex, sizeof hex, "\\x%02X", c);
      out += hex;
    } else {
      out += ch;
    }
  }
  if (!out.empty() && out.back() != '\n') out += '\n';
  return out;
}

namespace {

// A file as the references show it: CR LF lines as lines, anything else escaped.
std::string Show(const std::string& path, const std::string& bytes) {
  if (bytes.size() > 65536) {
    uint64_t hash = 14695981039346656037ull;  // FNV-1a
    for (const char c : bytes) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ull;
    char sum[17];
    std::snprintf(sum, sizeof sum, "%016llx", static_cast<unsigned long long>(hash));
    return "=# " + path + " " + std::to_string(bytes.size()) + " bytes, FNV-1a " + sum + "\n" +
           Escape(bytes.substr(0, 256));
  }
  bool plain = bytes.empty() || bytes.ends_with("\r\n");
  for (size_t i = 0; plain && i < bytes.size(); ++i) {
    const char c = bytes[i];
    if (c == '\0' || (c == '\r' && bytes[i + 1] != '\n') || (c == '\n' && bytes[i - 1] != '\r'))
      plain = false;
  }
  if (!plain) return "=~ " + path + "\n" + Escape(bytes);
  std::string out = "== " + path + "\n";
  for (size_t at = 0, end; (end = bytes.find("\r\n", at)) != std::string::npos; at = end + 2)
    out += bytes.substr(at, end - at) + "\n";
  return out;
}

}  // namespace

std::string ScenarioName(const ::testing::TestParamInfo<std::string>& info) {
  std::string name = info.param;
  for (char& c : name) {
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  }
  return name;
}

std::vector<std::string> Scenario::Cases(const std::string& folder) {
  std::vector<std::string> cases;
  for (const auto& e :
       fs::directory_iterator(std::string(QUELLOR_SOURCE_DIR) + "/tests/data/" + folder)) {
    if (e.path().extension() == ".in") cases.push_back(e.path().stem().string());
  }
  std::sort(cases.begin(), cases.end());
  return cases;
}

namespace {

// The tree's lock file, which every pass opens: not part of what a case changes.
constexpr const char* kLockFile = ".quellor.lock";

// Every file and folder below the root (the lock file left out): a folder's name ends in "/", a
// symbolic link reads
// "@link <target>", anything else that is no regular file "@fifo".
std::map<std::string, std::string> Contents(const std::string& root) {
  std::map<std::string, std::string> out;
  for (const auto& e : fs::recursive_directory_iterator(root)) {
    const std::string rel = e.path().string().substr(root.size());
    if (rel == kLockFile) continue;
    if (e.is_symlink()) {
      out[rel] = "@link " + fs::read_symlink(e.path()).string();
    } else if (e.is_directory()) {
      out[rel + "/"] = "";
    } else {
      out[rel] = e.is_regular_file() ? ReadFile(e.path()) : "@fifo";
    }
  }
  return out;
}

}  // namespace

void Scenario::Snapshot() {
  before_.merge(Contents(tree_.root()));
}

std::string Scenario::Run(const std::string& in_path) {
  Snapshot();
  std::istringstream in(ReadFile(in_path));
  std::string file, bytes, last;
  bool raw = false;
  auto flush = [&] {
    if (file.empty()) return;
    file = fs::path(file).lexically_normal().string();
    tree_.Write(file, bytes);
    before_[file] = bytes;
    for (fs::path p = fs::path(file).parent_path(); !p.empty(); p = p.parent_path())
      before_[p.string() + "/"] = "";
    last = file;
    file.clear();
  };
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("#")) continue;
    if (line.starts_with("== ") || line.starts_with("=~ ")) {
      flush();
      file = line.substr(3);
      raw = line[1] == '~';
      bytes.clear();
    } else if (line.starts_with("@")) {
      flush();
      const std::vector<std::string> words = Words(line.substr(1));
      if (!words.empty() && words[0] == "fill") {
        // "@fill <size>": pads the file written last with "x" up to that many bytes.
        bytes = tree_.Read(last);
        bytes.resize(std::stoul(words.at(1)), 'x');
        file = last;
        flush();
      } else if (!words.empty() && (words[0] == "link" || words[0] == "fifo")) {
        // "@link <path> <target>" makes a symbolic link, "@fifo <path>" a FIFO.
        fs::remove(tree_.Path(words.at(1)));
        fs::create_directories(fs::path(tree_.Path(words[1])).parent_path());
        for (fs::path p = fs::path(words[1]).parent_path(); !p.empty(); p = p.parent_path())
          before_[p.string() + "/"] = "";
        if (words[0] == "link") {
          fs::create_symlink(words.at(2), tree_.Path(words[1]));
          before_[words[1]] = "@link " + words[2];
        } else {
          if (::mkfifo(tree_.Path(words[1]).c_str(), 0644) != 0) ADD_FAILURE() << line;
          before_[words[1]] = "@fifo";
        }
      } else if (!words.empty() && directives_.count(words[0])) {
        directives_[words[0]](tree_, words);
      } else {
        ADD_FAILURE() << "unknown directive " << line;
      }
    } else if (!file.empty()) {
      bytes += raw ? Unescape(line) : line + "\r\n";
    }
  }
  flush();
  return Changes();
}

std::string Scenario::Changes() const {
  const std::map<std::string, std::string> after = Contents(tree_.root());
  std::string out;
  for (const auto& [path, bytes] : before_) {
    if (!after.count(path)) out += "-- " + path + "\n";
  }
  for (const auto& [path, bytes] : after) {
    const auto old = before_.find(path);
    if (old != before_.end() && old->second == bytes) continue;
    out += path.ends_with("/") ? "== " + path + "\n" : Show(path, bytes);
  }
  // Paths in logs name the temporary root; the references name it "$ROOT/".
  return ReplaceAll(out, tree_.root(), "$ROOT/");
}

void Scenario::Check(const std::string& ref_path, const std::string& result) {
  if (std::getenv("QUELLOR_BLESS")) {
    std::ofstream(ref_path, std::ios::binary) << result;
    return;
  }
  EXPECT_EQ(ReadFile(ref_path), result) << "differs from " << ref_path;
}

std::string WindowText(const WindowModel& w) {
  std::string out;
  std::istringstream counter_names(
      "Forward Learn Ignore Validations purged invalid todayforward todaylearn todayignore "
      "todayvalidations todaypurged todayinvalid total kelpo");
  for (const Counter* counter :
       {&w.Forward, &w.Learn, &w.Ignore, &w.Validations, &w.purged, &w.invalid, &w.todayforward,
        &w.todaylearn, &w.todayignore, &w.todayvalidations, &w.todaypurged, &w.todayinvalid,
        &w.total, &w.kelpo}) {
    std::string name;
    counter_names >> name;
    if (counter->text() != "0") out += name + "=" + counter->text() + "\n";
  }
  std::istringstream list_names("List1 List2 List3 purgedlist domainlist outlist File1");
  for (const ListModel* list :
       {&w.List1, &w.List2, &w.List3, &w.purgedlist, &w.domainlist, &w.outlist, &w.File1}) {
    std::string name;
    list_names >> name;
    const auto& items = list->items();
    for (size_t i = 0, n; i < items.size(); i += n) {
      for (n = 1; i + n < items.size() && items[i + n] == items[i];) ++n;
      out += name + ": " + items[i] + (n > 1 ? " (" + std::to_string(n) + " times)\n" : "\n");
    }
  }
  return out;
}

}  // namespace quellor::testing
