// Benchmarks of XmlRpcValue's XML form on a representative call payload:
// writing (toXml), reading (fromXml), and the pieces that dominate them.
// With --dump-payload the payload's XML is printed instead, for the
// comparison script.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "payload.h"
#include "xmlrpc/XmlRpcUtil.h"
#include "xmlrpc/XmlRpcValue.h"

namespace {

using XmlRpc::XmlRpcValue;

void BM_ToXml_CallPayload(benchmark::State& state) {
  const XmlRpcValue payload = bench::makeCallPayload();
  const std::size_t bytes = payload.toXml().size();
  for (auto _ : state) {
    std::string xml = payload.toXml();
    benchmark::DoNotOptimize(xml.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}
BENCHMARK(BM_ToXml_CallPayload);

void BM_FromXml_CallPayload(benchmark::State& state) {
  const std::string xml = bench::makeCallPayload().toXml();
  for (auto _ : state) {
    XmlRpcValue value;
    int offset = 0;
    if (!value.fromXml(xml, &offset)) state.SkipWithError("payload did not read back");
    benchmark::DoNotOptimize(value);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * xml.size()));
}
BENCHMARK(BM_FromXml_CallPayload);

// The payload without its base64 member: strings, ints and structs only.
XmlRpcValue structsOnly() {
  XmlRpcValue payload = bench::makeCallPayload();
  XmlRpcValue copy;
  for (const auto& [name, member] : payload.asStruct()) {
    if (member.getType() != XmlRpcValue::TypeBase64) copy[name] = member;
  }
  return copy;
}

void BM_ToXml_StructsOnly(benchmark::State& state) {
  const XmlRpcValue payload = structsOnly();
  const std::size_t bytes = payload.toXml().size();
  for (auto _ : state) {
    std::string xml = payload.toXml();
    benchmark::DoNotOptimize(xml.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}
BENCHMARK(BM_ToXml_StructsOnly);

void BM_FromXml_StructsOnly(benchmark::State& state) {
  const std::string xml = structsOnly().toXml();
  for (auto _ : state) {
    XmlRpcValue value;
    int offset = 0;
    if (!value.fromXml(xml, &offset)) state.SkipWithError("payload did not read back");
    benchmark::DoNotOptimize(value);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * xml.size()));
}
BENCHMARK(BM_FromXml_StructsOnly);

void BM_CopyCallPayload(benchmark::State& state) {
  const XmlRpcValue payload = bench::makeCallPayload();
  const std::size_t bytes = payload.toXml().size();
  for (auto _ : state) {
    XmlRpcValue copy(payload);
    benchmark::DoNotOptimize(copy);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}
BENCHMARK(BM_CopyCallPayload);

// Values that lack their closing tags: every value's search for "</value>"
// fails. The reader must stay linear in the text here; the complexity fit
// (reported as BigO) shows it.
void BM_FromXml_UnclosedValues(benchmark::State& state) {
  std::string xml = "<value><array><data>";
  for (int64_t i = 0; i < state.range(0); ++i) xml += "<value><i4>1";
  for (auto _ : state) {
    XmlRpcValue value;
    int offset = 0;
    value.fromXml(xml, &offset);
    benchmark::DoNotOptimize(value);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * xml.size()));
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_FromXml_UnclosedValues)->RangeMultiplier(4)->Range(1 << 10, 1 << 16)->Complexity();

// The parameters of one request, each lacking its closing tags, read one by
// one as the server connection does, sharing one scan of the text: the
// complexity fit must stay O(N) here too.
void BM_FromXml_UnclosedParams(benchmark::State& state) {
  std::string xml = "<params>";
  for (int64_t i = 0; i < state.range(0); ++i) xml += "<param><value><i4>1";
  for (auto _ : state) {
    XmlRpcValue::TextScan scan;
    int offset = static_cast<int>(std::strlen("<params>"));
    int64_t count = 0;
    XmlRpcValue value;
    while (XmlRpc::XmlRpcUtil::nextTagIs("<param>", xml, &offset) &&
           value.fromXml(xml, &offset, scan)) {
      ++count;
    }
    if (count != state.range(0)) state.SkipWithError("parameters lost");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * xml.size()));
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_FromXml_UnclosedParams)->RangeMultiplier(4)->Range(1 << 10, 1 << 16)->Complexity();

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--dump-payload") == 0) {
    const std::string xml = bench::makeCallPayload().toXml();
    std::fwrite(xml.data(), 1, xml.size(), stdout);
    return 0;
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
