// Fuzzes the message component: open, subject, remove and add a header, save.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "fuzz_tree.h"
#include "platform/errors.h"
#include "platform/message.h"

using namespace quellor;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::FuzzTree& tree = fuzz::Tree();
  tree.Reset();
  const std::string_view in(reinterpret_cast<const char*>(data), size);
  tree.Write("IN/1.EML", in);
  static MessageComponent component;
  if (component.Open(tree.ctx.Path("IN/1.EML")) != 0) return 0;
  const std::string subject = component.Subject();
  component.RemoveHeader("Subject");
  component.RemoveHeader("X-Quellor");
  component.AddHeader("X-Quellor", "(New in white list) " + subject);
  try {
    component.Save(tree.ctx.Path("LOCAL/1.EML"));
  } catch (const RuntimeError&) {
    std::abort();  // a message that opened can always be saved
  }
  // What was saved opens again and carries the added header.
  MessageComponent again;
  if (again.Open(tree.ctx.Path("LOCAL/1.EML")) != 0) std::abort();
  return 0;
}
