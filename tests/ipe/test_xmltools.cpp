// The XML tools below the script language: buffers against a plain reading of their rules over random texts
// in random pieces, the work they do, limits and bytes that no script could send.
#include <random>

#include "ipe/xml/ipe_linebuffer.h"
#include "ipe/xml/ipe_pyxparser.h"
#include "ipe/xml/ipe_xmlblock.h"
#include "values_testing.h"

namespace {

using namespace std::string_literals;
using XmlTools = ValuesTest;

struct Block {
    explicit Block(int32_t limit = 0) : object(IPE_New<IPE_XMLBlock>(limit)) { object->__bind__(); }
    IPE_XMLBlock* operator->() { return static_cast<IPE_XMLBlock*>(object.get()); }
    IPE_Object object;
};
struct Lines {
    explicit Lines(int32_t limit = 0) : object(IPE_New<IPE_LineBuffer>(limit)) { object->__bind__(); }
    IPE_LineBuffer* operator->() { return static_cast<IPE_LineBuffer*>(object.get()); }
    IPE_Object object;
};

std::string textOf(const IPE_Object& value) { return value ? std::string(value->c_str()) : "None"; }
std::string tokens(std::string_view text, bool strict) {
    return std::string(IPE_PyxTokens(text, strict).as<IPE_ListType>()->join("|")->c_str());
}

// --- The rules, scanning from the start each time.

struct PlainBlock {
    std::string text;

    bool at(size_t i, std::string_view mark) const {
        return std::string_view(text).substr(i).starts_with(mark);
    }
    std::string take(size_t end, size_t begin) {
        std::string stanza = text.substr(begin, end - begin);
        text.erase(0, end);
        return stanza;
    }
    std::string stanza(size_t i = 0) {
        for (; i < text.size(); ++i) {
            if (text[i] != '<') continue;
            if (i + 1 == text.size()) return "None";
            if (!at(i, "<?") && !at(i, "<!")) return inside(i);
            std::string_view mark = text[i + 1] == '?' ? ">" : "-->";
            i = text.find(mark, i);
            if (i == std::string::npos) return "None";
            i += mark.size() - 1;
        }
        return "None";
    }
    std::string inside(size_t begin) {
        size_t i = text.find_first_of(" >/", begin + 1);
        if (i == std::string::npos) return "None";
        std::string closing = "</" + text.substr(begin + 1, i - begin - 1) + ">";
        for (bool opening = true; i < text.size(); ++i) {
            if (at(i, "<![CDATA[")) {
                i = text.find("]]>", i + 9);
                if (i == std::string::npos) return "None";
                i += 2;
            } else if (opening && at(i, "/>")) {
                return take(i + 2, begin);
            } else if (at(i, closing)) {
                return take(i + closing.size(), begin);
            } else if (text[i] == '>') {
                opening = false;
            }
        }
        return "None";
    }
    size_t find(const std::string& name) const {
        for (size_t i = 0; i < text.size(); ++i) {
            size_t next = i + 1 + name.size();
            if (at(i, "<" + name) && next < text.size() && strchr(" >/", text[next])) return i;
        }
        return std::string::npos;
    }
    std::string outer(const std::string& name) {
        size_t tag = find(name);
        return tag == std::string::npos ? "" : stanza(tag);
    }
    std::string inner(const std::string& name) {
        size_t tag = find(name);
        if (tag == std::string::npos) return "";
        size_t i = text.find_first_of("/>", tag);
        return i == std::string::npos || text[i] == '/' ? "" : stanza(i + 1);
    }
};

std::string plainLine(std::string& text) {
    size_t end = text.find_first_of("\r\n");
    if (end == std::string::npos) return "None";
    std::string line = text.substr(0, end);
    text.erase(0, text[end] == '\r' && text[end + 1] == '\n' ? end + 2 : end + 1);
    return line;
}

class Random {
  public:
    explicit Random(unsigned seed) : engine_(seed) {}
    size_t below(size_t limit) { return engine_() % limit; }
    std::string text(std::initializer_list<const char*> words, size_t count) {
        std::string text;
        while (count-- > 0) text += words.begin()[below(words.size())];
        return text;
    }

