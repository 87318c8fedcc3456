// Loading source: a file is cut into modules at its `class` lines, and each module's lines are tokenised
// once.
//
// Errors carry the trace fields `file` and `line`. The registry's lock is held while a file loads.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "ipe/language/ipe_program.h"
#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_tokenizer.h"

// A module read from source.
class IPE_ModuleSource : public IPE_ModuleNode {
  public:
    static const char TypeName[];
    IPE_ModuleSource(std::string path, std::string file, uint32_t line)
        : IPE_ModuleNode(TypeName),
          path_(std::move(path)),
          file_(std::move(file)),
          classLine_(line),
          nextLine_(line) {}
    // Counts the line, and tokenises the text: one logical line, which may hold line feeds inside triple
    // quotes.
    void addLine(std::string_view text);
    void import(IPE_Frame& frame) override;
    // The dictionary form: module, file, line, tokens. This is how a module gets into a bundle.
    void __repr__(IPE_PrintContext& context, IPE_StackList& stack) override;
    IPE_Object dictionary() const;
    const IPE_StoredTokens& stored() const noexcept { return stored_; }
    const std::string& path() const noexcept { return path_; }
    const std::string& file() const noexcept { return file_; }

  private:
    std::string path_, file_;
    uint32_t classLine_, nextLine_;
    IPE_StoredTokens stored_;
};

// A module from a bundle, held as the dictionary of the same shape.
class IPE_ModuleInternal : public IPE_ModuleNode {
  public:
    static const char TypeName[];
    // The dictionary must have the entry "module" and is marked shared.
    explicit IPE_ModuleInternal(const IPE_Object& dictionary);
    void import(IPE_Frame& frame) override;
    void __repr__(IPE_PrintContext& context, IPE_StackList& stack) override;
    const IPE_Object& dictionary() const noexcept { return dictionary_; }

  private:
    IPE_Object dictionary_;
    IPE_StoredTokens stored_;
};

// Loads a file, or a text that stands for one; registers its modules below `prefix` (empty for none) and
// gives their paths in order. A file that cannot be read raises IOError.
std::vector<std::string> load_source(std::string_view prefix, const std::string& path);
std::vector<std::string> load_source_text(std::string_view prefix, std::string_view text,
                                          const std::string& path);
