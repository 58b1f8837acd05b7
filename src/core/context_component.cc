// The message component of the context lives apart so that programs without it need not link it.
#include "core/context.h"
#include "platform/message.h"

namespace quellor {

MessageComponent& Context::component() {
  if (!component_) component_ = std::make_shared<MessageComponent>();
  return *component_;
}

}  // namespace quellor
