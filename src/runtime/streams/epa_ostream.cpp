// What all output streams share: the call from a script.

#include "runtime/streams/epa_ostream.h"

#include "ipe/values/ipe_stringtype.h"

const char EPA_OStream::TypeName[] = "OStream";

IPE_Object EPA_OStream::__call__(const IPE_Arguments& arguments) {
    for (const IPE_Object& argument : arguments) {
        if (auto* string = argument.tryAs<IPE_StringType>()) {
            write(string->view());
        } else {
            write(IPE_Object_Text(argument));
        }
    }
    if (arguments.hasKeywords() && arguments.keywordTrue("flush")) flush();
    if (arguments.hasKeywords() && arguments.keywordTrue("shutdown")) shutdownSending();
    return {};
}
