// Text from an archive, a plan or a tool made safe for every output: valid UTF-8
// with no control character, so that JSON and XML readers take it, a terminal
// shows no control sequence, no text can start a line of its own and none can
// reorder what is printed after it.
#include <algorithm>
#include <cstdint>

#include "Report.h"

namespace ostrel_report {

namespace {

// The length of the UTF-8 sequence a lead byte starts, 0 for a byte that starts none.
size_t sequenceLength(unsigned char lead) {
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) return 2;
    if (lead >= 0xE0 && lead <= 0xEF) return 3;
    if (lead >= 0xF0 && lead <= 0xF4) return 4;
    return 0;
}

// Characters that move text without being control characters: the line and
// paragraph separators (a line break to some readers) and the bidirectional
// marks, embeddings, overrides and isolates (they reorder what follows).
bool movesText(uint32_t cp) {
    return cp == 0x2028 || cp == 0x2029 || cp == 0x061C || cp == 0x200E || cp == 0x200F ||
           (cp >= 0x202A && cp <= 0x202E) || (cp >= 0x2066 && cp <= 0x2069);
}

}  // namespace

std::string cleanText(const std::string& text, bool keepLineEnds) {
    static const char kReplacement[] = "\xEF\xBF\xBD";
    std::string out;
    size_t i = 0;
    while (i < text.size()) {
        auto b = static_cast<unsigned char>(text[i]);
        size_t length = sequenceLength(b);
        static const uint32_t kLeadBits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
        uint32_t cp = b & kLeadBits[length];
        bool valid = length > 0 && i + length <= text.size();
        for (size_t k = 1; valid && k < length; k++) {
            auto cont = static_cast<unsigned char>(text[i + k]);
            valid = (cont & 0xC0) == 0x80;
            cp = (cp << 6) | (cont & 0x3F);
        }
        static const uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
        valid = valid && cp >= kLeast[length] && cp <= 0x10FFFF;
        // Printable characters of XML 1.0: no C0, DEL or C1 control, no surrogate.
        bool printable = (cp == 0xA && keepLineEnds) || (cp >= 0x20 && cp < 0x7F) ||
                         (cp >= 0xA0 && cp <= 0xD7FF) || (cp >= 0xE000 && cp <= 0xFFFD) || cp >= 0x10000;
        if (valid && printable && !movesText(cp)) {
            out.append(text, i, length);
        } else {
            out += kReplacement;
        }
        // A whole character stands for one replacement; a broken sequence for one per byte.
        i += valid ? length : 1;
    }
    return out;
}

std::string shownText(const std::string& text) {
    return cutText(text, text.size());
}

std::string cutText(const std::string& head, size_t total) {
    if (total <= kShownBytes) return head;
    size_t cut = std::min(kShownBytes, head.size());
    while (cut > 0 && cut < head.size() && (static_cast<unsigned char>(head[cut]) & 0xC0) == 0x80) cut--;
    return head.substr(0, cut) + " ... (" + std::to_string(total - cut) + " more bytes)";
}

// The one escaping for markup, after the one cleaning: the page's writer and
// nothing else calls it (JUnit's printer escapes for itself).
std::string xmlEscape(const std::string& text, bool attribute) {
    std::string out;
    // Line ends are kept in an element's text; an attribute holds one line.
    for (char c : cleanText(text, !attribute)) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += attribute ? "&quot;" : "\""; break;
            case '\'': out += attribute ? "&apos;" : "'"; break;
            default: out += c;
        }
    }
    return out;
}

}  // namespace ostrel_report
