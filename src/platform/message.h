#pragma once
// The message component: reads a message file's header block with GMime and edits header lines
// itself, so that saving changes only the removed and added lines and keeps every other byte.

#include <memory>
#include <string>
#include <string_view>

namespace quellor {

class MessageComponent {
 public:
  MessageComponent();
  ~MessageComponent();
  MessageComponent(const MessageComponent&) = delete;
  MessageComponent& operator=(const MessageComponent&) = delete;

  // Opens a message file (case-insensitive name); 0 on success, non-zero otherwise. Reads only
  // the header block, however large the message.
  int Open(const std::string& path);
  // The unfolded Subject value, RFC 2047 words decoded, in Windows-1252; "" when none.
  std::string Subject() const;
  // The same for the first header of any name (case-insensitive); "" when none.
  std::string Header(std::string_view name) const;
  // Whether the opened message has a header of that name (case-insensitive).
  bool HasHeader(std::string_view name) const;
  // Removes every header line (with its continuation lines) of that name, case-insensitively.
  void RemoveHeader(std::string_view name);
  // Adds "name: value" at the end of the header block, in the file's own line-end style; a
  // value with bytes above 127 is written as RFC 2047 words in windows-1252.
  void AddHeader(std::string_view name, std::string_view value);
  // Writes the edited header block and the rest of the opened file unchanged to `path`.
  // Raises the classic run-time errors on failure.
  void Save(const std::string& path);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace quellor
