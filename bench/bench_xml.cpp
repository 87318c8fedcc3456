// The XML tools on a worker thread, in bytes of input a second of processor time: tokens of whole documents,
// stanzas and lines cut out of a buffer, and the same fed byte by byte, where a tool that looked at its text
// again and again would show.
#include <benchmark/benchmark.h>

#include <string>
#include <thread>

#include "ipe/values/ipe_globals.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/xml/ipe_linebuffer.h"
#include "ipe/xml/ipe_pyxparser.h"
#include "ipe/xml/ipe_xmlblock.h"
#include "runtime/xpk_memory.h"
#include "runtime/xpk_threadstate.h"

namespace {

template <class Loop>
void onWorker(Loop loop) {
    static XPK_ThreadScope primary(true);
    static const bool ready = (XPK_InitPools(), IPE_InitSingletons(), IPE_StartGlobals(), true);
    (void)ready;
    std::thread([&] {
        XPK_ThreadScope scope(false);
        loop();
    }).join();
}

std::string record(size_t number) {
    std::string n = std::to_string(number);
    return "<record id=\"" + n + "\" kind='file' owner=\"Backup Operators\">\n  <name>report of the year " +
           n + ".xlsx</name>\n  <path>/srv/share/department/" + n +
           "/archive/of/last/year</path>\n  <note>Sizes &lt; 10 MB &amp; older than a year, kept for the "
           "audit "
           "of the next one.</note>\n  <empty/>\n</record>\n";
}

std::string records(size_t size) {
    std::string text;
    for (size_t i = 0; text.size() < size; ++i) text += record(i);
    return text;
}

void countBytes(benchmark::State& state, size_t size) {
    state.SetBytesProcessed(static_cast<int64_t>(size) * state.iterations());
}

void parse(benchmark::State& state, const std::string& text) {
    onWorker([&] {
        for (auto _ : state) benchmark::DoNotOptimize(IPE_PyxTokens(text, true));
    });
    countBytes(state, text.size());
}

void pyx(benchmark::State& state) {
    parse(state, "<all>\n" + records(static_cast<size_t>(state.range(0))) + "</all>\n");
}
BENCHMARK(pyx)->Arg(1 << 20)->Arg(8 << 20)->Unit(benchmark::kMillisecond);

// What costs most by the byte: nothing but short tags, nothing but short attributes, CR at each line's end.
void pyxOf(benchmark::State& state, const char* piece) {
    std::string text = "<all>";
    while (text.size() < 1 << 20) text += piece;
    parse(state, text + "</all>");
}
BENCHMARK_CAPTURE(pyxOf, tags, "<a>1</a>")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(pyxOf, attributes, "<p a='1' b='22' c='333' d='4444'/>")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(pyxOf, crlf, "<path name='abcdefghijkl'>/srv/some/path/of/a/file</path>\r\n")
    ->Unit(benchmark::kMillisecond);

template <class Tool, class Take>
void cut(benchmark::State& state, Take take) {
    std::string text = records(1 << 20);
    const auto piece = static_cast<size_t>(state.range(0));
    onWorker([&] {
        for (auto _ : state) {
            IPE_Object object = IPE_New<Tool>(0);
            auto* tool = static_cast<Tool*>(object.get());
            for (size_t at = 0; at < text.size(); at += piece) {
                tool->append(std::string_view(text).substr(at, piece));
                while (take(*tool)) {
                }
            }
        }
    });
    countBytes(state, text.size());
}

void stanzas(benchmark::State& state) {
    cut<IPE_XMLBlock>(state, [](IPE_XMLBlock& block) { return block.getStanza(); });
}
void lines(benchmark::State& state) {
    cut<IPE_LineBuffer>(state, [](IPE_LineBuffer& buffer) { return buffer.getLine(); });
}
BENCHMARK(stanzas)->Arg(1)->Arg(1460)->Arg(16 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(lines)->Arg(1)->Arg(1460)->Arg(16 << 20)->Unit(benchmark::kMillisecond);

// One stanza of a megabyte, asked for after every byte.
void oneStanza(benchmark::State& state) {
    std::string text = "<all>" + records(1 << 20) + "</all>";
    onWorker([&] {
        for (auto _ : state) {
            IPE_Object object = IPE_New<IPE_XMLBlock>(0);
            auto* block = static_cast<IPE_XMLBlock*>(object.get());
            for (size_t at = 0; at < text.size(); ++at) {
                block->append(std::string_view(text).substr(at, 1));
                benchmark::DoNotOptimize(block->getStanza());
            }
        }
    });
    countBytes(state, text.size());
}
BENCHMARK(oneStanza)->Unit(benchmark::kMillisecond);

}  // namespace
