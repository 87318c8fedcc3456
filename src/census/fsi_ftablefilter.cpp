// Tests on what a number stands for.
//
// All kinds but two end in an ordinary field test on a row of another table: the paths index, a table of the
// census, a table of properties. The number chooses the row and the answer is kept: the last one for all
// kinds, and for foreign rows and properties, which no order brings together, all of them, two bits each.
//
// A number 0 stands for nothing. Columns then show the empty value, and so does the row tested here: the
// other table stands behind its last row, where every value is reset.
//
// `Path.NAME` looks at the folder's row in the table Path.
#include "census/fsi_ftablefilter.h"

#include <unordered_map>

#include "census/index/fsi_pathnamehelper.h"
#include "ipe/values/ipe_tokensource.h"
#include "store/filters/smf_stringfilter.h"

// A page holds 4,096 answers in 1 KiB. Numbers of a sound table lie close together; wild ones only cost
// memory up to the bound.
class FSI_FTableFilter::Answers {
  public:
    // The two small tables answer from an array.
    static constexpr int64_t FewNumbers = 8;
    explicit Answers(bool few) : few_(few) {}

    // -1 when unknown.
    int find(int64_t number) const {
        if (few_) return number >= 0 && number < FewNumbers ? small_[static_cast<size_t>(number)] : -1;
        auto found = pages_.find(number >> PageBits);
        if (found == pages_.end()) return -1;
        const Page& page = found->second;
        auto [word, bit] = placeOf(number);
        return page.known[word] & bit ? (page.yes[word] & bit) != 0 : -1;
    }
    void set(int64_t number, bool answer) {
        if (few_) {
            if (number >= 0 && number < FewNumbers)
                small_[static_cast<size_t>(number)] = static_cast<int8_t>(answer);
            return;
        }
        if (pages_.size() == MostPages) pages_.clear();
        Page& page = pages_[number >> PageBits];
        auto [word, bit] = placeOf(number);
        page.known[word] |= bit;
        if (answer) page.yes[word] |= bit;
    }

  private:
    static constexpr int PageBits = 12;
    static constexpr size_t MostPages = 32768;
    struct Page {
        uint64_t known[64] = {}, yes[64] = {};
    };
    static std::pair<size_t, uint64_t> placeOf(int64_t number) {
        auto low = static_cast<uint64_t>(number) & ((1u << PageBits) - 1);
        return {low / 64, uint64_t{1} << (low % 64)};
    }

    bool few_;
    std::array<int8_t, FewNumbers> small_{-1, -1, -1, -1, -1, -1, -1, -1};
    std::unordered_map<int64_t, Page> pages_;
};

FSI_FTableFilter::FSI_FTableFilter(FSI_RecordFilter& owner, const SMF_FilterScope& scope, int32_t index)
    : SMF_FieldFilter(scope, index), owner_(owner), table_(owner.table()) {
    if (meta_->type == SMF_TypeI32)
        value32_.connect(table_, meta_->name);
    else if (meta_->type == SMF_TypeI64)
        value64_.connect(table_, meta_->name);
    else
        value_.connect(table_, meta_->name);
}

FSI_FTableFilter::~FSI_FTableFilter() = default;

// --- Reading.

bool FSI_FTableFilter::parse(IPE_TokenSource& tokens, std::string_view name, int depth) {
    const std::string table = meta_->tagText("FTable"), mode = meta_->tagText("FMode"),
                      shown = meta_->tagText("FShow");
    const bool unc = SMF_SameWord(name, "unc");
    if (unc || SMF_SameWord(name, "path")) {
        if (tokens.kind() == TOKEN_DOT)
            parsePathColumn(tokens, unc, depth);
        else
            parseText(tokens, depth);
    } else if (mode == "1:1" && !table.empty()) {
        kind_ = Kind::Row;
        answers_ = std::make_unique<Answers>(table == "FileSI" || table == "FileDSI");
        parseForeign(tokens, table, shown, depth);
    } else if (mode == "Compare") {
        comparison_.parse(tokens, table_);
    } else if (mode == "UDP" && !table.empty()) {
        kind_ = Kind::Property;
        property_ = shown;
        answers_ = std::make_unique<Answers>(false);
        parseForeign(tokens, table, "Value", depth);
    } else if (table == "PathLevel") {
        parseLevel(tokens, shown);
    } else {
        tokens.syntaxError("The field " + meta_->name + " has no test");
    }
    return true;
}

void FSI_FTableFilter::setTest(std::unique_ptr<SMF_FieldFilter> test) {
    test_ = std::move(test);
    notCacheable_ = test_->isNotCacheable();
    measures_ = test_->measures();
}

// A cursor of its own over the paths index, past any schema.
void FSI_FTableFilter::parseText(IPE_TokenSource& tokens, int depth) {
    kind_ = Kind::Text;
    ownTable_ = std::make_unique<SMF_ReaderTable>();
    pathNames_ = table_.census().sharePathNames();
    ownTable_->connect(pathNames_->store(), FSI_PathNameHelper::TableName);
    other_ = ownTable_.get();
    SMF_FilterScope scope{*other_, scope_.context, scope_.variables};
    auto test = std::make_unique<SMF_StringFilter>(scope, other_->fieldIndex("Path"));
    test->parse(tokens, "Path", depth);
    setTest(std::move(test));
}

