// The page's writer: escaping by the kind of what is written, never by the caller.
#include "Html.h"

#include <cstdio>

#include "Report.h"

namespace ostrel_report {

namespace {

const char* className(PageClass c) {
    switch (c) {
        case PageClass::Pass: return "v-pass";
        case PageClass::Fail: return "v-fail";
        case PageClass::Unknown: return "v-unknown";
        case PageClass::Error: return "v-error";
        case PageClass::Aborted: return "v-aborted";
        case PageClass::Incomplete: return "v-incomplete";
    }
    return "v-unknown";
}

}  // namespace

PageClass pageClassOf(Verdict verdict) {
    switch (verdict) {
        case Verdict::Pass: return PageClass::Pass;
        case Verdict::Fail: return PageClass::Fail;
        case Verdict::Unknown: return PageClass::Unknown;
        case Verdict::Error: return PageClass::Error;
        case Verdict::Aborted: return PageClass::Aborted;
    }
    return PageClass::Unknown;
}

Html& Html::raw(Markup markup) {
    out_ << markup.view();
    return *this;
}

Html& Html::text(const std::string& value) {
    out_ << xmlEscape(value, false);
    return *this;
}

Html& Html::attr(Markup name, const std::string& value) {
    out_ << ' ' << name.view() << "=\"" << xmlEscape(value, true) << '"';
    return *this;
}

Html& Html::classes(Markup fixed, PageClass verdict) {
    out_ << " class=\"" << fixed.view() << (fixed.view().empty() ? "" : " ") << className(verdict) << '"';
    return *this;
}

Html& Html::number(int64_t value) {
    out_ << value;
    return *this;
}

Html& Html::decimal(double value) {
    char text[32];
    snprintf(text, sizeof(text), "%.1f", value);
    out_ << text;
    return *this;
}

}  // namespace ostrel_report
