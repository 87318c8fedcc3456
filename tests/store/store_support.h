// What the tests of the store share: stores in memory.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_stringtype.h"
#include "runtime/xpk_threadstate.h"
#include "store/smf_file.h"
#include "store/smf_readertable.h"
#include "store/smf_writer.h"

// A file whose bytes outlive it.
class SharedFile final : public SMF_File {
  public:
    explicit SharedFile(std::shared_ptr<std::string> content, std::string name = "memory.smf")
        : SMF_File(std::move(name)), content_(std::move(content)) {}
    int64_t size() override { return static_cast<int64_t>(content_->size()); }
    size_t read(int64_t offset, void* buffer, size_t size) override {
        if (offset < 0 || offset >= this->size()) return 0;
        return content_->copy(static_cast<char*>(buffer), size, static_cast<size_t>(offset));
    }
    void write(int64_t offset, const void* bytes, size_t size) override {
        auto at = static_cast<size_t>(offset);
        ASSERT_LE(at, content_->size());
        if (at + size > content_->size()) content_->resize(at + size);
        content_->replace(at, size, static_cast<const char*>(bytes), size);
    }
    void flush() override {}
    void close() override {}

  private:
    std::shared_ptr<std::string> content_;
};

// The bytes of a store that `fill` writes.
inline std::shared_ptr<std::string> makeStore(const std::function<void(SMF_Writer&)>& fill) {
    auto bytes = std::make_shared<std::string>();
    SMF_Writer writer;
    writer.open(std::make_unique<SharedFile>(bytes));
    fill(writer);
    writer.close();
    return bytes;
}

// A store with one table "T" of one column "Value".
inline std::shared_ptr<std::string> columnStore(int32_t type, std::string_view format,
                                                const std::vector<IPE_Object>& values, uint32_t zero,
                                                IPE_Object tags = IPE_NewDict()) {
    return makeStore([&](SMF_Writer& writer) {
        writer.setCompressed(values.size() % 2);
        SMF_WriterTable table("memory.smf");
        tags.as<IPE_DictType>()->setText("Format", IPE_String(format));
        table.addField("Value", type, tags);
        table.create("T", writer, 4096, zero);
        for (const IPE_Object& value : values) {
            table.assignObject(0, value);
            table.commit();
        }
    });
}

// A reader and one table of it.
struct OpenTable {
    OpenTable(std::shared_ptr<std::string> bytes, const char* name) {
        reader.open(std::make_unique<SharedFile>(std::move(bytes)));
        table.connect(reader, name);
    }
    SMF_Reader reader;
    SMF_ReaderTable table;
};

// The exception that `action` raises: "Type: message".
inline std::string faultOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const XPK_Exception& e) {
        return e.type() + ": " + e.message();
    }
    return "none";
}
