#pragma once
// Base64Class: the base64 codec used for B-encoded subjects.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quellor {

class Base64Class {
 public:
  Base64Class();  // fills the reverse table (Class_Initialize)
  std::string EncodeString(std::string_view text) const;
  std::string EncodeByteArray(const std::vector<uint8_t>& bytes) const;
  // Characters outside the alphabet count as "A"; CR LF pairs and every "=" are removed first.
  // Raises "Subscript out of range" for an empty result or a NUL character.
  std::string DecodeToString(std::string_view encoded) const;
  std::vector<uint8_t> DecodeToByteArray(std::string_view encoded) const;

 private:
  uint8_t reverse_[256];
};

}  // namespace quellor
