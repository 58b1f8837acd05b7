// The floor of the whole-pass benchmark: the least work any delivery of the input queue must do.
// For every pair of IN/, oldest name first: one copy of the message and a two-line envelope in
// LOCAL/ per recipient line, then the pair is deleted. With --fsync, the copies and LOCAL/ are
// flushed to the disk before the pair is deleted, as a delivery that never loses mail must.
//
//   bench_copy_floor ROOT [--fsync]
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

void Sync(const fs::path& path, int flags) {
  const int fd = ::open(path.c_str(), flags | O_CLOEXEC);
  if (fd >= 0) {
    ::fsync(fd);
    ::close(fd);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: bench_copy_floor ROOT [--fsync]\n";
    return 2;
  }
  const fs::path root = argv[1];
  const bool durable = argc > 2 && std::string(argv[2]) == "--fsync";
  const fs::path in = root / "IN";
  const fs::path local = root / "LOCAL";

  std::vector<std::string> queue;
  for (const auto& entry : fs::directory_iterator(in)) {
    const std::string name = entry.path().filename().string();
    if (name.size() > 4 && name.ends_with(".EML")) queue.push_back(name.substr(0, name.size() - 4));
  }
  std::sort(queue.begin(), queue.end());

  long copies = 0;
  for (const std::string& stem : queue) {
    std::ifstream envelope(in / (stem + ".WAI"), std::ios::binary);
    std::string sender, line;
    std::getline(envelope, sender);
    if (!sender.empty() && sender.back() == '\r') sender.pop_back();
    while (std::getline(envelope, line)) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      if (line.empty()) continue;
      const std::string id = std::to_string(++copies);
      std::ofstream(local / (id + ".WAI"), std::ios::binary) << sender << "\r\n" << line << "\r\n";
      fs::copy_file(in / (stem + ".EML"), local / (id + ".EML"));
      if (durable) {
        Sync(local / (id + ".WAI"), O_RDONLY);
        Sync(local / (id + ".EML"), O_RDONLY);
      }
    }
    if (durable) Sync(local, O_RDONLY | O_DIRECTORY);
    fs::remove(in / (stem + ".EML"));
    fs::remove(in / (stem + ".WAI"));
  }
  std::cout << queue.size() << " pairs, " << copies << " copies\n";
  return 0;
}
