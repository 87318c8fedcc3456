// Tables of readers and writers: limits, what closes, and what native code asks of a cursor of scripts.
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "store/fields/smf_datefield.h"
#include "store/fields/smf_i64field.h"
#include "store/fields/smf_treefield.h"
#include "store/script/smf_cursortype.h"
#include "store_support.h"

namespace {

class Tables : public testing::Test {
    XPK_ThreadScope scope_{true};
};

}  // namespace

TEST_F(Tables, ShadowsReadTheColumnOfAnother) {
    OpenTable open(columnStore(SMF_TypeI64, "", {IPE_Int(1), IPE_Int(2), IPE_Int(3)}, 10), "T");
    open.table.addShadow("Again", "Value", {});
    open.table.addShadow("again", "Absent", {});  // is there already
    EXPECT_EQ(faultOf([&] { open.table.addShadow("Other", "Absent", {}); }),
              "DatabaseError: The shadow field Absent does not exist");
    open.table.seek(2);
    EXPECT_EQ(open.table.asObject(1)->__int__(), 2);
    EXPECT_EQ(open.table.asObject(0)->__int__(), 2);
    EXPECT_EQ(faultOf([&] { open.table.asObject(2); }), "DatabaseError: Field index not in valid range");
    SMF_I64 number;
    number.connect(open.table, "Value");
    open.table.seek(3);
    EXPECT_EQ(number.get(), 3);
    open.table.next();
    EXPECT_EQ(number.get(), 0);  // behind the end
}

TEST_F(Tables, ARecordTakes128Fields) {
    SMF_WriterTable table("memory.smf");
    for (int i = 0; i < 128; ++i) table.addField(std::to_string(i), SMF_TypeI64, {});
    EXPECT_EQ(faultOf([&] { table.addField("more", SMF_TypeI64, {}); }), "DatabaseError: Too many fields");
}

TEST_F(Tables, UnchangedValuesAreTheLastRecordAgain) {
    auto bytes = makeStore([&](SMF_Writer& writer) {
        SMF_WriterTable table("memory.smf");
        SMF_I64 number;
        number.connect(table, "Number");
        table.create("T", writer, 4096, 10);
        writer.setCompressed(true);  // comes too late for the table
        number.set(7);
        table.commit();
        table.commit();
    });
    OpenTable open(bytes, "T");
    EXPECT_TRUE(open.reader.compressed());
    EXPECT_FALSE(open.table.meta().zlib);
    open.table.seek(2);
    EXPECT_EQ(open.table.asObject(0)->__int__(), 7);
}

TEST_F(Tables, ACursorFillsListsAndDictionariesAlone) {
    SMF_CursorType cursor;
    EXPECT_EQ(faultOf([&] { cursor.record(IPE_NewList()); }), "DatabaseError: Not connected");
    EXPECT_EQ(faultOf([&] { cursor.record(IPE_NewTuple()); }),
              "RuntimeError: Unsupported type passed to FSI_ReaderTable::get_record()");
}

// What a fixed field shows is not what a writer stores.
TEST(FixedFields, KeepWhatWasAssigned) {
    auto bytes = std::make_shared<std::string>();
    SMF_Writer writer;
    writer.open(std::make_unique<SharedFile>(bytes));
    SMF_WriterTable table("memory.smf");
    IPE_Object tags = IPE_NewDict();
    tags.as<IPE_DictType>()->setText("Transform", IPE_String("Fixed"));
    tags.as<IPE_DictType>()->setText("Fixed", IPE_String("2001-02-03"));
    table.addField("Day", SMF_TypeDate, tags);
    table.addField("Tree", SMF_TypeTree, tags);
    table.create("T", writer, 4096, 10);
    auto& tree = static_cast<SMF_TreeField&>(table.field(1));
    tree.assignText("a.b");
    EXPECT_EQ(tree.parts().size(), 1u);
    EXPECT_EQ(tree.stored().size(), 2u);
    table.assignObject(0, IPE_String("1999-12-31"));
    auto& day = static_cast<SMF_DateField&>(table.field(0));
    EXPECT_EQ(day.asYMDHMS().year, 2001);
    EXPECT_EQ(IPE_Object_Text(table.asObject(0)), "2001-02-03");
    EXPECT_EQ(day.stored().year, 1999);
}
