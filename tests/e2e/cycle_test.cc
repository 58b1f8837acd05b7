// The challenge-response cycle through the real `quellorctl pass` on an installation made by
// `quellorctl init`: an unknown sender is held and challenged, a reply carrying the request's
// subject releases and white-lists, the sender's next message goes straight through; a
// postmaster's bounce quoting the request purges the held pair.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "e2e/ctl.h"

namespace quellor::testing {
namespace {

const std::string kUser = "u@local.example";
const std::string kPostmaster = "postmaster@remote.example";

// The rest of the line that follows `key` in `text` ("" when the key is absent).
std::string LineAfter(const std::string& text, const std::string& key) {
  const size_t start = text.find(key);
  if (start == std::string::npos) return "";
  const size_t from = start + key.size();
  return text.substr(from, text.find("\r\n", from) - from);
}

class CycleTest : public ::testing::Test {
 protected:
  CycleTest() {
    EXPECT_EQ(Ctl(tree, tree.Path("site/"), "init '" + tree.Path("site/") + "'").status, 0);
    // Later lines win: the postmaster, and DEBUG "ON" for the event and purged lists.
    const std::string ini = tree.Read("site/quellor.ini");
    tree.Write("site/quellor.ini", ini + "POSTMASTERS=" + kPostmaster + "\r\nDEBUG=ON\r\n");
    tree.Write("site/Users/" + kUser + ".CONF", "MODE=QUELLOR\r\n");
  }

  // One `quellorctl pass --all --no-pause`; its window state.
  std::string Pass() {
    const CtlResult r = Ctl(tree, tree.Path("site/"), "pass --all --no-pause");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(Names("IN").empty());
    return r.out;
  }

  // The host server drops a pair into IN/: the message first, then its envelope.
  void Arrive(const std::string& stem, const std::string& envelope, const std::string& message) {
    tree.Write("site/IN/" + stem + ".EML", message);
    tree.Write("site/IN/" + stem + ".WAI", envelope);
  }

  std::vector<std::string> Names(const std::string& folder, const std::string& ext = "") {
    std::vector<std::string> out;
    for (const std::string& name : tree.List("site/" + folder)) {
      if (name.ends_with(ext)) out.push_back(name);
    }
    return out;
  }

  // Holds a message from `sender` and returns the subject of the request it sent, as read from
  // OUT/*.EML, after checking the held pair and the request's envelope.
  std::string HoldAndChallenge(const std::string& stem, const std::string& sender,
                               const std::string& subject_text) {
    const std::string message =
        "From: " + sender + "\r\nTo: " + kUser + "\r\nSubject: " + subject_text + "\r\n\r\nHi.\r\n";
    const auto requests_before = Names("OUT", ".EML");
    Arrive(stem, sender + "\r\n" + kUser + "\r\n", message);
    const std::string out = Pass();
    EXPECT_NE(out.find("TODAY QUELLOR=1\r\n"), std::string::npos) << out;

    const std::string held = "site/WAIT/" + kUser + "/" + stem;
    EXPECT_EQ(tree.Read(held + ".WAI"), sender + "\r\n" + kUser + "\r\n" + subject_text + "\r\n");
    EXPECT_EQ(tree.Read(held + ".EML"), message);

    auto requests = Names("OUT", ".EML");
    std::erase_if(requests, [&](const std::string& name) {
      return std::find(requests_before.begin(), requests_before.end(), name) !=
             requests_before.end();
    });
    EXPECT_TRUE(Names("OUT", ".TMP").empty());
    if (requests.size() != 1) {
      ADD_FAILURE() << requests.size() << " new requests in OUT/";
      return "";
    }
    const std::string request_stem = requests[0].substr(0, requests[0].size() - 4);
    EXPECT_EQ(tree.Read("site/OUT/" + request_stem + ".WAI"), kUser + "\r\n" + sender + "\r\n");
    const std::string subject = LineAfter(tree.Read("site/OUT/" + requests[0]), "\r\nSubject: ");
    EXPECT_EQ(subject, "Rq:" + subject_text + " // Request-ID:" + stem);
    return subject;
  }

