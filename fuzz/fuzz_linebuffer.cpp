// The buffer of lines, fed in pieces: three buffers with the same text agree on their lines, whether they
// give them one by one, as a list or as fields. The first byte chooses the pieces, the second the limit.
#include <cstdlib>
#include <string>

#include "fuzz_target.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_stringtype.h"
#include "ipe/xml/ipe_linebuffer.h"

namespace {

struct Lines {
    explicit Lines(int32_t limit) : object(IPE_New<IPE_LineBuffer>(limit)) {}
    IPE_LineBuffer* operator->() { return static_cast<IPE_LineBuffer*>(object.get()); }
    IPE_Object object;
};

std::string joined(const IPE_Object& fields) {
    std::string text;
    for (const IPE_Object& field : fields.as<IPE_TupleType>()->items())
        (text += field.as<IPE_StringType>()->view()) += ',';
    text.pop_back();
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    size_t step = 1 + data[0] % 16;
    std::string_view text = fuzzText(data + 2, size - 2);
    fuzzRun([&] {
        Lines one(0), list(0), fields(0), limited(data[1]);
        for (size_t at = 0; at < text.size(); at += step) {
            for (Lines* lines : {&one, &list, &fields}) (*lines)->append(text.substr(at, step));
            IPE_Object all = list->getLines();
            for (const IPE_Object& line : all.as<IPE_ListType>()->items()) {
                std::string_view view = line.as<IPE_StringType>()->view();
                if (view.find_first_of("\r\n") != std::string_view::npos) abort();
                if (one->getLine().as<IPE_StringType>()->view() != view) abort();
                if (joined(fields->splitCsvLine()) != view) abort();
            }
            if (one->getLine() || fields->splitCsvLine()) abort();
            if (one->text() != list->text() || fields->text() != list->text()) abort();
        }
        for (size_t at = 0; at < text.size(); at += step) {
            limited->append(text.substr(at, step));
            limited->getLine();
        }
    });
    return 0;
}
