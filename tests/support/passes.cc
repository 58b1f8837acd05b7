#include "support/passes.h"

#include "platform/names.h"
#include "spool/input_pair.h"
#include "spool/pass.h"

namespace quellor::testing {

void TimerPass(Context& ctx) {
  ForgetNameIndexes();
  ReturnDeferred(ctx);
  WindowModel& w = ctx.window;
  w.File1.Clear();
  for (const auto& name : ListFiles(ctx.Path("IN"), "*.EML")) w.File1.Add(name);
  w.total.Set(std::to_string(w.File1.size()));
  if (w.total.Value() > 0) quellor(ctx);
  ForgetNameIndexes();
}

}  // namespace quellor::testing
