// One function per form; a tag decides which. The value recursion is bounded by IPE_DepthScope.
#include "ipe/values/ipe_savedreader.h"

#include <algorithm>

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_depth.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"

namespace {

using Tag = IPE_SavedTag;

constexpr uint8_t Magic[4] = {0x49, 0x42, 0x46, 0x1A};

class SavedReader {
  public:
    explicit SavedReader(EPA_DataInput& in) : in_(in) {}

    Tag tag() {
        ++offset_;
        return static_cast<Tag>(in_.readByte());
    }

    IPE_Object value(Tag tag) {
        switch (tag) {
            case Tag::String: return string();
            case Tag::Int: offset_ += 8; return IPE_Int(in_.readInt64());
            case Tag::Float: return IPE_Float(number());
            case Tag::None: return IPE_None();
            case Tag::True: return IPE_True();
            case Tag::False: return IPE_False();
            case Tag::Minus: return negative();
            case Tag::ListBegin: return sequence<IPE_ListType>(Tag::ListEnd);
            case Tag::TupleBegin: return sequence<IPE_TupleType>(Tag::TupleEnd);
            case Tag::DictBegin: return dict();
            default: fail("Unexpected token in saved data");
        }
    }

    [[noreturn]] void fail(const char* decode) {
        XPK_Raise("IPESyntaxException", "$decode\n$position")
            .string("decode", decode)
            .string("position", "at offset " + std::to_string(offset_ - 1))
            .raise();
    }

  private:
    // Takes `size` bytes in steps, so that memory follows what really comes.
    std::string bytes(size_t size) {
        constexpr size_t Step = 65536;
        std::string text;
        while (text.size() < size) {
            size_t have = text.size();
            size_t take = std::min(size - have, std::max(Step, have));
            text.resize(have + take);
            in_.readBytes(text.data() + have, take);
        }
        offset_ += static_cast<int64_t>(size);
        return text;
    }

    IPE_Object string() {
        offset_ += 4;
        int32_t size = in_.readInt32();
        if (size < 0 || size >= static_cast<int32_t>(EPA_StringBuffer::CapacityLimit))
            fail("Illegal length in saved data");
        return IPE_String(bytes(static_cast<size_t>(size)));
    }

    double number() {
        offset_ += 2;
        int16_t size = in_.readInt16();
        if (size < 0) fail("Illegal length in saved data");
        return IPE_String(bytes(static_cast<size_t>(size)))->__float__();
    }

    IPE_Object negative() {
        Tag kind = tag();
        if (kind == Tag::Int) return IPE_Int(0)->__sub__(value(kind));
        if (kind == Tag::Float) return IPE_Float(-number());
        fail("A number must follow the minus");
    }

    template <class Sequence>
    IPE_Object sequence(Tag end) {
        IPE_DepthScope depth;
        IPE_Object result = IPE_New<Sequence>();
        for (Tag next = tag(); next != end;) {
            result.as<Sequence>()->append(value(next));
            next = separator(end);
        }
        return result;
    }

    IPE_Object dict() {
        IPE_DepthScope depth;
        IPE_Object result = IPE_NewDict();
        for (Tag next = tag(); next != Tag::DictEnd;) {
            IPE_Object key = value(next);
            if (tag() != Tag::Colon) fail("Expecting :");
            result.as<IPE_DictType>()->set(key, value(tag()));
            next = separator(Tag::DictEnd);
        }
        return result;
    }

    // Behind an element: the tag of the next one, or the end.
    Tag separator(Tag end) {
        Tag next = tag();
        if (next == end) return next;
        if (next != Tag::Comma) fail("Expecting ,");
        return tag();
    }

    EPA_DataInput& in_;
    int64_t offset_ = 0;
};

}  // namespace

IPE_Object IPE_ReadSaved(EPA_DataInput& in) {
    SavedReader reader(in);
    return reader.value(reader.tag());
}

IPE_Object IPE_ReadObjectFile(EPA_DataInput& in) {
    for (uint8_t byte : Magic) XPK_Assert(in.readByte() == byte);
    in.readInt32();
    in.readInt32();
    SavedReader reader(in);
    IPE_Object value = reader.value(reader.tag());
    if (reader.tag() != Tag::End) reader.fail("Expecting the end of the object");
    return value;
}

void IPE_WriteObjectFile(EPA_DataOutput& out, const IPE_Object& value) {
    if (value.isNull()) XPK_Raise("RuntimeError", "Null object passed to IPE_WriteObjectFile").raise();
    out.writeBytes(Magic, sizeof Magic);
    out.writeInt32(2);
    out.writeInt32(0);
    value->save(out);
    out.writeByte(static_cast<uint8_t>(Tag::End));
}
