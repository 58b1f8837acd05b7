#include "core/context.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "platform/fs.h"

namespace quellor {

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

double Context::Rnd() {
  // 53 random bits give a uniform number in [0, 1).
  return static_cast<double>(rng_() >> 11) * (1.0 / 9007199254740992.0);
}

}  // namespace quellor
