// Path values.
//
// Strings alone are the common case and go to bytes without a detour through UTF-16. A component that is raw
// units makes the whole path units.

#include "ipe/nt/ipe_path.h"

#include <algorithm>

#include "ipe/nt/ipe_dirtyutf16type.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_stringtype.h"
#include "platform/pf_paths.h"
#include "runtime/epa_unicode.h"
#include "runtime/streams/epa_fileerror.h"

namespace {

const IPE_SequenceType* sequenceOf(const IPE_Object& path) {
    if (auto* list = path.tryAs<IPE_ListType>()) return list;
    return path.tryAs<IPE_TupleType>();
}

// Calls visit(component) for each of the components wanted.
template <class Visit>
void eachComponent(const IPE_Object& path, int limit, Visit visit) {
    const IPE_SequenceType* sequence = sequenceOf(path);
    if (!sequence) {
        visit(path);
        return;
    }
    int count = limit < 0 ? sequence->count() : std::min(limit, sequence->count());
    for (int i = 0; i < count; ++i) visit(sequence->at(i));
}

void appendUnits(std::u16string& units, const IPE_Object& component) {
    if (auto* dirty = component.tryAs<IPE_DirtyUTF16Type>()) {
        units += dirty->units();
        return;
    }
    std::string_view text = PyString_SafeCast(component)->view();
    EPA_Unicode unicode;
    unicode.setUtf8(text.data(), text.size());
    units += unicode.toUtf16();
}

// The path in UTF-8 if all of it is strings.
bool joinText(const IPE_Object& path, int limit, std::string& text) {
    bool strings = true, first = true;
    eachComponent(path, limit, [&](const IPE_Object& component) {
        auto* string = component.tryAs<IPE_StringType>();
        strings = strings && string;
        if (!strings) return;
        if (!first) text += '\\';
        first = false;
        text += string->view();
    });
    return strings;
}

int bytesOf(const IPE_Object& path, int limit, std::string& bytes) {
    std::string text;
    if (joinText(path, limit, text)) return platform::textToBytes(text, bytes);
    return platform::pathToBytes(IPE_PathUnits(path, limit), bytes);
}

EPA_FileName fileName(const IPE_Object& value) {
    EPA_FileName name;
    name.text = IPE_PathText(value);
    name.error = bytesOf(value, -1, name.bytes);
    return name;
}

// Lets the streams and file objects open what a listing named.
const bool registered = (EPA_SetFileNameConverter(fileName), true);

}  // namespace

std::u16string IPE_PathUnits(const IPE_Object& path, int limit) {
    std::u16string units;
    bool first = true;
    eachComponent(path, limit, [&](const IPE_Object& component) {
        if (!first) units += u'\\';
        first = false;
        appendUnits(units, component);
    });
    return units;
}

int IPE_PathCount(const IPE_Object& path) {
    const IPE_SequenceType* sequence = sequenceOf(path);
    return sequence ? sequence->count() : 1;
}

std::string IPE_PathText(const IPE_Object& path, int limit) {
    std::string text;
    return joinText(path, limit, text) ? text : IPE_SanitisedText(IPE_PathUnits(path, limit));
}

std::string IPE_PathBytes(const IPE_Object& path, const char* api, int limit) {
    std::string bytes;
    IPE_ThrowPathError(api, bytesOf(path, limit, bytes), path, limit);
    return bytes;
}

IPE_Object IPE_PathValue(std::string_view bytes) {
    if (platform::nameIsPlain(bytes)) return IPE_String(bytes);
    return IPE_New<IPE_DirtyUTF16Type>(platform::pathToUnits(bytes));
}

void IPE_ThrowPathError(const char* api, int error, const IPE_Object& path, int limit) {
    if (error == 0) return;
    XPK_TraceScope scope;
    XPK_TraceString(scope.state(), "path", std::string_view(IPE_PathText(path, limit)));
    XPK_ThrowSystemError(api, error);
}
