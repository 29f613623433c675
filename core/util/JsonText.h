// Parsing of JSON that comes from outside the service (a client, a tool, the plan
// file). RapidJSON's default parser recurses once per nesting level, and so do its
// writer and destructor: a hostile text could exhaust the stack. Texts are parsed
// iteratively and refused beyond kMaxJsonDepth levels; a refused text is treated
// exactly like one that does not parse (the document is left as it was).
#pragma once

#include <rapidjson/document.h>

#include <cstddef>

namespace vendor::brevane::hardware::ostrel::core {

constexpr int kMaxJsonDepth = 256;

// True when no array or object in |text| (|length| bytes) nests deeper than
// kMaxJsonDepth. Brackets inside strings do not count.
bool jsonDepthWithinBound(const char* text, size_t length);

// Parses |length| bytes of |text| into |doc| with the default flags, without
// recursion. Returns false, leaving |doc| unchanged, when the text does not parse
// or nests too deeply.
template <typename DocumentType>
bool parseJsonText(DocumentType& doc, const char* text, size_t length) {
    if (text == nullptr || !jsonDepthWithinBound(text, length)) return false;
    doc.template Parse<rapidjson::kParseIterativeFlag>(text, length);
    return !doc.HasParseError();
}

}  // namespace vendor::brevane::hardware::ostrel::core
