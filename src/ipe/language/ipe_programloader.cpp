// From source text to registered modules.
//
// A logical line is one physical line, or several when a triple-quoted literal spans them; the loader
// assembles it by running a tokenizer to the line's end, with nextLine feeding further physical lines, and
// hands the assembled text to the module. Names are interned and live as long as the process; literals are
// shared by the interpreters that import the module, each of which makes its own copies.
#include "ipe/language/ipe_programloader.h"

#include <cerrno>
#include <cstdio>
#include <memory>

#include "ipe/language/ipe_interpreter.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_numbers.h"

const char IPE_ModuleSource::TypeName[] = "ModuleSourceType";
const char IPE_ModuleInternal::TypeName[] = "ModuleTokensType";

namespace {

std::string readFile(const std::string& path) {
    auto fail = [&path](int error) {
        XPK_Raise("IOError", "[Errno $errno] $decode: '$name'")
            .number("errno", error)
            .string("decode", XPK_DecodeError(error))
            .string("name", path)
            .fields("errno,decode")
            .raise();
    };
    std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "rbe"), fclose);
    if (!file) fail(errno);
    std::string text;
    char block[65536];
    for (;;) {
        size_t got = fread(block, 1, sizeof block, file.get());
        text.append(block, got);
        if (got < sizeof block) break;
    }
    if (ferror(file.get())) fail(errno);
    return text;
}

// The physical lines of a text; a CR before the line feed belongs to the line's end.
class Lines {
  public:
    explicit Lines(std::string_view text) : text_(text) {
        if (text_.substr(0, 3) == "\xEF\xBB\xBF") text_.remove_prefix(3);
    }
    bool next(std::string_view& line) {
        if (position_ >= text_.size()) return false;
        size_t end = text_.find('\n', position_);
        if (end == std::string_view::npos) end = text_.size();
        line = text_.substr(position_, end - position_);
        position_ = end + 1;
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        ++number_;
        return true;
    }
    uint32_t number() const noexcept { return number_; }

  private:
    std::string_view text_;
    size_t position_ = 0;
    uint32_t number_ = 0;
};

// Scans one logical line, pulling further physical lines while a triple-quoted literal is open.
class IPE_ProgramLoader final : public IPE_Tokenizer {
  public:
    explicit IPE_ProgramLoader(Lines& lines) : lines_(lines) {}
    void assemble(std::string_view line) {
        assembled.assign(line);
        consumed = 0;
        assign(line);
        do {
            next();
        } while (kind() != TOKEN_EOL);
    }
    void nextLine() override {
        std::string_view line;
        if (!lines_.next(line)) XPK_Raise("RuntimeError", "Read past EOF").raise();
        ++consumed;
        std::string text = "\n";
        size_t i = 0;
        for (; i < line.size() && (line[i] == ' ' || line[i] == '\t'); ++i)
            text += line[i] == '\t' ? "  " : " ";
        text.append(line.substr(i));
        assembled += text;
        continueWith(std::move(text));
    }
    std::string assembled;
    int consumed = 0;

  private:
    Lines& lines_;
};

// Whether a line can hold the start of a triple-quoted literal; other lines need no assembly.
bool mayContinue(std::string_view line) {
    return line.find("\"\"\"") != std::string_view::npos || line.find("'''") != std::string_view::npos;
}

// The dotted path of a `class` line's name: leading underscores fall away, runs of two or more become a dot.
std::string modulePath(std::string_view text) {
    size_t i = text.find_first_not_of(" \t");
    text.remove_prefix(i == std::string_view::npos ? text.size() : i);
    i = text.find_first_not_of('_');
    text.remove_prefix(i == std::string_view::npos ? text.size() : i);
    std::string copy;
    for (size_t p = 0; p < text.size();) {
        size_t end = p;
        while (end < text.size() && text[end] == '_') ++end;
        if (end - p >= 2) {
            copy += '.';
            p = end;
        } else {
            copy += text[p++];
        }
    }
    IPE_Tokenizer tokenizer;
    tokenizer.assign(copy);
    tokenizer.next();
    std::string path;
    for (;;) {
        if (tokenizer.kind() != TOKEN_IDENTIFIER) tokenizer.syntaxError("Malformed class name");
        path += tokenizer.text();
        tokenizer.next();
        if (tokenizer.kind() == TOKEN_COLON || tokenizer.kind() == TOKEN_LPAREN) return path;
        if (tokenizer.kind() != TOKEN_DOT) tokenizer.syntaxError("Malformed class name");
        path += '.';
        tokenizer.next();
    }
}

}  // namespace

