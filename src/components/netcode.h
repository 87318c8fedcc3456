// NetCode: text encodings of binary data, behind the calls that every component offers.
//
// The sequence is Create, Set of the format, Set of the input, Do, Get of the output, Destroy. Values are
// binary; a length goes with every pointer. A handle belongs to one thread at a time. Base64 is RFC 4648
// section 4 on one line; the decoder skips blanks, tabs and line breaks and takes input without the padding.
// URL encoding keeps the unreserved characters of RFC 3986 and writes a blank as %20; the decoder also takes
// "+" for a blank.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// The numbers of formats, properties, methods and errors are seen outside and never change.
enum NetCodeFormat { NetCodeBase64 = 1, NetCodeUrl = 3 };
enum NetCodeProperty { NetCodeDecodedData = 1, NetCodeEncodedData = 3, NetCodeFormatProperty = 7 };
enum NetCodeMethod { NetCodeDecodeMethod = 3, NetCodeEncodeMethod = 4 };
enum NetCodeError {
    NetCodeOk = 0,
    NetCodeBadHandle = 1,
    NetCodeBadProperty = 2,
    NetCodeBadMethod = 3,
    NetCodeBadFormat = 4,
    NetCodeBadInput = 5,  // a foreign character, a "%" without two hex digits, a cut-off or misplaced padding
    NetCodeNoMemory = 6,
};

extern "C" {
typedef void* NetCode_Handle;
typedef int (*NetCode_Event)(void* sink, int event, int count, intptr_t* words, size_t* lengths);

// Null when memory is short. NetCode has no events; callback and sink may be null.
NetCode_Handle NetCode_Create(NetCode_Event event, void* sink);
void NetCode_Destroy(NetCode_Handle handle);
// Properties 1 and 3 take a pointer and a length and copy the bytes, property 7 a number. 0 or an error.
int NetCode_Set(NetCode_Handle handle, int property, int index, intptr_t value, size_t length);
// Method 4 encodes property 1 into property 3, method 3 decodes property 3 into property 1; neither takes
// arguments. On an error the properties stay as they were.
int NetCode_Do(NetCode_Handle handle, int method, int count, const intptr_t* words, const size_t* lengths);
// A number, or a pointer to `*length` bytes and a terminator, valid until the next call; 0 for a bad
// property.
intptr_t NetCode_Get(NetCode_Handle handle, int property, int index, size_t* length);
// The error of the handle's latest call.
int NetCode_GetLastErrorCode(NetCode_Handle handle);
}

// The same without a handle: the result in `out` (untouched on an error, never the input's own bytes), and 0
// or an error.
int NetCode_Encode(int format, std::string_view bytes, std::string& out);
int NetCode_Decode(int format, std::string_view text, std::string& out);

// Encoding in one of the formats above cannot fail.
inline std::string NetCode_Encode(NetCodeFormat format, std::string_view bytes) {
    std::string out;
    NetCode_Encode(static_cast<int>(format), bytes, out);
    return out;
}
