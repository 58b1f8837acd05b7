#include "core/context.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "platform/folder_listing.h"
#include "platform/fs.h"

namespace quellor {

namespace {
// A whole number of decimal digits from `least` to 32767; `otherwise` for anything else.
int WholeNumber(const std::string& text, int least, int otherwise) {
  if (text.empty() || text.size() > 5) return otherwise;
  int value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return otherwise;
    value = value * 10 + (c - '0');
  }
  return value >= least && value <= 32767 ? value : otherwise;
}
}  // namespace

int Settings::MessagesPerPass() const {
  return WholeNumber(messages_per_pass, 1, 40);
}

int16_t Settings::MessagePauseMs() const {
  return static_cast<int16_t>(WholeNumber(message_pause, 0, 100));
}

std::string WithTrailingSlash(std::string root) {
  // A relative root is made absolute and normal, so no path of ours holds "." or "..".
  if (!root.empty()) {
    std::error_code ec;
    auto absolute = std::filesystem::absolute(root, ec);
    if (!ec) root = absolute.lexically_normal().string();
  }
  if (root.empty() || root.back() != '/') root += '/';
  return root;
}

std::string RootFromEnvironment() {
  const char* env = std::getenv("QUELLOR_ROOT");
  return WithTrailingSlash(env && *env ? env : "/var/spool/quellor/");
}

Context::Context(std::string root_path, Clock& clock_ref, Sleeper& sleeper_ref)
    : root(WithTrailingSlash(std::move(root_path))), clock(clock_ref), sleeper(sleeper_ref) {
  ConfineToRoot(root);
}

std::string Context::Path(std::string_view relative) const {
  return root + std::string(relative);
}

void Context::Journal(const std::string& line) {
  if (journal) {
    journal(line);
  } else {
    std::fprintf(stderr, "%s\n", line.c_str());
  }
}

void Context::NoteFlushed(const std::string& path) {
  if (!written) return;
  std::erase(written->files, path);
  const auto slash = path.find_last_of('/');
  if (slash != std::string::npos && slash > 0) written->entry_folders.insert(path.substr(0, slash));
}

FolderListing& Context::input_listing() {
  if (!input_listing_) input_listing_ = std::make_shared<FolderListing>(Path("IN"), "*.EML");
  return *input_listing_;
}

double Context::Rnd() {
  // 53 random bits give a uniform number in [0, 1).
  return static_cast<double>(rng_() >> 11) * (1.0 / 9007199254740992.0);
}

}  // namespace quellor