void IPE_ModuleSource::addLine(std::string_view text) {
    ++nextLine_;
    IPE_Tokenizer tokenizer;
    tokenizer.assign(text);
    tokenizer.next();
    if (tokenizer.kind() == TOKEN_EOL && !tokenizer.hasComment()) return;
    stored_.lines.push_back({nextLine_, tokenizer.indent(), static_cast<uint32_t>(stored_.kinds.size())});
    for (;; tokenizer.next()) {
        IPE_Object value;
        switch (tokenizer.kind()) {
            case TOKEN_IDENTIFIER: value = IPE_Object(IPE_StringType::intern(tokenizer.text())); break;
            case TOKEN_STRING: value = tokenizer.getString(); break;
            case TOKEN_NUMBER: value = tokenizer.getNumber(false); break;
            case TOKEN_EOL:
                if (tokenizer.hasComment()) value = IPE_String(tokenizer.text());
                break;
            default: break;
        }
        if (value) value.counted()->markShared();
        stored_.kinds.push_back(tokenizer.kind());
        stored_.values.push_back(std::move(value));
        if (tokenizer.kind() == TOKEN_EOL) return;
    }
}

void IPE_ModuleSource::import(IPE_Frame& frame) { frame.interpreter->importStored(frame, stored_, file_); }

IPE_Object IPE_ModuleSource::dictionary() const {
    IPE_Object dict = IPE_NewDict();
    IPE_Dict_Set(dict, "module", IPE_String(path_));
    IPE_Dict_Set(dict, "file", IPE_String(file_));
    IPE_Dict_Set(dict, "line", IPE_Int(classLine_));
    IPE_Dict_Set(dict, "tokens", stored_.toList());
    return dict;
}

void IPE_ModuleSource::__repr__(IPE_PrintContext& context, IPE_StackList& stack) {
    dictionary()->__repr__(context, stack);
}

IPE_ModuleInternal::IPE_ModuleInternal(const IPE_Object& dictionary)
    : IPE_ModuleNode(TypeName, IsContainer), dictionary_(IPE_Object_Strip(dictionary)) {
    stored_ = IPE_StoredTokens::fromList(IPE_Dict_Get(dictionary_, "tokens"));
    for (const IPE_Object& value : stored_.values)
        if (value) value.counted()->markShared();
}

void IPE_ModuleInternal::import(IPE_Frame& frame) {
    frame.interpreter->importStored(frame, stored_, IPE_Dict_GetString(dictionary_, "file", ""));
}

void IPE_ModuleInternal::__repr__(IPE_PrintContext& context, IPE_StackList& stack) {
    dictionary_->__repr__(context, stack);
}

std::vector<std::string> load_source(std::string_view prefix, const std::string& path) {
    return load_source_text(prefix, readFile(path), path);
}

std::vector<std::string> load_source_text(std::string_view prefix, std::string_view text,
                                          const std::string& path) {
    std::lock_guard guard(IPE_ModuleRegistry::lock());
    std::vector<std::string> paths;
    IPE_Object current;  // IPE_ModuleSource
    Lines lines(text);
    IPE_ProgramLoader loader(lines);
    std::string_view line;
    while (lines.next(line)) {
        XPK_TraceScope scope;
        XPK_TraceString(scope.state(), "file", path);
        XPK_TraceNumber(scope.state(), "line", lines.number());
        if (line.substr(0, 6) == "class ") {
            std::string module = std::string(prefix) + modulePath(line.substr(6));
            paths.push_back(module);
            current = IPE_New<IPE_ModuleSource>(module, path, lines.number());
            IPE_ModuleRegistry::register_(module, current);
        } else if (current) {
            auto* module = current.as<IPE_ModuleSource>();
            if (!mayContinue(line)) {
                module->addLine(line);
                continue;
            }
            loader.assemble(line);
            module->addLine(loader.assembled);
            for (int i = 0; i < loader.consumed; ++i) module->addLine({});
        }
    }
    return paths;
}
