// The buffer of stanzas: text fed in pieces, with a question after each, gives what it gives when fed at
// once; and the searches by name cut out of the buffer what they give. The first byte chooses the pieces.
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz_target.h"
#include "ipe/values/ipe_stringtype.h"
#include "ipe/xml/ipe_xmlblock.h"

namespace {

struct Block {
    IPE_Object object = IPE_New<IPE_XMLBlock>(0);
    IPE_XMLBlock* operator->() { return static_cast<IPE_XMLBlock*>(object.get()); }
};

// Takes all stanzas that are there; false after an assertion, which a longer text does not heal.
bool takeAll(Block& block, std::vector<std::string>& stanzas) {
    try {
        while (IPE_Object stanza = block->getStanza()) stanzas.emplace_back(stanza->c_str());
        return true;
    } catch (const XPK_AssertException&) {
        return false;
    }
}

void search(std::string_view text, size_t step) {
    Block block;
    for (size_t at = 0; at < text.size(); at += step) {
        block->append(text.substr(at, step));
        size_t before = block->text().size();
        IPE_Object found = at % 2 ? block->outerXml("a") : block->innerXml("a");
        if (!found || found->c_str()[0] == '\0') {
            if (block->text().size() != before) abort();
        } else if (block->text().size() + found.as<IPE_StringType>()->bytes() > before) {
            abort();
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    size_t step = 1 + data[0] % 16;
    std::string_view text = fuzzText(data + 1, size - 1);
    fuzzRun([&] {
        Block whole, pieces;
        std::vector<std::string> expected, got;
        whole->append(text);
        bool sound = takeAll(whole, expected), more = true;
        for (size_t at = 0; more && at < text.size(); at += step) {
            pieces->append(text.substr(at, step));
            more = takeAll(pieces, got);
        }
        if (more != sound || got != expected) abort();
        if (sound && whole->text() != pieces->text()) abort();
        search(text, step);
    });
    return 0;
}
