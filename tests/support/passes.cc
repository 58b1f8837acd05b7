#include "support/passes.h"

#include "platform/names.h"
#include "service/scheduler.h"
#include "spool/input_pair.h"
#include "spool/pass.h"

namespace quellor::testing {

void TimerPass(Context& ctx) {
  ForgetNameIndexes();
  ReturnDeferred(ctx);
  CountQueue(ctx);
  if (ctx.window.total.Value() > 0) quellor(ctx);
  ForgetNameIndexes();
}

}  // namespace quellor::testing
