// Fills an installation tree for the whole-pass benchmark: 1,000 users of bench.test (a quarter
// without configuration, a quarter in learn mode, half in protection mode with a white list)
// and N message pairs in IN/ of 2 to 50 KiB, whose recipients are forwarded, learned,
// white-listed or held and challenged in equal shares; one message in five has a second
// recipient. The same seed gives the same tree.
//
//   bench_make_spool ROOT N DATE [SEED]      (DATE: yyyymmdd, the first 8 digits of every name)
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int kUsers = 1000;
constexpr int kFriends = 10;      // white-list entries of a protected user
constexpr int kStrangers = 4000;  // senders nobody listed

std::string User(int i) {
  char name[32];
  std::snprintf(name, sizeof name, "u%04d@bench.test", i);
  return name;
}
std::string Friend(int user, int j) {
  char name[64];
  std::snprintf(name, sizeof name, "f%d.%d@friends.test", j, user);
  return name;
}
std::string Stranger(int k) {
  char name[48];
  std::snprintf(name, sizeof name, "s%d@strangers.test", k);
  return name;
}

void WriteLines(const std::string& path, const std::vector<std::string>& lines) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  for (const auto& line : lines) out << line << "\r\n";
  if (!out) {
    std::cerr << "cannot write " << path << '\n';
    std::exit(1);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::cerr << "usage: bench_make_spool ROOT N DATE [SEED]\n";
    return 2;
  }
  std::string root = argv[1];
  if (root.back() != '/') root += '/';
  const long n = std::atol(argv[2]);
  const std::string date = argv[3];
  std::mt19937_64 rng(argc > 4 ? std::strtoull(argv[4], nullptr, 10) : 1);
  auto pick = [&rng](int below) { return static_cast<int>(rng() % static_cast<unsigned>(below)); };

  WriteLines(root + "DOMAIN.LST", {"bench.test"});
  // Users 0-249: no configuration (forward); 250-499: learn; 500-999: protection.
  for (int u = kUsers / 4; u < kUsers; ++u) {
    const bool learn = u < kUsers / 2;
    WriteLines(root + "Users/" + User(u) + ".CONF", {learn ? "MODE=LEARN" : "MODE=QUELLOR"});
    if (!learn) {
      std::vector<std::string> friends;
      for (int j = 0; j < kFriends; ++j) friends.push_back(Friend(u, j));
      std::sort(friends.begin(), friends.end());
      WriteLines(root + "Users/" + User(u) + ".WLT", friends);
    }
  }

  static const char kLetters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789 ";
  long recipients = 0;
  long long bytes = 0;
  for (long i = 0; i < n; ++i) {
    char stem[32];
    std::snprintf(stem, sizeof stem, "%s%09ld", date.c_str(), i);
    std::string sender, recipient;
    switch (pick(4)) {
      case 0:  // forward
        recipient = User(pick(kUsers / 4));
        sender = Stranger(pick(kStrangers));
        break;
      case 1:  // learn
        recipient = User(kUsers / 4 + pick(kUsers / 4));
        sender = Stranger(pick(kStrangers));
        break;
      case 2: {  // white-listed
        const int u = kUsers / 2 + pick(kUsers / 2);
        recipient = User(u);
        sender = Friend(u, pick(kFriends));
        break;
      }
      default:  // held and challenged
        recipient = User(kUsers / 2 + pick(kUsers / 2));
        sender = Stranger(pick(kStrangers));
        break;
    }
    std::vector<std::string> envelope = {sender, recipient};
    if (pick(5) == 0) envelope.push_back(User(pick(kUsers)));
    recipients += static_cast<long>(envelope.size()) - 1;

    const size_t size = 2048 + static_cast<size_t>(pick(48 * 1024 + 1));
    std::string message = "From: <" + sender + ">\r\nTo: <" + recipient + ">\r\nSubject: Message " +
                          std::to_string(i) + "\r\nDate: Mon, 23 Nov 2026 09:00:00 +0000\r\n" +
                          "Message-ID: <" + stem + "@bench.test>\r\nMIME-Version: 1.0\r\n" +
                          "Content-Type: text/plain; charset=us-ascii\r\n\r\n";
    while (message.size() + 78 <= size) {
      for (int c = 0; c < 76; ++c) message += kLetters[pick(sizeof kLetters - 1)];
      message += "\r\n";
    }
    message.resize(std::max(message.size(), size), '.');
    bytes += static_cast<long long>(message.size());
    // Message file first, envelope last, as the mail server writes them.
    std::ofstream(root + "IN/" + stem + ".EML", std::ios::binary) << message;
    WriteLines(root + "IN/" + stem + ".WAI", envelope);
  }
  std::cout << n << " pairs, " << recipients << " recipients, " << bytes / (1024 * 1024)
            << " MiB\n";
  return 0;
}
