#pragma once
// Runs the quellor program with extra environment variables and reads its standard error.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

extern char** environ;

namespace quellor::testing {

class Program {
 public:
  Program(std::vector<std::string> args, const std::map<std::string, std::string>& env) {
    args.insert(args.begin(), std::string(QUELLOR_BINARY_DIR) + "/quellor");
    std::vector<std::string> vars;
    for (char** e = environ; *e; ++e) {
      const std::string var = *e;
      if (!env.count(var.substr(0, var.find('=')))) vars.push_back(var);
    }
    for (const auto& [name, value] : env) vars.push_back(name + "=" + value);
    std::vector<char*> argv, envp;
    for (std::string& a : args) argv.push_back(a.data());
    for (std::string& v : vars) envp.push_back(v.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 2);
    if (posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), envp.data()) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    err_fd_ = fds[0];
  }
  ~Program() {
    if (pid_ > 0) kill(pid_, SIGKILL), Wait();
    close(err_fd_);
  }

  bool started() const { return pid_ > 0; }
  void Signal(int signal_number) const { kill(pid_, signal_number); }
  const std::string& error_text() const { return stderr_; }

  // Reads standard error until `text` appears or the time runs out.
  bool WaitForError(const std::string& text, std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (stderr_.find(text) == std::string::npos) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          end - std::chrono::steady_clock::now());
      if (left.count() <= 0 || !ReadSome(static_cast<int>(left.count()))) return false;
    }
    return true;
  }

  // Waits for the end; returns the exit status (-1 when a signal ended the program).
  int Wait() {
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    while (ReadSome(0)) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  bool ReadSome(int timeout_ms) {
    pollfd p{err_fd_, POLLIN, 0};
    char buffer[4096];
    const ssize_t n = poll(&p, 1, timeout_ms) > 0 ? read(err_fd_, buffer, sizeof buffer) : 0;
    if (n > 0) stderr_.append(buffer, static_cast<size_t>(n));
    return n > 0;
  }

  pid_t pid_ = -1;
  int err_fd_ = -1;
  std::string stderr_;
};

}  // namespace quellor::testing
