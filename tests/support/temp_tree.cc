#include "support/temp_tree.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "platform/names.h"
#include "support/process.h"

namespace quellor::testing {

namespace {
std::string MakeRoot(bool in_memory) {
  const char* base = std::getenv("TMPDIR");
  if (in_memory && access("/dev/shm", W_OK) == 0) base = "/dev/shm";
  std::string tmpl = std::string(base ? base : "/tmp") + "/quellor-test-XXXXXX";
  if (!mkdtemp(tmpl.data())) throw std::runtime_error("mkdtemp failed");
  return tmpl + "/";
}
}  // namespace

TempTree::TempTree(bool in_memory)
    : clock(0, 3600), sleeper(&clock), ctx(MakeRoot(in_memory), clock, sleeper), root_(ctx.root) {
  clock.SetLocal(2026, 11, 16, 10, 0, 0);
  for (const char* d :
       {"IN", "LOCAL", "OUT", "WAIT", "DEBUG", "Users", "SYSTEM", "LOG", "LOG/quellor"}) {
    std::filesystem::create_directories(root_ + d);
  }
  ForgetNameIndexes();
}

TempTree::~TempTree() {
  std::error_code ec;
  std::filesystem::remove_all(root_, ec);
  ForgetNameIndexes();
}

void TempTree::Write(std::string_view relative, std::string_view bytes) const {
  std::filesystem::path p(Path(relative));
  std::filesystem::create_directories(p.parent_path());
  std::ofstream out(p, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

void TempTree::WriteLines(std::string_view relative, const std::vector<std::string>& lines) const {
  std::string bytes;
  for (const auto& l : lines) bytes += l + "\r\n";
  Write(relative, bytes);
}

std::string TempTree::Read(std::string_view relative) const {
  return ReadFile(Path(relative));
}

std::vector<std::string> TempTree::ReadLines(std::string_view relative) const {
  const std::string bytes = Read(relative);
  std::vector<std::string> lines;
  for (size_t at = 0, end; at < bytes.size(); at = end + 2) {
    end = std::min(bytes.find("\r\n", at), bytes.size());
    lines.push_back(bytes.substr(at, end - at));
  }
  return lines;
}

bool TempTree::Exists(std::string_view relative) const {
  struct stat st;
  return ::stat(Path(relative).c_str(), &st) == 0;
}

void TempTree::MakeFolder(std::string_view relative) const {
  std::filesystem::create_directories(Path(relative));
}

void TempTree::Remove(std::string_view relative) const {
  std::error_code ec;
  std::filesystem::remove_all(Path(relative), ec);
}

std::vector<std::string> TempTree::List(std::string_view relative) const {
  std::vector<std::string> names;
  std::error_code ec;
  for (const auto& e : std::filesystem::directory_iterator(Path(relative), ec)) {
    names.push_back(e.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace quellor::testing
