// file_duplicated: a fingerprint of each file, for the application to group by.
//
// The fingerprint is made of columns, not of contents. Rows go through a database cursor, since there are as
// many as files.
#include "census/fsi_lists.h"
#include "census/reports/fsi_report.h"
#include "components/netcode.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_stringtype.h"
#include "ipe_sqlite/ipe_sqlite_cursor.h"
#include "runtime/epa_digest.h"

namespace {

constexpr std::string_view Separator = "\xF4\x8F\xBF\xB9";  // U+10FFF9

class FileDuplicated final : public FSI_Report {
  public:
    static constexpr int Version = 9;
    explicit FileDuplicated(const IPE_Arguments& arguments) : FSI_Report(arguments) {}

    IPE_Object run() override {
        cursor_ = requiredOption("dcursor");
        IPE_SafeCast<IPE_Sqlite_Cursor>(cursor_, "file_duplicated");
        openTable("File");
        connectColumns();
        openFilter("Size >= 5MB");
        std::vector<FSI_Selection> trees = selections(levels());
        int64_t total = 0;
        for (const FSI_Selection& tree : trees) total += treeRows(tree).count;
        progress().start("progress.file_duplicated", "${0}% Finding duplicated files", total);
        for (const FSI_Selection& tree : trees)
            walkMatches(treeRows(tree), [&] {
                batch_.push_back(row());
                if (batch_.size() > MostRows) flush();
            });
        flush();
        if (!statement().is<IPE_NoneType>()) about();
        return {};
    }

  private:
    static constexpr size_t MostRows = 10000;

    void connectColumns() {
        sql_ = "insert into details (name, size, date, owner, path, hash, ipath";
        std::string marks = ") values (?,?,?,?,?,?,?";
        std::vector<std::string> names = fieldNames();
        for (size_t i = 0; i < names.size(); ++i) {
            fields_.push_back(table().fieldIndex(names[i]));
            sql_ += ", field" + std::to_string(i + 1);
            marks += ",?";
        }
        sql_ += marks + ")";
        auto optional = [&](const char* name) { return table().meta().indexOf(name, false); };
        name_ = optional("Name"), size_ = optional("Size"), date_ = optional("Modified");
        owner_ = optional("Owner"), path_ = optional("Path");
        // A path that is shown as text is no number.
        if (path_ >= 0 && table().plan(path_).type == "String") path_ = -1;
    }

    std::vector<std::string> fieldNames() const {
        IPE_Object fields = option("fields");
        if (fields.isNull()) return {"Modified", "Size", "Name"};
        if (!fields.is<IPE_StringType>()) return FSI_TextsOf(fields, "column names");
        std::vector<std::string> names;
        std::string_view rest = fields.as<IPE_StringType>()->view();
        for (size_t at; (at = rest.find(Separator)) != std::string_view::npos;
             rest.remove_prefix(at + Separator.size()))
            names.emplace_back(rest.substr(0, at));
        names.emplace_back(rest);
        return names;
    }

    // A column's value as a database takes it: lists and the like as their representation.
    IPE_Object value(int32_t index) {
        if (index < 0) return IPE_None();
        IPE_Object value = table().value(index);
        bool plain = value.is<IPE_StringType>() || value.is<IPE_IntType>() || value.is<IPE_FloatType>() ||
                     value.is<IPE_NoneType>();
        return plain ? value : IPE_String(IPE_Object_ToString(value));
    }

    IPE_Object row() {
        IPE_Object fields = IPE_NewTuple();
        for (int32_t index : fields_) fields.as<IPE_TupleType>()->append(value(index));
        unsigned char digest[20];
        EPA_Sha1(IPE_Object_ToString(fields), digest);
        std::string_view bytes(reinterpret_cast<const char*>(digest), sizeof digest);
        IPE_Object shown = value(path_);
        int64_t path = shown.is<IPE_IntType>() ? shown->__int__() : pathNumber();
        IPE_Object row =
            IPE_TupleOf({value(name_), value(size_), value(date_), value(owner_), IPE_String(pathText(path)),
                         IPE_String(NetCode_Encode(NetCodeBase64, bytes)), IPE_Int(path)});
        for (const IPE_Object& field : fields.as<IPE_TupleType>()->items())
            row.as<IPE_TupleType>()->append(field);
        return row;
    }

    void flush() {
        if (batch_.empty()) return;
        IPE_Object rows = IPE_NewList();
        rows.as<IPE_ListType>()->items() = std::exchange(batch_, {});
        cursor_.as<IPE_Sqlite_Cursor>()->executemany(sql_, rows);
    }

    IPE_Object cursor_;
    std::string sql_;
    std::vector<int32_t> fields_;
    int32_t name_ = -1, size_ = -1, date_ = -1, owner_ = -1, path_ = -1;  // -1: the table has no such column
    std::vector<IPE_Object> batch_;
};

const FSI_ReportRegistration registered("fsi_report.storage.file_duplicated", "storage.file_duplicated",
                                        FSI_CallReport<FileDuplicated>);

}  // namespace
