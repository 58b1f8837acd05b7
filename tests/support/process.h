#pragma once
// Helpers for tests that run programs, talk over loopback sockets or compare with golden files.

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace quellor::testing {

// A loopback TCP port nothing listens on right now.
uint16_t FreePort();
// Runs a shell command (dash); its standard output in `out`; returns the exit status.
int Sh(const std::string& command, std::string* out = nullptr);
// Starts a program, standard output and error appended to `log`; returns its process id.
int Spawn(const std::vector<std::string>& args, const std::string& log);
// The bytes of a file ("" when it cannot be read).
std::string ReadFile(const std::string& path);
// Polls `done` until it holds; false only when it still does not after a deadline far longer
// than any machine, however busy, should need.
bool WaitUntil(const std::function<bool()>& done,
               std::chrono::seconds deadline = std::chrono::seconds(30));
// Compares `text` in its escaped form with tests/data/<name> (QUELLOR_BLESS=1 rewrites it).
void CheckGolden(const std::string& name, const std::string& text);

}  // namespace quellor::testing
