// The page's one writer: markup comes only from text the code holds (string
// literals and the embedded page frame), every value from a run goes through
// text() or attr(), which always clean and escape it, and the page's classes
// come from a fixed table. No other part of the page escapes anything by hand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "Verdicts.h"

namespace ostrel_report {

// Markup held by the code: a string literal, or a part of one (the page's frame).
class Markup {
  public:
    template <size_t N>
    constexpr Markup(const char (&literal)[N]) : text_(literal, N - 1) {}  // NOLINT: implicit on purpose
    // The part from |from| up to |to| (npos: to the end).
    Markup part(size_t from, size_t to = std::string_view::npos) const {
        return Markup(text_.substr(from, to == std::string_view::npos ? to : to - from));
    }
    size_t find(std::string_view what) const { return text_.find(what); }
    std::string_view view() const { return text_; }

  private:
    explicit constexpr Markup(std::string_view text) : text_(text) {}
    std::string_view text_;
};

// The page's classes: the only words that ever reach a class attribute.
enum class PageClass { Pass, Fail, Unknown, Error, Aborted, Incomplete };
PageClass pageClassOf(Verdict verdict);

class Html {
  public:
    explicit Html(std::ostream& out) : out_(out) {}
    Html& raw(Markup markup);
    // An element's text: cleaned, '&', '<' and '>' escaped.
    Html& text(const std::string& value);
    // ` name="value"`, the value cleaned and escaped for an attribute.
    Html& attr(Markup name, const std::string& value);
    // ` class="<fixed> v-<verdict>"`: |fixed| from the code, the rest from the table.
    Html& classes(Markup fixed, PageClass verdict);
    Html& number(int64_t value);
    // |value| with one decimal ("12.5"), for geometry.
    Html& decimal(double value);

  private:
    std::ostream& out_;
};

}  // namespace ostrel_report
