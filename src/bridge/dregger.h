#pragma once
// The delivery service's work: hands every complete LOCAL/ and OUT/ pair to Postfix and deletes
// it only once Postfix accepted it; a pair Postfix refused is tried again later.

#include <ctime>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace quellor::bridge {

// Hands one message to the mail server. `sender` "" is the null sender.
class Submitter {
 public:
  virtual ~Submitter() = default;
  // True once the mail server has taken the message; otherwise `error` says why.
  virtual bool Submit(const std::string& sender, const std::string& recipient,
                      const std::string& message, std::string* error) = 0;
};

// Postfix's sendmail command: "sendmail [-C DIR] -G -i -f SENDER -- RECIPIENT". Mail submitted
// this way enters through pickup(8), which the filter does not watch, so it never comes back.
class SendmailSubmitter : public Submitter {
 public:
  SendmailSubmitter(std::string sendmail, std::string config_dir)
      : sendmail_(std::move(sendmail)), config_dir_(std::move(config_dir)) {}
  bool Submit(const std::string& sender, const std::string& recipient, const std::string& message,
              std::string* error) override;

 private:
  std::string sendmail_;
  std::string config_dir_;
};

struct DreggerOptions {
  std::string root;         // installation root, with trailing "/"
  std::string null_sender;  // the address quellor-receive writes for the null sender
  std::string hostname;     // right-hand side of the requests' Message-IDs
};

class Dregger {
 public:
  // `log` receives one line per delivery problem.
  Dregger(DreggerOptions options, Submitter& submitter,
          std::function<void(const std::string&)> log);

  // Hands over every complete pair that is due, oldest name first, LOCAL/ before OUT/. Returns
  // how many pairs left the spool.
  int RunOnce(std::time_t now);
  // Seconds until the earliest retry is due (-1 when nothing waits for a retry).
  long SecondsToNextRetry(std::time_t now) const;

 private:
  // Handles one pair; true when it left the spool.
  bool Handle(const std::string& folder, const std::string& wai, const std::string& eml,
              std::time_t now);
  void Defer(const std::string& key, std::time_t now, const std::string& why);

  DreggerOptions options_;
  Submitter& submitter_;
  std::function<void(const std::string&)> log_;
  struct Retry {
    std::time_t due = 0;
    long delay = 0;
  };
  std::map<std::string, Retry> retries_;  // by "FOLDER/stem"
};

}  // namespace quellor::bridge
