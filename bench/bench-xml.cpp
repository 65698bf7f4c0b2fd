// Parsing and validating requests, for the schema file that is given as the first argument.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <string>

#include "windows/com/xml/Document.h"
#include "windows/com/xml/Library.h"
#include "windows/com/xml/SchemaCache.h"

namespace {

using windows::com::xml::Document;
using windows::com::xml::SchemaCache;

// texts of textLength characters each, and as many calls.
std::string request(const std::string& ns, std::int64_t count, std::size_t textLength) {
    std::string texts;
    std::string calls;
    for (std::int64_t i = 0; i < count; ++i) {
        const std::string id = std::to_string(i);
        texts.append("<textBase64 id=\"")
            .append(id)
            .append("\">")
            .append(textLength, 'A')
            .append("</textBase64>\n");
        calls.append("<classify id=\"").append(id).append("\" classifierName=\"test_engswe\" textId=\"");
        calls.append(id).append("\"/>\n");
    }
    return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<morvane xmlns=\"" + ns +
           "\" version=\"1.01\">\n<texts>\n" + texts + "</texts>\n<readCalls>\n" + calls +
           "</readCalls>\n</morvane>";
}

void readRequest(benchmark::State& state, const SchemaCache& cache, const std::string& ns) {
    const std::string text = request(ns, state.range(0), static_cast<std::size_t>(state.range(1)));
    for (auto _ : state) {
        Document document(cache);
        document.setSelectionNamespaces("xmlns:mv='" + ns + "'");
        document.loadXml(text);
        document.validate();
        benchmark::DoNotOptimize(document.getElement("mv:morvane").selectNodes("mv:readCalls").size());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(text.size()) * state.iterations());
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "Usage: bench-xml [options of the benchmark library] RequestSchema.xsd\n");
        return 1;
    }
    const windows::com::xml::Library library;
    Document schema;
    schema.load(argv[1]);
    SchemaCache cache;
    const std::string ns = schema.getTargetNamespace();
    cache.add(schema, ns);
    benchmark::RegisterBenchmark("request", [&](benchmark::State& state) { readRequest(state, cache, ns); })
        ->ArgNames({"calls", "textLength"})
        ->Args({1, 4})
        ->Args({100, 100})
        ->Args({1000, 4})
        ->Args({10000, 4})
        ->Args({1, 20'000'000});
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
