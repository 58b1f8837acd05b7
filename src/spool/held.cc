#include "spool/held.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <tuple>

#include "platform/files.h"
#include "platform/fs.h"
#include "platform/names.h"
#include "platform/text.h"
#include "platform/tree_lock.h"
#include "spool/activity_log.h"
#include "spool/pass_run.h"
#include "spool/stages.h"

namespace quellor {

namespace {

// The folder names in WAIT/ that are waiting areas, in name order.
std::vector<std::string> Users(Context& ctx) {
  const std::optional<std::string> wait = ResolveExisting(ctx.Path("WAIT"));
  std::vector<std::string> names;
  if (!wait || Fs().List(*wait, &names) != 0) return {};
  std::erase_if(names, [&](const std::string& name) {
    return !AdminName(name) || !FolderExists(*wait + "/" + name);
  });
  std::sort(names.begin(), names.end(), NameLess);
  return names;
}

// The held envelopes of one user folder: identifiers and when they were held.
void Collect(Context& ctx, const std::string& user, std::vector<HeldMessage>& out) {
  const std::string folder = ctx.Path("WAIT/" + user + "/");
  std::vector<std::string> names;
  try {
    names = ListFiles(folder, "*.WAI");
  } catch (const std::exception&) {
    return;
  }
  for (const std::string& name : names) {
    HeldMessage m;
    m.user = user;
    m.id = WithoutExtension(name);
    try {
      m.held = FileModified(folder + name);
    } catch (const std::exception&) {
      continue;  // gone since the listing
    }
    out.push_back(std::move(m));
  }
}

// Lines 1 to 3 of the held envelope and the size of the held message file.
void ReadDetails(Context& ctx, HeldMessage& m) {
  const std::string stem = ctx.Path("WAIT/" + m.user + "/" + m.id);
  try {
    TextFile envelope = TextFile::Open(stem + ".WAI", OpenMode::kInput);
    if (!envelope.Eof()) m.sender = envelope.ReadLine();
    if (!envelope.Eof()) m.recipient = envelope.ReadLine();
    if (!envelope.Eof()) m.subject = envelope.ReadLine();
    envelope.Close();
  } catch (const std::exception&) {
  }
  try {
    m.size = FileLength(stem + ".EML");
  } catch (const std::exception&) {
    m.size = 0;
  }
}

// Checks the names, takes the tree's lock, finds the held envelope and runs `action` on it;
// refuses with a one-line reason when any of that fails.
template <class Action>
HeldAction UnderLock(Context& ctx, const std::string& user, const std::string& id,
                     const std::function<void()>& on_wait, Action&& action) {
  const auto refuse = [](std::string message) { return HeldAction{1, std::move(message)}; };
  // Refused names are never looked up, nor echoed (they may hold control characters).
  if (!AdminName(user)) return refuse("refused user name (no \"/\", \"..\" or control character)");
  if (!AdminName(id)) return refuse("refused identifier (no \"/\", \"..\" or control character)");
  const TreeLock lock(ctx.root, on_wait);
  if (!lock.held()) return refuse("cannot lock the tree: " + lock.error());
  HeldMessage held;
  held.user = WaitingArea(ctx, user);
  if (held.user.empty()) return refuse("unknown user " + user + ": no held mail in WAIT/");
  if (!OrdinaryFileExists(ctx.Path("WAIT/" + held.user + "/" + id + ".WAI"))) {
    return refuse("user " + held.user + " has no held message " + id);
  }
  held.id = id;
  ReadDetails(ctx, held);
  return action(held);
}

}  // namespace

bool AdminName(std::string_view name) {
  if (!SafeName(name) || name.front() == '.' || name.find("..") != std::string_view::npos) {
    return false;
  }
  return std::none_of(name.begin(), name.end(), [](char c) {
    const unsigned char u = static_cast<unsigned char>(c);
    return u < 0x20 || u == 0x7F;
  });
}

std::string WaitingArea(Context& ctx, std::string_view user) {
  if (!AdminName(user)) return "";
  const std::optional<std::string> actual = ResolveExisting(ctx.Path("WAIT/" + std::string(user)));
  if (!actual || !FolderExists(*actual)) return "";
  return actual->substr(actual->find_last_of('/') + 1);
}

std::vector<HeldMessage> ListHeld(Context& ctx, const std::string& user, size_t limit) {
  std::vector<HeldMessage> held;
  if (user.empty()) {
    for (const std::string& name : Users(ctx)) Collect(ctx, name, held);
  } else if (const std::string area = WaitingArea(ctx, user); !area.empty()) {
    Collect(ctx, area, held);
  }
  std::sort(held.begin(), held.end(), [](const HeldMessage& a, const HeldMessage& b) {
    return std::tie(a.held, a.id, a.user) > std::tie(b.held, b.id, b.user);
  });
  if (limit != 0 && held.size() > limit) held.resize(limit);
  for (HeldMessage& m : held) ReadDetails(ctx, m);
  return held;
}

std::vector<HeldCount> CountHeld(Context& ctx) {
  std::vector<HeldCount> counts;
  for (const std::string& user : Users(ctx)) {
    size_t n = 0;
    try {
      n = ListFiles(ctx.Path("WAIT/" + user), "*.WAI").size();
    } catch (const std::exception&) {
    }
    if (n > 0) counts.push_back({user, n});
  }
  return counts;
}

HeldAction ReleaseHeld(Context& ctx, const std::string& user, const std::string& id,
                       const std::function<void()>& on_wait) {
  return UnderLock(ctx, user, id, on_wait, [&](const HeldMessage& held) -> HeldAction {
    PassRun p(ctx);
    p.s.user = held.user;
    p.s.recipient = held.recipient;
    const double before = ctx.window.Validations.Value();
    p.Step([&] {
      Statuslog(ctx,
                "Released - <" + held.sender + "> to <" + held.recipient +
                    "> - by the administrator (" + id + ")",
                2, ".log");
    });
    ReleaseHeldSender(p, held.sender);
    p.FlushWritten();
    const long released = static_cast<long>(ctx.window.Validations.Value() - before);
    const std::string what = std::to_string(released) + " message(s) from <" + held.sender +
                             "> to <" + held.recipient + ">";
    if (OrdinaryFileExists(ctx.Path("WAIT/" + held.user + "/" + id + ".WAI"))) {
      return {1, "released " + what + ", but " + id + " is still held (see LOG/system.log)"};
    }
    return {0, "released " + what + " into LOCAL/; <" + held.sender + "> is white-listed"};
  });
}

HeldAction DropHeld(Context& ctx, const std::string& user, const std::string& id,
                    const std::function<void()>& on_wait) {
  return UnderLock(ctx, user, id, on_wait, [&](const HeldMessage& held) -> HeldAction {
    PassRun p(ctx);
    p.s.user = held.user;
    PurgeHeld(p, id, "Dropped",
              "Deleted - <" + held.sender + "> to <" + held.recipient +
                  "> - dropped by the administrator");
    if (AnyFileExists(ctx.Path("WAIT/" + held.user + "/" + id + ".WAI"))) {
      return {1, "could not drop " + id + " (see LOG/system.log)"};
    }
    return {0, "dropped " + id + " from <" + held.sender + "> to <" + held.recipient + ">"};
  });
}

}  // namespace quellor
