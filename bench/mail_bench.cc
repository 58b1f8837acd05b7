// Subject decoding of typical replies and quoted-printable encoding of a large text.
#include <benchmark/benchmark.h>

#include <string>

#include "core/context.h"
#include "mail/quoted_printable.h"
#include "mail/subject_decoder.h"

namespace {

const char* const kSubjects[] = {
    "Re: Rq:Meeting on Monday // Request-ID:20261116100000123",
    "=?iso-8859-1?Q?Re:_Rq:Caf=E9_ok_//_Request-ID:20261116100000123?=",
    "Re: =?utf-8?B?UnE6SGVsbG8gd29ybGQgLy8gUmVxdWVzdC1JRDoyMDI2MTExNjEwMDAwMDEyMw==?=",
    "=?windows-1252?Q?Antw:_Rq:R=FCckfrage?= =?windows-1252?Q?_//_Request-ID:2026111610?="};

void BM_DecodeSubject(benchmark::State& state) {
  quellor::FakeClock clock(1790000000, 3600);
  quellor::RecordingSleeper sleeper;
  quellor::Context ctx("/nonexistent/", clock, sleeper);
  const std::string subject = kSubjects[state.range(0)];
  for (auto _ : state) benchmark::DoNotOptimize(quellor::DecodeSubject(ctx, subject));
  state.SetLabel(subject.substr(0, 24));
}
BENCHMARK(BM_DecodeSubject)->DenseRange(0, 3);

// A remote sender controls the subject's length: 1 MB of Q and B words, blanks between them.
void BM_DecodeSubjectMegabyte(benchmark::State& state) {
  quellor::FakeClock clock(1790000000, 3600);
  quellor::RecordingSleeper sleeper;
  quellor::Context ctx("/nonexistent/", clock, sleeper);
  std::string subject;
  while (subject.size() < (1 << 20)) {
    subject += "=?iso-8859-1?Q?Caf=E9_au_lait?= =?utf-8?B?SGVsbG8gd29ybGQ=?= plain ";
  }
  for (auto _ : state) benchmark::DoNotOptimize(quellor::DecodeSubject(ctx, subject));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * subject.size()));
}
BENCHMARK(BM_DecodeSubjectMegabyte)->Unit(benchmark::kMillisecond);

void BM_EncodeQP(benchmark::State& state) {
  std::string text;
  const std::string line =
      "Please reply to this message to confirm that you are a person: caf\xE9 = ok.\r\n";
  while (text.size() < 64 * 1024) text += line;
  text.resize(64 * 1024);
  for (auto _ : state) benchmark::DoNotOptimize(quellor::EncodeQP(text));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_EncodeQP);

}  // namespace