  TempTree tree;
};

TEST_F(CycleTest, AReplyReleasesAndWhiteListsAndTheNextMessageGoesThrough) {
  const std::string stem = "20261116090000001";
  const std::string request_subject = HoldAndChallenge(stem, "a@remote.example", "Hello there");
  ASSERT_FALSE(request_subject.empty());
  const std::string held_envelope = tree.Read("site/WAIT/" + kUser + "/" + stem + ".WAI");

  // The unknown sender replies to the request; the reply also names a second local user, who
  // gets nothing: a consumed reply is never delivered.
  Arrive("20261116100000002", "a@remote.example\r\n" + kUser + "\r\nv@local.example\r\n",
         "From: a@remote.example\r\nTo: " + kUser + "\r\nSubject: Re: " + request_subject +
             "\r\n\r\nYes, it was me.\r\n\r\n> Subject: " + request_subject + "\r\n");
  std::string out = Pass();
  EXPECT_NE(out.find("\r\nVALIDATIONS=1\r\nPURGED=0\r\n"), std::string::npos) << out;
  EXPECT_NE(out.find("\r\nINVALID=0\r\n"), std::string::npos) << out;
  const std::string event = LineAfter(out, "\r\nEVENT=");
  EXPECT_TRUE(HasShape(event.substr(0, 20), "99/99/9999 99:99:99 ")) << out;
  EXPECT_EQ(event.substr(20), "Valid: a@remote.example -> u@local.example");

  // Released under a fresh name with the held envelope and the marked message.
  auto local = Names("LOCAL", ".WAI");
  ASSERT_EQ(local.size(), 1u);
  const std::string released = local[0].substr(0, local[0].size() - 4);
  EXPECT_NE(released, stem);
  EXPECT_EQ(Names("LOCAL").size(), 2u);
  EXPECT_EQ(tree.Read("site/LOCAL/" + released + ".WAI"), held_envelope);
  EXPECT_EQ(tree.Read("site/LOCAL/" + released + ".EML"),
            "From: a@remote.example\r\nTo: u@local.example\r\n"
            "Subject: (New in white list) Hello there\r\n"
            "Spam-Quellor: a@remote.example found in white list of u@local.example\r\n"
            "\r\nHi.\r\n");
  EXPECT_TRUE(Names("WAIT/" + kUser, ".WAI").empty());
  EXPECT_TRUE(Names("WAIT/" + kUser, ".EML").empty());
  EXPECT_EQ(tree.Read("site/Users/" + kUser + ".WLT"), "a@remote.example\r\n");
  EXPECT_EQ(Names("OUT", ".EML").size(), 1u);
  tree.Remove("site/LOCAL/" + released + ".WAI");
  tree.Remove("site/LOCAL/" + released + ".EML");

  // The sender's next message is delivered at once, marked.
  Arrive("20261116110000003", "a@remote.example\r\n" + kUser + "\r\n",
         "From: a@remote.example\r\nSubject: Again\r\n\r\nMore.\r\n");
  out = Pass();
  local = Names("LOCAL", ".WAI");
  ASSERT_EQ(local.size(), 1u);
  const std::string delivered = local[0].substr(0, local[0].size() - 4);
  EXPECT_EQ(tree.Read("site/LOCAL/" + delivered + ".WAI"), "a@remote.example\r\n" + kUser + "\r\n");
  EXPECT_EQ(tree.Read("site/LOCAL/" + delivered + ".EML"),
            "From: a@remote.example\r\nSubject: Again\r\n"
            "Spam-Quellor: a@remote.example found in white list of u@local.example\r\n"
            "\r\nMore.\r\n");
  EXPECT_EQ(tree.Read("site/Users/" + kUser + ".WLT"), "a@remote.example\r\n");
  EXPECT_EQ(Names("OUT", ".EML").size(), 1u);

  EXPECT_EQ(DayLogLines(tree, "site/LOG", ".log", " "),
            (std::vector<std::string>{
                "Delayed - <a@remote.example> to <u@local.example> - wait for validation",
                "Received     - <a@remote.example> to <u@local.example> - validation received",
                "Received     - <a@remote.example> to <u@local.example> - found in white list"}));
  EXPECT_EQ(DayLogLines(tree, "site/LOG/quellor", ".iwr", "  "),
            std::vector<std::string>{"Validation: a@remote.example to u@local.example"});
  EXPECT_EQ(tree.Read("site/LOG/system.log"), "");
}

TEST_F(CycleTest, APostmastersBounceQuotingTheRequestPurgesTheHeldPair) {
  const std::string stem = "20261116110000004";
  const std::string request_subject = HoldAndChallenge(stem, "b@forged.example", "Buy now");
  ASSERT_FALSE(request_subject.empty());

  // Without a subject of its own the bounce is searched whole, down to the quoted request. The
  // second bounce of the same request finds nothing left to delete and is counted all the same.
  const std::string bounce = "From: " + kPostmaster + "\r\nTo: " + kUser +
                             "\r\n\r\nThis is the mail system.\r\n\r\n--- original message ---\r\n"
                             "From: u@local.example\r\nTo: b@forged.example\r\nSubject: " +
                             request_subject + "\r\n\r\nPlease reply.\r\n";
  Arrive("20261116120000005", kPostmaster + "\r\n" + kUser + "\r\n", bounce);
  Arrive("20261116120000006", kPostmaster + "\r\n" + kUser + "\r\n", bounce);
  const std::string out = Pass();

  EXPECT_NE(out.find("\r\nPURGED=2\r\n"), std::string::npos) << out;
  EXPECT_NE(out.find("\r\nTODAY PURGED=2\r\n"), std::string::npos) << out;
  for (const char* bounce_stem : {"20261116120000005", "20261116120000006"}) {
    EXPECT_NE(out.find("\r\nPURGEDLIST=Ret." + std::string(bounce_stem) +
                       ".EML - Orig.u@local.example/" + stem + "\r\n"),
              std::string::npos)
        << out;
  }
  EXPECT_TRUE(Names("WAIT/" + kUser, ".WAI").empty());
  EXPECT_TRUE(Names("WAIT/" + kUser, ".EML").empty());
  EXPECT_TRUE(Names("LOCAL").empty());
  EXPECT_EQ(Names("OUT", ".EML").size(), 1u);  // a bounce is never challenged
  const std::string deleted =
      "Deleted - <postmaster@remote.example> to <u@local.example> - sender bounces validation";
  EXPECT_EQ(DayLogLines(tree, "site/LOG", ".log", " "),
            (std::vector<std::string>{
                "Delayed - <b@forged.example> to <u@local.example> - wait for validation", deleted,
                deleted}));
  EXPECT_EQ(tree.Read("site/LOG/system.log"), "");
}

}  // namespace
}  // namespace quellor::testing
