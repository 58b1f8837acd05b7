// The validation request: envelope and two-part message placed into OUT/.
#include <functional>
#include <string>
#include <vector>

#include "logs/retrying_files.h"
#include "mail/email_date.h"
#include "mail/quoted_printable.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/names.h"
#include "platform/text.h"
#include "spool/address.h"
#include "spool/stages.h"
#include "spool/stages/lines.h"

namespace quellor {

namespace {

// One fixed boundary for every request; the host server and the repliers never cared.
constexpr const char* kBoundary = "----=_NextPart_000_00E3_01C46421.ABF009F0";

// Writes every line of a template, transformed and encoded one line at a time (so the soft
// breaks of the encoder apply per line). A missing template writes nothing and is reported
// to the pass's handler; the request is completed all the same.
void CopyTemplate(PassRun& p, TextFile& out, const std::string& path,
                  const std::function<std::string(const std::string&)>& transform) {
  p.Step([&] {
    if (!OrdinaryFileExists(path)) Raise(kErrFileNotFound);
    TextFile in = OpenFile(p.ctx, path, "INPUT", 2);
    while (!in.Eof()) out.WriteLine(EncodeQP(transform(in.ReadLine())));
    in.Close();
  });
}

}  // namespace

void ComposeRequest(PassRun& p) {
  Context& ctx = p.ctx;
  const std::string from = OneLine(p.s.request_address);
  const std::string to = OneLine(p.s.sender);
  const std::string recipient = OneLine(p.s.recipient);
  const std::string subject = OneLine(p.s.subject);
  const std::string wait_id = OneLine(p.s.wait_id);

  std::string newid;
  p.Step([&] { newid = FreeQueueName(ctx, "OUT/"); });
  const std::string stem = ctx.Path("OUT/") + newid;

  // The envelope first: the host server takes a pair only once its message file has its name.
  TextFile envelope;
  p.Step([&] { envelope = OpenNewFile(ctx, stem + ".WAI", 1); });
  p.Step([&] { envelope.WriteLine(recipient); });
  p.Step([&] { envelope.WriteLine(to); });
  p.Step([&] { envelope.Close(); });

  TextFile msg;
  p.Step([&] { msg = OpenNewFile(ctx, stem + ".TMP", 1); });
  const std::string boundary_line = std::string("--") + kBoundary;
  const std::vector<std::string> head = {"From: " + from,
                                         "To: " + to,
                                         "Subject: Rq:" + subject + " // " + ctx.marker + wait_id,
                                         "Date: " + EmailDate(ctx, ctx.clock.Now()),
                                         "MIME-Version: 1.0",
                                         "Content-Type: multipart/alternative;",
                                         std::string("    boundary = \"") + kBoundary + "\"",
                                         "X-Priority: 3",
                                         "",
                                         "This is a multi-part message in MIME format.",
                                         "",
                                         boundary_line,
                                         "Content-Type: text/plain;",
                                         "    Charset = \"iso-8859-1\"",
                                         "Content-Transfer-Encoding: quoted-printable",
                                         ""};
  for (const auto& line : head) p.Step([&] { msg.WriteLine(line); });

  // The per-user text lives in the root; a mailbox name that could leave it counts as absent.
  const std::string user_text = ctx.root + p.s.user + ".msg";
  bool has_user_text = false;
  p.Step([&] { has_user_text = SafeName(p.s.user) && OrdinaryFileExists(user_text); });
  const std::string system = ctx.Path("SYSTEM/");
  const auto as_is = [](const std::string& line) { return line; };
  const auto with_address = [&](const std::string& line) {
    return ReplaceNoCase(line, "$email", from);
  };

  p.Mark(28);
  if (has_user_text) {
    CopyTemplate(p, msg, user_text, as_is);
    CopyTemplate(p, msg, system + "validation_foot.txt", as_is);
  } else {
    CopyTemplate(p, msg, system + "validation.txt", with_address);
  }

  const std::vector<std::string> html_head = {
      boundary_line,
      "Content-Type: text/html;",
      "    Charset = \"iso-8859-1\"",
      "Content-Transfer-Encoding: quoted-printable",
      "",
      "<!DOCTYPE HTML PUBLIC \"-//W3C//DTD HTML 4.0 Transitional//EN\">",
      "<HTML>"};
  for (const auto& line : html_head) p.Step([&] { msg.WriteLine(line); });

  p.Mark(29);
  if (has_user_text) {
    CopyTemplate(p, msg, user_text,
                 [](const std::string& line) { return ReplaceAll(line, " ", "&nbsp;") + "<br>"; });
    CopyTemplate(p, msg, system + "validation_foot.htm", as_is);
  } else {
    CopyTemplate(p, msg, system + "validation.htm", with_address);
  }
  p.Mark(30);

  for (const auto& line : {std::string("</HTML>"), std::string(), boundary_line + "--",
                           std::string(), std::string(".")}) {
    p.Step([&] { msg.WriteLine(line); });
  }
  p.Step([&] { msg.Close(); });

  // Composed under .TMP and named .EML last, so the host server never sends half a request.
  // A request left as .TMP (naming gave up) is kept on the disk all the same.
  p.Step([&] { NameFile(ctx, stem + ".TMP", stem + ".EML"); });
}

}  // namespace quellor