// The table Path is the paths index. What that lacks is looked for in the stored table, except for texts
// when paths are hidden, since they stand there in clear.
void FSI_FTableFilter::parsePathColumn(IPE_TokenSource& tokens, bool unc, int depth) {
    kind_ = Kind::Folder;
    tokens.next();
    if (tokens.kind() != TOKEN_IDENTIFIER) expecting(tokens, "the name of a field");
    std::string column = tokens.getTokenText();
    tokens.next();
    FSI_ReaderTable* table = &table_.foreignTable(unc ? "UNC" : "Path");
    if (!unc && !table->hasField(column) && table_.census().location("Path") != -1) {
        auto stored = std::make_unique<FSI_ReaderTable>();
        stored->connect(table_.census(), "Path", false);
        auto field = stored->meta().findField(column);
        bool hidden =
            table_.census().isSet("hide_paths") && field && SMF_SameType(field->type, SMF_TypeString);
        if (field && !hidden) {
            table = stored.get();
            ownTable_ = std::move(stored);
        }
    }
    other_ = table;
    nested_ = owner_.makeForeign(*table, tokens);
    setTest(nested_->takeTest(column, tokens, depth));
}

void FSI_FTableFilter::parseForeign(IPE_TokenSource& tokens, const std::string& table,
                                    const std::string& column, int depth) {
    FSI_ReaderTable& foreign = table_.foreignTable(table);
    other_ = &foreign;
    nested_ = owner_.makeForeign(foreign, tokens);
    setTest(nested_->takeTest(column, tokens, depth));
}

void FSI_FTableFilter::parseLevel(IPE_TokenSource& tokens, const std::string& shown) {
    struct Entry {
        const char* name;
        FSI_Figure figure;
    };
    static constexpr Entry Figures[] = {
        {"PathFiles", FSI_PathFiles}, {"Size", FSI_PathSize},       {"Space", FSI_PathSpace},
        {"Files", FSI_PathFiles},     {"Depth", FSI_FigureCount},   {"TreeSize", FSI_TreeSize},
        {"TreeSpace", FSI_TreeSpace}, {"TreeFiles", FSI_TreeFiles},
    };
    for (const Entry& entry : Figures)
        if (shown == entry.name) {
            kind_ = Kind::Level;
            figure_ = entry.figure;
            comparison_.parse(tokens, table_);
            levels_ = table_.census().sharePathLevels();
            return;
        }
    tokens.syntaxError("The field " + meta_->name + " has no test");
}

// --- Running.

int64_t FSI_FTableFilter::number() const {
    if (meta_->type == SMF_TypeI32) return value32_.get();
    if (meta_->type == SMF_TypeI64) return value64_.get();
    return value_.as64();
}

// False when nothing stands behind the number.
bool FSI_FTableFilter::selectRow(int64_t number) {
    if (number <= 0) return false;
    if (kind_ == Kind::Property) return FSI_ReaderTable::seekProperty(nested_->table(), number, property_);
    if (kind_ == Kind::Text && number > other_->rows()) return false;
    other_->seek(number);
    return true;
}

bool FSI_FTableFilter::answer(int64_t number) {
    // The root stands in no folder.
    if (kind_ == Kind::Folder && number <= 1) return false;
    if (!selectRow(number)) {
        // The one row of a virtual table is not reset.
        if (nested_ && nested_->table().isVirtual()) return false;
        other_->seek(other_->rows());
        other_->next();
    }
    bool result = true;
    test_->evaluate(result);
    return result;
}

// A report may stand on a directory of the same index and finds it current again.
int64_t FSI_FTableFilter::figure(int64_t number) {
    FSI_PathLevelHelper& levels = *levels_;
    int32_t level = levels.depth();
    int64_t row = levels.row(), value = 0;
    if (levels.locateNumber(number))
        value = figure_ == FSI_FigureCount ? levels.depth() : levels.figure(figure_);
    if (row != 0)
        levels.locateRow(level, row);
    else
        levels.leave();
    return value;
}

void FSI_FTableFilter::evaluate(bool& result) {
    const int64_t number = this->number();
    if (kind_ == Kind::Compare) {
        result = comparison_.holds(number);
        return;
    }
    if (!known_ || number != last_) {
        known_ = false;
        last_ = number;
        if (kind_ == Kind::Level) {
            lastFigure_ = figure(number);
        } else if (int known = answers_ && !measures_ ? answers_->find(number) : -1; known >= 0) {
            lastAnswer_ = known != 0;
        } else {
            int64_t before = std::exchange(SMF_Accumulator(), 0);
            lastAnswer_ = answer(number);
            lastMeasure_ = std::exchange(SMF_Accumulator(), before);
            if (answers_) answers_->set(number, lastAnswer_);
        }
        known_ = true;
    }
    if (kind_ == Kind::Level)
        result = comparison_.holds(lastFigure_);
    else
        result = lastAnswer_;
    if (measures_) SMF_Accumulator() += lastMeasure_;
}