  private:
    std::mt19937 engine_;
};

TEST_F(XmlTools, StanzasAsThePlainRulesTellThem) {
    Random random(1);
    for (int round = 0; round < 4000; ++round) {
        Block block;
        PlainBlock plain;
        std::string text =
            random.text({"<a>",  "</a>", "<b ", "</b>", "<", ">", "/",    "<a", "<![CDATA[",      "]]>", "]",
                         "<!--", "-->",  "-",   "<?",   "x", " ", "<ab>", "</", "<a><b>1</b></a>"},
                        random.below(40));
        for (size_t at = 0; at < text.size();) {
            std::string piece = text.substr(at, 1 + random.below(random.below(2) ? 2 : 20));
            at += piece.size();
            block->append(piece);
            plain.text += piece;
            std::string name = random.below(2) ? "a" : "b";
            switch (random.below(8)) {
                case 0: EXPECT_EQ(textOf(block->outerXml(name)), plain.outer(name)) << text; break;
                case 1: EXPECT_EQ(textOf(block->innerXml(name)), plain.inner(name)) << text; break;
                case 2:
                case 3: break;
                default: EXPECT_EQ(textOf(block->getStanza()), plain.stanza()) << text;
            }
            ASSERT_EQ(block->text(), plain.text) << text;
        }
    }
}

TEST_F(XmlTools, LinesAsThePlainRulesTellThem) {
    Random random(2);
    for (int round = 0; round < 2000; ++round) {
        Lines lines;
        std::string plain,
            text = random.text({"\n", "\r", "\r\n", "a", "bc", ",", "\"", "'"}, random.below(60));
        for (size_t at = 0; at < text.size();) {
            std::string piece = text.substr(at, 1 + random.below(8));
            at += piece.size();
            lines->append(piece);
            plain += piece;
            if (random.below(4) == 0) {
                IPE_Object fields = lines->splitCsvLine();
                std::string line = plainLine(plain), joined = fields ? "" : "None";
                for (int i = 0; fields && i < fields.as<IPE_TupleType>()->count(); ++i)
                    joined += (i ? "," : "") + str(IPE_Tuple(fields)[i]);
                EXPECT_EQ(joined, line);
            } else if (random.below(2)) {
                EXPECT_EQ(textOf(lines->getLine()), plainLine(plain));
            }
            ASSERT_EQ(lines->text(), plain);
        }
        IPE_Object rest = lines->getLines();
        for (int i = 0; i < rest.as<IPE_ListType>()->count(); ++i)
            EXPECT_EQ(str(IPE_List(rest)[i]), plainLine(plain));
        EXPECT_EQ(plainLine(plain), "None");
        EXPECT_EQ(lines->text(), plain);
    }
}

// Each byte is looked at a few times at most, however it comes and however much leaves at the front.
TEST_F(XmlTools, WorkIsLinear) {
    const size_t size = 300000;
    for (const char* head : {"<a>", "<a ", "<?", "<!", "<a><![CDATA[", "", "<b/><a>"}) {
        Block block;
        std::string body = "x-]< "s;
        block->append(head);
        for (size_t i = 0; i < size; ++i) {
            block->append(std::string_view(body).substr(i % body.size(), 1));
            block->getStanza();
        }
        EXPECT_LT(block->work(), 8 * size) << head;
    }
    Block searched;
    Lines partial;
    for (size_t i = 0; i < size; ++i) {
        searched->append(i % 2 ? "<" : "a");
        searched->outerXml("ab");
        searched->innerXml("a");
        partial->append("x");
        partial->getLine();
    }
    EXPECT_LT(searched->work(), 8 * size);
    EXPECT_LE(partial->work(), 2 * size);

    Block many;
    Lines front;
    std::string stanzas, lines;
    for (size_t i = 0; i < size / 10; ++i)
        stanzas += "<ab>1</ab>", lines += i % 2 ? "123456789\n" : "12345678\r\n";
    many->append(stanzas);
    front->append(lines);
    for (size_t i = 0; i < size / 10; ++i) {
        ASSERT_TRUE(many->getStanza());
        ASSERT_TRUE(front->getLine());
    }
    EXPECT_LT(many->work(), 3 * size);
    EXPECT_LT(front->work(), 4 * size);
}

TEST_F(XmlTools, LimitsCountToTheFirstNul) {
    const std::string full = "RuntimeError: XML Block buffer maximum size exceeded!";
    for (const IPE_Object& tool : {Lines(4).object, Block(4).object}) {
        call(tool, "append", {S("1234")});
        for (const char* more : {"5", ""}) EXPECT_EQ(raised([&] { call(tool, "append", {S(more)}); }), full);
        EXPECT_EQ(str(call(tool, "getbuffer")), "12345");  // the caller is to reset
        call(tool, "reset");
        EXPECT_EQ(str(call(tool, "getbuffer")), "");
    }
    Lines nul(4);
    nul->append("ab\n\0"s);
    nul->append("more than that\n12345\n");
    EXPECT_EQ(textOf(nul->getLine()), "ab");
    EXPECT_EQ(textOf(nul->getLine()), "");  // a text ends at its NUL
    EXPECT_EQ(raised([&] { nul->append("x"); }), full);
    Block negative(-1);
    EXPECT_EQ(raised([&] { negative->append(""); }), full);

    IPE_Object huge = I(int64_t(1) << 32);
    EXPECT_EQ(IPE_InputBuffer::limitOf(IPE_Arguments(&huge, 1)), INT32_MAX);
    EXPECT_EQ(IPE_InputBuffer::limitOf(IPE_Arguments()), 1 << 20);
}

TEST_F(XmlTools, TokensOfOddTexts) {
    EXPECT_EQ(tokens("<a b\0c='1'>x\0y</a\0z>"s, true), "(a|Ab|-x|)a");
    EXPECT_EQ(tokens("<a>&#x00;</a>", true), "(a|-|)a");
    EXPECT_EQ(tokens("<></><b/c></b/c", true), "(|)|(b/c|)b/c");
    EXPECT_EQ(tokens("<?x?y\n<a =''/>", false), "?x|-y|-\n|(a|A |)a");
    EXPECT_EQ(tokens("\xEF\xBF\xBB<a/>", false), "-\xBB|(a|)a");  // each byte of the mark on its own
}

}  // namespace
